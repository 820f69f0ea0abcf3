#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "backupd/outcome.h"
#include "json/value.h"

namespace backupd {

/// A backup set as a request brought it: the document, and what the store searches by. Format:
/// docs/formats/backup-set.md.
struct Backup_Set_Record {
  struct File {
    std::string filename;
    std::string extern_backup_id;
  };

  std::string uuid;
  std::string module;
  std::string type;
  std::string resource_uuid;
  std::string database;
  std::string pool_uuid;
  std::string job_id;
  std::string job_act_id;
  std::string lifeline;
  std::string start_time;
  std::string requested_type;  ///< with lift_reason, of a set that was lifted to full; else empty
  std::string lift_reason;
  std::int64_t database_backup_id = 0;
  std::int64_t source_size = 0;
  std::int64_t total_size = 0;
  std::vector<File> files;
  json_spirit::Object document;

  /// Reads and checks `body`; storages get the members that the agent left out.
  [[nodiscard]] Outcome read(const json_spirit::Object& body);
};

}  // namespace backupd
