#pragma once

#include <memory>
#include <string>

#include "backupd/agents/agent_gate.h"
#include "backupd/agents/agent_registry.h"
#include "backupd/agents/key_watch.h"
#include "backupd/catalog/resource_store.h"
#include "backupd/identity.h"
#include "backupd/jobs/activity_store.h"
#include "backupd/jobs/definition_store.h"
#include "backupd/jobs/run_starter.h"
#include "backupd/log_backup/setup_keeper.h"
#include "backupd/pools/sweeper.h"
#include "net/http_transport.h"

namespace backupd {

/// Answers what agents ask over their sockets. Any thread.
class Agent_Service {
 public:
  struct Stores {
    Resource_Store& resources;
    Definition_Store& definitions;
    Activity_Store& activities;
    Sweeper& sweeper;
    Run_Starter& starter;
    Setup_Keeper& setups;
    Agent_Gate& gate;
    Key_Watch& key_watch;
  };

  Agent_Service(Stores stores, Agent_Registry& registry) : stores_(stores), registry_(registry) {}

  /// Serves the socket of a host's agent, which came with the key `who`, until it closes.
  void serve(net::Web_Socket& socket, const Identity& who);

  /// Runs one request of the agent at `connection`.
  [[nodiscard]] JSON_RPC_Answer handle(const std::shared_ptr<Agent_Connection>& connection, const std::string& method,
                                       const json_spirit::Value& params);

 private:
  JSON_RPC_Answer hello(const std::shared_ptr<Agent_Connection>& connection, const json_spirit::Object& params);
  JSON_RPC_Answer list_definitions(const Agent_Connection& connection, const json_spirit::Object& params);
  JSON_RPC_Answer find_definition(const std::string& id);
  [[nodiscard]] Outcome drop_removed(json_spirit::Array& definitions);
  JSON_RPC_Answer report(const Agent_Connection& connection, const json_spirit::Object& params);
  JSON_RPC_Answer log(const Agent_Connection& connection, const json_spirit::Object& params);
  JSON_RPC_Answer forward(Agent_Connection& connection, const json_spirit::Object& params);
  JSON_RPC_Answer unreachable(const std::string& host_uuid);
  void settle(const Activity_Store::Ended& ended);

  Stores stores_;
  Agent_Registry& registry_;
};

}  // namespace backupd
