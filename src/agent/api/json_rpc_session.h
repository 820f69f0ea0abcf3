#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "agent/api/json_rpc_object.h"
#include "agent/backupd_client/json_rpc_forward.h"

/// The agent's channel to backupd, for what asks backupd by itself.
class Global_JSON_RPC_Channel {
 public:
  /// Null in a process without one.
  [[nodiscard]] static Agent_Channel* instance() { return Agent_Channel::current(); }
};

/// Requests over one channel, one after the other. The channel must outlive it. One thread.
class JSON_RPC_Session {
 public:
  /// How long an answer is waited for.
  static constexpr std::chrono::seconds answer_limit{10};

  explicit JSON_RPC_Session(Agent_Channel* channel) : channel_(channel) {}

  /// False when there is no channel or no memory.
  [[nodiscard]] bool make_rpc_request(const std::string& method, const json_spirit::Value& params,
                                      std::shared_ptr<JSON_RPC_Request>& request);
  /// Sends a request and waits for its answer: a JSON_RPC_Response, or an object of the kind error. False when it could
  /// not be sent or no answer came; logs nothing. `flags` chooses among ways to wait that do not exist here.
  [[nodiscard]] bool request(const std::shared_ptr<JSON_RPC_Request>& request,
                             std::shared_ptr<JSON_RPC_Object>& response, int flags);

 private:
  Agent_Channel* channel_;
  int last_id_ = 0;
};
