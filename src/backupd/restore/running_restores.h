#pragma once

#include <string>
#include <vector>

#include "backupd/agents/agent_registry.h"
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

/// A database that a restore which goes on brings back somewhere on the host.
struct Running_Restore {
  std::string job_act_id;
  std::string run_host_uuid;  ///< whose agent carries it out
  std::string origin_sid;
  std::string origin_database;
  std::string target_sid;
  std::string target_database;
  std::vector<std::string> origin_hosts;  ///< of the system that was backed up, when it is another one than the target
};

/// The restores that go on into a database, or of it into others of the same host, the last begun first; inside the
/// caller's session. They may be carried out by any host of the system.
[[nodiscard]] std::vector<Running_Restore> restores_about(Sql_Session& session, const Restore_Place& place);

/// The same for others to read. Safe from any thread.
class Running_Restores {
 public:
  Running_Restores(Database& database, const Agent_Registry& agents) : database_(database), agents_(agents) {}

  /// Rows {job_act_id, origin_sid, origin_database, target_sid, target_database, origin_hosts?} of those whose agents
  /// are connected: of the others nobody knows whether they go on. False when they cannot be read.
  [[nodiscard]] bool list(const Restore_Place& place, List_Page& page) const;

 private:
  Database& database_;
  const Agent_Registry& agents_;
};

}  // namespace backupd
