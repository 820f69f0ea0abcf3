#pragma once

#include <string>
#include <string_view>

namespace hdbbackint {

/// The value of `key` in a tool option "key=value;key=value;"; empty when it is not there. Blanks around keys and
/// values do not count.
[[nodiscard]] std::string tool_option_value(std::string_view option, std::string_view key);

}  // namespace hdbbackint
