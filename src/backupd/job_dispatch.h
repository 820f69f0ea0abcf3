#pragma once

#include <string>

#include "backupd/activity_store.h"
#include "backupd/agent_registry.h"
#include "backupd/definition_store.h"
#include "backupd/outcome.h"
#include "json/value.h"

namespace backupd {

/// Hands jobs to the agents of their hosts. Any thread.
class Job_Dispatch {
 public:
  Job_Dispatch(Definition_Store& definitions, Activity_Store& activities, Agent_Registry& agents)
      : definitions_(definitions), activities_(activities), agents_(agents) {}

  /// Starts the job; `job_act_id` becomes the id of the run.
  [[nodiscard]] Outcome start(const std::string& definition_id, const json_spirit::Object& options,
                              std::string& job_act_id);
  /// Asks the agent to stop the run; `answer` becomes what it said.
  [[nodiscard]] Outcome stop(const std::string& job_act_id, json_spirit::Value& answer);

  /// A run as it is shown: one whose agent is away and that had not ended is "unknown", with the last known state
  /// beside.
  void show(json_spirit::Object& record) const;

 private:
  Definition_Store& definitions_;
  Activity_Store& activities_;
  Agent_Registry& agents_;
};

/// The refusal for an agent's answer that is an error.
[[nodiscard]] Outcome refusal_of(const JSON_RPC_Answer& answer);

}  // namespace backupd
