#include "records/backup_set.h"

#include <gtest/gtest.h>

#include <string>

#include "support/scoped_zone.h"

namespace {

using json_spirit::dump_json;

constexpr const char* resource = "6ba7b810-9dad-11d1-80b4-00c04fd430c8";

Backup_Set sample_set() {
  Backup_Set set;
  set.uuid = "set-uuid";
  set.module = "hana";
  set.type = "full";
  set.job_name = "nightly";
  set.job_id = "job-id";
  set.job_act_id = "activity-id";
  set.job_uid = "uid";
  set.host_uuid = "host";
  set.agent = "agent-1";
  set.resource_uuid = resource;
  set.minor_resource_id = "minor";
  set.source_name = "TN1";
  set.creation_time = 1700000000;
  set.begin_time = 1700000001;
  set.end_time = 1700000060;
  set.update_time = 1700000061;
  set.total_size = 5000000000;
  set.total_storage_size = 2000000000;
  set.add_storage({"pool-1", 2000000000});
  return set;
}

}  // namespace

TEST(Backup_Set, Writes_Its_Record_With_Times_In_Utc_Whatever_The_Local_Zone) {
  const support::Scoped_Zone zone("Asia/Tokyo");
  EXPECT_EQ(dump_json(sample_set().to_record()),
            R"({"uuid":"set-uuid","module":"hana","type":"full","job_name":"nightly","job_id":"job-id",)"
            R"("job_act_id":"activity-id","job_uid":"uid","host_uuid":"host","agent":"agent-1",)"
            R"("resource_uuid":"6ba7b810-9dad-11d1-80b4-00c04fd430c8","minor_resource_id":"minor",)"
            R"("source_name":"TN1","pool_uuid":"pool-1","creation_time":"2023-11-14 22:13:20",)"
            R"("start_time":"2023-11-14 22:13:21","first_time":"2023-11-14 22:13:21",)"
            R"("last_time":"2023-11-14 22:14:20","update_time":"2023-11-14 22:14:21",)"
            R"("source_size":5000000000,"total_size":2000000000,)"
            R"("storages":[{"pool_uuid":"pool-1","upstream_pool_uuid":null,"state":["online"],"size":2000000000}]})");
}

TEST(Backup_Set, Has_A_Null_Pool_And_No_Storages_Before_One_Is_Added) {
  const json_spirit::Object record = Backup_Set().to_record();
  ASSERT_NE(record.find("pool_uuid"), nullptr);
  EXPECT_TRUE(record.find("pool_uuid")->is_null());
  EXPECT_TRUE(record.find("storages")->get_array().empty());
}

TEST(Backup_Set, Names_The_Pool_Of_Its_First_Storage) {
  Backup_Set set;
  set.add_storage({"first", 1});
  set.add_storage({"second", 2});
  EXPECT_EQ(set.to_record().find("pool_uuid")->get_str(), "first");
  EXPECT_EQ(set.to_record().find("storages")->get_array().size(), 2U);
}

TEST(Backup_Set, Keeps_Its_Pieces_In_Order) {
  Backup_Set set;
  set.add_piece({"a/1", 10});
  set.add_piece({"a/2", 20});
  ASSERT_EQ(set.pieces().size(), 2U);
  EXPECT_EQ(set.pieces()[0].path, "a/1");
  EXPECT_EQ(set.pieces()[1].size, 20U);
}

TEST(Minor_Resource_Id, Is_The_Name_Based_Uuid_Of_The_Database) {
  // Computed independently with Python: uuid.uuid5(uuid.UUID(resource), "TN1").
  std::string id;
  ASSERT_TRUE(compute_minor_resource_id(resource, "TN1", id));
  EXPECT_EQ(id, "e6caa6af-89fb-5a54-953d-a6b5aa089386");
  std::string other;
  ASSERT_TRUE(compute_minor_resource_id(resource, "TN2", other));
  EXPECT_NE(id, other);
}

TEST(Minor_Resource_Id, Leaves_Its_Output_Alone_When_The_Resource_Is_No_Uuid) {
  std::string id = "before";
  EXPECT_FALSE(compute_minor_resource_id("not a uuid", "TN1", id));
  EXPECT_EQ(id, "before");
}
