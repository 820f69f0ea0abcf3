#pragma once

#include <cstdint>

#include "backupd/store/database.h"

namespace backupd {

/// For how many days runs that have ended are kept, with their logs; 0: for ever.
struct History_Limits {
  unsigned days_of_runs = 366;
  unsigned days_of_log_runs = 31;  ///< runs of log backups: there may be hundreds of thousands a day
};

/// Removes old runs. Backup sets, alerts and the audit log do not depend on them and stay. Safe from any thread.
class History_Keeper {
 public:
  History_Keeper(Database& database, History_Limits limits) : database_(database), limits_(limits) {}

  /// Removes some of what is too old, oldest first, in several transactions so that nobody waits long; called again and
  /// again it removes all. Runs stay that own Backint records which no set took, and those that the queue of log
  /// backups tells of. False when that is not possible now, which the store has logged; `removed` is right anyway.
  [[nodiscard]] bool remove_old(std::int64_t& removed);

  /// Runs removed by one call at most.
  static constexpr std::int64_t most_at_once = 10'000;

 private:
  [[nodiscard]] bool date_undated();
  [[nodiscard]] bool remove_kind(bool of_logs, unsigned days, std::int64_t& removed);

  Database& database_;
  const History_Limits limits_;
};

}  // namespace backupd
