#pragma once

#include <optional>
#include <string>
#include <vector>

#include "backupd/log_backup/ondemand_rows.h"
#include "backupd/outcome.h"
#include "backupd/store/database.h"
#include "backupd/store/list_query.h"
#include "hana/backint_catalog/backint_backup_file.h"
#include "hana/backint_catalog/backint_job.h"

namespace backupd {

/// Which file records are wanted; empty texts match all.
struct File_Filter {
  std::string host_uuid;
  std::string sid;
  std::string database;
  std::string origin_path;
  std::string extern_backup_id;
};

/// Backint job records and the records of the objects stored for them. Every operation is durable when it returns.
/// Safe from any thread.
class Backint_Store {
 public:
  explicit Backint_Store(Database& database) : database_(database) {}

  /// A second record with one uuid is a conflict. `job.id` is set.
  [[nodiscard]] Outcome add_job(sap_hana::Backint_Backup_Job_Info& job);
  /// Stores the record of a backup that HANA began by itself, or finds the one that is there: one of the same host,
  /// system, database, backup id and type that was not taken and has no run. `stored` becomes the record.
  [[nodiscard]] Outcome add_ondemand_job(sap_hana::Backint_Backup_Job_Info job, json_spirit::Object& stored);
  /// The record, with a member "taken" when it was taken.
  [[nodiscard]] Outcome get_job(const std::string& uuid, json_spirit::Object& record);
  /// Sets HANA's backup id once: the same again is done already, another one is a conflict.
  [[nodiscard]] Outcome set_backup_id(const std::string& uuid, std::int64_t database_backup_id);
  /// Marks the record as taken; it and its files stay readable.
  [[nodiscard]] Outcome take_job(const std::string& uuid);
  /// Records that were not taken.
  [[nodiscard]] bool list_jobs(List_Query query, List_Page& page);

  /// All of `files` or none. A (filename, extern_backup_id) of the job that is stored already is done already. With
  /// `last` all objects of a backup that HANA began by itself are stored now: the run that records it is owed.
  [[nodiscard]] Outcome add_files(const std::string& job_uuid, std::vector<sap_hana::Backup_File_Info> files, bool last,
                                  json_spirit::Array& stored);
  [[nodiscard]] Outcome list_job_files(const std::string& job_uuid, json_spirit::Array& rows);
  /// Newest first; each with "host_uuid", "sid" and "database" of its job.
  [[nodiscard]] bool list_files(const File_Filter& filter, List_Query query, List_Page& page);
  /// A record that a set holds goes only with `force`.
  [[nodiscard]] Outcome remove_file(std::int64_t id, bool force);

  /// Runs that are owed to backups which HANA began by itself; columns of the query are those of the table.
  [[nodiscard]] bool list_owed_runs(const List_Query& query, List_Page& page);
  /// All that waits of a database is due now, with `retry` also what was given up. `page`: what is still there and was
  /// not given up.
  [[nodiscard]] bool drain_owed_runs(const Ondemand_Database& owner, bool retry, List_Page& page);
  /// See drop_given_up_runs. `page`: what was dropped.
  [[nodiscard]] bool drop_owed_runs(const Ondemand_Database& owner, List_Page& page);

 private:
  Database& database_;
};

}  // namespace backupd
