#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <set>
#include <string>
#include <thread>

#include "backupd/agents/agent_registry.h"
#include "backupd/catalog/resource_store.h"
#include "backupd/jobs/definition_store.h"
#include "backupd/log_backup/setup_store.h"
#include "platform/clock.h"

namespace backupd {

/// Brings definitions that are set up at what they back up to where they shall be: asks their agents, at once for an
/// operator who waits, and on a thread of its own when an agent comes back or said no before. What is wished for is
/// kept in the database. Any thread.
class Setup_Keeper {
 public:
  /// A removed definition stays so long, for runs of backups that were under way.
  static constexpr std::chrono::hours removed_are_kept{24};

  Setup_Keeper(Database& database, Definition_Store& definitions, Resource_Store& resources, Agent_Registry& agents)
      : database_(database), definitions_(definitions), resources_(resources), agents_(agents) {}
  ~Setup_Keeper();
  Setup_Keeper(const Setup_Keeper&) = delete;
  Setup_Keeper& operator=(const Setup_Keeper&) = delete;

  /// From now on what is due is done. Once.
  void start();
  /// The agent of a host is there.
  void agent_came(const std::string& host_uuid);
  /// Does for one definition what is wished, and comes back when its agent has answered; the record tells what came of
  /// it. Nothing for a definition that is where it shall be, or that was tried since the wish and is not due again.
  void settle(const std::string& definition_id);

 private:
  class Turn;
  /// What became of a result: overtaken by another wish, it changes only what is known of the agent.
  enum class Stored { yes, overtaken, failed };

  void run();
  /// For how long there is nothing to do.
  [[nodiscard]] std::chrono::seconds work();
  void settle_now(const std::string& definition_id);
  /// Until a definition is due again that was settled after `begun` (POSIX seconds).
  [[nodiscard]] std::chrono::seconds left_of(const std::string& definition_id, std::int64_t begun);
  /// False when another wish came meanwhile.
  [[nodiscard]] bool settle_once(const std::string& definition_id);
  [[nodiscard]] bool find(const std::string& definition_id, Setup_Row& row);
  [[nodiscard]] Stored store(const Setup_Row& row);
  [[nodiscard]] bool document_of(Setup_Row& row, json_spirit::Object& document);
  /// False when another wish came meanwhile.
  [[nodiscard]] bool bring(Setup_Row& row);
  [[nodiscard]] bool ask(Setup_Row& row, const char* method, const json_spirit::Object& document);

  Database& database_;
  Definition_Store& definitions_;
  Resource_Store& resources_;
  Agent_Registry& agents_;
  std::mutex mutex_;
  std::condition_variable turn_ended_;
  std::set<std::string> busy_;  ///< definitions that somebody settles; guarded by mutex_
  platform::Wait_Event work_;
  platform::Wait_Event stopping_;
  std::thread thread_;
};

}  // namespace backupd
