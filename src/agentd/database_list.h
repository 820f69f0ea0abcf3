#pragma once

#include <string>
#include <vector>

#include "agent/api/instance.h"

namespace agentd {

/// One database of an instance.
struct Listed_Database {
  std::string name;
  bool active = false;
  std::string description;
};

/// Whether `sid` can be the id of a system, so that it may become a part of a path.
[[nodiscard]] bool is_sid(const std::string& sid);

/// The databases of an instance, for choosing what to back up, without a logon and also while the instance is down.
///
/// An instance whose options say that it has tenants keeps their names in
/// "/usr/sap/<SID>/SYS/global/hdb/mdc/databases.lst"; the system database, which the file leaves out, comes first. An
/// instance without tenants is one database with the name of the system. Whether the system database or a system
/// without tenants is up is what `running` says. False with a reason when the file cannot be read or the options lack
/// the system's id.
[[nodiscard]] bool list_databases(const Instance& instance, bool running, std::vector<Listed_Database>& databases,
                                  std::string& error);

/// The rows of such a file: "name:container:user:group:userid:groupid:host:port:active", '#' begins a comment; blank
/// and short lines are passed over.
[[nodiscard]] std::vector<Listed_Database> parse_database_list(const std::string& text);

}  // namespace agentd
