#pragma once

#include <iosfwd>

namespace backupd {

/// Runs the command line and returns the exit status: 0 done, 1 failed, 2 the configuration cannot be used, and CLI11's
/// own for a command line that cannot be read. Answers go to `out`, refusals to `errors`.
int run_command_line(int argc, const char* const* argv, std::ostream& out, std::ostream& errors);

}  // namespace backupd
