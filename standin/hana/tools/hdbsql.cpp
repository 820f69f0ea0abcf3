#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iostream>

#include "base/text.h"
#include "tools/hdbsql_session.h"

namespace {

using namespace standin;

constexpr const char* version_text =
    "HDBSQL version 2.20.20.1712178305, the SAP HANA Database interactive terminal.\n"
    "Copyright 2000-2024 by SAP SE.\n";
constexpr const char* welcome_text =
    "\nWelcome to the SAP HANA Database interactive terminal.\n                       "
    "                    \nType:  \\h for help with commands          \n       \\q to quit"
    "                         \n\n";

/// Statements of an input file, parted outside quotes and comments, which are left out; one that begins with a
/// backslash is a command.
std::vector<std::string> statements_of(const std::string& text, char separator) {
  std::vector<std::string> statements(1);
  char open = '\0';
  for (std::size_t at = 0; at < text.size(); ++at) {
    const char c = text[at];
    if (open == '\0' && text.compare(at, 2, "--") == 0) {
      at = std::min(text.find('\n', at), text.size());
      statements.back() += '\n';
      continue;
    }
    if (open == '\0' && c == separator) {
      statements.emplace_back();
      continue;
    }
    if (open == '\0' && (c == '\'' || c == '"'))
      open = c;
    else if (c == open)
      open = '\0';
    statements.back() += c;
  }
  return statements;
}

int code_of(const Hdbsql_Options& options, const Hdbsql_Session& session) {
  if (session.exit_zero()) return 0;
  if (const auto wanted = parse_number(options.error_exit)) return static_cast<int>(*wanted);
  return session.last_code() & 0xff;
}

int run_file(Hdbsql_Options& options, Hdbsql_Session& session) {
  auto text = read_file(options.input_file);
  if (!text) {
    const int error = errno;
    std::fprintf(stderr, "Cannot open file %s: %s\n", options.input_file.c_str(), std::strerror(error));
    return error;
  }
  // "&1" must not be taken out of "&10".
  for (std::size_t i = options.variables.size(); i != 0; --i)
    text = replace_all(*text, "&" + std::to_string(i), options.variables[i - 1]);
  if (options.connect.given && !session.connect(options.connect, false)) return code_of(options, session);
  const char separator = options.statement_separator.empty() ? ';' : options.statement_separator[0];
  for (const std::string& statement : statements_of(*text, separator)) {
    if (!session.run(statement) && !options.error_exit.empty()) return code_of(options, session);
    if (session.wants_quit()) break;
  }
  return 0;
}

int run_standard_input(const Hdbsql_Options& options, Hdbsql_Session& session) {
  int result = 0;
  std::string statement;
  for (std::string line; std::getline(std::cin, line) && !session.wants_quit();) {
    const bool joined = line.ends_with('\\');
    if (joined) line.pop_back();
    statement += line;
    const bool complete = !options.multi_line || line.starts_with('\\') || trim(line).ends_with(';');
    if (joined || !complete) {
      if (!joined) statement += '\n';
      continue;
    }
    const bool good = session.run(statement);
    statement.clear();
    if (good) continue;
    if (result == 0) result = code_of(options, session);
    if (!options.error_exit.empty()) return result;
  }
  if (!session.wants_quit() && !session.run(statement) && result == 0) result = code_of(options, session);
  return session.exit_zero() ? 0 : result;
}

}  // namespace

int main(int count, char** values) {
  Hdbsql_Options options;
  std::string error;
  if (!read_options(count, values, options, error)) {
    std::fprintf(stderr, "%s\n", error.c_str());
    return 2;
  }
  if (options.version || options.help) {
    std::fputs(options.version ? version_text : "Usage: hdbsql [options] [command]\n", stdout);
    return 0;
  }
  const auto layout = own_layout();
  if (!layout) {
    std::fprintf(stderr, "hdbsql lies in no installation\n");
    return 1;
  }
  std::FILE* out = stdout;
  if (!options.output_file.empty()) {
    out = std::fopen(options.output_file.c_str(), options.append ? "ae" : "we");
    if (out == nullptr) {
      std::fprintf(stderr, "Cannot open file %s: %s\n", options.output_file.c_str(), std::strerror(errno));
      return 1;
    }
  }
  if (!options.input_file.empty()) options.no_remarks = true;
  Hdbsql_Session session(*layout, options, out);
  int result = 0;
  if (!options.input_file.empty()) {
    result = run_file(options, session);
  } else if (!options.command.empty()) {
    if (!session.run(options.command)) result = code_of(options, session);
  } else {
    if (!options.quiet) std::fputs(welcome_text, out);
    if (options.connect.given && !session.connect(options.connect, false))
      result = code_of(options, session);
    else
      result = run_standard_input(options, session);
  }
  std::fflush(out);
  return result;
}
