#pragma once

#include <sys/types.h>

#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "base/files.h"
#include "base/layout.h"

namespace standin {

/// The running hdbbackint, with what it printed and how it ended.
class Backint_Process {
 public:
  ~Backint_Process();
  bool start(const std::string& program, std::vector<std::string> arguments);
  void send(int signal);
  [[nodiscard]] bool ended() const { return ended_; }
  [[nodiscard]] int error() const { return error_; }
  [[nodiscard]] pid_t pid() const { return pid_; }
  /// Waits for its end; the exit code, 128 and more for a signal.
  int finish();
  [[nodiscard]] const std::string& text() const { return text_; }

 private:
  void read_console();
  Descriptor console_;
  pid_t pid_ = 0;
  int error_ = 0;
  std::atomic<bool> ended_{false};
  std::atomic<int> exit_code_{0};
  std::string text_;
  std::thread waiter_, reader_;
};

/// Real path of the program that HANA's link leads to.
std::string backint_program(const Layout& layout);
/// What HANA says when the program cannot be run.
std::string cannot_execute(const Layout& layout, int error);
/// What HANA says of an exit code that is not 0.
std::string exit_error(const Backint_Process& process, int code);
/// An empty file of hdbbackint's, "/var/tmp/hdbbackint_<SID>.<6 random>"; its documented path, empty when it fails.
std::string exchange_file(const Layout& layout);

/// A parameter in double quotes.
std::string backint_quoted(const std::string& text);
/// The first line of an input file.
std::string software_line(const Layout& layout);
/// The words of an answer line; quotes are taken off, \" inside them is a quote.
std::vector<std::string> backint_words(std::string_view line);

/// The blocks of backint.log.
void log_backint_start(const Layout& layout, const std::string& database, const std::string& command, pid_t pid,
                       const std::string& input);
void log_backint_end(const Layout& layout, const std::string& database, pid_t pid, int code, const std::string& output,
                     const std::string& error);

/// Waits while hdbbackint runs: it is killed after the time that HANA waits for an answer (0: none), and a while after
/// it was asked to end (`signal`: by SIGTERM, too).
void wait_for_backint(Backint_Process& process, std::int64_t response_timeout_seconds,
                      const std::function<bool()>& canceled, bool signal);

}  // namespace standin
