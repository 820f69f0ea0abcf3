#pragma once

#include <cstdint>
#include <string>

#include "backupd/store/database.h"

namespace backupd {

/// Bytes of backup sets.
struct Set_Sizes {
  std::int64_t source = 0;
  std::int64_t stored = 0;
};

/// A part of a lifeline, by HANA's ids of backups, both ends included.
struct Set_Range {
  std::string lifeline;
  std::int64_t first = 0;
  std::int64_t last = 0;
  bool with_deltas = true;
};

/// Sums are kept for spans of ids beside the sets, so that a long lifeline is added up as fast as a short one.
///
/// Counts a new set in; in the transaction that stores it.
void count_set(Sql_Session& session, const std::string& lifeline, const std::string& type, std::int64_t backup_id,
               const Set_Sizes& sizes);
/// The sets of the range that are no full backups, and the full backup that has the range's first id.
[[nodiscard]] Set_Sizes sum_sets(Sql_Session& session, const Set_Range& range);

}  // namespace backupd
