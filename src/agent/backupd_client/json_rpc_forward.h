#pragma once

#include <chrono>
#include <stdexcept>
#include <string>

#include "json/value.h"
#include "net/json_rpc_peer.h"

/// The agent's way to backupd for JSON-RPC. The agent sets it for as long as it runs; programs without one (hdbbackint)
/// cannot forward. call may be made from any thread.
class Agent_Channel {
 public:
  virtual ~Agent_Channel() = default;
  /// Sends a request to backupd and waits for its answer; JSON_RPC_E_NOT_CONNECTED while there is no connection.
  [[nodiscard]] virtual JSON_RPC_Answer call(const std::string& method, const json_spirit::Value& params,
                                             std::chrono::nanoseconds timeout) = 0;

  /// Null when none is set.
  [[nodiscard]] static Agent_Channel* current();
};

/// Makes `channel` the process-wide one for the life of this object. Calls that run must have ended before.
class Scoped_Agent_Channel {
 public:
  explicit Scoped_Agent_Channel(Agent_Channel& channel);
  ~Scoped_Agent_Channel();
  Scoped_Agent_Channel(const Scoped_Agent_Channel&) = delete;
  Scoped_Agent_Channel& operator=(const Scoped_Agent_Channel&) = delete;

 private:
  Agent_Channel* previous_;
};

/// A forwarded call failed; what() names method, host and cause.
class Forward_Error : public std::runtime_error {
 public:
  Forward_Error(int code, const std::string& text) : std::runtime_error(text), code_(code) {}
  [[nodiscard]] int code() const { return code_; }  ///< a JSON_RPC_Error_Code or the other side's own

 private:
  int code_;
};

constexpr std::chrono::seconds forward_limit{60};
/// Starting, stopping and restarting a HANA instance take their time.
constexpr std::chrono::seconds forward_control_limit{3600};

/// Sends a JSON-RPC request through backupd to the agent of `host_uuid` and waits for its reply. With `result` the
/// reply goes there and must be of type `expected`; without, it is dropped. True on success; throws Forward_Error
/// otherwise, `result` is then left alone. Logs nothing: the caller catches and reports. Any thread.
bool json_rpc_forward(const std::string& host_uuid, const json_spirit::Value& params, const std::string& method,
                      json_spirit::Value* result = nullptr, json_spirit::Value_type expected = json_spirit::obj_type);
