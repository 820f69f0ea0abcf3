#include "unit/hana/job/restore_fixture.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

namespace backup_test {

namespace {

using json_spirit::Array;
using json_spirit::Object;
using json_spirit::Value;

// What sapcontrol -function GetProcessList exits with.
constexpr int running_code = 3;
constexpr int stopped_code = 4;
constexpr mode_t permission_bits = 07777;

}  // namespace

json_spirit::Object full_record(const std::string& database) {
  return {{"uuid", full_set_uuid}, {"type", "full"},           {"database", database}, {"database_backup_id", full_id},
          {"lifeline", "life-1"},  {"first_time", full_start}, {"last_time", full_end}};
}

json_spirit::Object catalog_record(const std::string& database) {
  return {{"type", "catalog"},
          {"database", database},
          {"database_backup_id", catalog_id},
          {"files", Array{Object{{"size", 4096},
                                 {"storage_path", "data/catalog-of-" + database},
                                 {"extern_backup_id", "ebid-catalog"},
                                 {"source_type", "PIPE"}}}},
          {"storages", Array{Object{{"pool_uuid", pool_uuid}, {"upstream_pool_uuid", nullptr}}}}};
}

JSON_RPC_Answer Other_Hosts::call(const std::string&, const json_spirit::Value& params, std::chrono::nanoseconds) {
  const Object& envelope = params.get_obj();
  const auto host = json_spirit::object_require<std::string>(envelope, "host_uuid");
  calls.push_back(host + " " + json_spirit::object_require<std::string>(envelope, "method") + " " +
                  json_spirit::dump_json(*envelope.find("params")));
  JSON_RPC_Answer answer;
  answer.ok = std::find(refusing.begin(), refusing.end(), host) == refusing.end();
  if (!answer.ok) answer.code = JSON_RPC_E_NOT_CONNECTED;
  return answer;
}

Restore_Test::Restore_Test() : channel_scope_(other_hosts_) {
  restore_source_ = new sap_hana::Restore_Job_Source;
  restore_source_->id(origin_uuid);
  restore_source_->name("PRD_HDB00");
  source_ = nullptr;
  options_ = nullptr;
  definition_->source = Job_Source_Ptr(restore_source_);
  restore_options_ = new sap_hana::Restore_Job_Options;
  definition_->options = Job_Options_Ptr(restore_options_);
  definition_->type(JOB_DEFINITION_RESTORE);
  definition_->subtype(JOB_DEFINITION_SUBTYPE_POINT_IN_TIME);
  definition_->target().id(resource_uuid);
  definition_->target().location("");
  Object origin = resource_record();
  origin["uuid"] = origin_uuid;
  backupd_.resources[origin_uuid] = origin;
  backupd_.pools = Array{Object{{"uuid", pool_uuid}, {"name", "pool"}, {"url", pool_location}}};
  backupd_.on_view = [this](const std::string& view, const Object& params) { return answer_view(view, params); };
  // SAP's group: the one that the test itself may give files to.
  root_.write("/etc/group", "sapsys:x:" + std::to_string(::getgid()) + ":\n");
  root_.make_directory("/usr/sap/HDB/HDB00/work");
  runner_.on(
      [this](const support::Seen_Call& call, support::Scripted_Child& child) { return answer_tool(call, child); });
}

bool Restore_Test::answer_tool(const support::Seen_Call& call, support::Scripted_Child& child) {
  if (call.program.ends_with("/sapcontrol")) {
    child.code = running_ ? running_code : stopped_code;
    return true;
  }
  if (!call.program.ends_with("/HDB")) return false;
  const std::string& action = call.arguments.front();
  if (on_action_) on_action_(action);
  if (action == refused_action_)
    child.code = 1;
  else
    running_ = action == "start";
  return true;
}

json_spirit::Value Restore_Test::answer_view(const std::string& view, const Object& params) const {
  if (view == "sets_size") return Object{{"total_source_size", 5000}, {"total_size", 2000}};
  if (view == "set") return full_record("TN1");
  const auto database = json_spirit::object_require<std::string>(params, "database");
  const bool catalog = *params.find("type") == Value("catalog");
  return Object{{"rows", Array{catalog ? catalog_record(database) : full_record(database)}}};
}

Restore_Test::Entry Restore_Test::to_time(const std::string& database) {
  Entry entry;
  entry.origin = {database, "HDB"};
  entry.target.database = database;
  entry.target.timepoint = wanted_time;
  return entry;
}

Restore_Test::Entry Restore_Test::from_full(const std::string& database) {
  Entry entry = to_time(database);
  entry.target.timepoint = full_start;
  return entry;
}

void Restore_Test::set_cluster(const std::vector<std::string>& hosts) {
  Array instances;
  for (const std::string& host : hosts) instances.emplace_back(instance_record(host));
  backupd_.resource = Object{{"uuid", resource_uuid}, {"instances", instances}};
  root_.write("/usr/sap/HDB/SYS/global/hdb/custom/config/nameserver.ini",
              "[landscape]\nid = x\nworker = hanahost second third\nactive_master = hanahost:30001\n");
}

void Restore_Test::remove_sap_group() { root_.write("/etc/group", "users:x:100:\n"); }

Restorer& Restore_Test::new_restorer() {
  restorers_.push_back(std::make_unique<Restorer>(job()));
  return *restorers_.back();
}

Restorer& Restore_Test::ready_restorer() {
  Restorer& restorer = new_restorer();
  restorer.sid_ = "HDB";
  restorer.instance_name_ = "HDB00";
  restorer.instance_mgr_name_ = "HDB_HDB00";
  restorer.mdc_ = true;
  EXPECT_TRUE(restorer.init_hdbsql());
  return restorer;
}

bool Restore_Test::restore() {
  job().state(JOB_STATE_RUNNING);
  return new_restorer().execute_i(nullptr);
}

void Restore_Test::expect_listed(const std::string& database, bool active) {
  hdbsql_.expect(
      "select DATABASE_NAME, DESCRIPTION, ACTIVE_STATUS, OS_USER, OS_GROUP from SYS.M_DATABASES where DATABASE_NAME='" +
          database + "'",
      table("DATABASE_NAME,DESCRIPTION,ACTIVE_STATUS,OS_USER,OS_GROUP",
            {"\"" + database + "\",\"\",\"" + (active ? "YES" : "NO") + "\",\"\",\"\""}));
}

void Restore_Test::expect_status(const std::string& database, const std::string& status) {
  hdbsql_.expect("select ACTIVE_STATUS from SYS.M_DATABASES where DATABASE_NAME='" + database + "'",
                 table("ACTIVE_STATUS", {"\"" + status + "\""}));
}

void Restore_Test::expect_stop(const std::string& database) {
  expect_status(database, "YES");
  hdbsql_.expect("ALTER SYSTEM STOP DATABASE " + database, done());
  expect_status(database, "NO");
}

void Restore_Test::expect_logon_and_own_tenant() {
  hdbsql_.expect("\\s", done());
  expect_start("HDB");
}

void Restore_Test::expect_tenant_restore(const std::string& database, const std::string& statement) {
  expect_listed(database, true);
  expect_stop(database);
  expect_listed(database, false);
  hdbsql_.expect(statement, done());
  expect_start(database);
}

std::string Restore_Test::full_statement(const std::string& database) {
  return "RECOVER DATA FOR " + database + " USING BACKUP_ID 1700 USING CATALOG BACKINT CLEAR LOG;";
}

std::string Restore_Test::time_statement(const std::string& database) {
  return "RECOVER DATABASE FOR " + database + " UNTIL TIMESTAMP '" + wanted_time +
         "' CLEAR LOG  USING CATALOG BACKINT USING BACKUP_ID 1700 CHECK ACCESS ALL";
}

std::vector<std::string> Restore_Test::instance_actions() const {
  std::vector<std::string> actions;
  for (const support::Seen_Call& call : runner_.calls())
    if (call.program.ends_with("/HDB")) actions.push_back("HDB " + call.arguments.front());
  return actions;
}

mode_t Restore_Test::mode_of(const std::string& path) const {
  struct stat status {};
  EXPECT_EQ(::stat(root_.real(path).c_str(), &status), 0) << path;
  return status.st_mode & permission_bits;
}

json_spirit::Value Restore_Test::document(const std::string& path) const {
  Value value;
  EXPECT_TRUE(json_spirit::load_json(root_.read(path), value)) << path;
  return value;
}

}  // namespace backup_test
