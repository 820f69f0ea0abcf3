#pragma once

#include <string>

#include "backupd/agents/agent_registry.h"
#include "backupd/catalog/resource_store.h"
#include "backupd/jobs/activity_store.h"
#include "backupd/jobs/definition_store.h"
#include "backupd/jobs/run_starter.h"
#include "backupd/outcome.h"
#include "json/value.h"

namespace backupd {

/// Starts and stops jobs. A data backup goes to the first host of its system whose agent is connected, the definition's
/// own before the others; when that one declines, the run goes on at the next. Everything else runs on the definition's
/// host alone. Any thread.
class Job_Dispatch {
 public:
  struct Parts {
    Definition_Store& definitions;
    Activity_Store& activities;
    Resource_Store& resources;
    Agent_Registry& agents;
    Run_Starter& starter;
  };
  explicit Job_Dispatch(Parts parts) : parts_(parts) {}

  /// Starts the job; `job_act_id` becomes the id of its first run.
  [[nodiscard]] Outcome start(const std::string& definition_id, const json_spirit::Object& options,
                              std::string& job_act_id);
  /// Asks the agent to stop the run, or the one that goes on in its place; `answer` becomes what it said.
  [[nodiscard]] Outcome stop(const std::string& job_act_id, json_spirit::Value& answer);

  /// A run as it is shown: one whose agent is away and that had not ended is "unknown", with the last known state
  /// beside.
  void show(json_spirit::Object& record) const;

 private:
  [[nodiscard]] Outcome candidates_of(const json_spirit::Object& definition, std::vector<std::string>& hosts);
  /// The last run of the chain that `job_act_id` belongs to.
  [[nodiscard]] Outcome last_of_chain(const std::string& job_act_id, json_spirit::Object& record);

  Parts parts_;
};

}  // namespace backupd
