#include "job/execute_script.h"

#include <signal.h>

#include <chrono>
#include <optional>
#include <string_view>
#include <utility>

#include "job/thread_activity.h"
#include "platform/clock.h"
#include "platform/log.h"
#include "platform/process_runner.h"

namespace {

constexpr std::size_t longest_line_bytes = 2048;
/// How often a quiet script is looked after.
constexpr std::chrono::seconds watch_interval{1};
/// From asking a script to end to ending it.
constexpr std::chrono::seconds grace{10};
constexpr std::string_view blanks = " \t\r\n";

/// Logs what a script prints, line by line, and ends a script whose run is to end.
class Script_Output : public platform::Output_Sink {
 public:
  explicit Script_Output(bool drop_output) : drop_output_(drop_output) {}

  /// The script was asked to end.
  [[nodiscard]] bool ended_early() const { return asked_.has_value(); }

  void on_start(pid_t pid) override { pid_ = pid; }
  void on_idle() override { end_with_run(); }
  void on_output(platform::Output_Stream stream, const char* data, std::size_t size) override {
    end_with_run();
    if (drop_output_ && stream == platform::Output_Stream::standard_output) return;
    std::string& line = open_line(stream);
    for (const char c : std::string_view(data, size)) {
      if (c == '\n' || line.size() == longest_line_bytes) write_out(line);
      if (c != '\n') line.push_back(c == '\0' ? ' ' : c);
    }
  }
  void on_close(platform::Output_Stream stream) override {
    if (!open_line(stream).empty()) write_out(open_line(stream));
  }

 private:
  std::string& open_line(platform::Output_Stream stream) {
    return stream == platform::Output_Stream::standard_output ? output_line_ : error_line_;
  }
  void end_with_run() {
    if (!asked_ && !(after_work_ ? is_run_of_thread_aborting() : is_run_of_thread_ending())) return;
    const auto now = platform::Clock::current().steady_now();
    if (!asked_)
      end_by(SIGTERM);
    else if (now - *asked_ >= grace)
      end_by(SIGKILL);
    if (!asked_) asked_ = now;
  }
  void end_by(int signal) const {
    if (pid_ > 0) static_cast<void>(::kill(pid_, signal));  // it fails only when the script is gone
  }
  static void write_out(std::string& line) {
    D3_INFO("%C\n", line.c_str());
    line.clear();
  }

  bool drop_output_;
  /// What puts things back in order is let finish: a stop comes too late for the work, or has brought it to its end.
  const bool after_work_ = is_run_of_thread_completing();
  pid_t pid_ = 0;
  std::optional<std::chrono::steady_clock::time_point> asked_;
  std::string output_line_;
  std::string error_line_;
};

/// Takes the next quoted or plain piece of a word at `at`. False when a quote or a backslash is left open.
bool take_piece(const std::string& text, std::size_t& at, std::string& word) {
  const char opening = text[at];
  if (opening == '\'') {
    const std::size_t end = text.find('\'', at + 1);
    if (end == std::string::npos) return false;
    word.append(text, at + 1, end - at - 1);
    at = end + 1;
    return true;
  }
  if (opening == '\\') {
    if (++at == text.size()) return false;
    word.push_back(text[at++]);
    return true;
  }
  if (opening != '"') {
    word.push_back(text[at++]);
    return true;
  }
  for (++at; at < text.size() && text[at] != '"'; ++at) {
    if (text[at] == '\\' && ++at == text.size()) return false;
    word.push_back(text[at]);
  }
  return at < text.size() && text[at++] == '"';
}

platform::Process_Spec spec_of(std::vector<std::string> words) {
  platform::Process_Spec spec;
  spec.program = words.front();
  spec.arguments.assign(words.begin() + 1, words.end());
  spec.environment = {{"PATH", "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"}, {"LANG", "C.UTF-8"}};
  spec.idle_interval = watch_interval;
  return spec;
}

}  // namespace

bool split_command_line(const std::string& command, std::vector<std::string>& words) {
  std::size_t at = command.find_first_not_of(blanks);
  while (at != std::string::npos) {
    std::string word;
    while (at < command.size() && blanks.find(command[at]) == std::string_view::npos)
      if (!take_piece(command, at, word)) return false;
    words.push_back(std::move(word));
    at = command.find_first_not_of(blanks, at);
  }
  return true;
}

bool execute_script(const std::string& command, bool drop_output, ACE_Log_Msg_Callback_var log) {
  const Scoped_Log_Callback scope(std::move(log));
  std::vector<std::string> words;
  if (!split_command_line(command, words)) {
    D3_ERROR("Failed to run script '%C': a quote is not closed\n", platform::cut_for_log(command).c_str());
    return false;
  }
  if (words.empty()) return true;
  if (!words.front().starts_with('/')) {
    D3_ERROR("Failed to run script '%C': the program must be given with its absolute path\n",
             platform::cut_for_log(command).c_str());
    return false;
  }
  Script_Output output(drop_output);
  const platform::Exit_Status status = platform::Process_Runner::current().run(spec_of(std::move(words)), output);
  if (output.ended_early()) {
    D3_WARNING("Script '%C' was ended because its job is being stopped: it %C\n",
               platform::cut_for_log(command).c_str(), platform::describe(status).c_str());
    return false;
  }
  if (status.success()) return true;
  D3_ERROR("Failed to run script '%C': %C\n", platform::cut_for_log(command).c_str(),
           platform::describe(status).c_str());
  return false;
}
