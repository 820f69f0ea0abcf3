#include "unit/backupd/memory_server.h"

#include <cstdio>

namespace backupd_test {

namespace {

constexpr std::chrono::seconds limit{10};

}  // namespace

std::string Answer::error_code() const {
  json_spirit::Object error;
  std::string code;
  json_spirit::object_get(body, "error", error);
  json_spirit::object_get(error, "code", code);
  return code;
}

std::string Answer::error_message() const {
  json_spirit::Object error;
  std::string message;
  json_spirit::object_get(body, "error", error);
  json_spirit::object_get(error, "message", message);
  return message;
}

json_spirit::Array Answer::rows() const {
  json_spirit::Array rows;
  json_spirit::object_get(body, "rows", rows);
  return rows;
}

std::string Answer::text_of(const char* key) const {
  std::string value;
  json_spirit::object_get(body, key, value);
  return value;
}

long Answer::number_of(const char* key) const {
  long value = -1;
  json_spirit::object_get(body, key, value);
  return value;
}

Memory_Server::Memory_Server() {
  root.make_directory("/var");
  std::string error;
  EXPECT_TRUE(database.open("/var/backupd.db", error)) << error;
  begin();
  agent_key = make_key(backupd::role_agent, host_a);
  other_agent_key = make_key(backupd::role_agent, host_b);
  viewer_key = make_key(backupd::role_viewer);
  operator_key = make_key(backupd::role_operator);
}

Memory_Server::~Memory_Server() = default;

void Memory_Server::begin() {
  core = std::make_unique<backupd::Server_Core>(
      database, backupd::Server_Core::Options{"http://backupd.test:9443", host_a, "1.0.0", history});
  network = std::make_unique<support::Fake_Http_Transport>(core->handler());
  core->starter.start();
}

void Memory_Server::restart() {
  network.reset();
  core.reset();
  begin();
}

std::string Memory_Server::make_key(backupd::Role role, const std::string& host) {
  secure_string key;
  const backupd::Outcome outcome = core->keys.add(role, host, key);
  EXPECT_TRUE(outcome.ok()) << outcome.message;
  return std::string(key.view());
}

Answer Memory_Server::request(const std::string& method, const std::string& path, const std::string& body,
                              const std::string& key) {
  return raw(method, "/q5/r/v2" + path, body, key.empty() ? operator_key : key);
}

Answer Memory_Server::raw(const std::string& method, const std::string& target, const std::string& body,
                          const std::string& key) {
  net::Net_Error error;
  const auto connection = network->connect({false, "backupd.test", 9443, ""}, limit, error);
  net::Http_Request request;
  request.method = method;
  request.target = target;
  request.body = body;
  if (!key.empty()) request.headers.set("Authorization", "Bearer " + key);
  net::Http_Response response;
  Answer answer;
  EXPECT_TRUE(connection && connection->exchange(request, response, limit, error)) << error.text;
  answer.status = response.status;
  answer.text = response.body;
  json_spirit::Value value;
  if (json_spirit::load_json(response.body, value) && value.is_object()) answer.body = value.get_obj();
  return answer;
}

void Memory_Server::add_pool(std::int64_t max_bytes) {
  const Answer answer = request("POST", "/pools",
                                std::string(R"({"name":"main","uuid":")") + pool_uuid +
                                    R"(","directory":"/pool","max_bytes":)" + std::to_string(max_bytes) + "}");
  EXPECT_EQ(answer.status, 201U) << answer.text;
}

std::string Memory_Server::add_instance(const std::string& host, const std::string& landscape) {
  const Answer answer = request("POST", "/resources",
                                R"({"name":"HDB_HDB00","type":"hana","host_uuid":")" + host +
                                    R"(","extended_attrs":{"sid":"HDB","landscape_id":")" + landscape + R"("}})");
  EXPECT_EQ(answer.status, 201U) << answer.text;
  return answer.text_of("uuid");
}

