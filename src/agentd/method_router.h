#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <string>

#include "agentd/module.h"
#include "net/json_rpc_peer.h"

namespace agentd {

/// Finds who answers a request of backupd: the agent itself, or a module's JSON-RPC handler. Filled at start, then used
/// by many threads. What may take minutes or hours, as every module's handler may, is answered only a few at once, so
/// that workers are left for what must not wait, such as stopping a job.
class Method_Router {
 public:
  enum class Pace { quick, slow };
  static constexpr unsigned slow_at_once = 4;

  using Method = std::function<JSON_RPC_Answer(const json_spirit::Object& params)>;

  explicit Method_Router(const Modules& modules) : modules_(modules) {}

  void add(const std::string& name, Method method, Pace pace = Pace::quick) {
    methods_[name] = {std::move(method), pace};
  }
  /// Never throws: what a method throws becomes an internal error, with one line in the log.
  [[nodiscard]] JSON_RPC_Answer call(const std::string& name, const json_spirit::Value& params) const;

 private:
  struct Known_Method {
    Method run;
    Pace pace = Pace::quick;
  };
  class Slow_Place;

  [[nodiscard]] JSON_RPC_Answer run_slowly(const std::function<JSON_RPC_Answer()>& action) const;
  [[nodiscard]] JSON_RPC_Answer dispatch(const std::string& name, const json_spirit::Value& params) const;
  [[nodiscard]] JSON_RPC_Handler* find_handler(const std::string& name) const;

  const Modules& modules_;
  std::map<std::string, Known_Method> methods_;
  mutable std::atomic<unsigned> slow_{0};  ///< slow requests that run
};

}  // namespace agentd
