#pragma once

#include <string>
#include <vector>

#include "backupd/outcome.h"
#include "backupd/store/database.h"
#include "backupd/store/list_query.h"

namespace backupd {

/// A database on a host as HANA names it to hdbbackint.
struct Restore_Place {
  std::string host_uuid;
  std::string sid;
  std::string database;  ///< empty in a system without tenants, whose one database is called like it
};

/// A database that a restore which goes on brings back somewhere.
struct Running_Restore {
  std::string job_act_id;
  std::string origin_sid;
  std::string origin_database;
};

/// The restores into a database that go on, the last begun first; inside the caller's session. They may be
/// carried out on any host of the system.
[[nodiscard]] std::vector<Running_Restore> restores_into(Sql_Session& session, const Restore_Place& place);

/// The same as rows {job_act_id, origin_sid, origin_database}. False when they cannot be read.
[[nodiscard]] bool list_restores_into(Database& database, const Restore_Place& place, List_Page& page);

}  // namespace backupd
