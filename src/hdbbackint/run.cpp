#include "hdbbackint/run.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "agent/backupd_client/common_http_session_factory.h"
#include "hdbbackint/backup/backup_function.h"
#include "hdbbackint/call.h"
#include "hdbbackint/console.h"
#include "hdbbackint/delete/delete_function.h"
#include "hdbbackint/inquire/inquire_function.h"
#include "hdbbackint/protocol/interface_version.h"
#include "hdbbackint/restore/restore_function.h"
#include "platform/files.h"
#include "platform/log.h"

namespace hdbbackint {

namespace {

constexpr const char* tool_name = "Dorsal3 hdbbackint " DORSAL3_VERSION;
constexpr const char* own_interface = "1.50";
/// Far beyond what HANA asks for in one call.
constexpr std::size_t input_limit_bytes = 256U << 20;
constexpr int connect_retries = 3;

void show_version(Command_Line::Show show) {
  std::string text = std::string("\"backint ") + own_interface + "\" \"" + tool_name + "\"\n";
  if (show == Command_Line::Show::details) {
    text +=
        "Backint agent for SAP HANA: saves to and restores from the storage pools of a Dorsal3 backup server.\n"
        "Methods: none, lzop, zstd. Checksum: XXH3-128.\n";
  }
  [[maybe_unused]] const ssize_t written = ::write(STDOUT_FILENO, text.data(), text.size());
}

bool read_standard_input(std::string& text) {
  char buffer[65536];
  for (;;) {
    const ssize_t got = ::read(STDIN_FILENO, buffer, sizeof buffer);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return got == 0;
    if (text.size() + static_cast<std::size_t>(got) > input_limit_bytes) {
      errno = EFBIG;
      return false;
    }
    text.append(buffer, static_cast<std::size_t>(got));
  }
}

bool read_input(const std::string& path, std::string& text) {
  if (path.empty() ? read_standard_input(text) : platform::read_file(path, text, input_limit_bytes)) return true;
  report_failure("cannot read the input file " + (path.empty() ? "(standard input)" : path) + ": " +
                 std::strerror(errno));
  return false;
}

bool needs_user(Function function) { return function != Function::backup; }

/// What HANA gave must be whole before anything is touched. False with "#ERROR" for everything that could be read.
bool check_request(const Call& call) {
  const Request& request = call.request;
  if (!request.malformed.empty()) {
    call.fail_all("the input file is malformed: " + request.malformed.front());
    return false;
  }
  if (call.user.sid.empty() && (needs_user(call.command.function) || !call.command.user.empty())) {
    call.fail_all("option -u is missing or is not <database>@<SID> or <SID>");
    return false;
  }
  return true;
}

bool connect(Call& call) {
  const Cause_Capture cause;
  call.session =
      Common_HTTP_Session_Factory::create(Common_HTTP_Session_Factory::SESSION_BACKUPD, nullptr, connect_retries);
  if (call.session) return true;
  call.fail_all("cannot reach backupd at " + call.configuration.server_url + ": " + cause.text());
  return false;
}

void run_function(const Call& call) {
  switch (call.command.function) {
    case Function::backup:
      return run_backup(call);
    case Function::restore:
      return run_restore(call);
    case Function::inquire:
      return run_inquire(call);
    case Function::remove:
      return run_delete(call);
    case Function::none:
      break;
  }
  D3_EMERGENCY("Function %d has no implementation\n", static_cast<int>(call.command.function));
}

int serve(const Command_Line& command, Answer_File& answers, Stop_Source& stop) {
  std::string text;
  if (!read_input(command.input, text)) return EXIT_USAGE;
  const Request request = parse_request(text, command.function);
  answers.software_id(answered_interface(request.caller_interface), tool_name);
  Call call{command, request, {}, answers, stop, {}, {}};
  (void)parse_user_id(command.user, call.user);
  if (!check_request(call)) return EXIT_USAGE;
  std::string error;
  if (!Agent_Configuration::load(call.configuration, error)) {
    call.fail_all(error);
    return EXIT_USAGE;
  }
  if (connect(call)) run_function(call);
  return answers.failed() ? EXIT_SOME_FAILED : EXIT_ALL_GOOD;
}

}  // namespace

int run(const std::vector<std::string>& arguments, Stop_Source& stop) {
  Command_Line command;
  std::string error;
  if (!parse_command_line(arguments, command, error)) {
    report_failure(error);
    return EXIT_USAGE;
  }
  if (command.show != Command_Line::Show::nothing) {
    show_version(command.show);
    return EXIT_ALL_GOOD;
  }
  Answer_File answers;
  if (!answers.open(command.output, error)) {
    report_failure(error);
    return EXIT_USAGE;
  }
  return serve(command, answers, stop);
}

}  // namespace hdbbackint
