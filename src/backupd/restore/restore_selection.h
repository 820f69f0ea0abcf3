#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "backupd/store/database.h"
#include "json/value.h"

namespace backupd {

/// What a restore looks for a set by.
struct Restore_Point {
  std::string resource_uuid;
  std::string lifeline;  ///< empty: see select_full
  std::string database;
  std::string time;                     ///< UTC
  std::int64_t database_backup_id = 0;  ///< HANA's id of the full backup; for select_catalog
};

/// The newest full backup that began at the time or before and still lies on a pool, in the point's lifeline. Without a
/// lifeline it is that of the newest set that began at the time or before: what was backed up on another branch of the
/// database's history is never mixed in. None when there is no such backup, and when the store failed, which the
/// session tells.
[[nodiscard]] std::optional<json_spirit::Object> select_full(Sql_Session& session, const Restore_Point& point);

/// The set with the catalog that HANA shall recover by: of those of the lifeline made after the full backup the
/// earliest that begins at the time or later and knows, of every volume that the full backup holds, a log backup that
/// holds all of the time's second; else the newest. Where the full backup's objects tell no volumes, those count that
/// logs around the time are of. A later catalog knows all that an earlier one does. The catalog's object comes first in
/// its "files".
[[nodiscard]] std::optional<json_spirit::Object> select_catalog(Sql_Session& session, const Restore_Point& point);

/// Whether the set lies on a pool that is no copy of another one.
[[nodiscard]] bool is_usable(const json_spirit::Object& set);
/// The pool of the first such storage; empty without one. The module reads the same.
[[nodiscard]] std::string primary_pool(const json_spirit::Object& set);

}  // namespace backupd
