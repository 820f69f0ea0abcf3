#pragma once

#include <string>
#include <string_view>

namespace hdbbackint {

/// The version to answer with: the highest one known here that is not above the caller's. A caller that states none is
/// taken for the oldest.
[[nodiscard]] std::string answered_interface(std::string_view caller_interface);

/// Answers of inquire carry the time of the backup for callers of 1.50 and above.
[[nodiscard]] bool wants_timestamps(std::string_view caller_interface);

}  // namespace hdbbackint
