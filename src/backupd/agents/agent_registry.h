#pragma once

#include <chrono>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "backupd/agents/agent_connection.h"

namespace backupd {

/// The agents that are connected, one socket for each host. Safe from any thread.
class Agent_Registry {
 public:
  /// A socket that the host had before is closed: the agent knows best which one is good.
  void put(const std::shared_ptr<Agent_Connection>& connection);
  /// Forgets the connection unless another one took its place.
  void remove(const std::shared_ptr<Agent_Connection>& connection);

  [[nodiscard]] bool is_connected(const std::string& host_uuid) const;
  [[nodiscard]] std::vector<std::string> hosts() const;
  /// Calls the agent of a host; JSON_RPC_E_NOT_CONNECTED when it is not there or goes away meanwhile, or when `group`
  /// (may be null) is given up. `requester`: in whose name, null for the server's own.
  [[nodiscard]] JSON_RPC_Answer call(const std::string& host_uuid, const std::string& method,
                                     const json_spirit::Value& params, std::chrono::nanoseconds timeout,
                                     JSON_RPC_Call_Group* group = nullptr,
                                     const json_spirit::Value& requester = {}) const;

 private:
  [[nodiscard]] std::shared_ptr<Agent_Connection> find(const std::string& host_uuid) const;

  mutable std::mutex mutex_;
  std::map<std::string, std::shared_ptr<Agent_Connection>> connections_;
};

}  // namespace backupd
