#pragma once

#include <functional>
#include <map>
#include <string>

#include "agentd/module.h"
#include "net/json_rpc_peer.h"

namespace agentd {

/// Finds who answers a request of backupd: the agent itself, or a module's JSON-RPC handler. Filled at start, then used
/// by many threads.
class Method_Router {
 public:
  using Method = std::function<JSON_RPC_Answer(const json_spirit::Object& params)>;

  explicit Method_Router(const Modules& modules) : modules_(modules) {}

  void add(const std::string& name, Method method) { methods_[name] = std::move(method); }
  /// Never throws: what a method throws becomes an internal error, with one line in the log.
  [[nodiscard]] JSON_RPC_Answer call(const std::string& name, const json_spirit::Value& params) const;

 private:
  [[nodiscard]] JSON_RPC_Answer dispatch(const std::string& name, const json_spirit::Value& params) const;
  [[nodiscard]] JSON_RPC_Handler* find_handler(const std::string& name) const;

  const Modules& modules_;
  std::map<std::string, Method> methods_;
};

}  // namespace agentd
