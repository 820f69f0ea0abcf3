#include "fuzz/rest_requests.h"

#include <map>

namespace fuzz {

namespace {

#define D3_FUZZ_HOST "11111111-1111-4111-8111-111111111111"
#define D3_FUZZ_OTHER_HOST "22222222-2222-4222-8222-222222222222"
#define D3_FUZZ_POOL "33333333-3333-4333-8333-333333333333"
#define D3_FUZZ_RESOURCE "44444444-4444-4444-8444-444444444444"
#define D3_FUZZ_LIFELINE "55555555-5555-4555-8555-555555555555"

/// The records of a job that still runs, of one whose set is committed, and of a log backup that waits to be recorded.
constexpr const char* job_uuid = "aaaaaaaa-0000-4000-8000-000000000001";
constexpr const char* full_uuid = "aaaaaaaa-0000-4000-8000-000000000002";
constexpr const char* log_uuid = "aaaaaaaa-0000-4000-8000-000000000003";
constexpr const char* definition_id = "bbbbbbbb-0000-4000-8000-000000000001";
constexpr const char* log_definition_id = "bbbbbbbb-0000-4000-8000-000000000002";

std::string job_body(const std::string& uuid, const std::string& type, int backup_id) {
  return R"({"uuid":")" + uuid + R"(","host_uuid":")" D3_FUZZ_HOST R"(","job_act_id":"","type":")" + type +
         R"(","location":"http://backupd.test:9443/q5/pools/)" D3_FUZZ_POOL
         R"(","database":"TN1","database_backup_id":)" +
         std::to_string(backup_id) +
         R"(,"compression":"zstd","compression_level":1,"sid":"HDB","pool_uuid":")" D3_FUZZ_POOL
         R"(","landscape_id":"land-1","extended_attrs":{"io_ctl":{"max_seconds_retry":300},"job_definition_uuid":")" +
         log_definition_id + R"("}})";
}

std::string files_body(const std::string& ebid, const std::string& name, int backup_id, bool last) {
  return R"({"files":[{"filename":")" + name + R"(","origin_path":"/usr/sap/HDB/SYS/global/hdb/backint/DB_TN1/)" +
         name + R"(","size":1000,"storage_size":400,"extern_backup_id":")" + ebid +
         R"(","source_type":"PIPE","pool_uuid":")" D3_FUZZ_POOL R"(","storage_path":")" D3_FUZZ_HOST "/land-1/TN1/" +
         std::to_string(backup_id) + "/" + name +
         R"(","backup_time":"2026-01-01 10:00:00","location":"","database_backup_id":)" + std::to_string(backup_id) +
         R"(,"compression":"zstd","checksum":"00112233445566778899aabbccddeeff"}],"last":)" +
         (last ? "true}" : "false}");
}

std::string set_body() {
  return R"({"uuid":")" + std::string(full_uuid) +
         R"(","module":"hana","type":"full","job_name":"nightly","job_id":"","job_act_id":"","host_uuid":")" D3_FUZZ_HOST
         R"(","resource_uuid":")" D3_FUZZ_RESOURCE
         R"(","database":"TN1","database_backup_id":200,"pool_uuid":")" D3_FUZZ_POOL
         R"(","lifeline":")" D3_FUZZ_LIFELINE
         R"(","incarnation":"i","start_time":"2026-01-01 10:00:00","first_time":"2026-01-01 10:00:00",)"
         R"("last_time":"2026-01-01 11:00:00","source_size":1000,"total_size":400,"files":[{"filename":"databackup_0_1",)"
         R"("origin_path":"/usr/sap/HDB/SYS/global/hdb/backint/DB_TN1/databackup_0_1","storage_path":"p",)"
         R"("extern_backup_id":"cccccccc-0000-4000-8000-000000000002","source_type":"PIPE","size":1000,)"
         R"("storage_size":400}],"storages":[{"pool_uuid":")" D3_FUZZ_POOL R"(","size":400}]})";
}

