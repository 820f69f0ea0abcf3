#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "agent/instance/instance_manager.h"
#include "hana/job/backup_executor.h"
#include "hana/job/backup_job_options.h"
#include "job/default_backup_job_source.h"
#include "job/job.h"
#include "support/fake_http_transport.h"
#include "support/log_capture.h"
#include "support/scripted_process_runner.h"
#include "support/temp_root.h"
#include "unit/hana/job/scripted_hdbsql.h"
#include "unit/hana/job/small_backupd.h"

namespace backup_test {

inline constexpr const char* resource_uuid = "11111111-1111-4111-8111-111111111111";
inline constexpr const char* pool_uuid = "22222222-2222-4222-8222-222222222222";
inline constexpr const char* host_uuid = "33333333-3333-4333-8333-333333333333";
inline constexpr const char* landscape_id = "5b91d2e8-e104-e541-9749-6ae7b2ebcfe9";
inline constexpr const char* pool_location = "file:///pool";
inline constexpr const char* password = "Secret-4711";
inline constexpr const char* trace_directory = "/usr/sap/HDB/HDB00/hanahost/trace";

/// The data backup executor with what derived executors see of it.
class Executor : public sap_hana::Backup_Executor {
 public:
  using Backup_Executor::act_;
  using Backup_Executor::ancient_version_;
  using Backup_Executor::Backup_Executor;
  using Backup_Executor::compression_;
  using Backup_Executor::compression_level_;
  using Backup_Executor::evt_handler_;
  using Backup_Executor::hdbsql_;
  using Backup_Executor::incarnation_;
  using Backup_Executor::instance_mgr_name_;
  using Backup_Executor::instance_name_;
  using Backup_Executor::instance_number_;
  using Backup_Executor::job_type_;
  using Backup_Executor::last_full_backup_id_;
  using Backup_Executor::lift_reason_;
  using Backup_Executor::mdc_;
  using Backup_Executor::sid_;
};

/// A host with HANA system HDB, instance HDB00, installed below a temporary root; its agent with a stored logon; a
/// backup server; and a backup job. Everything is the real code but the clock, the processes, the files' root and the
/// network.
class Executor_Test : public testing::Test {
 protected:
  Executor_Test();
  ~Executor_Test() override;

  // Before the job is made

  /// "[multidb] mode"
  void set_multi_container(bool multi_container);
  void set_version(const std::string& version);
  void set_subtype(Job_Definition_Subtype subtype) { definition_->subtype(subtype); }
  void set_entries(const std::vector<std::string>& entries);
  /// Text of a database's backup.log; an empty name is the system's own trace directory.
  void write_backup_log(const std::string& text, const std::string& database = {});
  /// backupd holds a Backint job with one file of 1000 bytes, 400 stored, as after a backup.
  void add_backint_job(const std::string& uuid, const std::string& database, std::uint64_t backup_id);
  /// From now on each Backint job record gets such a file and this backup id as soon as it is stored.
  void let_backint_store(std::uint64_t backup_id);
  /// backupd holds a full backup of `database` on the job's pool, begun at `start`.
  void add_full_set(const std::string& database, std::uint64_t backup_id, const std::string& start);

  /// An executor with the system's facts and hdbsql bound, as execute_i leaves it to execute_backup.
  Executor& ready_executor();
  /// One as the job framework makes it.
  Executor& new_executor();
  Job& job();

  /// Claims an error line, or fails with what was logged instead.
  void expect_error(const std::string& text);
  /// The same for a line of the services below, of which a part is enough.
  void expect_error_with(const std::string& part);
  void expect_info(const std::string& text);
  /// Every alert so far: "class/code flags level parameters".
  [[nodiscard]] std::vector<std::string> alerts() const;
  /// Every percentage that was reported.
  [[nodiscard]] std::vector<int> progress() const;

  support::Temp_Root root_;
  Scripted_Hdbsql::Clock clock_;
  support::Log_Capture log_;
  support::Scripted_Process_Runner runner_;
  Scripted_Hdbsql hdbsql_;
  Small_Backupd backupd_;
  support::Fake_Http_Transport transport_;
  Instance_Manager registry_;
  std::unique_ptr<Scoped_Instance_Manager> registry_scope_;
  Default_Backup_Job_Source* source_ = nullptr;      ///< of the definition
  sap_hana::Backup_Job_Options* options_ = nullptr;  ///< of the definition
  Job_Definition_Ptr definition_;

 private:
  class Alert_Recorder;
  class Progress_Recorder;

  void install_system();
  void configure_agent();
  void define_job();

  std::shared_ptr<Alert_Recorder> alert_recorder_;
  std::shared_ptr<Progress_Recorder> progress_recorder_;
  Job_Ptr job_;
  std::vector<std::unique_ptr<Executor>> executors_;
};

/// The record of the resource as backupd gives it: one instance, HDB00 on this host.
[[nodiscard]] json_spirit::Object resource_record();
/// The record of one stored file, as the Backint agent leaves it with backupd.
[[nodiscard]] json_spirit::Object file_record(const std::string& filename, std::uint64_t size,
                                              std::uint64_t storage_size);
/// One instance of a resource.
[[nodiscard]] json_spirit::Object instance_record(const std::string& host, const std::string& name = "HDB_HDB00");

}  // namespace backup_test
