#pragma once

#include <string>
#include <vector>

namespace standin {

struct Connect_Options {
  std::string host, port, instance, database, user, password, key;
  bool given = false;
};

struct Hdbsql_Options {
  Connect_Options connect;
  std::string command, input_file, output_file;
  std::vector<std::string> variables;
  std::string separator = ",", null_text = "?", statement_separator = ";";
  std::string error_exit;  ///< of -E
  bool append = false, no_header = false, no_remarks = false, no_escape = false, aligned = false, quiet = false;
  bool autocommit = true, multi_line = false;
  bool help = false, version = false;
};

/// False with a message when an option is not known or lacks its value.
bool read_options(int count, char** values, Hdbsql_Options& options, std::string& error);
/// The words after "\c"; names outside double quotes are in upper case already.
bool read_connect(const std::string& text, Connect_Options& connect);
/// A user's name as SQL reads it: in upper case unless it stands in double quotes.
std::string sql_name(const std::string& name);

}  // namespace standin
