#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "hdbbackint/protocol/function.h"

namespace hdbbackint {

enum Exit_Code { EXIT_ALL_GOOD = 0, EXIT_SOME_FAILED = 1, EXIT_USAGE = 2 };

struct Command_Line {
  enum class Show { nothing, version, details };
  Show show = Show::nothing;
  Function function = Function::none;
  std::string user;
  std::string parameter_file;
  std::string input;                     ///< documented path; empty: standard input
  std::string output;                    ///< documented path; empty: standard output
  std::uint64_t database_backup_id = 0;  ///< 0: not given
  std::uint64_t object_count = 0;        ///< of the whole backup, over all processes; 0: not given
  std::string level;
};

/// Reads the arguments behind the program's name, in any order. False with one line in `error`.
[[nodiscard]] bool parse_command_line(const std::vector<std::string>& arguments, Command_Line& command,
                                      std::string& error);

}  // namespace hdbbackint
