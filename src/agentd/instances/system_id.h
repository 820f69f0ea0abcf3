#pragma once

#include <string>

namespace agentd {

/// Whether `sid` can be the id of a system, so that it may become a part of a path.
[[nodiscard]] bool is_sid(const std::string& sid);

}  // namespace agentd
