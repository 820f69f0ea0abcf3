#include "records/request_rights.h"

#include <algorithm>
#include <array>

#include "records/agent_method_names.h"

namespace {

constexpr const char* instance_list_method = "hana.instance.list";
constexpr const char* database_list_method = "hana.database.list";
constexpr const char* control_method = "hana.instance.control";
constexpr const char* create_method = "hana.database.create";
constexpr const char* download_method = "hana.file.download";
constexpr std::array<const char*, 5> module_methods{instance_list_method, database_list_method, control_method,
                                                    create_method, download_method};

constexpr const char* role_words[] = {"", "viewer", "operator", "agent"};

bool asks_for_state(const json_spirit::Value& params) {
  std::string action;
  return params.is_object() && json_spirit::object_get(params.get_obj(), "action", action) && action == "state";
}

}  // namespace

json_spirit::Value Requester::to_json() const {
  json_spirit::Object value{{"role", role_words[role]}};
  if (!host_uuid.empty()) value["host_uuid"] = host_uuid;
  return value;
}

Requester Requester::from_json(const json_spirit::Value& value) {
  Requester requester;
  std::string word;
  if (!value.is_object() || !json_spirit::object_get(value.get_obj(), "role", word)) return requester;
  for (const Role role : {viewer, oper, agent})
    if (word == role_words[role]) requester.role = role;
  json_spirit::object_get(value.get_obj(), "host_uuid", requester.host_uuid);
  return requester;
}

bool is_module_method(const std::string& method) {
  return std::find(module_methods.begin(), module_methods.end(), method) != module_methods.end();
}

bool needs_right(const std::string& method) { return is_module_method(method) || method == staged_remove_method; }

bool is_list_method(const std::string& method) {
  return method == instance_list_method || method == database_list_method;
}

bool is_staging_method(const std::string& method) {
  return method == download_method || method == staged_remove_method;
}

bool is_control_action(const std::string& method, const json_spirit::Value& params) {
  return is_staging_method(method) || method == create_method || (method == control_method && !asks_for_state(params));
}

bool may_ask(Requester::Role role, const std::string& method, const json_spirit::Value& params) {
  if (!needs_right(method)) return false;
  switch (role) {
    case Requester::viewer:
      return !is_control_action(method, params);
    case Requester::oper:
      return !is_staging_method(method);
    case Requester::agent:
      return method != create_method;
    default:
      return false;
  }
}
