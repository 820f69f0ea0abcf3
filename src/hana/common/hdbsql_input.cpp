#include "hana/common/hdbsql_input.h"

#include <algorithm>
#include <cstdio>

#include "hana/common/text_lines.h"

namespace sap_hana {

namespace {

bool is_digit(char c) { return c >= '0' && c <= '9'; }
bool is_capital(char c) { return c >= 'A' && c <= 'Z'; }
bool is_plain(char c) { return is_digit(c) || is_capital(c) || (c >= 'a' && c <= 'z') || c == '_'; }

/// In hdbsql's line mode a line is a statement, and a backslash at its end joins it with the next. So every line end
/// inside the statement gets one: what follows a line end is never a statement or a command of its own. Outside quotes
/// a blank parts the words whatever the join puts between them.
void append_joined(std::string_view sql, secure_string& input) {
  char open = '\0';
  std::size_t start = 0;
  for (std::size_t at = 0; at < sql.size(); ++at) {
    const char c = sql[at];
    if (open == '\0' && (c == '\'' || c == '"'))
      open = c;
    else if (c == open)
      open = '\0';
    if (c != '\n' && c != '\r') continue;
    input.append(sql.substr(start, at - start));
    if (c == '\r' && at + 1 < sql.size() && sql[at + 1] == '\n') ++at;
    input.append(open == '\0' ? " \\\n" : "\\\n");
    start = at + 1;
  }
  input.append(sql.substr(start));
  // A backslash that ends the statement must not join it with what follows.
  if (sql.ends_with('\\')) input.push_back(' ');
}

}  // namespace

void append_quoted(std::string_view value, secure_string& input) {
  const bool plain = !value.empty() && std::all_of(value.begin(), value.end(), is_plain);
  if (plain) {
    input.append(value);
    return;
  }
  input.push_back('"');
  for (const char c : value) {
    if (c == '"') input.push_back('"');
    input.push_back(c);
  }
  input.push_back('"');
}

void append_name(std::string_view name, secure_string& input) {
  const bool quoted = name.size() > 2 && name.front() == '"' && name.back() == '"' &&
                      name.substr(1, name.size() - 2).find('"') == std::string_view::npos;
  if (quoted)
    input.append(name);
  else
    append_quoted(name, input);
}

bool make_hdbsql_input(const HDBSQL_Logon& logon, std::string_view sql, secure_string& input) {
  while (sql.ends_with('\n') || sql.ends_with('\r')) sql.remove_suffix(1);
  if (is_blank(sql) || sql.find('\0') != std::string_view::npos) return false;
  char number[sizeof "65535"];
  std::snprintf(number, sizeof number, "%02u", static_cast<unsigned>(logon.instance_number));
  input.clear();
  input.append("\\c -i ");
  input.append(number);
  if (!logon.database.empty()) {
    input.append(" -d ");
    append_name(logon.database, input);
  }
  input.append(" -u ");
  append_name(logon.username, input);
  input.append(" -p ");
  append_quoted(logon.password, input);
  input.append("\n");
  append_joined(sql, input);
  input.append("\n\\q\n");
  return true;
}

std::string sql_identifier(std::string_view name) {
  const auto plain = [](char c) { return is_capital(c) || is_digit(c) || c == '_'; };
  if (!name.empty() && !is_digit(name.front()) && std::all_of(name.begin(), name.end(), plain))
    return std::string(name);
  std::string quoted(1, '"');
  for (const char c : name) {
    if (c == '"') quoted += '"';
    quoted += c;
  }
  return quoted + '"';
}

std::string sql_literal(std::string_view text) {
  std::string quoted(1, '\'');
  for (const char c : text) {
    if (c == '\'') quoted += '\'';
    quoted += c;
  }
  return quoted + '\'';
}

}  // namespace sap_hana
