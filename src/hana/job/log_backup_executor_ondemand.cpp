// Setting a log backup up and removing it: the configuration file by which hdbbackint knows of the definition, and
// HANA's own switches.

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <vector>

#include "agent/backupd_client/access_key_file.h"
#include "hana/common/backint_preparer.h"
#include "hana/common/directory_permission.h"
#include "hana/common/file_group.h"
#include "hana/common/json_file.h"
#include "hana/common/ondemand_conf_path.h"
#include "hana/common/system_config_manager.h"
#include "hana/job/backup_source_collector.h"
#include "hana/job/io_control.h"
#include "hana/job/log_backup_executor.h"
#include "job/job.h"
#include "job/job_activity_record.h"
#include "job/job_definition.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "platform/log.h"
#include "scrt/path_t.h"

namespace {

constexpr const char* owner_key = "job_definition_uuid";
constexpr const char* log_type = "log";
constexpr int default_json_flags = 0;
constexpr int reading_flags = 1;

/// Puts a file out of the way under a name that no live configuration has. A copy of the same second is kept: it is a
/// failure then, and a second later there is another name.
bool set_aside(const std::string& path) {
  char aside[platform::path_buffer_bytes];
  std::snprintf(aside, sizeof aside, "%s.%ld", path.c_str(),
                static_cast<long>(platform::Clock::current().wall_seconds()));
  if (platform::rename_without_replacing(path, aside)) return true;
  D3_ERROR("Failed to rename %s to %s\n", path.c_str(), aside);
  return false;
}

}  // namespace

