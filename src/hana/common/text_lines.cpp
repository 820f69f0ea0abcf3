#include "hana/common/text_lines.h"

#include <algorithm>

#include "platform/log.h"

namespace sap_hana {

namespace {

constexpr std::string_view blanks = " \t\r\n";
constexpr unsigned char first_printable = 0x20;
constexpr unsigned char delete_character = 0x7f;

bool is_control(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return byte < first_printable || byte == delete_character;
}

}  // namespace

std::string_view take_line(std::string_view& text) {
  const std::size_t end = text.find('\n');
  std::string_view line = text.substr(0, end);
  text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  if (line.ends_with('\r')) line.remove_suffix(1);
  return line;
}

std::string_view trimmed(std::string_view text) {
  const std::size_t first = text.find_first_not_of(blanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

bool is_blank(std::string_view line) { return line.find_first_not_of(blanks) == std::string_view::npos; }

std::string_view last_line(std::string_view text) {
  text = trimmed(text);
  const std::size_t end = text.rfind('\n');
  return trimmed(end == std::string_view::npos ? text : text.substr(end + 1));
}

std::string printable(std::string_view text, std::size_t limit) {
  std::string result = platform::cut_for_log(text, limit);
  std::replace_if(result.begin(), result.end(), is_control, '?');
  return result;
}

bool has_control_characters(std::string_view text) { return std::any_of(text.begin(), text.end(), is_control); }

}  // namespace sap_hana
