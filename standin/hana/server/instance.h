#pragma once

#include <atomic>

#include "base/files.h"
#include "server/backup.h"
#include "server/log_writer.h"
#include "server/master_role.h"
#include "server/startup_recovery.h"

namespace standin {

/// One server process: all databases of the system.
class Instance {
 public:
  enum Phase { starting, running, stopping };
  explicit Instance(Layout layout);
  /// Serves until it is told to stop. The process's exit code.
  int serve();

  [[nodiscard]] const Layout& layout() const { return layout_; }
  Faults& faults() { return faults_; }
  Backups& backups() { return backups_; }
  Log_Writer& log_writer() { return log_writer_; }
  Recoveries& recoveries() { return recoveries_; }
  [[nodiscard]] Phase phase() const { return phase_; }
  [[nodiscard]] std::int64_t start_ms() const { return start_ms_; }
  /// Whether the databases are served here: elsewhere in a scale-out system nobody takes statements.
  [[nodiscard]] bool serves_databases() const { return master_role_.held(); }
  /// Whether logons are taken: after a recovery at the start not at once.
  [[nodiscard]] bool takes_logons() const;
  void request_stop();

 private:
  bool write_pid();
  /// Takes the databases over when the role has come to this host.
  void consider_role();
  /// The next phase of a start; a recovery that failed ends the instance.
  void go_on_starting(std::int64_t ready_at);
  Layout layout_;
  Faults faults_;
  Backups backups_;
  Log_Writer log_writer_;
  Recoveries recoveries_;
  Startup_Recovery startup_recovery_;
  Master_Role master_role_;
  std::atomic<Phase> phase_{starting};
  std::atomic<int> connections_{0};
  std::int64_t start_ms_ = 0;
};

}  // namespace standin
