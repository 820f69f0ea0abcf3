#pragma once

#include <sys/types.h>

#include <chrono>
#include <map>
#include <string>

namespace system_tests {

/// A child of the test that is stopped at one step of its own, which nothing in the world around it could hold: where a
/// file gets its name. All calls come from one thread. Once followed, the process can only be killed.
class Traced_Process {
 public:
  enum class Moment { before, after };

  explicit Traced_Process(pid_t pid) : pid_(pid) {}
  ~Traced_Process();
  Traced_Process(const Traced_Process&) = delete;
  Traced_Process& operator=(const Traced_Process&) = delete;

  /// Follows every thread from here on. False when the machine does not let one process follow another.
  [[nodiscard]] bool follow();
  /// Lets the process run until one of its threads renames a file to a path that ends in `name`; that thread stands
  /// still from then on, before or after it is done. False when that does not come.
  [[nodiscard]] bool stands_at_rename(const std::string& name, Moment moment);
  /// SIGKILL. Its parent waits for its end as for that of any child.
  void kill();

 private:
  struct Thread {
    bool renames = false;  ///< it is in the rename that is waited for
  };

  bool take(pid_t thread);
  /// Handles one stop of a thread; true when it is the one that is waited for.
  [[nodiscard]] bool handle(pid_t thread, int status, const std::string& name, Moment moment);
  [[nodiscard]] bool is_there(pid_t thread, const std::string& name, Moment moment);
  [[nodiscard]] std::string text_at(pid_t thread, unsigned long address) const;

  const pid_t pid_;
  std::map<pid_t, Thread> threads_;
  bool killed_ = false;
};

}  // namespace system_tests
