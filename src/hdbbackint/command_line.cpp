#include "hdbbackint/command_line.h"

#include <algorithm>
#include <string_view>

#include "scrt/numbers.h"

namespace hdbbackint {

namespace {

std::string lower_case(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
  return text;
}

bool read_function(const std::string& value, Function& function) {
  const std::string name = lower_case(value);
  if (name == "backup") function = Function::backup;
  if (name == "restore") function = Function::restore;
  if (name == "inquire") function = Function::inquire;
  if (name == "delete") function = Function::remove;
  return function != Function::none;
}

/// Takes one option that has a value; false with a line in `error`.
bool read_option(char option, const std::string& value, Command_Line& command, std::string& error) {
  switch (option) {
    case 'f':
      if (read_function(value, command.function)) return true;
      error = "-f " + value + " is unknown: use backup, restore, inquire or delete";
      return false;
    case 'u':
      command.user = value;
      return true;
    case 'p':
      command.parameter_file = value;
      return true;
    case 'i':
      command.input = value == "-" ? std::string() : value;
      return true;
    case 'o':
      command.output = value == "-" ? std::string() : value;
      return true;
    case 's':
      if (parse_uint64(value, command.database_backup_id)) return true;
      error = "-s " + value + " is not a backup id: it must be a number";
      return false;
    case 'c':
      if (parse_uint64(value, command.object_count)) return true;
      error = "-c " + value + " is not a number of objects";
      return false;
    case 'l':
      command.level = value;
      return true;
    case 't':
      return true;
    default:
      error = std::string("unknown option -") + option;
      return false;
  }
}

}  // namespace

bool parse_command_line(const std::vector<std::string>& arguments, Command_Line& command, std::string& error) {
  constexpr std::string_view with_value = "fupiosclt";
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string& argument = arguments[i];
    if (argument == "-v" || argument == "-V") {
      command.show = argument == "-v" ? Command_Line::Show::version : Command_Line::Show::details;
      continue;
    }
    const bool known =
        argument.size() == 2 && argument[0] == '-' && with_value.find(argument[1]) != std::string_view::npos;
    if (!known) {
      error = "unknown option '" + argument + "'";
      return false;
    }
    if (i + 1 == arguments.size()) {
      error = "option " + argument + " needs a value";
      return false;
    }
    if (!read_option(argument[1], arguments[++i], command, error)) return false;
  }
  if (command.show == Command_Line::Show::nothing && command.function == Function::none) {
    error = "option -f is missing: use -f backup, restore, inquire or delete";
    return false;
  }
  return true;
}

}  // namespace hdbbackint
