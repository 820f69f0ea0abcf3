#include "hana/websvcs_agent/json_rpc_hana_list_handler.h"

#include <chrono>
#include <exception>
#include <list>

#include "agent/api/json_rpc_session.h"
#include "agent/instance/instance_manager.h"
#include "hana/common/database_lister.h"
#include "hana/common/json_file.h"
#include "hana/common/ondemand_conf_path.h"
#include "hana/common/system_instance_lister.h"
#include "hana/websvcs_agent/rpc_answers.h"
#include "net/json_rpc.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "platform/log.h"

namespace {

using namespace sap_hana;

constexpr const char* instance_type = "hana";
constexpr const char* definition_list_method = "job.def.list";

constexpr const char* invalid_request = "Invalid request";
constexpr const char* invalid_params = "Invalid params";
constexpr const char* instances_not_listed = "Failed to list instance info";
constexpr const char* no_account = "Failed to get account";
constexpr const char* no_names = "Failed to get SID or instance name";
constexpr const char* databases_not_listed = "Failed to list database";

constexpr const char* mode_none = "none";
constexpr const char* mode_instance = "instance";
constexpr const char* mode_database = "database";

json_spirit::Object describe(const System_Instance_Info& info) {
  return {{"sid", info.system_info.sid},
          {"instance_name", info.instance_name},
          {"instance_number", static_cast<int>(info.instance_number)},
          {"version", info.system_info.version},
          {"localhost", info.system_info.localhost}};
}

json_spirit::Object describe(const Database_Info& info, const char* mode) {
  return {{"name", info.name},         {"owner", info.description}, {"os_user", info.os_user},
          {"os_group", info.os_group}, {"active", info.active},     {"log_backup_mode", mode}};
}

/// The definition that a configuration file says it belongs to.
bool read_owner(const std::string& path, std::string& id) {
  json_spirit::Value document;
  return load_json(path, document, 1) && document.is_object() &&
         json_spirit::object_get(document.get_obj(), "job_definition_uuid", id);
}

/// Asks backupd for a definition. False when no result came.
bool ask_for_definition(const std::string& id, json_spirit::Value& result) {
  JSON_RPC_Session session(Global_JSON_RPC_Channel::instance());
  std::shared_ptr<JSON_RPC_Request> request;
  std::shared_ptr<JSON_RPC_Object> answer;
  if (!session.make_rpc_request(definition_list_method, json_spirit::Object{{"uuid", id}}, request) ||
      !session.request(request, answer, 0))
    return false;
  const auto response = std::dynamic_pointer_cast<const JSON_RPC_Response>(answer);
  if (response == nullptr) return false;
  result = response->result;
  return true;
}

/// The same. A question that nobody answered leaves `silent` true.
bool ask_in_time(const std::string& id, json_spirit::Value& result, bool& silent) {
  constexpr std::chrono::seconds long_wait{5};
  const auto begun = platform::Clock::current().steady_now();
  const bool answered = ask_for_definition(id, result);
  silent = !answered && platform::Clock::current().steady_now() - begun >= long_wait;
  return answered;
}

}  // namespace

JSON_RPC_HANA_List_Handler::~JSON_RPC_HANA_List_Handler() { end_work(); }

int JSON_RPC_HANA_List_Handler::handle_object_i(std::shared_ptr<JSON_RPC_Channel> channel,
                                                std::shared_ptr<JSON_RPC_Object> object) {
  const std::shared_ptr<const JSON_RPC_Request> request = as_request(object, false);
  if (request == nullptr) return -1;
  if (channel == nullptr) {
    D3_ERROR("Abort handle JSON-RPC request, requester is gone");
    return -1;
  }
  int sent = 0;
  switch (request->params().type()) {
    case json_spirit::obj_type:
      sent = list_instance_databases(*channel, *request);
      break;
    case json_spirit::null_type:
      sent = list_hana_instances(*channel, *request);
      break;
    default:
      sent = channel->send_error(JSON_RPC_E_INVALID_PARAMS, request->id(), invalid_request);
  }
  return sent == -1 ? -1 : 0;
}

