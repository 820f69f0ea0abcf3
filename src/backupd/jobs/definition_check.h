#pragma once

#include <string>

#include "backupd/outcome.h"
#include "json/value.h"

namespace backupd {

/// The type of the schedule of a log backup: what it backs up begins it.
inline constexpr int schedule_on_demand = 7;

/// What the server itself needs of a job definition.
struct Definition_Summary {
  std::string id;
  std::string name;
  std::string module;
  std::string host_uuid;
  std::string pool_uuid;             ///< where a backup goes
  std::string target_resource_uuid;  ///< what a restore restores into
};

/// Checks a job definition by the rules of docs/formats/job-definition.md, so that what an agent is handed is sound.
/// Whether the pool, or the system that is restored into, is registered, and the host one of that system's, is the
/// caller's to ask.
[[nodiscard]] Outcome check_definition(const json_spirit::Object& body, Definition_Summary& summary);

/// "SYSTEMDB", or a name by HANA's rules for identifiers without quotes: [A-Z_][A-Z0-9_]*, up to 127 bytes.
[[nodiscard]] bool is_database_name(const std::string& name);

}  // namespace backupd
