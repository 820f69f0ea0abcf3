#pragma once

#include <cstddef>

// Flags of http_encode_string_i: the first two and the sixth change how a byte is written, each other lets one
// character stand as it is.
constexpr unsigned http_encode_slash = 0x1;
constexpr unsigned http_encode_blank_as_plus = 0x2;
constexpr unsigned http_encode_upper_case = 0x4;

namespace http_encode_detail {

/// The flag that lets `c` stand as it is, 0 when there is none.
[[nodiscard]] unsigned keeping_flag(char c);
[[nodiscard]] bool is_unreserved(char c);

}  // namespace http_encode_detail

/// Percent-encodes a null-ended string into `out`. False, writing nothing, for a null or empty string.
template <typename Output>
bool http_encode_string_i(const char* text, unsigned flags, Output out) {
  if (text == nullptr || *text == '\0') return false;
  const char* const digits = (flags & http_encode_upper_case) != 0 ? "0123456789ABCDEF" : "0123456789abcdef";
  for (; *text != '\0'; ++text) {
    const char c = *text;
    const bool plain = http_encode_detail::is_unreserved(c) || (c == '/' && (flags & http_encode_slash) == 0) ||
                       (flags & http_encode_detail::keeping_flag(c)) != 0;
    if (plain) {
      *out++ = c;
    } else if (c == ' ' && (flags & http_encode_blank_as_plus) != 0) {
      *out++ = '+';
    } else {
      const auto byte = static_cast<unsigned char>(c);
      *out++ = '%';
      *out++ = digits[byte >> 4];
      *out++ = digits[byte & 15U];
    }
  }
  return true;
}
