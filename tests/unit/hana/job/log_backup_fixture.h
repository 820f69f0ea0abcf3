#pragma once

#include <memory>
#include <string>
#include <vector>

#include "hana/job/log_backup_executor.h"
#include "unit/hana/job/executor_fixture.h"

namespace backup_test {

/// The log backup executor with what its tests look at.
class Log_Executor : public sap_hana::Log_Backup_Executor {
 public:
  using Log_Backup_Executor::last_full_backup_id_;
  using Log_Backup_Executor::Log_Backup_Executor;
  using Log_Backup_Executor::mdc_;
  using Log_Backup_Executor::sid_;

  bool is_active(const Action_Options* options) override {
    asked_with_.push_back(options);
    return Log_Backup_Executor::is_active(options);
  }
  std::vector<const Action_Options*> asked_with_;  ///< what is_active was called with
};

/// The host of Executor_Test with a log backup's definition; its instance runs until set_running(false).
class Log_Backup_Test : public Executor_Test {
 protected:
  Log_Backup_Test();

  void set_running(bool running) { state_ = running ? Instance::running : Instance::stopped; }
  /// Some of its processes run.
  void set_half_started() { state_ = Instance::half_started; }
  void set_replication_mode(const std::string& mode) { mode_ = mode; }
  /// An executor as the framework makes it.
  Log_Executor& new_log_executor();
  /// One that knows its system, as execute_i leaves it to execute_backup.
  Log_Executor& ready_log_executor();

 private:
  /// By what sapcontrol -function GetProcessList exits with.
  enum class Instance { half_started = 0, running = 3, stopped = 4 };
  Instance state_ = Instance::running;
  std::string mode_ = "none";
  std::vector<std::unique_ptr<Log_Executor>> executors_;
};

}  // namespace backup_test
