// The recovery itself: of a tenant by a statement, of the system database by the start of its instance.

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "agent/backupd_client/json_rpc_forward.h"
#include "hana/common/database_lister.h"
#include "hana/common/hana_paths.h"
#include "hana/common/instance_control.h"
#include "hana/job/restore_executor.h"
#include "job/job.h"
#include "platform/clock.h"
#include "platform/file_lock.h"
#include "platform/files.h"
#include "platform/log.h"

namespace {

enum { STOP_DB_MAX_TRY = 3 };

constexpr const char* control_method = "hana.instance.control";
/// HANA runs the statement in it while it starts. Nobody but HANA removes it.
constexpr const char* statement_file = "%s/work/recoverInstance.sql";

/// hdbsql's own command, answered by every database that takes logons.
constexpr const char* status_command = "\\s";
constexpr std::chrono::seconds logon_interval{10};
constexpr std::chrono::seconds logon_limit{600};

/// What a restore that was cut off has left of its statement beside it: it is in the way of nothing, but nobody else
/// knows whose it is.
void remove_unfinished_statements(const char* path) {
  std::vector<std::string> removed;
  // Without its directory the statement cannot be written either, and that is told.
  if (!platform::remove_unfinished_writes_of(path, removed) && errno != ENOENT)
    D3_WARNING("Failed to remove what was not written to its end beside %C, %m\n", path);
  for (const std::string& file : removed) D3_INFO("Removed '%C', it was not written to its end\n", file.c_str());
}

}  // namespace

namespace sap_hana {

bool Restore_Executor::restore_data(bool is_systemdb, const Backup_Set_Info& info) {
  return is_systemdb ? restore_systemdb(info) : restore_tenantdb(info);
}

bool Restore_Executor::restore_tenantdb(const Backup_Set_Info& info) {
  const std::string& database = info.target_dbname;
  Tenant_Database_Controller controller(hdbsql_);
  D3_INFO("Try to stop database %s@%s\n", sid_.c_str(), database.c_str());
  platform::File_Lock lock(database_restore_lock(sid_, database));
  if (!lock.acquire()) return false;
  if (!stop_tenant(controller, database) || !recover_tenant(info)) return false;
  if (controller.start(database)) return true;
  raise_alert(ALERT_START_TENANT, json_spirit::Object{{"database", database}});
  D3_ERROR("failed to start tenant database\n");
  return false;
}

bool Restore_Executor::stop_tenant(Tenant_Database_Controller& controller, const std::string& database) {
  Database_Info listed;
  // One that cannot be listed is taken as stopped: HANA refuses to recover it if it is not.
  (void)Database_Lister(hdbsql_).list(listed, database);
  for (int attempt = 0; attempt < STOP_DB_MAX_TRY && listed.active; ++attempt) {
    if (!controller.stop(database)) {
      D3_ERROR("Failed to stop tenant database '%s', retry...\n", database.c_str());
      continue;
    }
    (void)Database_Lister(hdbsql_).list(listed, database);
  }
  if (listed.active) {
    raise_alert(ALERT_STOP_DATABASE, json_spirit::Object{{"database", database}});
    D3_ERROR("Failed to stop tenant database '%s'\n", database.c_str());
    return false;
  }
  D3_INFO("Stop the database %s@%s successfully\n", sid_.c_str(), database.c_str());
  return true;
}

bool Restore_Executor::recover_tenant(const Backup_Set_Info& info) {
  std::string cmd;
  if (generate_restore_cmd(info, cmd, true) && hdbsql_.execute(cmd, job_.log_msg_callback())) return true;
  raise_alert(ALERT_RECOVER);
  D3_ERROR("Failed to restore tenant database\n");
  return false;
}

bool Restore_Executor::restore_systemdb(const Backup_Set_Info& info) {
  std::string cmd;
  if (!generate_restore_cmd(info, cmd, false)) {
    D3_ERROR("Failed to generate SYSTEMDB restore cmd\n");
    return false;
  }
  Instance_Controller controller(sid_);
  std::string directory;
  if (!controller.get_instance_dir(instance_name_, directory, true)) {
    D3_ERROR("Failed to get instance dir\n");
    return false;
  }
  if (!controller.stop(instance_name_)) {
    raise_alert(ALERT_STOP_DATABASE, json_spirit::Object{{"database", instance_name_}});
    D3_ERROR("Failed to stop '%s' instance to restore the SYSTEMDB\n", instance_name_.c_str());
    return false;
  }
  if (!write_statement(directory, cmd)) return false;
  if (!controller.start(instance_name_)) {
    raise_alert(ALERT_RECOVER);
    D3_ERROR("Failed to start '%s' instance to restore the SYSTEMDB\n", instance_name_.c_str());
    return false;
  }
  wait_for_logon();
  restart_other_hosts();
  // The tenant that a system gets when it is made; one without it goes on without.
  if (mdc_) (void)Tenant_Database_Controller(hdbsql_).start(sid_);
  return true;
}

bool Restore_Executor::write_statement(const std::string& instance_directory, const std::string& statement) {
  char path[platform::path_buffer_bytes];
  std::snprintf(path, sizeof path, statement_file, instance_directory.c_str());
  remove_unfinished_statements(path);
  if (platform::is_regular_file(path)) {
    // Another recovery is pending: the instance stays down until somebody has looked.
    raise_alert(ALERT_STATEMENT_FILE, json_spirit::Object{{"file", path}});
    D3_ERROR("Restore sql file %s is exist\n", path);
    return false;
  }
  if (platform::write_file_durably(path, statement, platform::mode_sap_file, sap_group)) return true;
  D3_ERROR("Failed to restore system database: failed to generate sql file %s\n", path);
  // It may stand there under its name and yet not be on disk.
  (void)platform::remove_file(path);
  return false;
}

/// A system database that was recovered takes logons some time after its start only. Without one, what comes next fails
/// with words of its own.
void Restore_Executor::wait_for_logon() {
  platform::Clock& clock = platform::Clock::current();
  const auto until = clock.steady_now() + logon_limit;
  const HDBSQL_Executor asking = hdbsql_.with_time_limit(question_limit);
  for (;;) {
    const HDBSQL_Outcome outcome = asking.run(status_command, nullptr, nullptr);
    if (outcome.failure != HDBSQL_Failure::connection) return;
    if (clock.steady_now() >= until) {
      D3_WARNING("HANA instance %C takes no logons after its recovery: %C\n", instance_mgr_name_.c_str(),
                 outcome.message.c_str());
      return;
    }
    clock.sleep_for(logon_interval);
  }
}

void Restore_Executor::restart_other_hosts() {
  const json_spirit::Object request{{"action", "restart"}, {"sid", sid_}, {"instance_name", instance_name_}};
  for (const Resource_Info_Getter::Instance_Info& instance : cluster_instances_) {
    bool restarted = false;
    try {
      restarted = json_rpc_forward(instance.host_uuid, request, control_method);
    } catch (const std::exception& error) {
      D3_WARNING("Another host of the system was not restarted: %C\n", error.what());
    }
    if (restarted) continue;
    raise_alert(ALERT_RESTART_CLUSTER, json_spirit::Object{{"host", instance.host_uuid}});
    D3_ERROR("Failed to start cluster instance\n");
  }
}

}  // namespace sap_hana
