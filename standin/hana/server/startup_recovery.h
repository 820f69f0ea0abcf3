#pragma once

#include <atomic>
#include <thread>

#include "server/recoveries.h"

namespace standin {

/// The recovery of the system database or a single container: its statement lies in the instance's work folder, and the
/// instance runs it while it starts.
class Startup_Recovery {
 public:
  enum State { none, running, ended_well, failed };
  Startup_Recovery(const Layout& layout, Faults& faults, Recoveries& recoveries)
      : layout_(layout), faults_(faults), recoveries_(recoveries) {}
  ~Startup_Recovery() { join(); }
  /// Begins on a thread of its own when there is a statement; fails at once when the database cannot be opened, since
  /// an earlier recovery has not ended well.
  void begin();
  [[nodiscard]] State state() const { return state_; }
  /// Since when logons are taken; 0 without a recovery.
  [[nodiscard]] std::int64_t logons_from_ms() const { return logons_from_ms_; }
  void join() {
    if (thread_.joinable()) thread_.join();
  }

 private:
  bool run(const std::string& sql);
  /// The statement, and what becomes of its file; nothing when there is none that was not run already.
  std::optional<std::string> take_statement(bool& good);
  Layout layout_;
  Faults& faults_;
  Recoveries& recoveries_;
  std::atomic<State> state_{none};
  std::atomic<std::int64_t> logons_from_ms_{0};
  std::thread thread_;
};

}  // namespace standin
