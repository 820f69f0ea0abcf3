#include "job/execute_script.h"

#include <string_view>
#include <utility>

#include "platform/log.h"
#include "platform/process_runner.h"

namespace {

constexpr std::size_t longest_line_bytes = 2048;
constexpr std::string_view blanks = " \t\r\n";

/// Logs what a script prints, line by line.
class Script_Output : public platform::Output_Sink {
 public:
  explicit Script_Output(bool drop_output) : drop_output_(drop_output) {}

  void on_output(platform::Output_Stream stream, const char* data, std::size_t size) override {
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
  static void write_out(std::string& line) {
    D3_INFO("%C\n", line.c_str());
    line.clear();
  }

  bool drop_output_;
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
  if (status.success()) return true;
  D3_ERROR("Failed to run script '%C': %C\n", platform::cut_for_log(command).c_str(),
           platform::describe(status).c_str());
  return false;
}