std::string definition_body(const std::string& id, const std::string& subtype) {
  return R"({"id":")" + id + R"(","name":"nightly","type":"backup","subtype":")" + subtype +
         R"(","module":"hana","host_uuid":")" D3_FUZZ_HOST R"(","source":{"id":")" D3_FUZZ_RESOURCE
         R"(","name":"HDB_HDB00","entries":["hana/HDB00/TN1"]},"options":{"compression":"zstd","compression_level":1},)"
         R"("target":{"pool_uuid":")" D3_FUZZ_POOL R"("}})";
}

std::string instance_body(const std::string& host) {
  return R"({"name":"HDB_HDB00","type":"hana","host_uuid":")" + host +
         R"(","extended_attrs":{"sid":"HDB","instance_name":"HDB00","instance_number":0,"landscape_id":"land-1"}})";
}

}  // namespace

Rest_Request request_of(std::string_view line, std::string body) {
  const std::size_t first = line.find(' ');
  const std::size_t second = line.find(' ', first + 1);
  return {std::string(line.substr(0, first)), std::string(line.substr(first + 1, second - first - 1)),
          std::string(line.substr(second + 1)), std::move(body)};
}

std::vector<std::string> paths_of(const std::string& pattern) {
  const std::map<std::string, std::vector<std::string>> known = {{"<uuid>", {job_uuid, full_uuid, log_uuid}},
                                                                 {"<id>", {definition_id, log_definition_id}},
                                                                 {"<act id>", {"0123456789abcdef"}},
                                                                 {"<host uuid>", {D3_FUZZ_HOST}},
                                                                 {"<module>", {"hana"}},
                                                                 {"<view>", {"set", "rselect", "sets_size"}}};
  const std::size_t begin = pattern.find('<');
  if (begin == std::string::npos) return {pattern};
  const std::size_t end = pattern.find('>', begin) + 1;
  std::vector<std::string> paths;
  for (const std::string& value : known.at(pattern.substr(begin, end - begin)))
    for (std::string& path : paths_of(pattern.substr(0, begin) + value + pattern.substr(end)))
      paths.push_back(std::move(path));
  return paths;
}

void make_stock(const std::function<void(const Rest_Request&)>& ask) {
  const auto post = [&ask](const char* role, const std::string& path, const std::string& body) {
    ask({role, "POST", "/q5/r/v2" + path, body});
  };
  post("operator", "/pools", R"({"name":"main","uuid":")" D3_FUZZ_POOL R"(","directory":"/pool"})");
  post("operator", "/resources", instance_body(D3_FUZZ_HOST));
  post("operator", "/resources", instance_body(D3_FUZZ_OTHER_HOST));
  post("agent", "/backint/jobs", job_body(job_uuid, "full", 100));
  post("agent", "/backint/jobs", job_body(full_uuid, "full", 200));
  post("agent", std::string("/backint/jobs/") + full_uuid + "/files",
       files_body("cccccccc-0000-4000-8000-000000000002", "databackup_0_1", 200, false));
  post("agent", "/sets", set_body());
  post("agent", "/backint/on-demand-jobs", job_body(log_uuid, "log", 300));
  post("agent", std::string("/backint/jobs/") + log_uuid + "/files",
       files_body("cccccccc-0000-4000-8000-000000000003", "log_backup_1_0_64_128", 300, true));
  post("operator", "/job-definitions", definition_body(definition_id, "full"));
  post("operator", "/job-definitions", definition_body(log_definition_id, "log"));
}

void name_resource(backupd::Database& database) {
  static_cast<void>(database.write([](backupd::Sql_Session& session) {
    session.execute("UPDATE resources SET uuid = :a", {D3_FUZZ_RESOURCE});
    session.execute("UPDATE instances SET resource_uuid = :a", {D3_FUZZ_RESOURCE});
    return true;
  }));
}

}  // namespace fuzz
