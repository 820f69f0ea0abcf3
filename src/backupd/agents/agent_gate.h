#pragma once

#include <chrono>
#include <string>

#include "backupd/agents/agent_registry.h"
#include "backupd/agents/audit_store.h"
#include "backupd/catalog/resource_store.h"
#include "backupd/identity.h"
#include "backupd/outcome.h"

namespace backupd {

/// The way on which the requests of operators, viewers and agents reach an agent: looks whether they may
/// (records/request_rights.h), writes down what changes something, and hands them on in the name of who asks. An agent
/// may ask itself and the hosts with which it shares a system, about that system alone. Safe from any thread.
class Agent_Gate {
 public:
  Agent_Gate(Resource_Store& resources, Audit_Store& audit, Agent_Registry& agents)
      : resources_(resources), audit_(audit), agents_(agents) {}

  /// Not ok when the request was not handed on: the answer is then left alone. `group` may be null.
  [[nodiscard]] Outcome call(const Identity& who, const std::string& host_uuid, const std::string& method,
                             const json_spirit::Value& params, std::chrono::nanoseconds timeout,
                             JSON_RPC_Call_Group* group, JSON_RPC_Answer& answer);

 private:
  [[nodiscard]] Outcome allow(const Identity& who, const std::string& host_uuid, const std::string& method,
                              const json_spirit::Value& params);
  [[nodiscard]] Outcome allow_agent(const Identity& who, const std::string& host_uuid, const std::string& method,
                                    const json_spirit::Value& params);

  Resource_Store& resources_;
  Audit_Store& audit_;
  Agent_Registry& agents_;
};

}  // namespace backupd
