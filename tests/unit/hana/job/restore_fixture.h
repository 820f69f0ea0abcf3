#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "agent/backupd_client/json_rpc_forward.h"
#include "hana/job/restore_executor.h"
#include "unit/hana/job/executor_fixture.h"

namespace backup_test {

inline constexpr const char* origin_uuid = "99999999-1111-4111-8111-111111111111";
inline constexpr const char* second_host = "66666666-6666-4666-8666-666666666666";
inline constexpr const char* third_host = "77777777-7777-4777-8777-777777777777";
inline constexpr const char* full_set_uuid = "88888888-8888-4888-8888-888888888888";
inline constexpr const char* full_start = "2026-11-20 01:00:00";
inline constexpr const char* full_end = "2026-11-20 01:10:00";
inline constexpr const char* wanted_time = "2026-11-20 08:30:00";
inline constexpr std::uint64_t full_id = 1700;
inline constexpr std::uint64_t catalog_id = 1900;

/// The restore executor with what its tests look at.
class Restorer : public sap_hana::Restore_Executor {
 public:
  using Restore_Executor::ancient_version_;
  using Restore_Executor::cluster_instances_;
  using Restore_Executor::hana_version_;
  using Restore_Executor::ignore_delta_;
  using Restore_Executor::instance_mgr_name_;
  using Restore_Executor::instance_name_;
  using Restore_Executor::instance_number_;
  using Restore_Executor::is_cluster_;
  using Restore_Executor::mdc_;
  using Restore_Executor::Restore_Executor;
  using Restore_Executor::sid_;
  using Restore_Executor::sorted_entries_;
};

/// The agents of the other hosts, as backupd reaches them.
class Other_Hosts : public Agent_Channel {
 public:
  JSON_RPC_Answer call(const std::string& method, const json_spirit::Value& params, std::chrono::nanoseconds) override;

  std::vector<std::string> refusing;  ///< hosts that are not connected
  std::vector<std::string> calls;     ///< "host method params"
};

/// The host of Executor_Test with a restore's definition. The source is another resource of that backup server; it was
/// backed up under the SID that an entry names.
class Restore_Test : public Executor_Test {
 protected:
  using Entry = sap_hana::Restore_Job_Source::Entry_Item;

  Restore_Test();

  /// Restores `database` of HDB in place to wanted_time.
  static Entry to_time(const std::string& database);
  /// Restores `database` of HDB in place from its full backup.
  static Entry from_full(const std::string& database);
  void add(const Entry& entry) { restore_source_->add_entry_item(entry); }
  /// The local system spans these hosts, the first of them being this one.
  void set_cluster(const std::vector<std::string>& hosts);
  /// SAP's group that files cannot be given to, because there is none.
  void remove_sap_group();

  [[nodiscard]] Restorer& new_restorer();
  /// One that knows its system, as execute_restore leaves it to its entries.
  [[nodiscard]] Restorer& ready_restorer();
  /// execute_i with the state of a started job.
  [[nodiscard]] bool restore();

  // What hdbsql is asked about a tenant

  void expect_listed(const std::string& database, bool active);
  void expect_status(const std::string& database, const std::string& status);
  /// A stop that succeeds.
  void expect_stop(const std::string& database);
  /// A start that finds the database active, as after a recovery.
  void expect_start(const std::string& database) { expect_status(database, "YES"); }
  /// What comes after the start of a recovered system database with tenants.
  void expect_logon_and_own_tenant();
  /// A whole restore of a tenant that is active before.
  void expect_tenant_restore(const std::string& database, const std::string& statement);
  static std::string full_statement(const std::string& database);
  static std::string time_statement(const std::string& database);

  /// "HDB start", "HDB stop" so far.
  [[nodiscard]] std::vector<std::string> instance_actions() const;
  [[nodiscard]] mode_t mode_of(const std::string& path) const;
  [[nodiscard]] json_spirit::Value document(const std::string& path) const;

  static constexpr const char* catalog_directory = "/var/opt/tarvex/dorsal3/agent/hana/catalog";
  static constexpr const char* statement_path = "/usr/sap/HDB/HDB00/work/recoverInstance.sql";

  bool running_ = true;         ///< the instance
  std::string refused_action_;  ///< "start" or "stop": HDB fails
  /// Called with "start" or "stop" when HDB does it.
  std::function<void(const std::string& action)> on_action_;
  sap_hana::Restore_Job_Source* restore_source_ = nullptr;    ///< of the definition
  sap_hana::Restore_Job_Options* restore_options_ = nullptr;  ///< of the definition
  Other_Hosts other_hosts_;

 private:
  bool answer_tool(const support::Seen_Call& call, support::Scripted_Child& child);
  json_spirit::Value answer_view(const std::string& view, const json_spirit::Object& params) const;

  Scoped_Agent_Channel channel_scope_;
  std::vector<std::unique_ptr<Restorer>> restorers_;
};

/// The record of a full backup set of `database`.
[[nodiscard]] json_spirit::Object full_record(const std::string& database);
/// The record of the set that holds HANA's catalog of `database`.
[[nodiscard]] json_spirit::Object catalog_record(const std::string& database);

}  // namespace backup_test
