#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "platform/secure_string.h"

namespace platform {

enum class Output_Stream { standard_output, standard_error };

/// Receives what a child prints. Called on the thread that called Process_Runner::run, never at once from two.
class Output_Sink {
 public:
  virtual ~Output_Sink() = default;
  /// The child runs; it can be signalled through `pid` until run returns.
  virtual void on_start(pid_t /*pid*/) {}
  virtual void on_output(Output_Stream stream, const char* data, std::size_t size) = 0;
  /// Nothing came on either stream for Process_Spec::idle_interval.
  virtual void on_idle() {}
  virtual void on_close(Output_Stream /*stream*/) {}
};

/// What to run. Paths are documented ones; the runner puts the file root before them.
struct Process_Spec {
  std::string program;
  std::vector<std::string> arguments;              ///< without the program's own name
  std::string name;                                ///< argv[0]; the program's path when empty
  std::map<std::string, std::string> environment;  ///< the child's whole environment: nothing is inherited
  std::string working_directory;                   ///< "/" when empty
  std::string user;                                ///< OS user to become when the caller is root; empty: stay
  secure_string input;                             ///< standard input, then end of file
  std::chrono::nanoseconds idle_interval{0};       ///< 0: on_idle is never called
};

struct Exit_Status {
  bool started = false;  ///< false: the program could not be run; `error` says why
  int error = 0;         ///< errno of a failed start
  int code = -1;         ///< exit code, -1 when it ended by a signal
  int signal = 0;
  [[nodiscard]] bool success() const { return started && signal == 0 && code == 0; }
};

/// A process of this host.
struct Running_Process {
  pid_t pid = 0;
  std::string user;          ///< its name, or its number when it has none
  std::string command_line;  ///< arguments joined by blanks
};

/// Runs programs, never a shell. The child gets the three standard descriptors and nothing else. A process-wide default
/// that a test replaces for a scope; run may be called from many threads at once.
class Process_Runner {
 public:
  virtual ~Process_Runner() = default;
  /// Blocks until the child has ended and its output is read. A daemon that the child leaves behind with its output
  /// open does not hold the caller.
  virtual Exit_Status run(const Process_Spec& spec, Output_Sink& sink) = 0;
  /// The processes of this host that have a command line; below a file root only those whose program lies there. False
  /// and errno when they cannot be listed.
  [[nodiscard]] virtual bool list(std::vector<Running_Process>& processes);

  [[nodiscard]] static Process_Runner& current();
};

/// Makes `runner` the process-wide runner for the life of this object.
class Scoped_Process_Runner {
 public:
  explicit Scoped_Process_Runner(Process_Runner& runner);
  ~Scoped_Process_Runner();
  Scoped_Process_Runner(const Scoped_Process_Runner&) = delete;
  Scoped_Process_Runner& operator=(const Scoped_Process_Runner&) = delete;

 private:
  Process_Runner* previous_;
};

/// One line for messages: "ended with exit code 3", "was killed by signal 9", "could not be started: ...".
[[nodiscard]] std::string describe(const Exit_Status& status);

}  // namespace platform
