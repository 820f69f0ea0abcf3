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

  /// `group`: whoever may give the call up; may be null.
  [[nodiscard]] JSON_RPC_Answer call(const std::string& method, const json_spirit::Value& params,
                                     std::chrono::nanoseconds timeout, JSON_RPC_Call_Group* group = nullptr,
                                     const json_spirit::Value& requester = {});
  /// Ends the socket.
  void close();

  /// Calls to other agents that are made for this one: they are given up when its socket has closed.
  [[nodiscard]] JSON_RPC_Call_Group& forwards() { return forwards_; }
  /// One of the calls that may wait for other agents at once, given back at the end of its scope; not taken when there
  /// are `limit` already.
  class Forward_Slot {
   public:
    Forward_Slot(Agent_Connection& connection, unsigned limit);
    ~Forward_Slot();
    Forward_Slot(const Forward_Slot&) = delete;
    Forward_Slot& operator=(const Forward_Slot&) = delete;
    [[nodiscard]] bool taken() const { return taken_; }

   private:
    Agent_Connection& connection_;
    bool taken_ = false;
  };

 private:
  JSON_RPC_Peer* enter();
  void leave();

  const std::string host_uuid_;
  std::mutex mutex_;
  std::condition_variable unused_;
  JSON_RPC_Peer* peer_ = nullptr;
  unsigned users_ = 0;
  unsigned forwarding_ = 0;  ///< guarded by mutex_, as the two above
  JSON_RPC_Call_Group forwards_;
};

}  // namespace backupd
