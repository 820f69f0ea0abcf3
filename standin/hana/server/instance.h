#pragma once

#include <atomic>

#include "base/files.h"
#include "server/backup.h"

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
  [[nodiscard]] Phase phase() const { return phase_; }
  [[nodiscard]] std::int64_t start_ms() const { return start_ms_; }
  void request_stop();

 private:
  bool write_pid();
  Layout layout_;
  Faults faults_;
  Backups backups_;
  std::atomic<Phase> phase_{starting};
  std::atomic<int> connections_{0};
  std::int64_t start_ms_ = 0;
};

}  // namespace standin
