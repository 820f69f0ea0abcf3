#include "backupd/agents/agent_registry.h"

#include "platform/log.h"

namespace backupd {

void Agent_Registry::put(const std::shared_ptr<Agent_Connection>& connection) {
  std::shared_ptr<Agent_Connection> replaced;
  {
    const std::lock_guard lock(mutex_);
    std::shared_ptr<Agent_Connection>& slot = connections_[connection->host_uuid()];
    if (slot != connection) replaced = std::exchange(slot, connection);
  }
  if (!replaced) return;
  D3_INFO("The agent of the host %C connected again, its former connection is closed\n",
          connection->host_uuid().c_str());
  replaced->close();
}

void Agent_Registry::remove(const std::shared_ptr<Agent_Connection>& connection) {
  const std::lock_guard lock(mutex_);
  const auto found = connections_.find(connection->host_uuid());
  if (found != connections_.end() && found->second == connection) connections_.erase(found);
}

bool Agent_Registry::is_connected(const std::string& host_uuid) const { return find(host_uuid) != nullptr; }

std::vector<std::string> Agent_Registry::hosts() const {
  const std::lock_guard lock(mutex_);
  std::vector<std::string> hosts;
  for (const auto& [host, connection] : connections_) hosts.push_back(host);
  return hosts;
}

JSON_RPC_Answer Agent_Registry::call(const std::string& host_uuid, const std::string& method,
                                     const json_spirit::Value& params, std::chrono::nanoseconds timeout,
                                     JSON_RPC_Call_Group* group, const json_spirit::Value& requester) const {
  const std::shared_ptr<Agent_Connection> connection = find(host_uuid);
  if (!connection)
    return {false, {}, JSON_RPC_E_NOT_CONNECTED, "the agent of the host " + host_uuid + " is not connected"};
  return connection->call(method, params, timeout, group, requester);
}

std::shared_ptr<Agent_Connection> Agent_Registry::find(const std::string& host_uuid) const {
  const std::lock_guard lock(mutex_);
  const auto found = connections_.find(host_uuid);
  return found == connections_.end() ? nullptr : found->second;
}

}  // namespace backupd
