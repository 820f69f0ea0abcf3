#pragma once

#include <optional>
#include <string>

#include "backupd/outcome.h"
#include "backupd/store/database.h"
#include "backupd/store/list_query.h"
#include "hana/backint_catalog/backint_backup_file.h"
#include "hana/backint_catalog/backint_job.h"

namespace backupd {

/// What a file record needs of its job.
struct Backint_Owner {
  std::string host_uuid;
  std::string sid;
  std::string database;
  bool taken = false;
  std::string job_act_id;
  std::string type;

  /// HANA began the backup by itself.
  [[nodiscard]] bool ondemand() const;
};

// Rows of Backint job and file records, within a session of the caller; what fails shows there.

[[nodiscard]] std::optional<Backint_Owner> find_owner(Sql_Session& session, const std::string& job_uuid);
/// A conflict when the uuid is there, a refusal when the pool is not. `job.id` is set.
[[nodiscard]] Outcome insert_job(Sql_Session& session, sap_hana::Backint_Backup_Job_Info& job);
/// The record of the same backup that HANA began by itself and that no set has taken. Logs and catalogs are apart also
/// under one backup id, for a set is of one type.
[[nodiscard]] std::optional<json_spirit::Object> find_open_job(Sql_Session& session,
                                                               const sap_hana::Backint_Backup_Job_Info& job);

/// Columns for file_record.
inline constexpr char file_columns[] = "id, document, host_uuid, sid, database_name";
inline constexpr std::size_t file_column_count = 5;
/// The file record as it is shown.
[[nodiscard]] json_spirit::Object file_record(const Sql_Row& row);
/// `file.id` is set.
void insert_file(Sql_Session& session, const Backint_Owner& owner, sap_hana::Backup_File_Info& file);

}  // namespace backupd
