#include "hana/common/hdbsql_output.h"

#include <signal.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <utility>

#include "hana/common/text_lines.h"
#include "platform/clock.h"
#include "platform/log.h"

namespace sap_hana {

namespace {

/// Answer to the connect command, which no caller asked for.
constexpr std::string_view connected_answer = "Connected to ";
/// Errors of hdbsql itself, which carry no number.
constexpr std::array<std::string_view, 2> unnumbered_logon_errors = {"Bad connect options",
                                                                     "Single Sign-On authentication failed"};
constexpr std::string_view warning_prefix = "Warning: ";

constexpr int error_authentication_failed = 10;
constexpr int error_password_change_needed = 414;
constexpr int error_user_deactivated = 415;
constexpr int error_user_locked = 416;
/// Errors of the client's connection are numbered from here downwards.
constexpr int first_connection_error = -10000;

constexpr std::size_t longest_error_bytes = 2048;

bool is_logon_error(std::string_view line) {
  return std::any_of(unnumbered_logon_errors.begin(), unnumbered_logon_errors.end(),
                     [line](std::string_view text) { return line.starts_with(text); });
}

}  // namespace

bool parse_hdbsql_error(std::string_view line, int& code) {
  constexpr std::string_view mark = "* ";
  if (!line.starts_with(mark)) return false;
  line.remove_prefix(mark.size());
  int number = 0;
  const auto [end, failure] = std::from_chars(line.data(), line.data() + line.size(), number);
  if (failure == std::errc::invalid_argument || end == line.data() + line.size() || *end != ':') return false;
  code = number;
  return true;
}

HDBSQL_Failure classify_hdbsql_error(int code) {
  switch (code) {
    case error_authentication_failed:
    case error_password_change_needed:
    case error_user_deactivated:
    case error_user_locked:
      return HDBSQL_Failure::logon;
    default:
      return code <= first_connection_error ? HDBSQL_Failure::connection : HDBSQL_Failure::statement;
  }
}

HDBSQL_Output::HDBSQL_Output(Text_Process_Handler* handler, const std::vector<secure_string>& secrets)
    : handler_(handler),
      secrets_(secrets),
      output_lines_([this](std::string_view line) { take_output_line(line); },
                    [this](std::string_view text) { take_segment(text); }),
      // A piece of an error line would be no better than the line: both are looked at as text.
      error_lines_([this](std::string_view line) { take_error_line(line); },
                   [this](std::string_view text) { take_error_line(text); }) {}

void HDBSQL_Output::time_limit(std::chrono::seconds limit) {
  limit_ = limit;
  deadline_ = platform::Clock::current().steady_now() + limit;
}

void HDBSQL_Output::check_limit() {
  if (limit_ == std::chrono::seconds(0) || timed_out_ || platform::Clock::current().steady_now() < deadline_) return;
  timed_out_ = true;
  if (pid_ > 0) ::kill(pid_, SIGKILL);
}

void HDBSQL_Output::on_start(pid_t pid) { pid_ = pid; }

Line_Assembler& HDBSQL_Output::lines_of(platform::Output_Stream stream) {
  return stream == platform::Output_Stream::standard_output ? output_lines_ : error_lines_;
}

void HDBSQL_Output::on_output(platform::Output_Stream stream, const char* data, std::size_t size) {
  lines_of(stream).add(std::string_view(data, size));
  if (handler_ != nullptr && handler_->segment_seconds() > 0)
    output_lines_.flush_older_than(std::chrono::seconds(handler_->segment_seconds()));
  check_limit();
}

void HDBSQL_Output::on_idle() {
  output_lines_.flush();
  check_limit();
}

void HDBSQL_Output::on_close(platform::Output_Stream stream) {
  lines_of(stream).close();
  if (handler_ == nullptr) return;
  if (stream == platform::Output_Stream::standard_output)
    static_cast<void>(handler_->handle_stdout_close());
  else
    static_cast<void>(handler_->handle_stderr_close());
}

void HDBSQL_Output::take_output_line(std::string_view line) {
  const bool first = std::exchange(first_line_, false);
  if (first && line.starts_with(connected_answer)) return;
  if (first && is_logon_error(line)) {
    note_error(error_authentication_failed, line);
    return;
  }
  if (handler_ != nullptr)
    static_cast<void>(handler_->handle_stdout_line(line.data(), line.size()));
  else
    D3_INFO("hdbsql: %C\n", printable(without_secrets(line), longest_error_bytes).c_str());
}

void HDBSQL_Output::take_segment(std::string_view text) {
  if (handler_ != nullptr) static_cast<void>(handler_->handle_stdout_segment(text.data(), text.size()));
}

void HDBSQL_Output::take_error_line(std::string_view line) {
  if (is_blank(line)) return;  // the end of one that was given out in pieces
  int code = 0;
  if (parse_hdbsql_error(line, code)) {
    note_error(code, line);
  } else if (is_logon_error(line)) {
    note_error(error_authentication_failed, line);
  } else if (line.starts_with(warning_prefix)) {
    in_error_ = false;
    D3_WARNING("hdbsql: %C\n", printable(without_secrets(line), longest_error_bytes).c_str());
  } else if (in_error_ && error_.size() < longest_error_bytes) {
    error_ += ' ';
    error_ += without_secrets(line);
  }
  last_error_line_ = without_secrets(line).substr(0, longest_error_bytes);
  if (handler_ != nullptr) static_cast<void>(handler_->handle_stderr_line(line.data(), line.size()));
}

void HDBSQL_Output::note_error(int code, std::string_view line) {
  // Errors that follow the first are mostly its consequences.
  in_error_ = !has_error_;
  if (has_error_) return;
  has_error_ = true;
  code_ = code;
  error_ = without_secrets(line).substr(0, longest_error_bytes);
}

HDBSQL_Outcome HDBSQL_Output::outcome(const platform::Exit_Status& status) {
  HDBSQL_Outcome outcome;
  if (timed_out_) {
    outcome.failure = HDBSQL_Failure::connection;
    outcome.message = "HANA did not answer within " + std::to_string(limit_.count()) + " seconds, hdbsql was ended";
    return outcome;
  }
  if (has_error_) {
    outcome.failure = classify_hdbsql_error(code_);
    outcome.code = code_;
    outcome.message = printable(error_, longest_error_bytes);
  } else if (!status.success()) {
    outcome.failure = HDBSQL_Failure::tool;
    outcome.message = "hdbsql " + platform::describe(status);
    if (!last_error_line_.empty())
      outcome.message += ": " + printable(last_error_line_, longest_error_bytes);
    else if (status.started)
      outcome.message += " and gave no reason";
  }
  return outcome;
}

/// Before anything is cut: half a secret would not be found any more.
std::string HDBSQL_Output::without_secrets(std::string_view text) const {
  std::string result(text);
  constexpr std::string_view mask = "***";
  for (const secure_string& secret : secrets_) {
    if (secret.empty()) continue;
    for (std::size_t at = result.find(secret.view()); at != std::string::npos;
         at = result.find(secret.view(), at + mask.size()))
      result.replace(at, secret.size(), mask);
  }
  return result;
}

}  // namespace sap_hana
