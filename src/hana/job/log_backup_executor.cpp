// One run of a log backup: records one backup that HANA has made by itself.

#include "hana/job/log_backup_executor.h"

#include <ace/Time_Value.h>
#include <strings.h>

#include <chrono>
#include <cstdio>
#include <list>

#include "hana/common/database_lister.h"
#include "hana/common/hana_paths.h"
#include "hana/common/instance_control.h"
#include "hana/common/service_lister.h"
#include "hana/common/tenant_database_control.h"
#include "job/job.h"
#include "job/job_definition.h"
#include "platform/clock.h"
#include "platform/file_lock.h"
#include "platform/log.h"

namespace sap_hana {

/// Pause between two looks at what a log backup waits for. Not in the header: the data backup has a constant of that
/// name.
extern const ACE_Time_Value TIME_INTERVAL;
const ACE_Time_Value TIME_INTERVAL(10, 0);

}  // namespace sap_hana

namespace {

constexpr int progress_begun = 1;
constexpr int progress_done = 100;

constexpr const char* backint_job_key = "backint_job_uuid";
constexpr const char* state_successful = "successful";
constexpr const char* state_failed = "failed";
constexpr const char* state_canceled = "canceled";

/// HANA's catalog entry may come a moment after its state.
constexpr std::chrono::seconds settle_pause{1};

/// An id that is the beginning of another one matches that one too: kept, it only prolongs a wait.
constexpr const char* hdbbackint_of_backup = ".*hdbbackint.*-s\\s*%llu.*";
constexpr const char* any_hdbbackint = ".*hdbbackint.*";

bool is_state(const std::string& text, const char* state) { return ::strcasecmp(text.c_str(), state) == 0; }

/// Whether a process runs; one that cannot be looked for does not.
bool runs(const std::string& pattern) {
  std::list<sap_hana::Service_Info> services;
  const bool failed = sap_hana::Service_Lister::list_service(pattern, services, false, "C");
  return !failed && !services.empty();
}

std::string pattern_of(ACE_UINT64 backup_id) {
  char pattern[64];
  std::snprintf(pattern, sizeof pattern, hdbbackint_of_backup, static_cast<unsigned long long>(backup_id));
  return pattern;
}

void wait_a_while() { platform::Clock::current().sleep_for(std::chrono::seconds(sap_hana::TIME_INTERVAL.sec())); }

std::chrono::seconds since(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration_cast<std::chrono::seconds>(platform::Clock::current().steady_now() - start);
}

}  // namespace

