#pragma once

#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "platform/process_runner.h"

namespace support {

/// What a scripted child does.
struct Scripted_Child {
  std::string standard_output;
  std::string standard_error;
  int code = 0;
  int signal = 0;
  int start_error = 0;           ///< errno of a start that fails
  bool hangs = false;            ///< after its output it is silent until it is signalled by its pid, and ends by that
  std::function<void()> before;  ///< runs before anything is printed
};

/// One call as it came, secrets included: tests search it.
struct Seen_Call {
  std::string program;
  std::vector<std::string> arguments;
  std::map<std::string, std::string> environment;
  std::string input;
  std::string user;
  std::string name;
  std::string working_directory;
};

/// The process's runner for its life: every call is answered by the first rule that fits. A call that no rule fits
/// fails the test and looks like a program that does not exist; so does a child that hangs and is ended by nobody. The
/// working directory must be there. Time does not pass by itself: a test moves it in Scripted_Child::before. A child
/// that hangs has a real process in its place, since signals are given by the kernel; the pid of another one is that
/// of a child that has just ended. Safe for several threads.
class Scripted_Process_Runner : public platform::Process_Runner {
 public:
  Scripted_Process_Runner();
  ~Scripted_Process_Runner() override;

  platform::Exit_Status run(const platform::Process_Spec& spec, platform::Output_Sink& sink) override;

  /// What list gives; at first no process runs.
  bool list(std::vector<platform::Running_Process>& processes) override;
  void let_run(std::vector<platform::Running_Process> processes);
  void fail_to_list(bool fails);
  /// How often list was called.
  [[nodiscard]] std::size_t listings() const;

  using Rule = std::function<bool(const Seen_Call& call, Scripted_Child& child)>;
  /// Rules are asked in the order they were added.
  void on(Rule rule);
  /// Answers calls of a program whose path ends in `program`.
  void on_program(const std::string& program, Scripted_Child child);
  [[nodiscard]] std::vector<Seen_Call> calls() const;
  void clear_rules();

 private:
  mutable std::mutex mutex_;
  std::vector<Rule> rules_;
  std::vector<Seen_Call> calls_;
  std::vector<platform::Running_Process> processes_;
  bool list_fails_ = false;
  std::size_t listings_ = 0;
  platform::Scoped_Process_Runner scope_;
};

}  // namespace support
