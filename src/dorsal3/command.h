#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "dorsal3/terminal/terminal.h"

namespace dorsal3 {

/// Runs one command line. The result goes to `out`, as text or JSON; notes and, in text form, errors go to `error`.
/// Returns the exit code of the process.
int run_command(const std::vector<std::string>& arguments, const Terminal& terminal, const std::string& home,
                std::ostream& out, std::ostream& error);

}  // namespace dorsal3
