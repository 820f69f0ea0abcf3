#pragma once

#include <ace/Basic_Types.h>

#include <string>
#include <vector>

#include "hana/common/hdbsql_executor.h"
#include "hana/common/resource_info_getter.h"
#include "hana/common/tenant_database_control.h"
#include "hana/job/alert_codes.h"
#include "hana/job/restore_job_options.h"
#include "hana/job/restore_job_source.h"
#include "hana/job/restore_source_collector.h"
#include "job/job_event_handler.h"
#include "job/job_executor_t.h"
#include "json/value.h"

struct Recovery_Statement;

namespace sap_hana {

/// A restore on the host that the databases come back to: each entry of the job's source, one after the other, the
/// system database first. The source names the resource that was backed up, the job's target the one restored into. The
/// first entry that fails ends the run; what was restored before stays restored.
///
/// One object serves one request on a job, on the thread that made it. Every operation that returns false has logged
/// why.
class Restore_Executor : public Job_Executor_T<Restore_Job_Source, Restore_Job_Options, Job_Event_Handler> {
 public:
  explicit Restore_Executor(Job& job);
  ~Restore_Executor() override;

  /// The whole run. Waits while another run of the job's source is active in this process.
  bool execute_i(const Action_Options* options) override;

  [[nodiscard]] bool execute_restore();
  /// Binds hdbsql_ to the system database with the stored logon.
  [[nodiscard]] bool init_hdbsql();
  /// Fills sorted_entries_: the system database goes first, by an exchange of places. On a system without tenants each
  /// entry counts as the system database.
  [[nodiscard]] bool sort_entries();
  /// Whether the local system is a cluster, and which its other hosts are. False for one that lists this host alone.
  [[nodiscard]] bool get_cluster_info();
  /// What the local version knows. True.
  bool check_feature();

  // The recovery statement; what `cmd` held before is gone. `tenantdb`: it is run by the system database and names the
  // tenant. Nothing is escaped and no blank is spared: HANA is given exactly these pieces.

  [[nodiscard]] bool generate_restore_cmd(const Restore_Source_Collector::Backup_Set_Info& info, std::string& cmd,
                                          bool tenantdb) const;
  [[nodiscard]] bool generate_full_restore_cmd(const Restore_Source_Collector::Backup_Set_Info& info, std::string& cmd,
                                               bool tenantdb) const;
  [[nodiscard]] bool generate_point_in_time_restore_cmd(const Restore_Source_Collector::Backup_Set_Info& info,
                                                        std::string& cmd, bool tenantdb) const;

  /// Leaves, on every host of the system, the two files by which hdbbackint finds HANA's catalog for a recovery.
  /// Format: docs/formats/restore-catalog.md.
  [[nodiscard]] bool restore_catalog(const Restore_Job_Source::Entry_Item& entry,
                                     const Restore_Source_Collector::HANA_Catalog_Info& info);

  [[nodiscard]] bool restore_data(bool is_systemdb, const Restore_Source_Collector::Backup_Set_Info& info);
  /// Stops the tenant, recovers and starts it. Nobody else stops, restores or starts it meanwhile.
  [[nodiscard]] bool restore_tenantdb(const Restore_Source_Collector::Backup_Set_Info& info);
  /// Stops the instance, leaves the statement in its work directory and starts it, which recovers; then restarts the
  /// other hosts. After a failure the instance stays as it is then.
  [[nodiscard]] bool restore_systemdb(const Restore_Source_Collector::Backup_Set_Info& info);

 protected:
  std::vector<Restore_Job_Source::Entry_Item> sorted_entries_;
  std::string sid_;
  std::string instance_name_;
  std::string instance_mgr_name_;
  ACE_UINT16 instance_number_ = 0;
  std::string hana_version_;
  bool ancient_version_ = false;  ///< HANA cannot take its catalog through Backint
  bool ignore_delta_ = false;
  HDBSQL_Executor hdbsql_;
  bool mdc_ = false;                  ///< the local system runs with tenant databases
  Instances_Info cluster_instances_;  ///< without the local one
  bool is_cluster_ = false;

 private:
  using Backup_Set_Info = Restore_Source_Collector::Backup_Set_Info;

  /// Null where the alert has no parameters.
  void raise_alert(Alert_Code code, const json_spirit::Value& parameters = {});

  // execute_restore, in this order
  [[nodiscard]] bool is_supported() const;
  [[nodiscard]] bool find_system();
  [[nodiscard]] bool find_version();
  [[nodiscard]] bool prepare_backint();
  [[nodiscard]] bool bind_hdbsql();
  [[nodiscard]] bool restore_entries();
  [[nodiscard]] bool is_canceled() const;

  // One entry, in this order
  [[nodiscard]] bool restore_entry(const Restore_Job_Source::Entry_Item& entry, int percent_after);
  [[nodiscard]] bool make_pipe_directory(const Backup_Set_Info& info) const;
  void report(const Restore_Source_Collector& collector, int percent);

  [[nodiscard]] Recovery_Statement statement_of(const Backup_Set_Info& info, bool tenantdb) const;

  // restore_catalog
  [[nodiscard]] bool make_catalog_directory(const std::string& directory) const;
  [[nodiscard]] bool extended_attributes(json_spirit::Object& attributes) const;
  void stage_on_other_hosts(const json_spirit::Object& document) const;

  // restore_tenantdb
  [[nodiscard]] bool stop_tenant(Tenant_Database_Controller& controller, const std::string& database);
  [[nodiscard]] bool recover_tenant(const Backup_Set_Info& info);

  // restore_systemdb
  [[nodiscard]] bool write_statement(const std::string& instance_directory, const std::string& statement);
  void wait_for_logon();
  void restart_other_hosts();
};

}  // namespace sap_hana
