#include "hana/common/hdbsql_executor.h"

#include <algorithm>
#include <array>
#include <chrono>

#include "agent/instance/instance_manager.h"
#include "hana/common/hana_paths.h"
#include "hana/common/hdbsql_input.h"
#include "hana/common/hdbsql_output.h"
#include "hana/common/instance_tool.h"
#include "hana/common/system_instance_lister.h"
#include "hana/common/text_lines.h"
#include "platform/log.h"
#include "scrt/path_t.h"

namespace sap_hana {

namespace {

constexpr const char* default_tool = "hdbsql";
/// No remarks, no pages, no welcome: header and rows only.
constexpr std::array<const char*, 3> tool_arguments = {"-x", "-j", "-quiet"};
constexpr std::size_t logged_statement_bytes = 1024;

/// A name that can be written on hdbsql's input line.
bool is_usable(const char* what, std::string_view value, bool may_be_empty) {
  if (value.empty() && !may_be_empty) {
    D3_ERROR("No %C to log on to HANA with: it is empty\n", what);
    return false;
  }
  if (has_control_characters(value)) {
    D3_ERROR("The %C to log on to HANA with holds control characters, which hdbsql cannot be given\n", what);
    return false;
  }
  return true;
}

}  // namespace

HDBSQL_Executor::HDBSQL_Executor(const std::string& tool) : tool_(tool) {}

bool HDBSQL_Executor::init(const std::string& sid, const std::string& instance_name, const std::string& database,
                           const std::string& username, const secure_string& password) {
  initialize_ = false;
  System_Instance_Info info;
  if (!System_Instance_Lister().list(info, sid, instance_name)) return false;
  return bind(info, database, username, password);
}

bool HDBSQL_Executor::init(const std::string& instance_mgr_name, const std::string& database,
                           const std::string& username, const secure_string& password) {
  initialize_ = false;
  const Instance_Manager* manager = Instance_Manager::instance();
  const auto instance = manager == nullptr ? nullptr : manager->find("hana", instance_mgr_name.c_str());
  std::string sid;
  std::string instance_name;
  if (instance == nullptr || !json_spirit::object_get(instance->options, "sid", sid) ||
      !json_spirit::object_get(instance->options, "instance_name", instance_name)) {
    D3_ERROR(
        "The agent knows no HANA instance '%C' with a system id and an instance name: discover the instances of "
        "this host\n",
        platform::cut_for_log(instance_mgr_name).c_str());
    return false;
  }
  return init(sid, instance_name, database, username, password);
}

bool HDBSQL_Executor::init(const Database_Info& info, const std::string& username, const secure_string& password) {
  initialize_ = false;
  return bind(info.instance_info, info.name, username, password);
}

bool HDBSQL_Executor::bind(const System_Instance_Info& info, const std::string& database, const std::string& username,
                           const secure_string& password) {
  if (!is_usable("database name", database, true) || !is_usable("user name", username, false) ||
      !is_usable("password", password.view(), false))
    return false;
  multi_container_ = info.system_info.multi_container;
  host_ = info.system_info.localhost;
  sid_ = info.system_info.sid;
  // A system without tenants has one database, and hdbsql is told no name for it.
  if (!multi_container_)
    database_.clear();
  else
    database_ = database.empty() ? std::string(system_database_name) : database;
  instance_number_ = info.instance_number;
  username_ = username;
  password_ = password;
  dir_executable_ = info.dir_executable;
  initialize_ = true;
  return true;
}

std::string HDBSQL_Executor::tool_path() const {
  if (tool_.starts_with('/')) return tool_;
  return scrt::join_path(dir_executable_, tool_.empty() ? std::string(default_tool) : tool_);
}

std::string HDBSQL_Executor::target() const {
  std::string text = generate_instance_manager_name(sid_, instance_name_of(instance_number_));
  if (!database_.empty()) text += " database '" + database_ + "'";
  return platform::cut_for_log(text, logged_statement_bytes);
}

HDBSQL_Outcome HDBSQL_Executor::run(const std::string& sql, Text_Process_Handler* handler,
                                    ACE_Log_Msg_Callback_var log) const {
  const Scoped_Log_Callback to_job_log(std::move(log));
  return run_tool(sql, handler, {password_});
}

HDBSQL_Outcome HDBSQL_Executor::run_secretly(const secure_string& sql, const secure_string& secret) const {
  // HANA repeats the words of a statement as they stand there, with inner quotes doubled.
  secure_string quoted;
  append_quoted(secret.view(), quoted);
  const secure_string doubled(quoted.view().substr(1, quoted.size() - 2));
  std::vector<secure_string> secrets{password_, quoted, doubled, secret};
  // One may be a part of another.
  std::stable_sort(secrets.begin(), secrets.end(), [](const auto& a, const auto& b) { return a.size() > b.size(); });
  return run_tool(sql.view(), nullptr, secrets);
}

HDBSQL_Outcome HDBSQL_Executor::run_tool(std::string_view sql, Text_Process_Handler* handler,
                                         const std::vector<secure_string>& secrets) const {
  if (!initialize_) return {HDBSQL_Failure::not_initialized, 0, "the executor is not bound to a database"};
  platform::Process_Spec spec = instance_tool(sid_, instance_name_of(instance_number_), tool_path(),
                                              {tool_arguments.begin(), tool_arguments.end()});
  const HDBSQL_Logon logon{instance_number_, database_, username_, password_.view()};
  if (!make_hdbsql_input(logon, sql, spec.input))
    return {HDBSQL_Failure::bad_statement, 0, "the statement is empty or holds a null byte"};
  if (handler != nullptr && handler->segment_seconds() > 0)
    spec.idle_interval = std::chrono::seconds(handler->segment_seconds());
  const bool limited = time_limit_ > std::chrono::seconds(0);
  if (limited && (spec.idle_interval == std::chrono::seconds(0) || time_limit_ < spec.idle_interval))
    spec.idle_interval = time_limit_;
  HDBSQL_Output output(handler, secrets);
  if (limited) output.time_limit(time_limit_);
  const platform::Exit_Status status = platform::Process_Runner::current().run(spec, output);
  return output.outcome(status);
}

HDBSQL_Executor HDBSQL_Executor::with_time_limit(std::chrono::seconds limit) const {
  HDBSQL_Executor limited = *this;
  limited.time_limit(limit);
  return limited;
}

bool HDBSQL_Executor::execute(const std::string& sql, Text_Process_Handler* handler,
                              ACE_Log_Msg_Callback_var log) const {
  const HDBSQL_Outcome outcome = run(sql, handler, log);
  if (outcome.ok()) return true;
  const Scoped_Log_Callback to_job_log(std::move(log));
  const std::string statement = printable(sql, logged_statement_bytes);
  const char* reason = outcome.message.c_str();
  switch (outcome.failure) {
    case HDBSQL_Failure::logon:
      D3_ERROR("Failed to log on to HANA %C as '%C': %C\n", target().c_str(), username_.c_str(), reason);
      break;
    case HDBSQL_Failure::connection:
      D3_ERROR("Failed to connect to HANA %C: %C\n", target().c_str(), reason);
      break;
    case HDBSQL_Failure::tool:
      D3_ERROR("Failed to run '%C' for HANA %C: %C\n", tool_path().c_str(), target().c_str(), reason);
      break;
    case HDBSQL_Failure::statement:
      D3_ERROR("HANA %C refused '%C': %C\n", target().c_str(), statement.c_str(), reason);
      break;
    default:
      D3_ERROR("Failed to execute '%C': %C\n", statement.c_str(), reason);
  }
  return false;
}

bool HDBSQL_Executor::execute(const std::string& sql, ACE_Log_Msg_Callback_var log) const {
  return execute(sql, nullptr, std::move(log));
}

}  // namespace sap_hana
