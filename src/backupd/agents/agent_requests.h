#pragma once

#include <string>

#include "backupd/agents/agent_gate.h"
#include "backupd/agents/agent_registry.h"
#include "backupd/backint/backint_store.h"
#include "backupd/catalog/resource_store.h"
#include "backupd/catalog/set_store.h"
#include "backupd/outcome.h"
#include "json/value.h"

namespace backupd {

/// What an operator asks of agents through this server. Any thread.
class Agent_Requests {
 public:
  Agent_Requests(Resource_Store& resources, Set_Store& sets, Backint_Store& backint, Agent_Registry& agents,
                 Agent_Gate& gate)
      : resources_(resources), sets_(sets), backint_(backint), agents_(agents), gate_(gate) {}

  /// Lets the agent of the set's host read every object of the set back. `result`: {"objects": [{"name", "size", "ok",
  /// "message"}], "ok"}.
  [[nodiscard]] Outcome verify(const std::string& set_uuid, json_spirit::Object& result);
  /// Lets one agent, or all that are connected, look for instances and registers what they found. `result`: {"total",
  /// "rows": resources, "errors": [{"host_uuid", "message"}]}.
  [[nodiscard]] Outcome discover(const std::string& host_uuid, json_spirit::Object& result);
  /// One call to an agent, where `who` may make it; `result` becomes what it returned.
  [[nodiscard]] Outcome call(const Identity& who, const std::string& host_uuid, const std::string& method,
                             const json_spirit::Value& params, std::int64_t timeout_seconds,
                             json_spirit::Value& result);

 private:
  Outcome probe(const std::string& host_uuid, json_spirit::Array& resources);
  Outcome objects_of(const json_spirit::Object& set, json_spirit::Array& objects);

  Resource_Store& resources_;
  Set_Store& sets_;
  Backint_Store& backint_;
  Agent_Registry& agents_;
  Agent_Gate& gate_;
};

}  // namespace backupd
