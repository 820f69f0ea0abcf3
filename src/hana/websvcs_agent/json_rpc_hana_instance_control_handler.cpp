#include "hana/websvcs_agent/json_rpc_hana_instance_control_handler.h"

#include <string>

#include "hana/common/instance_control.h"
#include "hana/websvcs_agent/database_creation.h"
#include "hana/websvcs_agent/rpc_answers.h"
#include "net/json_rpc.h"
#include "platform/log.h"

namespace {

using sap_hana::Instance_Controller;

constexpr const char* no_subject = "sid or instance_name is empty\n";
constexpr const char* unknown_action = "action is not supported\n";
constexpr const char* action_failed = "failed to handle instance\n";

struct Params {
  std::string sid;
  std::string instance_name;
  std::string action;
};

/// Throws when a member is missing or of another type.
Params read_params(const json_spirit::Value& value) {
  const json_spirit::Object& object = value.get_obj();
  return {json_spirit::object_require<std::string>(object, "sid"),
          json_spirit::object_require<std::string>(object, "instance_name"),
          json_spirit::object_require<std::string>(object, "action")};
}

/// Does what is asked for; `known` is false when it is none of the four actions. What is to be told besides success
/// goes into `result`.
bool act(const Params& params, json_spirit::Object& result, bool& known) {
  Instance_Controller controller(params.sid);
  known = true;
  if (params.action == "start") return controller.start(params.instance_name);
  if (params.action == "stop") return controller.stop(params.instance_name);
  if (params.action == "restart") return controller.restart(params.instance_name);
  if (params.action == "state") {
    Instance_Controller::Instance_State state = Instance_Controller::INSTANCE_STATE_UNKNOWN;
    if (!controller.get_state(params.instance_name, state)) return false;
    result["state"] = static_cast<int>(state);
    return true;
  }
  known = false;
  return false;
}

int answer(JSON_RPC_Channel& channel, const JSON_RPC_Request& request) {
  if (request.method() == sap_hana::create_database_method) return sap_hana::answer_database_creation(channel, request);
  const Params params = read_params(request.params());
  if (params.sid.empty() || params.instance_name.empty())
    return channel.send_error(JSON_RPC_E_INVALID_PARAMS, request.id(), no_subject);
  json_spirit::Object result;
  bool known = false;
  const bool done = act(params, result, known);
  if (!known) return channel.send_error(JSON_RPC_E_INVALID_PARAMS, request.id(), unknown_action);
  if (!done) return channel.send_error(JSON_RPC_E_INTERNAL, request.id(), action_failed);
  const std::shared_ptr<JSON_RPC_Response> response = sap_hana::make_response(request);
  if (response == nullptr) return -1;
  if (result.empty()) result["error"] = 0;
  response->result = std::move(result);
  return channel.send(response);
}

}  // namespace

JSON_RPC_HANA_Instance_Control_Handler::~JSON_RPC_HANA_Instance_Control_Handler() = default;

int JSON_RPC_HANA_Instance_Control_Handler::handle_object(std::weak_ptr<JSON_RPC_Channel> channel,
                                                          std::shared_ptr<JSON_RPC_Object> object) {
  return sap_hana::handle_with(answer, channel, object);
}