int JSON_RPC_HANA_List_Handler::list_hana_instances(JSON_RPC_Channel& channel, const JSON_RPC_Request& request) {
  const std::shared_ptr<JSON_RPC_Response> response = make_response(request);
  if (response == nullptr) return -1;
  std::list<System_Instance_Info> infos;
  if (!System_Instance_Lister().list(infos))
    return channel.send_error(JSON_RPC_E_INTERNAL, request.id(), instances_not_listed);
  json_spirit::Array rows;
  for (const System_Instance_Info& info : infos) rows.emplace_back(describe(info));
  response->result = std::move(rows);
  return channel.send(response);
}

int JSON_RPC_HANA_List_Handler::list_instance_databases(JSON_RPC_Channel& channel, const JSON_RPC_Request& request) {
  try {
    return answer_databases(channel, request);
  } catch (const std::exception&) {
    return channel.send_error(JSON_RPC_E_INVALID_PARAMS, request.id(), invalid_params);
  }
}

int JSON_RPC_HANA_List_Handler::answer_databases(JSON_RPC_Channel& channel, const JSON_RPC_Request& request) {
  const auto fail = [&](const char* message) { return channel.send_error(JSON_RPC_E_INTERNAL, request.id(), message); };
  const std::shared_ptr<JSON_RPC_Response> response = make_response(request);
  if (response == nullptr) return -1;
  const json_spirit::Object& params = request.params().get_obj();
  const auto uid = json_spirit::object_require<std::string>(params, "uid");
  const auto name = json_spirit::object_require<std::string>(params, "instance");

  const Instance_Manager* const manager = Instance_Manager::instance();
  std::string username;
  secure_string password;
  if (manager == nullptr || manager->get_account(instance_type, name.c_str(), uid.c_str(), username, password) != 0)
    return fail(no_account);
  const Instance_Manager::Instance_var instance = manager->find(instance_type, name.c_str());
  if (instance == nullptr) return 0;
  std::string sid;
  std::string instance_name;
  if (!json_spirit::object_get(instance->options, "sid", sid) ||
      !json_spirit::object_get(instance->options, "instance_name", instance_name))
    return fail(no_names);
  std::list<Database_Info> databases;
  Database_Lister lister(sid, instance_name, username, password);
  lister.time_limit(question_limit);
  if (!lister.list(databases, "")) return fail(databases_not_listed);

  Known_Definitions known;
  json_spirit::Array rows;
  for (const Database_Info& database : databases)
    rows.emplace_back(describe(database, log_backup_mode(sid, instance_name, database.name, known)));
  response->result = json_spirit::Object{{"instance", name}, {"databases", std::move(rows)}};
  return channel.send(response);
}

/// The database's own configuration counts before that of its instance.
const char* JSON_RPC_HANA_List_Handler::log_backup_mode(const std::string& sid, const std::string& instance_name,
                                                        const std::string& database, Known_Definitions& known) {
  std::string path;
  if (ondemand_conf_path(sid, instance_name, database, path) && check_log_backup_valid(path, known))
    return mode_database;
  if (ondemand_conf_path(sid, instance_name, "", path) && check_log_backup_valid(path, known)) return mode_instance;
  return mode_none;
}

bool JSON_RPC_HANA_List_Handler::check_log_backup_valid(const std::string& path, Known_Definitions& known) {
  if (!platform::is_regular_file(path.c_str())) return false;
  std::string id;
  if (!read_owner(path, id)) {
    D3_ERROR("Failed to load %s\n", path.c_str());
    return false;
  }
  if (known.confirmed.count(id) != 0) return true;
  json_spirit::Value result;
  if (known.backupd_is_silent || !ask_in_time(id, result, known.backupd_is_silent)) {
    D3_ERROR("Failed to get job definition detail\n");
    return false;
  }
  if (result.type() != json_spirit::array_type || result.get_array().empty()) return false;
  known.confirmed.insert(id);
  return true;
}
