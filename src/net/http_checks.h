#pragma once

#include <string_view>

#include "net/http_message.h"

namespace net {

/// Nothing in these texts can end a line of a message's head and begin another one.
[[nodiscard]] bool is_field_name(std::string_view text);
[[nodiscard]] bool is_field_value(std::string_view text);
/// A method is a field name of letters; a target has no blank and begins with '/'.
[[nodiscard]] bool is_method(std::string_view text);
[[nodiscard]] bool is_target(std::string_view text);
[[nodiscard]] bool are_fields(const Http_Headers& headers);

}  // namespace net
