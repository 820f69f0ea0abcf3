#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

/// The number at the start of `text` (an optional sign, then digits), saturating at the limits of int; 0 without
/// digits. `text` needs no terminator.
[[nodiscard]] int natoi(const char* text, std::size_t length);

/// A whole decimal number and nothing else. False, with `value` left alone, for anything else or an overflow.
[[nodiscard]] bool parse_uint64(std::string_view text, std::uint64_t& value);
