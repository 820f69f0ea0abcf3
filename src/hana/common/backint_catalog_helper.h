#pragma once

#include <cstdint>
#include <list>
#include <string>

#include "agent/backupd_client/json_http_session.h"
#include "hana/backint_catalog/backint_backup_file.h"
#include "hana/backint_catalog/backint_job.h"

namespace sap_hana {

/// Client of the Backint job and file records that backupd keeps. Every change is durable when it returns true. Each
/// failure is logged. One thread at a time.
class Backint_Catalog_helper {
 public:
  /// Shares the connection of `session`, which need not live on. False when it has none.
  [[nodiscard]] bool init(JSON_HTTP_Session& session);

  /// Stores a new record under its uuid. False when there is one already.
  [[nodiscard]] bool add_job(const Backint_Backup_Job_Info& job);
  /// The same, where an equal record of an attempt before is success.
  [[nodiscard]] bool check_and_add_job(const Backint_Backup_Job_Info& job);
  /// Stores the record of a backup that HANA began by itself; `stored` becomes that record, or the one that backupd has
  /// for this backup already, as when the call is made again.
  [[nodiscard]] bool add_ondemand_job(const Backint_Backup_Job_Info& job, Backint_Backup_Job_Info& stored);
  /// Reads a record, also one that is marked as taken. `job` is made empty first and stays so on failure.
  [[nodiscard]] bool get_job(const char* uuid, Backint_Backup_Job_Info& job);
  /// Sets HANA's backup id in a record that has none; the same id again is success, another one is refused.
  [[nodiscard]] bool update_job_database_backup_id(const char* uuid, std::uint64_t database_backup_id);
  /// Marks a record as taken. It and its files stay readable.
  [[nodiscard]] bool remove_job(const char* uuid);

  /// The files stored under a job, in the order of saving; `files` is replaced.
  [[nodiscard]] bool get_job_files(const char* uuid, std::list<Backup_File_Info>& files);
  /// Adds records under the job that each names in info_uuid, or all of one job, all or none. The same record again is
  /// success.
  [[nodiscard]] bool add_file(const Backup_File_Info& file);
  [[nodiscard]] bool add_files(const char* uuid, const std::list<Backup_File_Info>& files);
  /// Adds the last record of a backup that HANA began by itself: backupd then begins the run that makes its set.
  [[nodiscard]] bool add_last_file(const Backup_File_Info& file);

  /// Which file records are wanted; empty members are not asked for.
  struct File_Query {
    std::string host_uuid;
    std::string sid;
    std::string database;
    std::string origin_path;
    std::string extern_backup_id;
  };
  /// File records, newest first; `files` is replaced. None found is success.
  [[nodiscard]] bool get_files(const File_Query& query, std::list<Backup_File_Info>& files);
  /// The record of one EBID within `scope` (whose own extern_backup_id is not looked at). True when backupd answered:
  /// `found` tells whether there is one.
  [[nodiscard]] bool get_file_by_ebid(const char* ebid, const File_Query& scope, Backup_File_Info& file, bool& found);
  /// Removes a file record. False when a kept backup set still holds it.
  [[nodiscard]] bool remove_file(std::uint64_t id);

 private:
  [[nodiscard]] bool post_files(const char* uuid, const std::list<Backup_File_Info>& files, bool last);

  JSON_HTTP_Session session_;
};

}  // namespace sap_hana
