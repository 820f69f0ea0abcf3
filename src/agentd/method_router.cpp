#include "agentd/method_router.h"

#include <array>
#include <exception>

#include "agentd/handler_call.h"
#include "agentd/job_table.h"
#include "platform/log.h"

namespace agentd {

namespace {

using namespace module_factories;

/// Starting or stopping an instance takes its time.
constexpr std::chrono::seconds handler_limit{3600};

struct Handled_Method {
  const char* method;
  const char* factory;
};
/// Which handler of a module serves which method.
constexpr std::array<Handled_Method, 4> handled_methods{
    {{"hana.list.instances", json_rpc_hana_list_handler},
     {"hana.list.databases", json_rpc_hana_list_handler},
     {"hana.instance.control", json_rpc_hana_instance_control_handler},
     {"hana.file.download", json_rpc_hana_file_download_handler}}};

}  // namespace

JSON_RPC_Answer Method_Router::call(const std::string& name, const json_spirit::Value& params) const {
  try {
    return dispatch(name, params);
  } catch (const std::exception& error) {
    D3_ERROR("Failed to answer %C, %C\n", platform::cut_for_log(name).c_str(),
             platform::cut_for_log(error.what()).c_str());
    return refusal_answer(JSON_RPC_E_INTERNAL, "the agent failed to answer " + name + "; its log tells why");
  }
}

JSON_RPC_Answer Method_Router::dispatch(const std::string& name, const json_spirit::Value& params) const {
  const auto found = methods_.find(name);
  if (found != methods_.end()) {
    if (!params.is_null() && !params.is_object())
      return refusal_answer(JSON_RPC_E_INVALID_PARAMS, "the params of " + name + " are no object");
    const auto run = [&] { return found->second.run(params.is_null() ? json_spirit::Object() : params.get_obj()); };
    return found->second.pace == Pace::slow ? run_slowly(run) : run();
  }
  if (JSON_RPC_Handler* const handler = find_handler(name))
    return run_slowly([&] { return call_handler(*handler, name, params, handler_limit); });
  return refusal_answer(JSON_RPC_E_METHOD_NOT_FOUND,
                        "this agent does not know the method " + platform::cut_for_log(name));
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

JSON_RPC_Answer Method_Router::run_slowly(const std::function<JSON_RPC_Answer()>& action) const {
  const Slow_Place place(slow_);
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
