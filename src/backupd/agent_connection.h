#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>

#include "net/json_rpc_peer.h"

namespace backupd {

/// The socket of one agent, as others see it: it may end at any time, and calls then fail instead of reaching into what
/// is gone. Safe from any thread.
class Agent_Connection {
 public:
  explicit Agent_Connection(std::string host_uuid) : host_uuid_(std::move(host_uuid)) {}

  [[nodiscard]] const std::string& host_uuid() const { return host_uuid_; }

  /// From now on calls go to `peer`.
  void attach(JSON_RPC_Peer& peer);
  /// Calls fail from now on; returns once nobody uses the peer any more.
  void detach();

  [[nodiscard]] JSON_RPC_Answer call(const std::string& method, const json_spirit::Value& params,
                                     std::chrono::nanoseconds timeout);
  /// Ends the socket.
  void close();

 private:
  JSON_RPC_Peer* enter();
  void leave();

  const std::string host_uuid_;
  std::mutex mutex_;
  std::condition_variable unused_;
  JSON_RPC_Peer* peer_ = nullptr;
  unsigned users_ = 0;
};

}  // namespace backupd
