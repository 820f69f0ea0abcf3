#pragma once

#include <string>

#include "dorsal3/outcome.h"
#include "dorsal3/terminal/terminal.h"
#include "platform/secure_string.h"

// The password of a user that is to be made. Never from the command line or the environment, where others could read
// it.

namespace dorsal3 {

/// The one line of a file that nobody but its owner may open. False with `failure` (configuration) for any other file,
/// or when the line is no password.
[[nodiscard]] bool read_password_file(const std::string& path, secure_string& password, Failure& failure);

/// Asks on the terminal after `prompt`, without echo and twice, so that a slip is noticed; where standard input is no
/// terminal, its next line. False with `failure` (usage) when nothing was given, when the two differ, or when it is no
/// password.
[[nodiscard]] bool ask_new_password(const Terminal& terminal, const std::string& prompt, secure_string& password,
                                    Failure& failure);

}  // namespace dorsal3
