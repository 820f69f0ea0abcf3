#pragma once

#include <string>

namespace backupd {

class Database;

/// Makes the tables of a new database, or brings an older one to the present version, step by step, each in one
/// transaction. False with a reason, also for a database that a newer server wrote.
[[nodiscard]] bool upgrade_schema(Database& database, std::string& error);

/// The version this server writes.
[[nodiscard]] int schema_version();

}  // namespace backupd
