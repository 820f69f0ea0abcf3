#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <string>

#include "agentd/modules/module.h"
#include "net/json_rpc_peer.h"
#include "records/request_rights.h"

namespace agentd {

/// Finds who answers a request of backupd: the agent itself, or a module's JSON-RPC handler. Filled at start, then used
/// by many threads. What may take minutes or hours, as the start of an instance may, is answered only a few at once, so
/// that workers are left for what must not wait, such as stopping a job. Requests to modules have workers of their own
/// (is_for_modules). What needs a right (records/request_rights.h) says in whose name it is made: what that one may not
/// ask is refused.
class Method_Router {
 public:
  /// `asking`: a person's question to a database system, which may be slow to answer or not answer at all.
  enum class Pace { quick, slow, asking };
  /// Of each pace but quick.
  static constexpr unsigned slow_at_once = 4;
  /// Workers for requests to modules: more than the actions that may run at once, so that lists and states come
  /// through.
  static constexpr unsigned module_workers = 2 * slow_at_once;

  using Method = std::function<JSON_RPC_Answer(const json_spirit::Object& params)>;
  /// One that goes by who asks.
  using Requested_Method = std::function<JSON_RPC_Answer(const json_spirit::Object& params, const Requester& by)>;
  using Watch = std::function<void(const json_spirit::Object& params, const Requester& by)>;

  explicit Method_Router(const Modules& modules) : modules_(modules) {}

  void add(const std::string& name, Method method, Pace pace = Pace::quick) {
    methods_[name] = {
        [method = std::move(method)](const json_spirit::Object& params, const Requester&) { return method(params); },
        pace};
  }
  void add_for_requesters(const std::string& name, Requested_Method method) {
    methods_[name] = {std::move(method), Pace::quick};
  }
  /// `watch` sees each request for a module's method that was not refused, on the requests' threads and before the
  /// module does.
  void watch(const std::string& name, Watch watch) { watches_[name] = std::move(watch); }
  /// Never throws: what a method throws becomes an internal error, with one line in the log.
  [[nodiscard]] JSON_RPC_Answer call(const JSON_RPC_Message& message) const;
  /// A request of backupd's own, in nobody's name.
  [[nodiscard]] JSON_RPC_Answer call(const std::string& name, const json_spirit::Value& params) const;

  /// Whether the message is for a module's handler.
  [[nodiscard]] static bool is_for_modules(const JSON_RPC_Message& message);

 private:
  struct Known_Method {
    Requested_Method run;
    Pace pace = Pace::quick;
  };
  class Slow_Place;

  [[nodiscard]] static JSON_RPC_Answer run_slowly(std::atomic<unsigned>& places,
                                                  const std::function<JSON_RPC_Answer()>& action);
  [[nodiscard]] static bool refused(const JSON_RPC_Message& message, JSON_RPC_Answer& refusal);
  [[nodiscard]] JSON_RPC_Answer dispatch(const JSON_RPC_Message& message) const;
  [[nodiscard]] JSON_RPC_Answer run_method(const Known_Method& method, const JSON_RPC_Message& message) const;
  [[nodiscard]] JSON_RPC_Answer ask_module(JSON_RPC_Handler& handler, const JSON_RPC_Message& message) const;
  [[nodiscard]] JSON_RPC_Handler* find_handler(const std::string& name) const;

  const Modules& modules_;
  std::map<std::string, Known_Method> methods_;
  std::map<std::string, Watch> watches_;
  mutable std::atomic<unsigned> slow_{0};     ///< slow requests to the agent itself that run
  mutable std::atomic<unsigned> asking_{0};   ///< questions to database systems that run
  mutable std::atomic<unsigned> actions_{0};  ///< control actions that run
};

}  // namespace agentd
