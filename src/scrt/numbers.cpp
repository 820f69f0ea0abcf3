#include "scrt/numbers.h"

#include <algorithm>
#include <charconv>
#include <limits>

int natoi(const char* text, std::size_t length) {
  std::size_t at = 0;
  bool negative = false;
  if (length != 0 && (text[0] == '-' || text[0] == '+')) {
    negative = text[0] == '-';
    at = 1;
  }
  constexpr std::int64_t bound = static_cast<std::int64_t>(std::numeric_limits<int>::max()) + 1;
  std::int64_t value = 0;
  for (; at < length && text[at] >= '0' && text[at] <= '9'; ++at)
    value = std::min<std::int64_t>(value * 10 + (text[at] - '0'), bound);
  if (negative) return static_cast<int>(-value);
  return static_cast<int>(std::min<std::int64_t>(value, bound - 1));
}

bool parse_uint64(std::string_view text, std::uint64_t& value) {
  std::uint64_t parsed = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), parsed);
  if (text.empty() || error != std::errc() || end != text.data() + text.size()) return false;
  value = parsed;
  return true;
}