void Memory_Server::add_object(const std::string& job_uuid, const std::string& ebid, const std::string& job_act_id,
                               const std::string& database_name, long backup_id) {
  const Answer job = agent("POST", "/backint/jobs", job_json(job_uuid, job_act_id, database_name, backup_id));
  EXPECT_EQ(job.status, 201U) << job.text;
  const Answer files = agent("POST", "/backint/jobs/" + job_uuid + "/files",
                             R"({"files":[)" + file_json(ebid, "pipe_0", backup_id, database_name) + "]}");
  EXPECT_EQ(files.status, 201U) << files.text;
}

std::string job_json(const std::string& uuid, const std::string& job_act_id, const std::string& database,
                     long backup_id) {
  return R"({"uuid":")" + uuid + R"(","host_uuid":")" + host_a + R"(","job_act_id":")" + job_act_id +
         R"(","type":"full","location":"http://backupd.test:9443/q5/pools/x","database":")" + database +
         R"(","database_backup_id":)" + std::to_string(backup_id) +
         R"(,"compression":"zstd","compression_level":1,"sid":"HDB","pool_uuid":")" + pool_uuid +
         R"(","landscape_id":"land-1","extended_attrs":{"io_ctl":{"max_seconds_retry":300}}})";
}

std::string file_json(const std::string& ebid, const std::string& filename, long backup_id,
                      const std::string& database) {
  return R"({"filename":")" + filename + R"(","origin_path":"/usr/sap/HDB/SYS/global/hdb/backint/DB_TN1/)" + filename +
         R"(","size":1000,"storage_size":400,"extern_backup_id":")" + ebid + R"(","source_type":"PIPE","pool_uuid":")" +
         pool_uuid + R"(","storage_path":")" + host_a + "/land-1/" + database + "/" + std::to_string(backup_id) + "/" +
         filename + R"(","backup_time":"2026-01-01 10:00:00","location":"","database_backup_id":)" +
         std::to_string(backup_id) + R"(,"compression":"zstd","checksum":"00112233445566778899aabbccddeeff"})";
}

std::string set_json(const std::string& uuid, const std::string& ebid, const std::string& type,
                     const std::string& start, long backup_id, const std::string& job_act_id,
                     const std::string& database) {
  return R"({"uuid":")" + uuid + R"(","module":"hana","type":")" + type +
         R"(","job_name":"nightly","job_id":"","job_act_id":")" + job_act_id + R"(","host_uuid":")" + host_a +
         R"(","resource_uuid":")" + resource_uuid + R"(","database":")" + database + R"(","database_backup_id":)" +
         std::to_string(backup_id) + R"(,"pool_uuid":")" + pool_uuid + R"(","lifeline":")" + lifeline +
         R"(","incarnation":"i","start_time":")" + start + R"(","first_time":")" + start +
         R"(","last_time":"2026-12-31 23:00:00","source_size":1000,"total_size":400,"files":[{"filename":"pipe_0",)" +
         R"("origin_path":"/usr/sap/HDB/SYS/global/hdb/backint/DB_TN1/pipe_0","storage_path":"p","extern_backup_id":")" +
         ebid + R"(","source_type":"PIPE","size":1000,"storage_size":400}],"storages":[{"pool_uuid":")" + pool_uuid +
         R"(","size":400}]})";
}

std::string definition_json(const std::string& extra, const std::string& entry) {
  return R"({"name":"nightly","type":"backup","subtype":"full","module":"hana","host_uuid":")" + std::string(host_a) +
         R"(","source":{"id":")" + resource_uuid + R"(","name":"HDB_HDB00","entries":[")" + entry +
         R"("]},"options":{"compression":"zstd","compression_level":1},"target":{"pool_uuid":")" + pool_uuid + R"("})" +
         (extra.empty() ? "" : "," + extra) + "}";
}

std::string uuid_of(int number) {
  char text[40];
  std::snprintf(text, sizeof text, "aaaaaaaa-0000-4000-8000-%012d", number);
  return text;
}

}  // namespace backupd_test
