#pragma once

#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "job/activity_listener.h"
#include "json/value.h"

namespace agentd {

/// Removes what restores of databases leave for hdbbackint (docs/formats/restore-catalog.md) when they have no use for
/// it any more: a file that outlived its restore would decide which catalog another one reads. Any thread.
class Staged_Restores {
 public:
  /// Everything, at the agent's start: no restore of it goes on then.
  void remove_all();
  /// A run is about to start. What is there of its origins and belongs to no run that goes on is removed. Without
  /// effect for a definition that is no restore. True when end is owed.
  bool begin(const std::string& job_act_id, const json_spirit::Value& definition);
  /// The run has ended. Also for one that never began.
  void end(const std::string& job_act_id);

 private:
  using Origins = std::vector<std::string>;  ///< what the names of an origin's files begin with

  void remove_unused(const Origins& origins) const;
  [[nodiscard]] bool is_used(const std::string& origin) const;

  mutable std::mutex mutex_;
  std::map<std::string, Origins> running_;  ///< by activity; guarded by mutex_
  std::deque<std::string> ended_;           ///< the last restores that have ended; guarded by mutex_
};

/// Passes activities on and ends the staging of a restore as soon as its run has ended, also while backupd is away.
class Restore_End_Tap : public Activity_Listener {
 public:
  /// `staged` outlives this object.
  Restore_End_Tap(Staged_Restores& staged, std::shared_ptr<Activity_Listener> next)
      : staged_(staged), next_(std::move(next)) {}
  void activity_changed(const Job_Activity_Snapshot& activity) override;

 private:
  Staged_Restores& staged_;
  const std::shared_ptr<Activity_Listener> next_;
};

}  // namespace agentd
