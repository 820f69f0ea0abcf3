#pragma once

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "agentd/restore/staged_name.h"
#include "job/activity_listener.h"
#include "json/value.h"

namespace agentd {

/// Removes what restores of databases leave for hdbbackint (docs/formats/restore-catalog.md) when they have no use for
/// it any more: a file that outlived its restore would decide which catalog another one reads. Any thread.
class Staged_Restores {
 public:
  /// Told, on the thread that ended a run, what its end has removed: on other hosts there may be the same.
  using Over = std::function<void(const std::vector<Staged_Name>& names)>;

  explicit Staged_Restores(Over over = {}) : over_(std::move(over)) {}

  /// Everything, at the agent's start: no restore of it goes on then. What it was.
  std::vector<Staged_Name> remove_all();
  /// A run is about to start. What is there of its origins and belongs to no run that goes on is removed. Without
  /// effect for a definition that is no restore. True when end is owed.
  bool begin(const std::string& job_act_id, const json_spirit::Value& definition);
  /// The run has ended. Also for one that never began.
  void end(const std::string& job_act_id);

  /// Whether a restore of the same origin goes on here.
  [[nodiscard]] bool in_use(const Staged_Name& name) const;
  /// A restore of this name is about to stage its files here, asked for by `host_uuid`; "" is this host itself. Which
  /// host it was lies in memory: the files do not outlive the agent either (remove_all).
  void staged_by(const Staged_Name& name, const std::string& host_uuid);
  /// What the restore of the host `host_uuid` has left here, which is over. What another host has staged since stays;
  /// while it is in use here nothing is removed, but at the end of that. `removed`: how many files. False when one
  /// cannot be removed.
  [[nodiscard]] bool remove(const Staged_Name& name, const std::string& host_uuid, int& removed);

 private:
  using Origins = std::vector<std::string>;  ///< what the names of an origin's files begin with

  /// Whose files are removed: at a begin all, as what is left over would decide what this restore reads; at an end
  /// those that no other host has staged, whose restore may go on.
  enum class Whose { everybodys, own };

  [[nodiscard]] std::vector<Staged_Name> remove_unused(const Origins& origins, Whose whose);
  [[nodiscard]] bool remove_file(const std::string& file);
  /// Nothing of the origins that no run uses is another host's any more, whether it is there or not.
  void forget_stagers(const Origins& origins);
  [[nodiscard]] bool is_used(const std::string& origin) const;

  const Over over_;
  mutable std::mutex mutex_;
  std::map<std::string, Origins> running_;  ///< by activity; guarded by mutex_
  std::deque<std::string> ended_;           ///< the last restores that have ended; guarded by mutex_
  /// The other host whose restore a file here belongs to, by its name; guarded by mutex_.
  std::map<std::string, std::string> stagers_;
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
