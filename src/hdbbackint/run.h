#pragma once

#include <string>
#include <vector>

#include "hdbbackint/stop_source.h"

namespace hdbbackint {

/// The whole program behind main: `arguments` without the program's name. Returns the exit code. Ends early, with
/// "#ERROR" for what is not done, when `stop` is requested.
[[nodiscard]] int run(const std::vector<std::string>& arguments, Stop_Source& stop);

}  // namespace hdbbackint
