#pragma once

#include <ace/Basic_Types.h>

#include <cstddef>
#include <ctime>
#include <list>
#include <string>

#include "agent/backupd_client/json_http_session.h"
#include "hana/backint_catalog/backint_backup_file.h"
#include "hana/backint_catalog/backint_job.h"
#include "hana/common/backint_catalog_helper.h"
#include "hana/common/hdbsql_executor.h"
#include "hana/common/hdbsql_general_text_handler.h"
#include "hana/common/resource_info_getter.h"
#include "hana/job/alert_codes.h"
#include "hana/job/backup_job_options.h"
#include "hana/job/hana_backup_set.h"
#include "hana/job/lifeline_lock.h"
#include "job/default_backup_job_source.h"
#include "job/job_event_handler.h"
#include "job/job_executor_t.h"
#include "json/value.h"
#include "records/compression_method.h"

namespace sap_hana {

/// What data backup and log backup share: the start of a run, HANA's and backupd's catalogs, the backup set, and
/// whether this node is the one to run. One object serves one request on a job, on the thread that made it; `hdbsql_`
/// alone may run statements on a second thread.
///
/// An operation that returns false has logged why, but those whose answer is no failure: is_active, and the looks into
/// HANA's catalog that find nothing.
class Backup_Executor_Basic : public Job_Executor_T<Default_Backup_Job_Source, Backup_Job_Options, Job_Event_Handler> {
 public:
  explicit Backup_Executor_Basic(Job& job);
  ~Backup_Executor_Basic() override;

  /// Finds the system, then runs the derived class's execute_backup.
  bool execute_i(const Action_Options* options) override;
  /// Whether this node runs the job, and not another one of the resource.
  bool is_active(const Action_Options* options) override;
  virtual bool execute_backup(const Action_Options* options) = 0;

  /// Session to backupd, Backint catalog, base facts of the system.
  [[nodiscard]] bool init_system_info();
  /// Binds hdbsql_ to the system database with the stored logon.
  [[nodiscard]] bool init_hdbsql();
  [[nodiscard]] bool init_session();

  // HANA's backup catalog. Statements that fail are tried again, ten times with growing pauses. An answer without the
  // wanted value is false.

  /// BACKUP_ID of the newest Backint backup of a kind (full, incremental, differential); 0 when the query fails.
  [[nodiscard]] bool get_last_backup_id(const std::string& database, const Job_Definition_Subtype& type,
                                        ACE_UINT64& backup_id, bool successful_only) const;
  [[nodiscard]] bool get_last_full_backup_id(const std::string& database, ACE_UINT64& backup_id,
                                             bool successful_only = false) const;
  /// The newest full backup, whatever its state, and that state.
  [[nodiscard]] bool get_last_full_backup_state(const std::string& database, ACE_UINT64& backup_id,
                                                std::string& state) const;
  /// POSIX seconds. False also while the backup has no start or no end.
  [[nodiscard]] bool get_backup_catalog_time(ACE_UINT64 backup_id, std::time_t& start, std::time_t& end) const;
  /// HANA's word for the state; "running" as long as the backup has no end. Waits for a backup that is not in the
  /// catalog yet.
  [[nodiscard]] bool get_job_state(ACE_UINT64 backup_id, std::string& state) const;

  /// The newest set of a database that backupd holds, or, with an id other than 0, the set of that backup. Its "state"
  /// is made a bool: a storage still holds the set.
  [[nodiscard]] bool get_backup_sets(const std::string& database, ACE_UINT64 database_backup_id,
                                     json_spirit::Object& set) const;
  /// When the database was recovered last, POSIX seconds; 0 when it never was.
  [[nodiscard]] bool get_last_restore(const std::string& database, std::time_t& restore_time) const;

  // The backup set of one database: begun before the backup, completed after it, committed.

  void init_metadata(HANA_Backup_Set& set);
  /// `uuid`: of the set, which is also that of its Backint job record.
  [[nodiscard]] bool update_metadata(HANA_Backup_Set& set, const std::string& uuid);
  /// Other runs of the database in this process wait from the lifeline's choice until the set is committed.
  [[nodiscard]] bool save_metadata(HANA_Backup_Set& set);

  /// The instances of the resource on other hosts than this one.
  [[nodiscard]] bool get_cluster_instances(Instances_Info& instances);

 protected:
  /// Catalog queries and waits for file records.
  enum { MAX_INTERVAL = 2, MAX_RETRY = 10, MAX_RETRY_TIMEOUT = 10 };

  /// Room for the text of a statement or a request's path.
  static constexpr std::size_t statement_bytes = 4096;

  void raise_alert(Alert_Code code, Alert_Flags flags = ALERT_FLAGS_NONE, const json_spirit::Object& parameters = {});
  /// Schema of HANA's catalog views.
  [[nodiscard]] const char* catalog_schema() const;

  std::string sid_;
  std::string instance_name_;
  std::string instance_mgr_name_;
  ACE_UINT16 instance_number_ = 0;
  bool mdc_ = false;  ///< the system runs with tenant databases
  HDBSQL_Executor hdbsql_;
  Job_Definition_Subtype job_type_;
  Compression_Method compression_ = COMPR_NONE;
  int compression_level_ = Backup_Job_Options::default_compression_level;
  Backint_Catalog_helper backint_helper_;
  JSON_HTTP_Session session_;
  std::string incarnation_;
  ACE_UINT64 last_full_backup_id_ = 0;
  Instances_Info cluster_instances_;

 private:
  /// When an attempt of a query counts: it ran, or it also gave a row.
  enum class Attempt_Needs { success, rows };
  void query(const char* sql, Attempt_Needs needs, HDBSQL_General_Text_Handler& handler) const;

  Lifeline_Lock lifeline_lock_;  ///< held between update_metadata and the end of save_metadata

  // update_metadata
  [[nodiscard]] bool collect_files(const std::string& uuid, std::list<Backup_File_Info>& files);
  [[nodiscard]] bool wait_for_files(const std::string& uuid, std::list<Backup_File_Info>& files);
  /// True when a new lifeline began.
  [[nodiscard]] bool choose_lifeline(HANA_Backup_Set& set) const;
  void choose_incarnation(bool new_lifeline, HANA_Backup_Set& set);
  /// Makes last_full_backup_id_ name a successful full backup, or 0.
  void find_last_full_backup(const std::string& database);
  void add_files(const std::list<Backup_File_Info>& files, HANA_Backup_Set& set);
  void set_times(HANA_Backup_Set& set) const;

  // is_active
  [[nodiscard]] bool may_run_log_backup() const;
  [[nodiscard]] bool runs_on_another_node(const Instances_Info& instances) const;
};

}  // namespace sap_hana
