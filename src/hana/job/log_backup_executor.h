#pragma once

#include <ace/Basic_Types.h>

#include <string>

#include "hana/job/backup_executor_basic.h"

namespace sap_hana {

/// A log backup. HANA backs its logs up by itself; a definition only makes that possible (setup_ondemand), and each of
/// its runs records one backup that HANA has made (execute_backup). docs/formats/log-backup-configuration.md describes
/// the file by which hdbbackint knows of the definition.
class Log_Backup_Executor : public Backup_Executor_Basic {
 public:
  explicit Log_Backup_Executor(Job& job);
  ~Log_Backup_Executor() override;

  /// Writes the configuration file and switches HANA's log backup on. True also when it was installed before; then
  /// nothing is done. What HANA did not take is not told: `dorsal3 check` reads it back.
  bool setup_ondemand() override;
  /// Removes the definition's configuration files; switches HANA's log backup off when no other definition has one.
  bool remove_ondemand() override;
  /// Records one backup: `params` holds "backint_job_uuid". Waits for HANA, without bound while hdbbackint works on it.
  bool execute_backup(const Action_Options* params) override;

  /// Waits until the backup has ended; true when it ended well. While the instance is stopped, until no hdbbackint
  /// runs.
  [[nodiscard]] bool wait_backint_job(ACE_UINT64 database_backup_id);
  /// Waits until backupd has a set of that backup; false after 600 seconds.
  [[nodiscard]] bool wait_catalog_complete(const std::string& database, ACE_UINT64 backup_id);

  /// Writes the configuration file of a database, or of the instance for an empty name. One that stands there is set
  /// aside.
  [[nodiscard]] bool generate_log_conf_file(const std::string& database);
  /// Removes the file when it belongs to this definition. True also when there is none.
  [[nodiscard]] bool remove_conf_file(const std::string& database);
  /// Lets SAP's group reach the activity of this definition.
  [[nodiscard]] bool change_active_file_group();
  /// True, whatever HANA says; nothing is changed on a node that is not the active one.
  bool enable_log_backup();
  bool disable_log_backup();

 protected:
  /// Seconds, but for MAX_RETRY.
  enum { MAX_RETRY = 10, INTERVAL = 10, MAX_INTERVAL = 30, WAIT_UPDATE_STATE = 180, WAIT_TIMEOUT = 600 };

 private:
  // setup_ondemand and remove_ondemand
  [[nodiscard]] bool is_installed() const;
  [[nodiscard]] bool find_system(const char* purpose, bool with_alert);
  [[nodiscard]] bool generate_conf_file_of(const std::string& database);
  [[nodiscard]] json_spirit::Object configuration() const;
  [[nodiscard]] bool owns(const std::string& path) const;
  /// Of any definition.
  [[nodiscard]] static bool has_live_configuration();

  // execute_backup, in this order
  [[nodiscard]] bool bind_hdbsql();
  [[nodiscard]] bool find_backint_job(const Action_Options* params, std::string& uuid, Backint_Backup_Job_Info& info);
  [[nodiscard]] bool start_tenant(const std::string& database);
  [[nodiscard]] bool wait_for_log(const Backint_Backup_Job_Info& info);
  [[nodiscard]] bool wait_for_full_backup(const Backint_Backup_Job_Info& info);
  [[nodiscard]] bool record_set(const std::string& uuid, std::string& type);

  // wait_backint_job
  [[nodiscard]] bool wait_for_state(ACE_UINT64 database_backup_id);
  void wait_for_no_process();
};

}  // namespace sap_hana
