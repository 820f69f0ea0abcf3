#pragma once

#include <ace/Basic_Types.h>

#include <ctime>
#include <string>

#include "hana/job/backup_executor_basic.h"
#include "hana/job/backup_source_collector.h"
#include "scrt/thread_helper.h"

namespace sap_hana {

/// A data backup of the databases that the job's source names, one after the other: full, incremental or differential.
/// Two threads a database: the one that called execute_backup follows the progress while another is blocked in hdbsql.
class Backup_Executor : public Backup_Executor_Basic {
 public:
  explicit Backup_Executor(Job& job);

  /// The whole run. A database that failed ends it; those before it stay backed up and recorded.
  bool execute_backup(const Action_Options* options) override;

  /// The statement that makes HANA back up. `database` empty: the database that hdbsql is bound to. False for no kind.
  [[nodiscard]] bool generate_backup_cmd(Job_Definition_Subtype type, const std::string& database,
                                         const std::string& uuid, std::string& cmd) const;
  /// Stores the Backint job record: what the Backint agent needs to know of one backup.
  [[nodiscard]] bool generate_backint_conf(const std::string& uuid, const std::string& database);
  /// Makes the kind full where an incremental or differential backup would have no safe base.
  [[nodiscard]] bool update_job_type(const Backup_Source_Collector::Database_Info& database);
  /// Runs the statement; `ok` tells how it ended. Blocks for the whole backup: body of the worker thread.
  bool execute_backup_cmd(const char* cmd, bool& ok);

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
  [[nodiscard]] bool start_tenant(const std::string& database);
  [[nodiscard]] bool generate_cmd(const Backup_Source_Collector::Database_Info& entry, const std::string& uuid,
                                  std::string& cmd) const;
  [[nodiscard]] bool run_cmd(const std::string& cmd, const std::string& database, Progress_Range range);
  [[nodiscard]] bool complete_set(HANA_Backup_Set& set);
  [[nodiscard]] bool commit_set(HANA_Backup_Set& set);

  // update_job_type
  [[nodiscard]] bool find_full_set(const std::string& database, json_spirit::Object& set);
  [[nodiscard]] bool is_on_target_pool(const json_spirit::Object& set) const;
  [[nodiscard]] bool was_restored_since(const std::string& database, const json_spirit::Object& set) const;
};

}  // namespace sap_hana
