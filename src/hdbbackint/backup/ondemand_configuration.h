#pragma once

#include <string>

#include "json/value.h"

namespace hdbbackint {

/// The database that an object belongs to.
struct Object_Owner {
  std::string sid;
  std::string database;  ///< of a system without tenants: the SID, as HANA names its one database
  [[nodiscard]] bool operator==(const Object_Owner&) const = default;
};

/// Reads the owner from the place where HANA made the pipe. False for a path that is not in such a place.
[[nodiscard]] bool find_object_owner(const std::string& object, Object_Owner& owner);

/// How HANA's own backups of a database are stored. Source of the format: docs/formats/log-backup-configuration.md.
struct Ondemand_Configuration {
  std::string path;  ///< of the file it was read from
  std::string job_definition_uuid;
  std::string resource_uuid;
  std::string uid;
  std::string pool_uuid;
  std::string location;
  std::string compression;
  int compression_level = 0;
  json_spirit::Object io_ctl;
};

/// Reads the configuration of the database, else the one of its instance. False with a reason, which names the file,
/// what is wrong with it and what to do: a database's own file that is no good is never passed over, for its backups
/// would silently go elsewhere. `host_uuid`: this host.
[[nodiscard]] bool load_ondemand_configuration(const Object_Owner& owner, const std::string& host_uuid,
                                               Ondemand_Configuration& configuration, std::string& error);

}  // namespace hdbbackint
