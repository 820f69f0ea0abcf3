#include "hana/websvcs_agent/database_creation.h"

#include <string>

#include "agent/instance/instance_manager.h"
#include "hana/common/hana_paths.h"
#include "hana/common/hdbsql_executor.h"
#include "hana/common/tenant_database_creator.h"
#include "hana/websvcs_agent/rpc_answers.h"
#include "net/json_rpc.h"

namespace sap_hana {

namespace {

constexpr const char* instance_type = "hana";
constexpr const char* bad_params = "\"sid\", \"instance_name\", \"database\" and \"password\" are needed, each a text";

struct Params {
  std::string sid;
  std::string instance_name;
  std::string database;
  secure_string password;
};

/// Not by the throwing way: what it says of a wrong member must not get near the password.
bool read_params(const json_spirit::Value& value, Params& params) {
  if (!value.is_object()) return false;
  const json_spirit::Object& object = value.get_obj();
  return json_spirit::object_get(object, "sid", params.sid) &&
         json_spirit::object_get(object, "instance_name", params.instance_name) &&
         json_spirit::object_get(object, "database", params.database) &&
         json_spirit::object_get(object, "password", params.password);
}

/// Binds to the system database of an instance that is registered here, with its stored account.
bool bind_executor(const Params& params, HDBSQL_Executor& executor, std::string& why) {
  const Instance_Manager* const manager = Instance_Manager::instance();
  const std::string name = generate_instance_manager_name(params.sid, params.instance_name);
  std::string username;
  secure_string password;
  if (!is_sid(params.sid) || !is_instance_name(params.instance_name) || manager == nullptr ||
      manager->find(instance_type, name.c_str()) == nullptr)
    why = "this instance is not known on this host; run: dorsal3 discover";
  else if (manager->get_account(instance_type, name.c_str(), "", username, password) != 0)
    why = "no account of " + name + " is stored on this host; run: dorsal3 logon " + name + " --user USER";
  else if (!executor.init(params.sid, params.instance_name, "", username, password))
    why = "hdbsql of " + name + " cannot be used; the agent's log tells why";
  return why.empty();
}

}  // namespace

int answer_database_creation(JSON_RPC_Channel& channel, const JSON_RPC_Request& request) {
  Params params;
  if (!read_params(request.params(), params))
    return channel.send_error(JSON_RPC_E_INVALID_PARAMS, request.id(), bad_params);
  const std::shared_ptr<JSON_RPC_Response> response = make_response(request);
  if (response == nullptr) return -1;
  HDBSQL_Executor executor;
  std::string why;
  if (!bind_executor(params, executor, why) ||
      !Tenant_Database_Creator(executor).create(params.database, params.password, why))
    return channel.send_error(JSON_RPC_E_INTERNAL, request.id(), why);
  response->result = json_spirit::Object{{"error", 0}};
  return channel.send(response);
}

}  // namespace sap_hana
