#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "base/layout.h"
#include "engine/sql_text.h"

namespace standin {

/// What a RECOVER statement asks for.
struct Recovery_Request {
  enum Kind { full_by_id, full_by_prefix, until_timestamp };
  Kind kind = full_by_id;
  std::string database;         ///< of "FOR", or empty
  std::string source_database;  ///< of "USING SOURCE", or empty
  std::string source_sid;
  std::int64_t backup_id = 0;
  std::string prefix;
  std::int64_t until_seconds = 0;  ///< since the epoch, from a time in UTC
  bool backint_catalog = false;
  bool ignore_deltas = false;
  std::string text;  ///< the statement as it came
};

/// Reads the rest of the statement behind "RECOVER". Its forms:
///   DATA [FOR t] [USING SOURCE 's'] USING BACKUP_ID n [USING CATALOG BACKINT] CLEAR LOG
///   DATA [FOR t] [USING SOURCE 's'] USING BACKINT ('prefix') CLEAR LOG
///   DATABASE [FOR t] UNTIL TIMESTAMP 'YYYY-MM-DD HH:MM:SS' CLEAR LOG [USING SOURCE 's'] [USING CATALOG BACKINT]
///     USING BACKUP_ID n CHECK ACCESS ALL [IGNORE DELTA DATA BACKUPS]
/// with 's' = 'database@SID', or 'database' in a single-container system. A version that has no deltas has no clause
/// for the catalog either. All other forms of HANA's are syntax errors here.
std::optional<Sql_Error> parse_recovery(const Layout& layout, const std::string& sql, Token_Reader& reader,
                                        Recovery_Request& request);

}  // namespace standin
