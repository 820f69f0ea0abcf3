#include "hdbbackint/settings.h"

#include <gtest/gtest.h>

#include "hdbbackint/backup/dataset_path.h"
#include "hdbbackint/inquire/inquire_function.h"
#include "support/log_capture.h"

namespace hdbbackint {
namespace {

constexpr const char* uuid = "0f0e0d0c-0b0a-4908-8706-050403020100";

sap_hana::Backint_Backup_Job_Info sound_job() {
  sap_hana::Backint_Backup_Job_Info job;
  job.uuid = uuid;
  job.host_uuid = "host-1";
  job.landscape_id = "land-1";
  job.database = "TN1";
  job.location = "file:///pool";
  job.compression = "zstd";
  return job;
}

sap_hana::Backint_Backup_Job_Info job_with(const char* io_ctl) {
  auto job = sound_job();
  json_spirit::Value value;
  EXPECT_TRUE(json_spirit::load_json(io_ctl, value)) << io_ctl;
  job.extended_attrs["io_ctl"] = value;
  return job;
}

TEST(Job_Settings, Are_Read_From_The_Record) {
  Job_Settings settings;
  std::string error;
  ASSERT_TRUE(read_job_settings(
      job_with(R"({"max_seconds_retry":120,"resumption_buffer_size":4096,)"
               R"("dest_rate_limits":"[{\"start_time\":0,\"end_time\":3600,\"max_bytes_per_second\":7}]",)"
               R"("src_rate_limits":"[]"})"),
      settings, error))
      << error;
  EXPECT_EQ(settings.compression, COMPR_ZSTD);
  EXPECT_EQ(settings.max_seconds_retry, 120U);
  EXPECT_EQ(settings.resumption_buffer_size, 4096U);
  ASSERT_EQ(settings.rate_limits.destination.size(), 1U);
  EXPECT_EQ(settings.rate_limits.destination[0].max_bytes_per_second, 7U);
  EXPECT_TRUE(settings.rate_limits.source.empty());
}

TEST(Job_Settings, Record_Without_Settings_Means_None) {
  auto job = sound_job();
  job.compression.clear();
  Job_Settings settings;
  std::string error;
  ASSERT_TRUE(read_job_settings(job, settings, error)) << error;
  EXPECT_EQ(settings.compression, COMPR_NONE);
  EXPECT_EQ(settings.max_seconds_retry, 0U);
}

TEST(Job_Settings, Malformed_Records_Are_Refused) {
  auto no_pool = sound_job();
  no_pool.location.clear();
  auto no_host = sound_job();
  no_host.host_uuid.clear();
  auto no_landscape = sound_job();
  no_landscape.landscape_id.clear();
  auto no_database = sound_job();
  no_database.database.clear();
  const sap_hana::Backint_Backup_Job_Info bad[] = {
      no_pool,
      no_host,
      no_landscape,
      no_database,
      job_with(R"({"max_seconds_retry":"soon"})"),
      job_with(R"({"max_seconds_retry":-1})"),
      job_with(R"({"resumption_buffer_size":[]})"),
      job_with(R"({"dest_rate_limits":"not json"})"),
  };
  for (const auto& job : bad) {
    Job_Settings settings;
    std::string error;
    EXPECT_FALSE(read_job_settings(job, settings, error));
    EXPECT_NE(error.find(uuid), std::string::npos) << error;
  }
}

TEST(Job_Settings, Unknown_Compression_Means_None_With_A_Warning) {
  support::Log_Capture log;
  auto job = sound_job();
  job.compression = "brotli";
  Job_Settings settings;
  std::string error;
  ASSERT_TRUE(read_job_settings(job, settings, error)) << error;
  EXPECT_EQ(settings.compression, COMPR_NONE);
  EXPECT_TRUE(log.has_containing("brotli"));
}

TEST(Job_Uuid, Comes_From_The_Option_Or_From_The_Name) {
  const std::string id = uuid;
  struct Row {
    std::string option;
    std::string object;
    std::string wanted;
  };
  const Row rows[] = {
      {"job_uuid=" + id + ";", "/x/y_databackup_0_1", id},
      {"", "/x/" + id + "_databackup_0_1", id},
      {"", "/x/" + id + "_databackup_incremental_1_2_0_1", id},
      {"other=1;", "/x/" + id + "_databackup_0_1", id},
      {"", "/x/" + id, ""},
      {"", "/x/COMPLETE_databackup_0_1", ""},
      {"", "/" + id + "_databackup_/log_backup_0_0_0_0", ""},
      {"job_uuid=nonsense;", "/x/log_backup_0_0_0_0", ""},
      {"", "", ""},
  };
  for (const Row& row : rows) EXPECT_EQ(find_job_uuid(row.option, row.object), row.wanted) << row.object;
}

TEST(Dataset_Path, Has_Four_Safe_Segments_And_A_Unique_Name) {
  auto job = sound_job();
  job.database_backup_id = 1707397841205;
  EXPECT_EQ(object_path(job, "x_databackup_0_1", "e-1", COMPR_ZSTD),
            "host-1/land-1/TN1/1707397841205/x%5Fdatabackup%5F0%5F1.e-1.zst");
  job.database = "T_1";
  EXPECT_EQ(dataset_directory(job), "host-1/land-1/T_1/1707397841205") << "as a stop of the backup looks for it";
  job.database_backup_id = 0;
  job.database = "../A/B";
  EXPECT_EQ(object_path(job, "..", "e-1", COMPR_NONE),
            std::string("host-1/land-1/%2E%2E%2FA%2FB/") + uuid + "/%2E%2E.e-1");
  const std::string path = object_path(job, std::string(255, '%'), std::string(36, 'e'), COMPR_LZOP);
  EXPECT_LE(path.size() - path.rfind('/'), 255U);
}

TEST(Inquire_Timestamp, Has_All_Three_Digits) {
  EXPECT_EQ(inquire_timestamp("2024-02-08 13:24:01"), "2024-02-08T13:24:01.000Z");
  EXPECT_EQ(inquire_timestamp(""), "");
}

}  // namespace
}  // namespace hdbbackint
