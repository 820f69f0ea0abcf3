#pragma once

#include "dorsal3/verb.h"

namespace dorsal3 {

/// What somebody who pressed Ctrl-C while a backup is watched wants.
enum class Interruption_Wish { stop, leave, go_on };

/// Asks on the terminal what to do with the running backup. Without a person at a terminal, with JSON output, after
/// SIGTERM, at the end of the input and at a second Ctrl-C: `leave`. The first Ctrl-C is forgotten when the answer is
/// another one.
[[nodiscard]] Interruption_Wish ask_about_interruption(Context& context);

}  // namespace dorsal3
