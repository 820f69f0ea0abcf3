#pragma once

#include <chrono>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "backupd/agents/agent_registry.h"
#include "backupd/catalog/resource_store.h"
#include "backupd/jobs/activity_store.h"
#include "backupd/jobs/definition_store.h"
#include "backupd/jobs/history_keeper.h"
#include "backupd/log_backup/ondemand_queue.h"
#include "backupd/outcome.h"
#include "backupd/pools/sweeper.h"
#include "json/value.h"
#include "platform/clock.h"

namespace backupd {

/// Hands runs to the agents that shall run them: at once for an operator who waits, and on a thread of its own those
/// that a declined run is followed by and those that the queue owes to HANA's own backups, so that no agent waits for
/// another one's answer. What waits is kept in the
/// database and is found again after a restart. Any thread.
class Run_Starter {
 public:
  /// How long a run waits for an agent that was there, or that had no time yet to come back after a restart of this
  /// server.
  static constexpr std::chrono::seconds agent_return_limit{60};
  /// How often what hdbbackint left behind, and old runs, are looked for.
  static constexpr std::chrono::minutes sweep_interval{10};

  Run_Starter(Definition_Store& definitions, Activity_Store& activities, Resource_Store& resources,
              Agent_Registry& agents, Ondemand_Queue& queue, Sweeper& sweeper, History_Keeper& history);
  ~Run_Starter();
  Run_Starter(const Run_Starter&) = delete;
  Run_Starter& operator=(const Run_Starter&) = delete;

  /// From now on runs that wait are handed over. Once.
  void start();
  /// There may be a run to hand over, or an agent to hand one to.
  void wake() { work_.set(); }

  /// Which host a declined run goes on at: the first whose agent is connected; soon after the start of this server also
  /// one whose agent is not back yet.
  [[nodiscard]] std::optional<std::size_t> choose_next(const std::vector<std::string>& hosts) const;
  /// Asks the agent of `host_uuid` to begin the run, which is in the store. A refusal is noted in the run.
  [[nodiscard]] Outcome hand_over(const std::string& id, json_spirit::Object definition, const std::string& host_uuid,
                                  const json_spirit::Object& options);
  /// Runs whose agent is being asked just now.
  [[nodiscard]] std::set<std::string> being_sent() const;

 private:
  class Sending;
  using Time = std::chrono::steady_clock::time_point;

  void run();
  void sweep();
  /// True when runs wait for their agent.
  bool work();
  void try_one(const Activity_Store::Waiting_Run& run);
  [[nodiscard]] bool is_due(const std::string& id);
  void pass_over(const Activity_Store::Waiting_Run& run);
  [[nodiscard]] Outcome ask(const std::string& id, json_spirit::Object definition, const std::string& host_uuid,
                            const json_spirit::Object& options);

  Definition_Store& definitions_;
  Activity_Store& activities_;
  Resource_Store& resources_;
  Agent_Registry& agents_;
  Ondemand_Queue& queue_;  ///< the thread's alone
  Sweeper& sweeper_;
  History_Keeper& history_;
  const Time begun_;
  Time next_sweep_;  ///< the thread's alone
  mutable std::mutex mutex_;
  std::set<std::string> being_sent_;       ///< guarded by mutex_
  std::map<std::string, Time> deadlines_;  ///< of runs whose agent is away; the thread's alone
  platform::Wait_Event work_;
  platform::Wait_Event stopping_;
  std::thread thread_;
};

/// The refusal for an agent's answer that is an error.
[[nodiscard]] Outcome refusal_of(const JSON_RPC_Answer& answer);

}  // namespace backupd
