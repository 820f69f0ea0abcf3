#pragma once

#include <optional>
#include <string>

#include "backupd/outcome.h"
#include "backupd/restore/restore_plan.h"
#include "backupd/store/database.h"

namespace backupd {

/// What somebody wants to have restored: a database as it was at a time, or as a set holds it.
struct Restore_Wish {
  std::string resource_uuid;  ///< the system that was backed up
  std::string database;
  std::string time;      ///< UTC; empty: the set counts
  std::string set;       ///< uuid; empty: the time counts
  std::string lifeline;  ///< of a time: which branch of the history; empty: that of the time
  bool ignore_delta = false;
  bool ancient = false;
  bool copy = false;  ///< into another database than the one that was backed up
  std::string now;    ///< UTC
};

/// The question, and the sets that it points to. Neither copied nor moved.
struct Restore_History {
  Restore_History() = default;
  Restore_History(const Restore_History&) = delete;
  Restore_History& operator=(const Restore_History&) = delete;

  Restore_Question question;

  /// Reads what the plan for a wish needs. A set or a database that nobody knows is refused.
  [[nodiscard]] Outcome load(Database& database, const Restore_Wish& wish);

 private:
  Outcome find_wanted(Sql_Session& session, const Restore_Wish& wish);
  void choose(Sql_Session& session, const Restore_Wish& wish);
  void read_data(Sql_Session& session, const Restore_Wish& wish);
  void read_logs(Sql_Session& session, const Restore_Wish& wish);
  void read_logs_before(Sql_Session& session, const Restore_Wish& wish);

  std::optional<Plan_Set> wanted_;
  std::optional<Plan_Set> full_;
  std::optional<Plan_Set> catalog_;
  std::optional<Plan_Set> newest_catalog_;
};

}  // namespace backupd
