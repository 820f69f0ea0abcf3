#pragma once

#include <ace/Basic_Types.h>

#include <ctime>
#include <map>
#include <string>

#include "agent/backupd_client/client_io_ex.h"
#include "hana/job/backup_executor_basic.h"
#include "hana/job/backup_source_collector.h"
#include "platform/file_lock.h"
#include "scrt/thread_helper.h"

namespace sap_hana {

/// A data backup of the databases that the job's source names, one after the other: full, incremental or differential.
/// Two threads a database: the one that called execute_backup follows the progress while another is blocked in hdbsql.
class Backup_Executor : public Backup_Executor_Basic {
 public:
  explicit Backup_Executor(Job& job);

  /// The whole run. A database that failed ends it; those before it stay backed up and recorded.
  bool execute_backup(const Action_Options* options) override;

  /// Cancels in HANA what runs of this job, waits for its end (300 seconds of pauses at most for each database) and
  /// removes from the pool what was stored of it. For an executor of its own, beside the one that runs the job. False,
  /// with an alert, also when nothing ran; a backup that HANA does not end in time is left and is no failure.
  bool stop();

  /// The statement that makes HANA back up. `database` empty: the database that hdbsql is bound to. False for no kind.
  [[nodiscard]] bool generate_backup_cmd(Job_Definition_Subtype type, const std::string& database,
                                         const std::string& uuid, std::string& cmd) const;
  /// Stores the Backint job record: what the Backint agent needs to know of one backup.
  [[nodiscard]] bool generate_backint_conf(const std::string& uuid, const std::string& database);
  /// Makes the kind full where an incremental or differential backup would have no safe base.
  [[nodiscard]] bool update_job_type(const Backup_Source_Collector::Database_Info& database);
  /// Runs the statement; `ok` tells how it ended. Blocks for the whole backup: body of the worker thread.
  bool execute_backup_cmd(const char* cmd, bool& ok);

  /// The work of stop. `database` becomes the one handled last.
  [[nodiscard]] bool stop_i(std::string& database);
  /// Asks HANA to cancel a backup; HANA ends it later.
  [[nodiscard]] bool cancel_database_job(const char* database, ACE_UINT64 backup_id);

  /// Reports from `start` to `end` per cent while `worker` runs. True.
  bool update_progress(const Thread_Helper& worker, const char* database, int start, int end);
  /// Bytes of the backups of `database` that HANA began at `since` (POSIX seconds) or later. False unless both are
  /// above 0.
  [[nodiscard]] bool get_backup_size(const char* database, ACE_UINT64& backup_size, ACE_UINT64& transferred_size,
                                     std::time_t since) const;

 protected:
  /// Seconds: between the removals and queries of a stop, between two looks at the progress, and as a stop's limit.
  enum { REMOVE_TIME_INTERVAL = 2, QUERY_INTERVAL = 10, TIME_INTERVAL = 30, QUERY_TIMEOUT = 300 };

  bool ancient_version_ = false;  ///< the system has no M_BACKUP_PROGRESS
  /// Why update_job_type made the kind full, for the backup set; empty when it kept the kind.
  const char* lift_reason_ = "";

 private:
  /// Part of the job's 0 to 100 per cent.
  struct Progress_Range {
    int start;
    int end;
  };

  // execute_backup, in this order
  [[nodiscard]] bool prepare_backint();
  [[nodiscard]] bool collect_databases(Backup_Source_Collector& collector);
  [[nodiscard]] bool bind_hdbsql();
  [[nodiscard]] bool backup_databases(const Backup_Source_Collector::Databases& databases);

  // One database, in this order
  [[nodiscard]] bool backup_database(const Backup_Source_Collector::Database_Info& entry, Progress_Range range);
  [[nodiscard]] bool choose_job_type(const Backup_Source_Collector::Database_Info& entry);
  void begin_set(HANA_Backup_Set& set);
  [[nodiscard]] bool store_backint_record(const std::string& uuid, const std::string& database);
  /// Waits until no restore of the tenant goes on. With alert and message when that cannot be had.
  [[nodiscard]] bool keep_away(platform::File_Lock& restores, const std::string& database);
  [[nodiscard]] bool start_tenant(const std::string& database);
  [[nodiscard]] bool is_tenant(const std::string& database) const;
  /// Always false.
  bool refuse_tenant(const std::string& database);
  [[nodiscard]] bool generate_cmd(const Backup_Source_Collector::Database_Info& entry, const std::string& uuid,
                                  std::string& cmd) const;
  [[nodiscard]] bool run_cmd(const std::string& cmd, const std::string& database, Progress_Range range);
  [[nodiscard]] bool complete_set(HANA_Backup_Set& set);
  [[nodiscard]] bool commit_set(HANA_Backup_Set& set);

  /// HANA's backup ids by database.
  using Canceled_Backups = std::map<std::string, ACE_UINT64>;

  // stop_i, in this order
  [[nodiscard]] bool collect_databases_to_stop(Backup_Source_Collector& collector);
  [[nodiscard]] bool bind_hdbsql_to_stop();
  [[nodiscard]] bool cancel_databases(const Backup_Source_Collector::Databases& databases, std::string& database,
                                      Canceled_Backups& canceled);
  [[nodiscard]] bool cancel_if_running(const Backup_Source_Collector::Database_Info& entry, Canceled_Backups& canceled);
  [[nodiscard]] bool get_target_pool(Pool_Info& pool, Client_IO_Options& options) const;
  [[nodiscard]] bool clean_up(const Canceled_Backups& canceled, const std::string& landscape_id,
                              Client_IO_Ex& client) const;
  /// False when HANA cannot be asked; `state` is one that does not end when the time is up.
  [[nodiscard]] bool wait_for_end(const std::string& database, ACE_UINT64 id, std::string& state) const;
  static void remove_dataset(const std::string& directory, Client_IO_Ex& client);

  // update_job_type
  void lift_to_full(const char* reason);
  [[nodiscard]] bool find_full_set(const std::string& database, json_spirit::Object& set);
  [[nodiscard]] bool is_on_target_pool(const json_spirit::Object& set) const;
  [[nodiscard]] bool was_restored_since(const std::string& database, const json_spirit::Object& set) const;
};

}  // namespace sap_hana