namespace sap_hana {

bool Log_Backup_Executor::setup_ondemand() {
  // hdbbackint tells by itself when the key is not there.
  (void)generate_access_key_file();
  if (is_installed()) return true;
  if (src_ == nullptr) {
    D3_EMERGENCY("Unexpected error in %N:%l, src_ is NULL:\n%?\n");
    return false;
  }
  if (!Resource_Info_Getter(src_->id()).base_info(sid_, instance_name_, instance_mgr_name_, instance_number_)) {
    raise_alert(ALERT_RESOURCE_INFO);
    D3_ERROR("Failed to backup HANA log, failed to get resource info\n");
    return false;
  }
  if (!Backint_Preparer(sid_).prepare()) {
    raise_alert(ALERT_PREPARE_BACKINT);
    D3_ERROR("Failed to backup HANA log, failed to prepare backint\n");
    return false;
  }
  Backup_Source_Collector collector(sid_);
  if (!collector.collect(*src_)) {
    raise_alert(ALERT_COLLECT_SOURCE);
    D3_ERROR("Failed to backup HANA log, failed to collect source\n");
    return false;
  }
  if (collector.get().size() != 1) {
    D3_ERROR("Failed to backup HANA log, log backup with multiple databases is not supported\n");
    return false;
  }
  if (!generate_conf_file_of(collector.get().front().database)) return false;
  enable_log_backup();
  // The activity that is not there yet is given to the group when it is made.
  (void)change_active_file_group();
  return true;
}

bool Log_Backup_Executor::is_installed() const {
  const std::string directory = hana_state_directory();
  std::vector<std::string> names;
  if (!platform::list_directory(directory, names)) return false;
  for (const std::string& name : names)
    if (name.starts_with(ondemand_conf_prefix) && owns(scrt::join_path(directory, name))) return true;
  return false;
}

bool Log_Backup_Executor::owns(const std::string& path) const {
  json_spirit::Value value;
  std::string owner;
  return load_json(path, value, reading_flags) && value.is_object() &&
         json_spirit::object_get(value.get_obj(), owner_key, owner) && owner == def_.id();
}

bool Log_Backup_Executor::generate_conf_file_of(const std::string& database) {
  if (generate_log_conf_file(database)) return true;
  // The key is the instance's for a database too.
  raise_alert(ALERT_LOG_CONFIGURATION, ALERT_FLAGS_NONE, {{"instance", database.empty() ? instance_name_ : database}});
  if (database.empty())
    D3_ERROR("Failed to backup HANA log, failed to generate instance %s job configure file\n", instance_name_.c_str());
  else
    D3_ERROR("Failed to backup HANA log, failed to generate database %s job configure file\n", database.c_str());
  return false;
}

json_spirit::Object Log_Backup_Executor::configuration() const {
  const char* const compression = compression_value_to_name(compression_);
  return {{owner_key, def_.id()},
          {"type", log_type},
          {"sid", sid_},
          {"instance_name", instance_name_},
          {"instance_number", instance_number_},
          {"pool_uuid", tgt_.id()},
          {"location", tgt_.location()},
          {"host_uuid", def_.host_id()},
          {"resource_uuid", src_->id()},
          {"uid", def_.uid()},
          {"compression", compression == nullptr ? "" : compression},
          {"compression_level", compression_level_},
          {"io_ctl", io_control(def_)}};
}

bool Log_Backup_Executor::generate_log_conf_file(const std::string& database) {
  std::string path;
  if (!ondemand_conf_path(sid_, instance_name_, database, path) || path.empty()) {
    D3_ERROR("Failed to get file name\n");
    return false;
  }
  if (platform::is_regular_file(path.c_str()) && !set_aside(path)) return false;
  const json_spirit::Object document = configuration();
  char directory[platform::path_buffer_bytes];
  if (platform::dirname_r(path.c_str(), directory, sizeof directory, '/') == nullptr) return false;
  if (platform::mkdir_p(directory, platform::mode_directory) != 0) {
    D3_ERROR("Failed to make the directory '%C': %m\n", directory);
    return false;
  }
  return dump_json(path, document, default_json_flags, false, platform::mode_sap_file) &&
         change_file_group_to_sap(path.c_str(), nullptr) && change_directory_permission(path, platform::mode_directory);
}

bool Log_Backup_Executor::remove_conf_file(const std::string& database) {
  std::string path;
  if (!ondemand_conf_path(sid_, instance_name_, database, path) || path.empty()) {
    D3_ERROR("Failed to get file name\n");
    return false;
  }
  if (!platform::is_regular_file(path.c_str())) return true;
  return owns(path) && platform::remove_file(path);
}

bool Log_Backup_Executor::remove_ondemand() {
  if (src_ == nullptr) {
    D3_EMERGENCY("Unexpected error in %N:%l, src_ is NULL:\n%?\n");
    return false;
  }
  if (!Resource_Info_Getter(src_->id()).base_info(sid_, instance_name_, instance_mgr_name_, instance_number_)) {
    D3_ERROR("Failed to remove backup HANA log, failed to get resource info\n");
    return false;
  }
  Backup_Source_Collector collector(sid_);
  if (!collector.collect(*src_)) {
    D3_ERROR("Failed to remove backup HANA log, failed to collect source\n");
    return false;
  }
  for (const Backup_Source_Collector::Database_Info& entry : collector.get()) {
    if (remove_conf_file(entry.database)) continue;
    const bool instance = entry.database.empty();
    D3_ERROR("Failed to backup HANA log, failed to remove %s '%s' job configure file\n",
             instance ? "instance" : "database", instance ? instance_name_.c_str() : entry.database.c_str());
  }
  if (!has_live_configuration()) disable_log_backup();
  return true;
}

bool Log_Backup_Executor::has_live_configuration() {
  const std::string directory = hana_state_directory();
  std::vector<std::string> names;
  if (!platform::list_directory(directory, names)) {
    // No directory: no configuration either. One that cannot be looked into may hold that of another definition.
    if (errno == ENOENT || errno == ENOTDIR) return false;
    D3_ERROR("Failed to list '%C': %m; HANA's log backup is left as it is\n", directory.c_str());
    return true;
  }
  return std::any_of(names.begin(), names.end(), is_live_ondemand_conf);
}

bool Log_Backup_Executor::change_active_file_group() {
  const std::string path = job_activity_directory() + "/" + def_.id();
  return change_file_group_to_sap(path.c_str(), nullptr);
}

bool Log_Backup_Executor::enable_log_backup() {
  if (!is_active(nullptr) || !init_hdbsql()) return true;
  // The set-ups of other systems of this host wait for this one.
  hdbsql_.time_limit(question_limit);
  System_Config_Manager manager(hdbsql_);
  // Each tells why when HANA refuses; the others are tried all the same.
  (void)manager.alter_log_mode(System_Config_Manager::LOG_MODE_NORMAL);
  (void)manager.alter_auto_log_backup(true);
  (void)manager.alter_log_backup_using_backint(true);
  (void)manager.alter_catalog_backup_using_backint(true);
  return true;
}

bool Log_Backup_Executor::disable_log_backup() {
  if (!is_active(nullptr) || !init_hdbsql()) return true;
  hdbsql_.time_limit(question_limit);
  System_Config_Manager manager(hdbsql_);
  (void)manager.alter_auto_log_backup(false);
  (void)manager.alter_log_backup_using_backint(false);
  (void)manager.alter_catalog_backup_using_backint(false);
  // The log mode stays normal: logs that are no longer kept could never be had again.
  return true;
}

}  // namespace sap_hana
