#include "hana/job/backup_executor.h"

#include <ace/Guard_T.h>

#include <functional>

#include "agent/backupd_client/access_key_file.h"
#include "hana/common/backint_preparer.h"
#include "hana/common/hana_paths.h"
#include "hana/common/tenant_database_control.h"
#include "job/job.h"
#include "job/job_definition.h"
#include "job/job_mutex.h"
#include "job/job_thread_helper.h"
#include "platform/file_lock.h"
#include "platform/log.h"
#include "scrt/loose_version.h"

namespace {

/// The first version with M_BACKUP_PROGRESS.
constexpr const char* first_version_with_progress = "1.00.100";

constexpr int progress_prepared = 1;
constexpr int progress_done = 100;

constexpr int worker_flags = THR_NEW_LWP | THR_JOINABLE | THR_INHERIT_SCHED;

}  // namespace

namespace sap_hana {

Backup_Executor::Backup_Executor(Job& job) : Backup_Executor_Basic(job) {}

bool Backup_Executor::execute_backup(const Action_Options*) {
  const auto mutex = Job_Mutex::get(src_->id());
  ACE_GUARD_RETURN(Job_Mutex, guard, *mutex, false);
  mutex->holder(evt_handler_.job_act_id());
  Backup_Source_Collector collector(sid_);
  if (!prepare_backint() || !collect_databases(collector) || !bind_hdbsql()) return false;
  // The Backint agent finds out by itself when the key is not there.
  (void)generate_access_key_file();
  evt_handler_.handle_progress(progress_prepared);
  if (!backup_databases(collector.get())) return false;
  evt_handler_.handle_progress(progress_done);
  return true;
}

bool Backup_Executor::prepare_backint() {
  if (Backint_Preparer(sid_).prepare()) return true;
  raise_alert(ALERT_PREPARE_BACKINT);
  D3_ERROR("Failed to prepare backint\n");
  return false;
}

bool Backup_Executor::collect_databases(Backup_Source_Collector& collector) {
  if (collector.collect(*src_) && !collector.get().empty()) return true;
  raise_alert(ALERT_COLLECT_SOURCE);
  D3_ERROR("Failed to collect backup source\n");
  return false;
}

bool Backup_Executor::bind_hdbsql() {
  if (init_hdbsql()) return true;
  raise_alert(ALERT_INIT_HDBSQL);
  D3_ERROR("Failed to init hdbsql for %s %s\n", sid_.c_str(), instance_name_.c_str());
  return false;
}

bool Backup_Executor::backup_databases(const Backup_Source_Collector::Databases& databases) {
  // An entry without a database takes no step of its own, but its share of the progress.
  const int total = static_cast<int>(databases.size());
  int step = 0;
  for (const Backup_Source_Collector::Database_Info& entry : databases) {
    if (entry.database.empty()) continue;
    ++step;
    if (!backup_database(entry, {(step - 1) * progress_done / total, step * progress_done / total})) return false;
  }
  return true;
}

bool Backup_Executor::backup_database(const Backup_Source_Collector::Database_Info& entry, Progress_Range range) {
  // What a restore leaves decides the kind, and it must neither find the tenant started nor have it started under its
  // hands: its end is waited for, and the next one waits until the tenant is started.
  platform::File_Lock restores(database_restore_lock(sid_, entry.database));
  if (!keep_away(restores, entry.database)) return false;
  if (!choose_job_type(entry)) return false;
  HANA_Backup_Set set;
  begin_set(set);
  if (!store_backint_record(set.uuid, entry.database)) return false;
  if (!start_tenant(entry.database)) return false;
  restores.release();
  std::string cmd;
  if (!generate_cmd(entry, set.uuid, cmd)) return false;
  D3_INFO("Backup database %s in %s\n", entry.database.c_str(), instance_name_.c_str());
  if (!run_cmd(cmd, entry.database, range)) return false;
  if (!complete_set(set) || !commit_set(set)) return false;
  // The next database decides its kind afresh.
  job_type_ = def_.subtype();
  return true;
}

bool Backup_Executor::choose_job_type(const Backup_Source_Collector::Database_Info& entry) {
  if (update_job_type(entry)) return true;
  D3_ERROR("Failed to update job info\n");
  return false;
}

void Backup_Executor::begin_set(HANA_Backup_Set& set) {
  init_metadata(set);
  set.lift_reason = lift_reason_;
  set.requested_type = job_def_subtype_to_string(def_.subtype());
  if (compare_loose_versions(set.system_version, first_version_with_progress) < 0) ancient_version_ = true;
}

bool Backup_Executor::store_backint_record(const std::string& uuid, const std::string& database) {
  if (generate_backint_conf(uuid, database)) return true;
  raise_alert(ALERT_BACKINT_CONFIGURATION);
  D3_ERROR("Failed to generate backint configure\n");
  return false;
}

bool Backup_Executor::keep_away(platform::File_Lock& restores, const std::string& database) {
  if (!is_tenant(database) || restores.acquire()) return true;
  D3_ERROR("Failed to lock database '%C' against restores of it: %m\n", database.c_str());
  return refuse_tenant(database);
}

bool Backup_Executor::start_tenant(const std::string& database) {
  if (!is_tenant(database) || Tenant_Database_Controller(hdbsql_).start(database)) return true;
  return refuse_tenant(database);
}

bool Backup_Executor::is_tenant(const std::string& database) const { return mdc_ && database != system_database_name; }

bool Backup_Executor::refuse_tenant(const std::string& database) {
  raise_alert(ALERT_START_TENANT, ALERT_FLAGS_NONE, {{"database", database}});
  D3_ERROR("Failed to start tenant database '%s' in '%s'\n", database.c_str(), instance_name_.c_str());
  return false;
}

bool Backup_Executor::generate_cmd(const Backup_Source_Collector::Database_Info& entry, const std::string& uuid,
                                   std::string& cmd) const {
  if (generate_backup_cmd(job_type_, entry.systemdb ? std::string() : entry.database, uuid, cmd)) return true;
  D3_ERROR("Failed to generate backup cmd\n");
  return false;
}

bool Backup_Executor::run_cmd(const std::string& cmd, const std::string& database, Progress_Range range) {
  bool ok = false;
  {
    // Joined at the end of this scope, also by an exception: `cmd` and `ok` outlive the thread.
    Job_Thread_Helper worker(&job_, worker_flags, ACE_DEFAULT_THREAD_PRIORITY);
    // A thread that could not be made leaves `ok` false.
    if (worker.spawn(&Backup_Executor::execute_backup_cmd, this, cmd.c_str(), std::ref(ok)) < 0)
      D3_ERROR("The thread of the backup statement cannot be made: %m\n");
    update_progress(worker, database.c_str(), range.start, range.end);
  }
  if (ok) return true;
  raise_alert(ALERT_EXECUTE_BACKUP);
  D3_ERROR("Failed to execute backup\n");
  return false;
}

bool Backup_Executor::complete_set(HANA_Backup_Set& set) {
  if (update_metadata(set, set.uuid)) return true;
  raise_alert(ALERT_UPDATE_METADATA, ALERT_FLAGS_CATALOG);
  D3_ERROR("Failed to update metadata\n");
  return false;
}

bool Backup_Executor::commit_set(HANA_Backup_Set& set) {
  if (save_metadata(set)) return true;
  raise_alert(ALERT_SAVE_CATALOG, ALERT_FLAGS_CATALOG);
  D3_ERROR("Failed to save catalog\n");
  return false;
}

}  // namespace sap_hana