namespace sap_hana {

Log_Backup_Executor::Log_Backup_Executor(Job& job) : Backup_Executor_Basic(job) {}
Log_Backup_Executor::~Log_Backup_Executor() = default;

bool Log_Backup_Executor::execute_backup(const Action_Options* params) {
  if (!bind_hdbsql()) return false;
  evt_handler_.handle_progress(progress_begun);
  std::string uuid;
  Backint_Backup_Job_Info info;
  if (!find_backint_job(params, uuid, info)) return false;
  D3_INFO("Start to backup HANA %s:%s log\n", sid_.c_str(), info.database.c_str());
  if (!start_tenant(info.database) || !wait_for_log(info)) return false;
  platform::Clock::current().sleep_for(settle_pause);
  if (!wait_for_full_backup(info)) return false;
  std::string type;
  if (!record_set(uuid, type)) return false;
  D3_INFO("Backup HANA %s:%s %s successful.\n", sid_.c_str(), info.database.c_str(), type.c_str());
  evt_handler_.handle_progress(progress_done);
  return true;
}

bool Log_Backup_Executor::bind_hdbsql() {
  if (init_hdbsql()) return true;
  raise_alert(ALERT_INIT_HDBSQL);
  D3_ERROR("Failed to init hdbsql for %s %s\n", sid_.c_str(), instance_name_.c_str());
  return false;
}

bool Log_Backup_Executor::find_backint_job(const Action_Options* params, std::string& uuid,
                                           Backint_Backup_Job_Info& info) {
  if (params == nullptr || !json_spirit::object_get(*params, backint_job_key, uuid) || uuid.empty()) {
    D3_ERROR("Failed to get backint job uuid\n");
    return false;
  }
  if (backint_helper_.get_job(uuid.c_str(), info)) return true;
  raise_alert(ALERT_BACKINT_JOB);
  D3_ERROR("Failed to get backint job info\n");
  return false;
}

bool Log_Backup_Executor::start_tenant(const std::string& database) {
  if (!mdc_ || database == system_database_name) return true;
  Database_Info listed;
  // One that cannot be listed is taken as not active: starting it finds out.
  (void)Database_Lister(hdbsql_).list(listed, database);
  if (listed.active) return true;
  // A restore of the database must not find it started.
  platform::File_Lock lock(database_restore_lock(sid_, database));
  if (!lock.acquire()) return false;
  if (Tenant_Database_Controller(hdbsql_).start(database)) return true;
  raise_alert(ALERT_START_TENANT, ALERT_FLAGS_NONE, {{"database", database}});
  D3_ERROR("Failed to start tenant database %s\n", database.c_str());
  return false;
}

bool Log_Backup_Executor::wait_for_log(const Backint_Backup_Job_Info& info) {
  if (wait_backint_job(info.database_backup_id)) return true;
  raise_alert(ALERT_BACKINT_JOB_STATE);
  D3_ERROR("Job state is error\n");
  return false;
}

bool Log_Backup_Executor::wait_for_full_backup(const Backint_Backup_Job_Info& info) {
  const ACE_UINT64 current = info.database_backup_id;
  if (!get_last_full_backup_id(info.database, last_full_backup_id_)) {
    raise_alert(ALERT_LAST_FULL_BACKUP);
    D3_ERROR("Failed to get last full backup id\n");
    return false;
  }
  if (current <= last_full_backup_id_) return true;
  if (!wait_backint_job(last_full_backup_id_)) {
    raise_alert(ALERT_BACKINT_JOB_STATE);
    D3_ERROR("Failed to wait full backup job(%Q) exit, current job is %Q\n", last_full_backup_id_, current);
    return false;
  }
  if (!wait_catalog_complete(info.database, last_full_backup_id_)) {
    raise_alert(ALERT_FULL_BACKUP_CATALOG);
    D3_ERROR("Failed to wait full backup job(%Q) catalog complete, current job is %Q\n", last_full_backup_id_, current);
    return false;
  }
  return true;
}

bool Log_Backup_Executor::record_set(const std::string& uuid, std::string& type) {
  HANA_Backup_Set set;
  init_metadata(set);
  if (update_metadata(set, uuid) && save_metadata(set)) {
    type = set.type;
    return true;
  }
  raise_alert(ALERT_SAVE_CATALOG, ALERT_FLAGS_CATALOG);
  D3_ERROR("Failed to update and save metadata\n");
  return false;
}

bool Log_Backup_Executor::wait_backint_job(ACE_UINT64 database_backup_id) {
  Instance_Controller::Instance_State state = Instance_Controller::INSTANCE_STATE_UNKNOWN;
  if (!Instance_Controller(sid_).get_state(instance_number_, state)) {
    D3_ERROR("Failed to get instance state\n");
    return false;
  }
  if (state == Instance_Controller::INSTANCE_STATE_RUNNING) return wait_for_state(database_backup_id);
  wait_for_no_process();
  return true;
}

bool Log_Backup_Executor::wait_for_state(ACE_UINT64 database_backup_id) {
  const auto start = platform::Clock::current().steady_now();
  auto last_seen = start;
  const std::string pattern = pattern_of(database_backup_id);
  for (;;) {
    std::string state;
    (void)get_job_state(database_backup_id, state);  // leaves the text empty when it cannot tell
    if (state.empty()) {
      D3_ERROR("Failed to get job state\n");
      return false;
    }
    if (is_state(state, state_successful)) return true;
    if (is_state(state, state_failed) || is_state(state, state_canceled)) return false;
    if (since(start).count() > WAIT_TIMEOUT) {
      if (runs(pattern)) {
        last_seen = platform::Clock::current().steady_now();
      } else if (since(last_seen).count() > WAIT_UPDATE_STATE) {
        D3_ERROR("Hdbbackint progress does not exist, state = %s, database_backup_id = %Q\n", state.c_str(),
                 database_backup_id);
        return false;
      }
    }
    wait_a_while();
  }
}

void Log_Backup_Executor::wait_for_no_process() {
  while (runs(any_hdbbackint)) wait_a_while();
}

bool Log_Backup_Executor::wait_catalog_complete(const std::string& database, ACE_UINT64 backup_id) {
  const auto start = platform::Clock::current().steady_now();
  while (since(start).count() < WAIT_TIMEOUT) {
    json_spirit::Object set;
    if (get_backup_sets(database, backup_id, set) && !set.empty()) return true;
    wait_a_while();
  }
  return false;
}

}  // namespace sap_hana
