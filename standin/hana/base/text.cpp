#include "base/text.h"

#include <algorithm>
#include <cctype>
#include <charconv>

namespace standin {

namespace {
char upper_char(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }
char lower_char(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }
bool is_space(char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; }
}  // namespace

std::string upper(std::string_view text) {
  std::string result(text);
  std::transform(result.begin(), result.end(), result.begin(), upper_char);
  return result;
}

std::string lower(std::string_view text) {
  std::string result(text);
  std::transform(result.begin(), result.end(), result.begin(), lower_char);
  return result;
}

std::string_view trim(std::string_view text) {
  while (!text.empty() && is_space(text.front())) text.remove_prefix(1);
  while (!text.empty() && is_space(text.back())) text.remove_suffix(1);
  return text;
}

std::vector<std::string> split(std::string_view text, char separator) {
  std::vector<std::string> parts;
  std::size_t start = 0;
  for (;;) {
    const std::size_t end = text.find(separator, start);
    parts.emplace_back(text.substr(start, end - start));
    if (end == std::string_view::npos) return parts;
    start = end + 1;
  }
}

std::string join(const std::vector<std::string>& parts, std::string_view separator) {
  std::string text;
  for (std::size_t i = 0; i < parts.size(); ++i) {
    if (i != 0) text += separator;
    text += parts[i];
  }
  return text;
}

std::string replace_all(std::string text, std::string_view from, std::string_view to) {
  for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size())
    text.replace(at, from.size(), to);
  return text;
}

bool contains_without_case(std::string_view text, std::string_view part) {
  return upper(text).find(upper(part)) != std::string::npos;
}

std::optional<std::int64_t> parse_number(std::string_view text) {
  std::int64_t value = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value);
  if (error != std::errc() || stop != end) return std::nullopt;
  return value;
}

std::string hex(const void* data, std::size_t size) {
  constexpr char digits[] = "0123456789abcdef";
  const auto* bytes = static_cast<const unsigned char*>(data);
  std::string text;
  for (std::size_t i = 0; i < size; ++i) {
    text += digits[bytes[i] >> 4];
    text += digits[bytes[i] & 0xf];
  }
  return text;
}

std::string path_part(std::string_view name) {
  std::string text;
  for (const char c : name) {
    const bool plain = std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_' || c == '-';
    if (plain || (c == '.' && !text.empty())) {
      text += c;
    } else {
      text += '%';
      text += upper(hex(&c, 1));
    }
  }
  return text;
}

bool version_below(std::string_view left, std::string_view right) {
  const auto a = split(left, '.');
  const auto b = split(right, '.');
  for (std::size_t i = 0; i < std::max(a.size(), b.size()); ++i) {
    const std::int64_t x = i < a.size() ? parse_number(a[i]).value_or(0) : 0;
    const std::int64_t y = i < b.size() ? parse_number(b[i]).value_or(0) : 0;
    if (x != y) return x < y;
  }
  return false;
}

}  // namespace standin
