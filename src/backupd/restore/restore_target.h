#pragma once

#include <string>

#include "backupd/agents/agent_registry.h"
#include "backupd/catalog/resource_store.h"
#include "backupd/outcome.h"
#include "json/value.h"

namespace backupd {

/// What backupd knows of a HANA system that takes part in a restore: its record, and the host whose agent would do it.
struct Restore_System {
  std::string resource_uuid;
  std::string name;           ///< of the resource, "<SID>_<instance>"
  std::string instance_name;  ///< "HDB00"
  std::string sid;
  std::string version;
  std::string host_uuid;  ///< the active master's, else the first whose agent is connected
  bool connected = false;
  bool multi_container = false;

  [[nodiscard]] Outcome load(Resource_Store& resources, const Agent_Registry& agents, const std::string& uuid);
  /// A version that takes neither its catalog from the backups nor a delta.
  [[nodiscard]] bool is_ancient() const;
  /// Whether the database stands for the whole system: a single container, or the system database.
  [[nodiscard]] bool is_system_database(const std::string& database) const;
};

}  // namespace backupd
