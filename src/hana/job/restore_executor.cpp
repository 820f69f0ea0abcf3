#include "hana/job/restore_executor.h"

#include <ace/Guard_T.h>

#include <algorithm>
#include <utility>

#include "agent/backupd_client/access_key_file.h"
#include "agent/instance/instance_manager.h"
#include "hana/common/backint_preparer.h"
#include "hana/common/directory_permission.h"
#include "hana/common/file_group.h"
#include "hana/common/hana_paths.h"
#include "hana/common/name_server_config_parser.h"
#include "hana/common/system_control.h"
#include "hana/common/system_instance_lister.h"
#include "job/job.h"
#include "job/job_alert.h"
#include "job/job_definition.h"
#include "job/job_mutex.h"
#include "platform/files.h"
#include "platform/log.h"
#include "platform/secure_string.h"
#include "scrt/loose_version.h"

namespace {

/// The first version whose recovery takes HANA's catalog through Backint.
constexpr const char* first_version_with_catalog = "1.00.100";
/// Kind of the accounts with which the agent logs on to HANA.
constexpr const char* account_type = "hana";
/// HANA's processes make their pipes there.
constexpr mode_t mode_pipe_directory = 0775;
constexpr int progress_done = 100;

}  // namespace

namespace sap_hana {

Restore_Executor::Restore_Executor(Job& job) : Job_Executor_T(job), hdbsql_("") {
  if (opts_ != nullptr) ignore_delta_ = opts_->ignore_delta();
}

Restore_Executor::~Restore_Executor() = default;

bool Restore_Executor::execute_i(const Action_Options*) {
  const auto mutex = Job_Mutex::get(src_->id());
  ACE_GUARD_RETURN(Job_Mutex, guard, *mutex, false);
  mutex->holder(evt_handler_.job_act_id());
  if (execute_restore()) return true;
  D3_ERROR("Failed to restore HANA database\n");
  return false;
}

bool Restore_Executor::execute_restore() {
  if (!is_supported() || !find_system() || !find_version()) return false;
  // The Backint agent finds out by itself when the key is not there.
  (void)generate_access_key_file();
  check_feature();
  if (!prepare_backint()) return false;
  if (!sort_entries()) {
    D3_ERROR("Failed to sort restore entries.\n");
    return false;
  }
  return bind_hdbsql() && restore_entries();
}

bool Restore_Executor::is_supported() const {
  if (def_.subtype() == JOB_DEFINITION_SUBTYPE_POINT_IN_TIME) return true;
  D3_ERROR("Type %s is not supported\n", job_def_subtype_to_string(def_.subtype()));
  return false;
}

bool Restore_Executor::find_system() {
  if (Resource_Info_Getter(tgt_.id()).base_info(sid_, instance_name_, instance_mgr_name_, instance_number_) &&
      get_cluster_info())
    return true;
  raise_alert(ALERT_RESOURCE_INFO);
  D3_ERROR("Failed to get resource info.\n");
  return false;
}

bool Restore_Executor::get_cluster_info() {
  if (!Name_Server_Config_Parser(sid_).is_cluster(is_cluster_)) {
    D3_ERROR("Failed to check HANA cluster\n");
    return false;
  }
  if (!is_cluster_) return true;
  if (!Resource_Info_Getter(tgt_.id()).get_instances_info(cluster_instances_)) {
    D3_ERROR("Failed to get HANA cluster instances\n");
    return false;
  }
  const auto here = std::find_if(cluster_instances_.begin(), cluster_instances_.end(),
                                 [this](const auto& instance) { return instance.host_uuid == def_.host_id(); });
  if (here != cluster_instances_.end()) cluster_instances_.erase(here);
  return !cluster_instances_.empty();
}

bool Restore_Executor::find_version() {
  System_Instance_Info info;
  if (!System_Instance_Lister().list(info, sid_, instance_name_)) {
    D3_ERROR("Failed to get HANA version.\n");
    return false;
  }
  hana_version_ = info.version;
  return true;
}

bool Restore_Executor::check_feature() {
  ancient_version_ = compare_loose_versions(hana_version_, first_version_with_catalog) < 0;
  return true;
}

bool Restore_Executor::prepare_backint() {
  if (Backint_Preparer(sid_).prepare()) return true;
  raise_alert(ALERT_PREPARE_BACKINT);
  D3_ERROR("Failed to prepare backint.\n");
  return false;
}

bool Restore_Executor::sort_entries() {
  mdc_ = System_Controller(sid_).is_multi_container();
  sorted_entries_.reserve(src_->get_entries().size());
  for (const Restore_Job_Source::Entry_Item& entry : src_->get_entries()) {
    sorted_entries_.push_back(entry);
    Restore_Job_Source::Entry_Item& copy = sorted_entries_.back();
    copy.target.systemdb = !mdc_ || copy.target.database == system_database_name;
    // An exchange, so that the order of the tenants may change.
    if (copy.target.systemdb) std::swap(copy, sorted_entries_.front());
  }
  return true;
}

bool Restore_Executor::bind_hdbsql() {
  if (init_hdbsql()) return true;
  raise_alert(ALERT_INIT_HDBSQL);
  D3_ERROR("Failed to initialize hdbsql for %s %s\n", sid_.c_str(), instance_name_.c_str());
  return false;
}

bool Restore_Executor::init_hdbsql() {
  Instance_Manager* const registry = Instance_Manager::instance();
  if (registry == nullptr) {
    D3_ERROR("Failed to get instance manager.\n");
    return false;
  }
  std::string username;
  secure_string password;
  if (registry->get_account(account_type, instance_mgr_name_.c_str(), def_.uid().c_str(), username, password,
                            nullptr) != 0) {
    D3_ERROR("Failed to get username and password.\n");
    return false;
  }
  if (!hdbsql_.init(sid_, instance_name_, "", username, password)) {
    D3_ERROR("Failed to init hdbsql.\n");
    return false;
  }
  return true;
}

bool Restore_Executor::restore_entries() {
  const int total = static_cast<int>(sorted_entries_.size());
  int step = 0;
  for (const Restore_Job_Source::Entry_Item& entry : sorted_entries_) {
    if (is_canceled() || !restore_entry(entry, ++step * progress_done / total)) return false;
  }
  return true;
}

/// Between two databases a restore can be stopped without harm.
bool Restore_Executor::is_canceled() const {
  const Job_State state = act_.load_state();
  if (state != JOB_STATE_CANCELING && state != JOB_STATE_ABORTING) return false;
  D3_INFO("The restore was stopped before its next database\n");
  return true;
}

bool Restore_Executor::restore_entry(const Restore_Job_Source::Entry_Item& entry, int percent_after) {
  D3_INFO("Restore HANA database '%s' from '%s@%s'\n", entry.target.database.c_str(), entry.origin.sid.c_str(),
          entry.origin.database.c_str());
  Restore_Source_Collector collector(src_->id(), entry, def_.max_seconds_retry(), ignore_delta_);
  if (!collector.collect()) {
    raise_alert(ALERT_COLLECT_SOURCE);
    D3_ERROR("Failed to collect restore source.\n");
    return false;
  }
  const Backup_Set_Info& set = collector.get_backup_set();
  if (entry.origin.sid != sid_ && !make_pipe_directory(set)) return false;
  if (!set.is_full_backup && !restore_catalog(entry, collector.get_hana_catalog())) {
    raise_alert(ALERT_RESTORE_CATALOG);
    D3_ERROR("Failed to restore HANA catalog\n");
    return false;
  }
  if (!restore_data(entry.target.systemdb, set)) {
    D3_ERROR("Failed to restore HANA data\n");
    return false;
  }
  report(collector, percent_after);
  return true;
}

/// HANA makes the pipes of a foreign system's objects where that system would have made them.
bool Restore_Executor::make_pipe_directory(const Backup_Set_Info& info) const {
  std::string path;
  if (!database_pipe_path(info.origin_sid, info.origin_dbname, info.origin_mdc, path)) {
    D3_ERROR("Failed to generate pipe path\n");
    return false;
  }
  if (platform::mkdir_p(path.c_str(), platform::mode_directory) != 0) {
    D3_ERROR("Failed to make the directory '%C': %m\n", path.c_str());
    return false;
  }
  return change_file_group_to_sap(path.c_str(), nullptr) && change_directory_permission(path, mode_pipe_directory);
}

void Restore_Executor::report(const Restore_Source_Collector& collector, int percent) {
  evt_handler_.handle_progress(percent, 0, 0, 0);
  Job_Activity::add(act_.set_storage_size, collector.get_total_size());
  Job_Activity::add(act_.set_size, collector.get_total_size());
  Job_Activity::add(act_.size, collector.get_total_source_size());
}

void Restore_Executor::raise_alert(Alert_Code code, const json_spirit::Value& parameters) {
  write_job_alert(&job_, ALERT_CLASS_HANA, code, ALERT_FLAGS_NONE, parameters, ALERT_LEVEL_JOB);
}

}  // namespace sap_hana
