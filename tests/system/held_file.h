#pragma once

#include <sys/types.h>

#include <string>

namespace system_tests {

/// A file whose next reader waits until the test lets it go on: a fifo lies in its place. For files that one process
/// reads at a known step, which nobody else asks for meanwhile.
class Held_File {
 public:
  /// The file is there and is read from its beginning to its end.
  explicit Held_File(std::string path);
  /// Lets go.
  ~Held_File() { release(); }
  Held_File(const Held_File&) = delete;
  Held_File& operator=(const Held_File&) = delete;

  /// Waits until this process has come to the file; it is held there from now on.
  [[nodiscard]] bool holds(pid_t reader);
  /// The file is what it was, and whoever was held reads it.
  void release();

 private:
  [[nodiscard]] bool is_open_in(pid_t process) const;

  const std::string path_;
  const std::string content_;
  int way_in_ = -1;
  bool released_ = false;
};

}  // namespace system_tests
