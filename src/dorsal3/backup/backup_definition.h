#pragma once

#include <string>
#include <vector>

#include "dorsal3/server/resources.h"

namespace dorsal3 {

/// What a backup request comes down to.
struct Backup_Request {
  Resource resource;
  std::vector<std::string> databases;
  std::string type = "full";  ///< "full", "incremental" or "differential"
  json_spirit::Object pool;
  std::string compression = "none";
  int compression_level = 1;
};

/// The job definition document of the request (docs/formats/job-definition.md). Its id follows from its content, so
/// that asking for the same backup twice finds the same definition.
[[nodiscard]] json_spirit::Object backup_definition(const Backup_Request& request);

/// What a log backup comes down to: of an instance, or of one database of it, on one of its hosts.
struct Log_Backup_Request {
  Resource resource;  ///< its host_uuid is the host
  std::string host_name;
  std::string database;  ///< empty: of the instance
  json_spirit::Object pool;
  std::string compression = "none";
  int compression_level = 1;
};

/// The job definition document. Its id follows from host and database alone: another pool or compression changes the
/// definition that is there.
[[nodiscard]] json_spirit::Object log_backup_definition(const Log_Backup_Request& request);
/// The one source entry of it: "hana/HDB00", "hana/HDB00/TN1".
[[nodiscard]] std::string log_backup_entry(const Resource& resource, const std::string& database);

}  // namespace dorsal3
