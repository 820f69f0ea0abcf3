#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

#include "json/value.h"

namespace system_tests {

/// What a tool answered.
struct Tool_Result {
  int code = -1;  ///< exit code; 128 + signal when it was killed
  std::string out;
  std::string err;
  /// `out` as a JSON object; empty when it is none.
  [[nodiscard]] json_spirit::Object json() const;
};

/// Runs a program to its end.
[[nodiscard]] Tool_Result run_tool(const std::vector<std::string>& command, const std::string& input = {});

/// A program that stays, with its output in a file. Killed when this object goes.
class Background_Process {
 public:
  Background_Process(const std::vector<std::string>& command, const std::string& log_file);
  ~Background_Process();
  Background_Process(const Background_Process&) = delete;
  Background_Process& operator=(const Background_Process&) = delete;

  void signal(int number) const;
  /// Waits for the end; the exit code, 128 + signal, or -1 when `limit` has passed.
  int wait(std::chrono::seconds limit);
  [[nodiscard]] bool running();

 private:
  pid_t pid_ = -1;
  int code_ = -1;
  bool ended_ = false;
};

/// Command lines of the processes whose program lies below `folder`, zombies left out.
[[nodiscard]] std::vector<std::string> processes_below(const std::string& folder);
/// Processes of one program below `folder`, by its file's name.
[[nodiscard]] std::vector<pid_t> pids_below(const std::string& folder, const std::string& program);

/// Regular files below a folder, ordered. Others may remove and write files and folders meanwhile.
[[nodiscard]] std::vector<std::string> files_below(const std::string& folder);

/// How long a test waits for a state: far longer than the slowest machine needs, since only a failing test waits so
/// long.
inline constexpr std::chrono::seconds state_limit{120};

/// Asks every 20 ms until `condition` holds; false when `limit` passed before.
template <typename Condition>
[[nodiscard]] bool eventually(Condition condition, std::chrono::seconds limit = state_limit);

void pause_20_ms();

template <typename Condition>
bool eventually(Condition condition, std::chrono::seconds limit) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    pause_20_ms();
  }
  return true;
}

}  // namespace system_tests
