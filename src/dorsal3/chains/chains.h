#pragma once

#include <map>
#include <string>
#include <vector>

#include "dorsal3/chains/set_list.h"

namespace dorsal3 {

/// What the chains of a database are read from.
struct Chain_Source {
  std::vector<const json_spirit::Object*> sets;   ///< full, incremental and differential sets of one database
  const Set_List* list = nullptr;                 ///< where they come from: tells what was left out
  std::map<std::string, std::string> pool_names;  ///< by uuid
  std::map<std::string, std::string> short_ids;   ///< by uuid of a set or lifeline
};

/// The chains of one database, oldest first:
/// {"lifelines": [{"lifeline", "short_id", "chains": [{"incarnation", "full"?, "broken"?, "deltas": [set]}]}],
///  "next_incremental": next, "next_differential": next}
///
/// "full" is missing, and "broken" tells why, when the full backup of the deltas is not there. A set is {"uuid",
/// "short_id", "type", "database_backup_id", "start_time", "last_time", "source_size", "stored_size", "state": "online"
/// or "missing", "pools": [name], "requested_type"?, "lift_reason"?, "broken"?}: "broken" says that a backup it builds
/// on is missing. A `next` is {"becomes": kind, "based_on"?: uuid, "based_on_short_id"?, "pool"?: name, "reason"?,
/// "warning"?}: the kind the next backup will have, with the reason when it becomes full.
[[nodiscard]] json_spirit::Object database_chains(const Chain_Source& source);

/// For each id its shortest beginning, eight characters or more, that none of the others has.
[[nodiscard]] std::map<std::string, std::string> short_ids(const std::vector<std::string>& ids);

/// A set whose storages name no state is not on its pool any more.
[[nodiscard]] bool is_online(const json_spirit::Object& set);

/// Bytes of the set on its pool.
[[nodiscard]] std::uint64_t stored_size(const json_spirit::Object& set);

}  // namespace dorsal3
