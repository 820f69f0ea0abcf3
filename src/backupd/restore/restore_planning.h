#pragma once

#include <string>
#include <vector>

#include "backupd/agents/agent_registry.h"
#include "backupd/catalog/resource_store.h"
#include "backupd/outcome.h"
#include "backupd/pools/pool_inspector.h"
#include "backupd/pools/pool_store.h"
#include "backupd/restore/restore_history.h"
#include "backupd/restore/restore_target.h"
#include "backupd/store/database.h"
#include "json/value.h"

namespace backupd {

/// Plans restores for people: what would be read, whether it is all there, and what would happen to the target. Changes
/// nothing. Safe from any thread.
class Restore_Planning {
 public:
  Restore_Planning(Database& database, Resource_Store& resources, Pool_Store& pools, Agent_Registry& agents,
                   Pool_Inspector& inspector)
      : database_(database), resources_(resources), pools_(pools), agents_(agents), inspector_(inspector) {}

  /// `body`: {"resource_uuid", "database", "target"? {"resource_uuid"?, "database"?, "host_uuid"?}, "time" or "set",
  /// "lifeline"?, "ignore_delta"?}. `result` becomes the plan: docs/formats/restore-plan.md. A plan that is refused is
  /// an answer too; a wish that makes no sense is not.
  [[nodiscard]] Outcome plan(const json_spirit::Object& body, json_spirit::Object& result);

 private:
  struct Wish;
  /// What one request has seen of the pools.
  struct Looks;
  [[nodiscard]] Outcome read(const json_spirit::Object& body, Wish& wish);
  void check_target(const Wish& wish, Restore_Plan& plan) const;
  /// Whether a plan for that would be carried out as far as backups go. What lies on a pool that nobody can look at
  /// counts as there: that says nothing against one time more than against another.
  bool can_be_had(const Wish& wish, const Recoverable& point, Looks& looks);
  /// Looks every object of the plan up; what is missing is refused.
  void look_at_objects(const Restore_System& target, Restore_Plan& plan, Looks& looks, json_spirit::Object& result);
  /// Adds those objects of one pool to `looks` that are not there yet. A pool that nobody could look at once is not
  /// tried again: the same answer comes without another wait.
  Outcome look(const Restore_System& target, const std::string& pool, std::vector<Pool_Inspector::Object> objects,
               Looks& looks);

  Database& database_;
  Resource_Store& resources_;
  Pool_Store& pools_;
  Agent_Registry& agents_;
  Pool_Inspector& inspector_;
};

}  // namespace backupd
