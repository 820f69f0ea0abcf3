#pragma once

#include <ace/Basic_Types.h>

#include <cstddef>
#include <string>

#include "hana/job/restore_job_source.h"
#include "json/value.h"

namespace sap_hana {

/// Finds what the restore of one database reads: the full backup it starts from, HANA's own catalog for a recovery to a
/// point in time, and how much there is to read. Used once, on one thread. Every operation that returns false has
/// logged why; what it filled before stays.
///
/// Times are compared as texts, in the backup server's form.
class Restore_Source_Collector {
 public:
  struct Backup_Set_Info {
    std::string origin_dbname;          ///< database that was backed up
    std::string origin_sid;             ///< of the system that was backed up
    std::string target_dbname;          ///< database to restore into
    std::string catalog_uuid;           ///< the entry's, when it names a full backup; else empty
    ACE_UINT64 database_backup_id = 0;  ///< HANA's id of the full backup
    std::string backup_start_time;      ///< of the full backup
    std::string backup_end_time;        ///< of the full backup
    std::string target_time;            ///< to recover to
    std::string lifeline;               ///< chain that the sets belong to
    bool is_full_backup = false;        ///< the full backup alone, without logs
    bool origin_mdc = false;            ///< the resource runs with tenant databases
  };
  struct File_Detail {
    std::string storage_path;      ///< within the pool
    std::string extern_backup_id;  ///< id by which HANA knows the file
    std::string source_type;
    ACE_UINT64 size = 0;  ///< bytes
  };
  struct HANA_Catalog_Info {
    std::string location;  ///< the pool's URL
    std::string pool_uuid;
    ACE_UINT64 database_backup_id = 0;  ///< HANA's id of the catalog's set
    File_Detail file_detail;
  };

  /// `entry` outlives this object. `max_seconds_retry`: how long each query to backupd goes on trying.
  Restore_Source_Collector(const std::string& resource_uuid, const Restore_Job_Source::Entry_Item& entry,
                           std::size_t max_seconds_retry, bool ignore_delta);

  /// The whole collection. Sizes that cannot be told are no failure: they stay 0.
  [[nodiscard]] bool collect();
  [[nodiscard]] const Backup_Set_Info& get_backup_set() const { return backup_set_info_; }
  /// Filled for a recovery to a point in time only.
  [[nodiscard]] const HANA_Catalog_Info& get_hana_catalog() const { return hana_catalog_info_; }
  /// Bytes that are stored, and bytes they came from.
  [[nodiscard]] ACE_UINT64 get_total_size() const { return total_size_; }
  [[nodiscard]] ACE_UINT64 get_total_source_size() const { return total_source_size_; }

 protected:
  // collect, in this order
  [[nodiscard]] bool read_entry(json_spirit::Object& set);
  [[nodiscard]] bool read_resource();
  [[nodiscard]] bool find_full(json_spirit::Object& set);
  [[nodiscard]] bool find_hana_catalog();
  /// True when the sizes were told.
  bool collect_sets_size();

  [[nodiscard]] bool source_entry_catalog_parser(const json_spirit::Object& catalog);
  [[nodiscard]] bool backup_set_catalog_parser(const json_spirit::Object& catalog, Backup_Set_Info& info) const;
  [[nodiscard]] bool hana_catalog_parser(const json_spirit::Object& catalog, HANA_Catalog_Info& info) const;

  // Views of the backup server
  [[nodiscard]] bool get_catalog(const std::string& uuid, json_spirit::Object& result) const;
  [[nodiscard]] bool get_full_backup(const std::string& time, const std::string& lifeline,
                                     json_spirit::Object& result) const;
  [[nodiscard]] bool get_hana_catalog(const std::string& lifeline, ACE_UINT64 database_backup_id,
                                      const std::string& time, json_spirit::Object& result) const;
  [[nodiscard]] bool get_restore_set(const json_spirit::Object& params, json_spirit::Object& result) const;
  [[nodiscard]] bool get_view(const char* view, const json_spirit::Object& params, json_spirit::Object& result) const;

 private:
  const Restore_Job_Source::Entry_Item& source_entry_;
  std::string resource_uuid_;
  Backup_Set_Info backup_set_info_;
  HANA_Catalog_Info hana_catalog_info_;
  std::size_t max_seconds_retry_;
  ACE_UINT64 total_size_ = 0;
  ACE_UINT64 total_source_size_ = 0;
  bool ignore_delta_;
};

}  // namespace sap_hana
