#pragma once

#include <cstddef>
#include <string>

#include "platform/secure_string.h"

namespace dorsal3 {

/// What the command may assume of the place it runs in.
struct Terminal {
  bool output_is_terminal = false;
  bool input_is_terminal = false;
  std::size_t width = 80;

  [[nodiscard]] static Terminal detect();
};

/// Reads one line from standard input as a secret: on a terminal after `prompt` (written to standard error) and without
/// echo. False when nothing could be read. The line end is not part of the secret.
[[nodiscard]] bool read_secret(const Terminal& terminal, const std::string& prompt, secure_string& secret);

/// Reads one line from standard input. False at its end and when SIGINT or SIGTERM came meanwhile.
[[nodiscard]] bool read_line(std::string& line);

/// From here on SIGINT and SIGTERM only set a flag.
void watch_interruptions();
/// SIGINT has come since it was last forgotten, or SIGTERM ever.
[[nodiscard]] bool interrupted();
/// SIGTERM has come: nobody is there to be asked.
[[nodiscard]] bool terminated();
/// The SIGINT that came has been dealt with.
void forget_interruption();

}  // namespace dorsal3
