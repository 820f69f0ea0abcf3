#pragma once

#include <atomic>

#include "base/files.h"
#include "server/backup.h"
#include "server/log_writer.h"
#include "server/master_role.h"

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
  [[nodiscard]] Phase phase() const { return phase_; }
  [[nodiscard]] std::int64_t start_ms() const { return start_ms_; }
  /// Whether the databases are served here: elsewhere in a scale-out system nobody takes statements.
  [[nodiscard]] bool serves_databases() const { return master_role_.held(); }
  void request_stop();

 private:
  bool write_pid();
  /// Takes the databases over when the role has come to this host.
  void consider_role();
  Layout layout_;
  Faults faults_;
  Backups backups_;
  Log_Writer log_writer_;
  Master_Role master_role_;
  std::atomic<Phase> phase_{starting};
  std::atomic<int> connections_{0};
  std::int64_t start_ms_ = 0;
};

}  // namespace standin
