#include <gtest/gtest.h>

#include "hana/backint_catalog/backint_backup_file.h"
#include "hana/backint_catalog/backint_job.h"

namespace {

using namespace sap_hana;
using json_spirit::Object;

constexpr const char* golden_job =
    R"({"id":7,"database_backup_id":1700000000000,"uuid":"u1","host_uuid":"h1","job_act_id":"a1","type":"full",)"
    R"("location":"file:///pool","database":"TN1","compression":"zstd","compression_level":3,"sid":"HDB","pool_uuid":"p1",)"
    R"("landscape_id":"l1","extended_attrs":{"io_ctl":{"max_seconds_retry":600}}})";

constexpr const char* golden_file =
    R"({"id":18446744073709551615,"info_uuid":"u1","filename":"x_databackup_0_1","origin_path":"/pipes/x_databackup_0_1",)"
    R"("size":4096,"storage_size":1024,"extern_backup_id":"e1","source_type":"PIPE","pool_uuid":"p1",)"
    R"("storage_path":"h/l/TN1/1/x","backup_time":"2026-04-14 08:15:31","location":"file:///pool",)"
    R"("database_backup_id":1700000000000,"compression":"zstd","checksum":"00112233445566778899aabbccddeeff"})";

template <typename Record>
Record read(const std::string& text) {
  json_spirit::Value value;
  EXPECT_TRUE(json_spirit::load_json(text, value)) << text;
  Record record;
  std::string error;
  EXPECT_TRUE(record.from_json(value.get_obj(), &error)) << error;
  return record;
}

TEST(Backint_Backup_Job_Info, Is_Read_And_Written_Alike) {
  const auto job = read<Backint_Backup_Job_Info>(golden_job);
  EXPECT_EQ(json_spirit::dump_json(job.to_json()), golden_job);
  EXPECT_EQ(job.id, 7U);
  EXPECT_EQ(job.compression_level, 3);
  EXPECT_EQ(job.extended_attrs.size(), 1U);
}

TEST(Backup_File_Info, Is_Read_And_Written_Alike) {
  const auto file = read<Backup_File_Info>(golden_file);
  EXPECT_EQ(json_spirit::dump_json(file.to_json()), golden_file);
  EXPECT_EQ(file.id, 18446744073709551615U);
  EXPECT_EQ(file.storage_path, "h/l/TN1/1/x");
}

TEST(Backint_Records, Need_No_More_Than_The_Uuid_And_Skip_What_They_Do_Not_Know) {
  const auto job = read<Backint_Backup_Job_Info>(R"({"uuid":"u1","taken":true})");
  EXPECT_EQ(job.uuid, "u1");
  EXPECT_EQ(job.id + job.database_backup_id, 0U);
  const auto file = read<Backup_File_Info>(R"({"database":"TN1"})");
  EXPECT_TRUE(file.info_uuid.empty());
}

TEST(Backint_Records, Leave_The_Number_To_Backupd) {
  EXPECT_FALSE(Backint_Backup_Job_Info().to_json().contains("id"));
  EXPECT_FALSE(Backup_File_Info().to_json().contains("id"));
}

TEST(Backint_Records, Refuse_Other_Types_And_Stay_As_They_Were) {
  Backint_Backup_Job_Info job;
  job.uuid = "kept";
  std::string error;
  EXPECT_FALSE(job.from_json({}, &error));
  EXPECT_EQ(error, "lack of key 'uuid'");
  const Object bad_jobs[] = {{{"uuid", 1}},
                             {{"uuid", "u"}, {"database", 1}},
                             {{"uuid", "u"}, {"id", -1}},
                             {{"uuid", "u"}, {"compression_level", "3"}},
                             {{"uuid", "u"}, {"extended_attrs", nullptr}}};
  for (const Object& bad : bad_jobs) {
    EXPECT_FALSE(job.from_json(bad, &error)) << json_spirit::dump_json(bad);
    EXPECT_FALSE(job.from_json(bad)) << "the reason need not be asked for";
    EXPECT_EQ(job.uuid, "kept");
  }
  Backup_File_Info file;
  file.filename = "kept";
  const Object bad_files[] = {{{"filename", 1}}, {{"size", "1"}}, {{"size", -1}}, {{"checksum", true}}, {{"id", 1.5}}};
  for (const Object& bad : bad_files) {
    EXPECT_FALSE(file.from_json(bad, &error)) << json_spirit::dump_json(bad);
    EXPECT_EQ(file.filename, "kept");
  }
}

}  // namespace
