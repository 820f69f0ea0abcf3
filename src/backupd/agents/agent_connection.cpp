#include "backupd/agents/agent_connection.h"

namespace backupd {

void Agent_Connection::attach(JSON_RPC_Peer& peer) {
  const std::lock_guard lock(mutex_);
  peer_ = &peer;
}

void Agent_Connection::detach() {
  std::unique_lock lock(mutex_);
  peer_ = nullptr;
  unused_.wait(lock, [this] { return users_ == 0; });
}

JSON_RPC_Peer* Agent_Connection::enter() {
  const std::lock_guard lock(mutex_);
  if (peer_ != nullptr) ++users_;
  return peer_;
}

void Agent_Connection::leave() {
  const std::lock_guard lock(mutex_);
  --users_;
  unused_.notify_all();
}

JSON_RPC_Answer Agent_Connection::call(const std::string& method, const json_spirit::Value& params,
                                       std::chrono::nanoseconds timeout, JSON_RPC_Call_Group* group,
                                       const json_spirit::Value& requester) {
  JSON_RPC_Peer* peer = enter();
  if (peer == nullptr)
    return {false, {}, JSON_RPC_E_NOT_CONNECTED, "the agent of the host " + host_uuid_ + " is not connected"};
  JSON_RPC_Answer answer = peer->call(method, params, timeout, group, requester);
  leave();
  return answer;
}

void Agent_Connection::close() {
  JSON_RPC_Peer* peer = enter();
  if (peer == nullptr) return;
  peer->close();
  leave();
}

Agent_Connection::Forward_Slot::Forward_Slot(Agent_Connection& connection, unsigned limit) : connection_(connection) {
  const std::lock_guard lock(connection_.mutex_);
  if (connection_.forwarding_ >= limit) return;
  ++connection_.forwarding_;
  taken_ = true;
}

Agent_Connection::Forward_Slot::~Forward_Slot() {
  if (!taken_) return;
  const std::lock_guard lock(connection_.mutex_);
  --connection_.forwarding_;
}

}  // namespace backupd
