#include "agentd/modules/method_router.h"

#include <array>
#include <exception>

#include "agentd/jobs/job_table.h"
#include "agentd/modules/handler_call.h"
#include "platform/log.h"

namespace agentd {

namespace {

using namespace module_factories;

/// How long a handler's own threads may take; what runs on the caller's thread, as starts and stops do, is waited for.
constexpr std::chrono::seconds handler_limit{120};

struct Handled_Method {
  const char* method;
  const char* factory;
};
/// Which handler of a module serves which method.
constexpr std::array<Handled_Method, 5> handled_methods{
    {{"hana.instance.list", json_rpc_hana_list_handler},
     {"hana.database.list", json_rpc_hana_list_handler},
     {"hana.instance.control", json_rpc_hana_instance_control_handler},
     {"hana.database.create", json_rpc_hana_instance_control_handler},
     {"hana.file.download", json_rpc_hana_file_download_handler}}};

}  // namespace

JSON_RPC_Answer Method_Router::call(const JSON_RPC_Message& message) const {
  try {
    return dispatch(message);
  } catch (const std::exception& error) {
    D3_ERROR("Failed to answer %C, %C\n", platform::cut_for_log(message.method).c_str(),
             platform::cut_for_log(error.what()).c_str());
    return refusal_answer(JSON_RPC_E_INTERNAL, "the agent failed to answer " + message.method + "; its log tells why");
  }
}

JSON_RPC_Answer Method_Router::call(const std::string& name, const json_spirit::Value& params) const {
  JSON_RPC_Message message;
  message.kind = JSON_RPC_Message::request;
  message.method = name;
  message.params = params;
  return call(message);
}

bool Method_Router::is_for_modules(const JSON_RPC_Message& message) { return is_module_method(message.method); }

JSON_RPC_Answer Method_Router::dispatch(const JSON_RPC_Message& message) const {
  JSON_RPC_Answer refusal;
  const auto found = methods_.find(message.method);
  if (found != methods_.end()) return refused(message, refusal) ? refusal : run_method(found->second, message);
  if (JSON_RPC_Handler* const handler = find_handler(message.method))
    return refused(message, refusal) ? refusal : ask_module(*handler, message);
  return refusal_answer(JSON_RPC_E_METHOD_NOT_FOUND,
                        "this agent does not know the method " + platform::cut_for_log(message.method));
}

bool Method_Router::refused(const JSON_RPC_Message& message, JSON_RPC_Answer& refusal) {
  if (!needs_right(message.method) ||
      may_ask(Requester::from_json(message.requester).role, message.method, message.params))
    return false;
  D3_WARNING("Refused %C to a requester who may not ask for it\n", message.method.c_str());
  refusal = refusal_answer(JSON_RPC_E_INVALID_PARAMS, "this requester may not ask for " + message.method);
  return true;
}

JSON_RPC_Answer Method_Router::run_method(const Known_Method& method, const JSON_RPC_Message& message) const {
  if (!message.params.is_null() && !message.params.is_object())
    return refusal_answer(JSON_RPC_E_INVALID_PARAMS, "the params of " + message.method + " are no object");
  const auto run = [&] {
    return method.run(message.params.is_null() ? json_spirit::Object() : message.params.get_obj(),
                      Requester::from_json(message.requester));
  };
  switch (method.pace) {
    case Pace::slow:
      return run_slowly(slow_, run);
    case Pace::asking:
      return run_slowly(asking_, run);
    case Pace::quick:
      break;
  }
  return run();
}

JSON_RPC_Answer Method_Router::ask_module(JSON_RPC_Handler& handler, const JSON_RPC_Message& message) const {
  const auto ask = [&] {
    const auto watch = watches_.find(message.method);
    if (watch != watches_.end() && message.params.is_object())
      watch->second(message.params.get_obj(), Requester::from_json(message.requester));
    return call_handler(handler, message, handler_limit);
  };
  return is_control_action(message.method, message.params) ? run_slowly(actions_, ask) : ask();
}

/// One of the slow requests that run, for the life of this object.
class Method_Router::Slow_Place {
 public:
  explicit Slow_Place(std::atomic<unsigned>& taken) : taken_(taken), given_(++taken_ <= slow_at_once) {}
  ~Slow_Place() { --taken_; }
  Slow_Place(const Slow_Place&) = delete;
  Slow_Place& operator=(const Slow_Place&) = delete;
  [[nodiscard]] bool given() const { return given_; }

 private:
  std::atomic<unsigned>& taken_;
  const bool given_;
};

JSON_RPC_Answer Method_Router::run_slowly(std::atomic<unsigned>& places,
                                          const std::function<JSON_RPC_Answer()>& action) {
  const Slow_Place place(places);
  if (place.given()) return action();
  return refusal_answer(JSON_RPC_E_SERVER, "the agent is busy with " + std::to_string(slow_at_once) +
                                               " long requests; ask again when one of them has ended");
}

JSON_RPC_Handler* Method_Router::find_handler(const std::string& name) const {
  for (const Handled_Method& handled : handled_methods) {
    if (name != handled.method) continue;
    for (const auto& module : modules_.all())
      if (JSON_RPC_Handler* const handler = module->json_rpc_handler(handled.factory)) return handler;
  }
  return nullptr;
}

}  // namespace agentd
