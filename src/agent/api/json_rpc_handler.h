#pragma once

#include <memory>

#include "agent/api/json_rpc_channel.h"
#include "agent/api/json_rpc_object.h"

/// Answers JSON-RPC requests that the agent routes to it. Slots: handle_object, handle_object_i, destructor. Called on
/// the agent's worker threads, several at once, never on the thread that reads the socket.
class JSON_RPC_Handler {
 public:
  /// 0 or what the channel's send gave; -1 when nothing was answered. `channel` may have expired.
  virtual int handle_object(std::weak_ptr<JSON_RPC_Channel> channel, std::shared_ptr<JSON_RPC_Object> object) = 0;

 protected:
  /// What a JSON_RPC_Thread_Handler runs; other handlers have none. It stands here so that the destructor's slots are
  /// the last ones in every handler.
  virtual int handle_object_i(std::shared_ptr<JSON_RPC_Channel> /*channel*/,
                              std::shared_ptr<JSON_RPC_Object> /*object*/) {
    return -1;
  }

 public:
  virtual ~JSON_RPC_Handler() = default;
};
