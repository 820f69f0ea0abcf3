#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "backupd/restore/plan_set.h"
#include "json/value.h"

namespace backupd {

/// A time that the database can be had of, and the set to ask for when the time alone would not do.
struct Recoverable {
  std::string time;
  std::string set;  ///< uuid; may be empty
};

/// Everything a plan is made from. The sets must outlive the plan.
struct Restore_Question {
  std::string database;              ///< that was backed up
  std::string time;                  ///< to recover to, UTC
  const Plan_Set* wanted = nullptr;  ///< the set that was asked for; null: the time was
  bool ignore_delta = false;
  bool ancient = false;                      ///< a HANA that takes its own catalog, and no delta
  bool copy = false;                         ///< into another database, whose own catalog lists none of these sets
  std::string now;                           ///< UTC
  const Plan_Set* full = nullptr;            ///< as select_full chooses; null: none
  const Plan_Set* catalog = nullptr;         ///< as select_catalog chooses; null: none
  const Plan_Set* newest_catalog = nullptr;  ///< of the database, whatever its lifeline
  std::vector<Plan_Set> data;                ///< full, incremental and differential sets of the database, by begin
  std::vector<Plan_Set> logs;    ///< log and catalog sets of the lifeline since its full backup, some before it
  std::size_t waiting_logs = 0;  ///< backups of logs that are saved and in no set yet
  /// Whether a plan for that, with the same wish otherwise, would be carried out: what lies on the pools counts there,
  /// too. Asked for nothing but the nearest times. Empty: all can be had.
  std::function<bool(const Recoverable&)> can_be_had;
};

/// Why a restore is refused, or what one should know of it.
struct Plan_Remark {
  std::string code;
  std::string message;
  json_spirit::Object details;
};

/// One log backup in a plan.
struct Plan_Log {
  std::uint64_t volume = 0;
  std::uint64_t partition = 0;
  std::uint64_t first = 0;  ///< log position
  std::uint64_t last = 0;   ///< log position that the next one begins at
  const Plan_Set* set = nullptr;
  const Plan_Object* object = nullptr;
};

/// What a restore will read, in HANA's order, or why it must not be begun.
struct Restore_Plan {
  bool full_only = false;  ///< one full backup without logs
  std::string time;
  std::string lifeline;
  const Plan_Set* full = nullptr;
  std::vector<const Plan_Set*> deltas;
  std::vector<Plan_Log> logs;         ///< by volume and position
  const Plan_Set* catalog = nullptr;  ///< that HANA reads its own catalog from; null: none is needed
  bool staged = false;                ///< that catalog is staged for it
  std::vector<Plan_Remark> refusals;
  std::vector<Plan_Remark> notes;
  std::optional<Recoverable> before;  ///< nearest to the wanted time, when that cannot be had
  std::optional<Recoverable> after;

  [[nodiscard]] bool ok() const { return refusals.empty(); }
};

/// Chooses what HANA and the module choose. Pure. Whether the objects lie where they should is not asked here.
[[nodiscard]] Restore_Plan plan_restore(const Restore_Question& question);

/// The codes of refusals; docs/backupd-api.md.
namespace refusal {
inline constexpr char no_full[] = "no_full_backup";
inline constexpr char not_restorable[] = "not_restorable";
inline constexpr char future[] = "time_in_future";
inline constexpr char no_catalog[] = "no_catalog";
inline constexpr char old_catalog[] = "catalog_too_old";
inline constexpr char other_catalog[] = "catalog_of_another_branch";
inline constexpr char gap[] = "log_gap";
inline constexpr char overlap[] = "log_overlap";
inline constexpr char too_short[] = "logs_too_short";
inline constexpr char set_missing[] = "set_missing";
inline constexpr char object_missing[] = "object_missing";
inline constexpr char object_size[] = "object_size";
inline constexpr char pool_unknown[] = "pool_not_looked_at";
inline constexpr char agent_away[] = "agent_away";
inline constexpr char target_unfit[] = "target_unfit";
inline constexpr char version_unknown[] = "version_unknown";
inline constexpr char master_away[] = "target_master_away";
inline constexpr char unknown_master[] = "target_master_unknown";
inline constexpr char not_master[] = "target_not_master";
}  // namespace refusal

/// The codes of notes.
namespace plan_note {
inline constexpr char no_base[] = "delta_without_base";
inline constexpr char ancient[] = "no_deltas_in_this_version";
inline constexpr char unproven[] = "log_start_unproven";
inline constexpr char waiting[] = "logs_waiting";
}  // namespace plan_note

}  // namespace backupd
