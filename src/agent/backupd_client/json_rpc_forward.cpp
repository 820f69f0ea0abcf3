#include "agent/backupd_client/json_rpc_forward.h"

#include <atomic>
#include <string_view>

namespace {

constexpr const char* forward_method = "agent.forward";
constexpr const char* instance_control_method = "hana.instance.control";
/// What backupd's own refusal of a late answer may take to arrive.
constexpr std::chrono::seconds answer_grace{5};

std::atomic<Agent_Channel*> current_channel{nullptr};

/// True for the actions that wait for a HANA instance to change its state.
bool changes_instance(const std::string& method, const json_spirit::Value& params) {
  if (method != instance_control_method || !params.is_object()) return false;
  std::string action;
  if (!json_spirit::object_get(params.get_obj(), "action", action)) return false;
  return action == "start" || action == "stop" || action == "restart";
}

std::chrono::seconds limit_of(const std::string& method, const json_spirit::Value& params) {
  return changes_instance(method, params) ? forward_control_limit : forward_limit;
}

[[noreturn]] void fail(const std::string& method, const std::string& host_uuid, int code, std::string_view cause) {
  std::string text = "call of " + method + " on host " + host_uuid + " failed: ";
  text += cause;
  throw Forward_Error(code, text);
}

}  // namespace

Agent_Channel* Agent_Channel::current() { return current_channel.load(); }

Scoped_Agent_Channel::Scoped_Agent_Channel(Agent_Channel& channel) : previous_(current_channel.exchange(&channel)) {}

Scoped_Agent_Channel::~Scoped_Agent_Channel() { current_channel.store(previous_); }

bool json_rpc_forward(const std::string& host_uuid, const json_spirit::Value& params, const std::string& method,
                      json_spirit::Value* result, json_spirit::Value_type expected) {
  Agent_Channel* const channel = Agent_Channel::current();
  if (channel == nullptr)
    fail(method, host_uuid, JSON_RPC_E_NOT_CONNECTED, "this program has no connection to other agents");

  const std::chrono::seconds limit = limit_of(method, params);
  const json_spirit::Object envelope{
      {"host_uuid", host_uuid}, {"method", method}, {"params", params}, {"timeout", static_cast<long>(limit.count())}};
  JSON_RPC_Answer answer = channel->call(forward_method, envelope, limit + answer_grace);
  if (!answer.ok) fail(method, host_uuid, answer.code, answer.message + " (code " + std::to_string(answer.code) + ")");
  if (result == nullptr) return true;

  if (answer.result.type() != expected)
    fail(method, host_uuid, JSON_RPC_E_SERVER,
         std::string("the answer is of type ") + json_spirit::type_name(answer.result.type()) + ", expected " +
             json_spirit::type_name(expected));
  *result = std::move(answer.result);
  return true;
}
