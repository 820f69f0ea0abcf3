#pragma once

#include <map>
#include <string>
#include <vector>

#include "json/value.h"

namespace dorsal3 {

/// What the chain of logs of one database is read from.
struct Log_Chain_Source {
  std::vector<json_spirit::Object> data_sets;     ///< full, incremental and differential sets
  std::vector<json_spirit::Object> log_sets;      ///< log and catalog sets: all since the newest full, some before it
  std::map<std::string, std::string> short_ids;   ///< by uuid of a set or lifeline
  std::vector<json_spirit::Object> waiting_runs;  ///< of logs that are saved and in no set yet
};

/// The chain of logs of one database since its newest full backup that is on its pool:
/// {"state": "complete", "gap" or "no_full", "newest_recoverable_time"?, "full"? set, "catalog"? set, "branches":
/// [branch],
///  "unread": [file name], "waiting": [run]}
///
/// A branch is {"lifeline", "short_id", "current", "has_full", "services": [service]}; a database has more than one
/// when it was recovered since that full backup. "state" and "newest_recoverable_time" are those of the current one.
///
/// A service is {"volume", "partition", "log_backups", "start": "joined", "unproven", "gap", "no_full" or "none",
/// "first_position"?, "last_position"?, "newest_time"?, "recoverable_time"?, "gaps": [gap], "overlaps": [overlap]}. Its
/// start is "joined" when the logs before the full backup end where it begins or later, "unproven" when none of them
/// are known, "none" when there is no log since. A gap is {"from", "to", "at_full", "after": set, "before": set,
/// "missing": [set]}: the positions in between are in no set that is on its pool, "missing" are sets gone from it. An
/// overlap is
/// {"from", "to", "former": set, "set": set}. Here a set is {"uuid", "short_id", "type", "database_backup_id",
/// "start_time", "last_time"}.
[[nodiscard]] json_spirit::Object log_chain(const Log_Chain_Source& source);

/// The newest full backup that is on its pool; null when there is none.
[[nodiscard]] const json_spirit::Object* newest_full(const std::vector<json_spirit::Object>& sets);

}  // namespace dorsal3
