#include "hana/job/hana_backup_set.h"

#include <gtest/gtest.h>

namespace {

using json_spirit::dump_json;
using sap_hana::HANA_Backup_Set;

HANA_Backup_Set sample_set() {
  HANA_Backup_Set set;
  set.uuid = "set-uuid";
  set.sid = "HDB";
  set.instance_number = 7;
  set.instance_name = "HDB07";
  set.system_version = "2.00.059.00";
  set.database = "TN1";
  set.database_backup_id = 1700000000123;
  set.lifeline = "life";
  set.incarnation = "inc";
  set.add_file({"ebid-1", "/usr/sap/HDB/SYS/global/hdb/backint/DB_TN1/x_databackup_0_1", "x_databackup_0_1", 1000,
                "PIPE", "host/land/TN1/1/a", 400});
  return set;
}

}  // namespace

TEST(HANA_Backup_Set, Writes_What_The_System_Was_As_Catalog_Metadata) {
  EXPECT_EQ(dump_json(sample_set().metadata().document()),
            R"({"databases":[{"name":"TN1","database_backup_id":1700000000123}],"sid":"HDB","instance_number":7,)"
            R"("instance_name":"HDB07","system_version":"2.00.059.00","incarnation":"inc","lifeline":"life"})");
}

TEST(HANA_Backup_Set, Adds_Its_Keys_Behind_Those_Of_Every_Set) {
  const json_spirit::Object common = static_cast<const Backup_Set&>(Backup_Set()).to_record();
  const json_spirit::Object record = sample_set().to_record();
  auto place = record.begin();
  for (const auto& member : common) {
    ASSERT_NE(place, record.end());
    EXPECT_EQ((place++)->first, member.first);
  }
  json_spirit::Object own;
  for (; place != record.end(); ++place) own[place->first] = place->second;
  EXPECT_EQ(dump_json(own),
            R"({"database":"TN1","database_backup_id":1700000000123,"lifeline":"life","incarnation":"inc",)"
            R"("files":[{"filename":"x_databackup_0_1",)"
            R"("origin_path":"/usr/sap/HDB/SYS/global/hdb/backint/DB_TN1/x_databackup_0_1",)"
            R"("storage_path":"host/land/TN1/1/a","extern_backup_id":"ebid-1","source_type":"PIPE","size":1000,)"
            R"("storage_size":400}],"metadata":)" +
                dump_json(sample_set().metadata().document()) + "}");
}

TEST(HANA_Backup_Set, Tells_Why_Its_Kind_Was_Lifted_And_Only_Then) {
  HANA_Backup_Set set;
  set.requested_type = "incremental";
  EXPECT_FALSE(set.to_record().contains("requested_type"));
  set.lift_reason = "restored";
  EXPECT_EQ(set.to_record().find("requested_type")->get_str(), "incremental");
  EXPECT_EQ(set.to_record().find("lift_reason")->get_str(), "restored");
}

TEST(HANA_Backup_Set, Belongs_To_The_Hana_Module) {
  EXPECT_EQ(HANA_Backup_Set().to_record().find("module")->get_str(), "hana");
}

TEST(HANA_Backup_Set, Keeps_Its_Files_In_Order) {
  HANA_Backup_Set set;
  set.add_file({.extern_backup_id = "1"});
  set.add_file({.extern_backup_id = "2"});
  ASSERT_EQ(set.files().size(), 2U);
  EXPECT_EQ(set.files()[1].extern_backup_id, "2");
}
