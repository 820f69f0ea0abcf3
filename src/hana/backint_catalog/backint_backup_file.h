#pragma once

#include <cstdint>
#include <string>

#include "json/value.h"

namespace sap_hana {

/// One object that the Backint agent stored for a job. Source of the format: docs/formats/backint-file.md.
struct Backup_File_Info {
  std::uint64_t id = 0;   ///< given by backupd; grows with the order of saving
  std::string info_uuid;  ///< uuid of the owning job
  std::string filename;   ///< last segment of origin_path
  std::string origin_path;
  std::uint64_t size = 0;          ///< bytes received from HANA
  std::uint64_t storage_size = 0;  ///< bytes stored
  std::string extern_backup_id;    ///< the EBID handed to HANA
  std::string source_type;         ///< "PIPE" or "FILE"
  std::string pool_uuid;
  std::string storage_path;  ///< relative to the pool's url
  std::string backup_time;   ///< UTC
  std::string location;      ///< the pool's url
  std::uint64_t database_backup_id = 0;
  std::string compression;  ///< name of the method that was used
  std::string checksum;     ///< XXH3-128 of the bytes received, 32 hexadecimal digits

  [[nodiscard]] json_spirit::Object to_json() const;
  [[nodiscard]] bool from_json(const json_spirit::Object& object, std::string* error = nullptr);
};

}  // namespace sap_hana
