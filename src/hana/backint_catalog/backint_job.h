#pragma once

#include <cstdint>
#include <string>

#include "json/value.h"

namespace sap_hana {

/// What the Backint agent needs to know of one backup; kept by backupd under its uuid. Source of the format:
/// docs/formats/backint-job.md.
struct Backint_Backup_Job_Info {
  std::uint64_t id = 0;                  ///< given by backupd
  std::uint64_t database_backup_id = 0;  ///< HANA's BACKUP_ID, 0 until known
  std::string uuid;
  std::string host_uuid;
  std::string job_act_id;
  std::string type;
  std::string location;
  std::string database;
  std::string compression;
  int compression_level = 0;
  std::string sid;
  std::string pool_uuid;
  std::string landscape_id;
  json_spirit::Object extended_attrs;

  [[nodiscard]] json_spirit::Object to_json() const;
  /// Every key is optional but "uuid"; a key of another type is an error, and *this is then left alone.
  [[nodiscard]] bool from_json(const json_spirit::Object& object, std::string* error = nullptr);
};

}  // namespace sap_hana
