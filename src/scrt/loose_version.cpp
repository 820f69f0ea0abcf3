#include "scrt/loose_version.h"

#include <cstddef>

namespace {

/// The digits at the start of a part without leading zeros: longer means larger, equal length compares as text.
std::string_view significant_digits(std::string_view part) {
  std::size_t end = 0;
  while (end < part.size() && part[end] >= '0' && part[end] <= '9') ++end;
  part = part.substr(0, end);
  while (part.size() > 1 && part.front() == '0') part.remove_prefix(1);
  return part == "0" ? std::string_view() : part;
}

std::string_view take_part(std::string_view& version) {
  const std::size_t dot = version.find('.');
  const std::string_view part = version.substr(0, dot);
  version = dot == std::string_view::npos ? std::string_view() : version.substr(dot + 1);
  return part;
}

}  // namespace

int compare_loose_versions(std::string_view left, std::string_view right) {
  while (!left.empty() && !right.empty()) {
    const std::string_view a = significant_digits(take_part(left));
    const std::string_view b = significant_digits(take_part(right));
    if (a.size() != b.size()) return a.size() < b.size() ? -1 : 1;
    if (const int order = a.compare(b); order != 0) return order < 0 ? -1 : 1;
  }
  if (left.empty() == right.empty()) return 0;
  return left.empty() ? -1 : 1;
}
