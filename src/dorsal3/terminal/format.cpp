#include "dorsal3/terminal/format.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace dorsal3 {

namespace {

constexpr double unit_step = 1024.0;
constexpr std::array<const char*, 7> unit_names = {"B", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
// From here on a decimal would be a fourth digit.
constexpr double no_decimal_from = 99.95;
// Rounded to whole numbers this would read "1024": the next unit is due.
constexpr double next_unit_from = 1023.5;
constexpr long seconds_per_minute = 60;
constexpr long seconds_per_hour = 3600;
constexpr std::size_t number_text_bytes = 64;
constexpr std::size_t column_gap = 2;

/// Characters of UTF-8 text, as a terminal counts them for Latin scripts.
std::size_t display_width(const std::string& text) {
  return static_cast<std::size_t>(
      std::count_if(text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0U) != 0x80U; }));
}

}  // namespace

std::string format_bytes(std::uint64_t bytes) {
  auto value = static_cast<double>(bytes);
  std::size_t unit = 0;
  while (value >= next_unit_from && unit + 1 < unit_names.size()) {
    value /= unit_step;
    ++unit;
  }
  std::array<char, number_text_bytes> text{};
  const bool decimal = unit > 0 && value < no_decimal_from;
  std::snprintf(text.data(), text.size(), decimal ? "%.1f %s" : "%.0f %s", value, unit_names.at(unit));
  return text.data();
}

std::string format_speed(std::uint64_t bytes_per_second) { return format_bytes(bytes_per_second) + "/s"; }

std::string format_span(std::chrono::seconds span) {
  const long total = std::max<long>(0, static_cast<long>(span.count()));
  const long hours = total / seconds_per_hour;
  const long minutes = total % seconds_per_hour / seconds_per_minute;
  const long seconds = total % seconds_per_minute;
  std::array<char, number_text_bytes> text{};
  if (hours > 0)
    std::snprintf(text.data(), text.size(), "%ld:%02ld:%02ld", hours, minutes, seconds);
  else
    std::snprintf(text.data(), text.size(), "%ld:%02ld", minutes, seconds);
  return text.data();
}

std::string format_ratio(std::uint64_t source_bytes, std::uint64_t stored_bytes) {
  if (stored_bytes == 0) return "-";
  std::array<char, number_text_bytes> text{};
  std::snprintf(text.data(), text.size(), "%.1fx",
                static_cast<double>(source_bytes) / static_cast<double>(stored_bytes));
  return text.data();
}

std::string end_of_backup(const std::string& begin, const std::string& end) {
  // Times of one form and zone: as texts they come in their order.
  return end.empty() || begin.size() != end.size() ? end : std::max(begin, end);
}

std::string one_line(const std::string& text) {
  std::string clean = text;
  while (!clean.empty() && (clean.back() == '\n' || clean.back() == '\r')) clean.pop_back();
  for (char& c : clean) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x20 || byte == 0x7F) c = '?';
  }
  return clean;
}

std::string Text_Table::text(const std::string& indent) const {
  std::vector<std::size_t> widths;
  for (const auto& row : rows_) {
    widths.resize(std::max(widths.size(), row.size()), 0);
    for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], display_width(row[i]));
  }
  std::string text;
  for (const auto& row : rows_) {
    std::string line = indent;
    for (std::size_t i = 0; i < row.size(); ++i) {
      line += row[i];
      if (i + 1 < row.size()) line.append(widths[i] - display_width(row[i]) + column_gap, ' ');
    }
    const std::size_t end = line.find_last_not_of(' ');
    line.resize(end == std::string::npos ? 0 : end + 1);
    text += line + "\n";
  }
  return text;
}

}  // namespace dorsal3
