#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "hana/job/catalog_metadata.h"
#include "records/backup_set.h"

namespace sap_hana {

/// One backup of one HANA database on its way to backupd. Format of the record: docs/formats/backup-set.md; of its
/// "metadata" member: docs/formats/catalog-metadata.md.
class HANA_Backup_Set : public Backup_Set {
 public:
  /// One file that the Backint agent stored.
  struct Backup_File {
    std::string extern_backup_id;  ///< the EBID handed to HANA
    std::string origin_path;
    std::string filename;
    std::uint64_t size = 0;  ///< bytes received from HANA
    std::string source_type;
    std::string storage_path;
    std::uint64_t storage_size = 0;  ///< bytes stored
  };

  HANA_Backup_Set();

  std::string sid;
  unsigned short instance_number = 0;
  std::string instance_name;
  std::string system_version;
  std::string database;
  std::uint64_t database_backup_id = 0;  ///< HANA's BACKUP_ID
  std::string lifeline;
  std::string incarnation;
  /// A kind lifted to full: the kind that the definition asked for, and why; empty otherwise.
  std::string requested_type;
  std::string lift_reason;

  void add_file(const Backup_File& file) { files_.push_back(file); }
  [[nodiscard]] const std::vector<Backup_File>& files() const { return files_; }

  /// What the set says of the HANA system it came from.
  [[nodiscard]] Catalog_Metadata metadata() const;
  [[nodiscard]] json_spirit::Object to_record() const override;

 private:
  std::vector<Backup_File> files_;
};

}  // namespace sap_hana
