#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace dorsal3 {

/// "0 B", "999 B", "1.5 KiB", "200 MiB": three digits at most, one decimal below 100.
[[nodiscard]] std::string format_bytes(std::uint64_t bytes);
/// format_bytes with "/s".
[[nodiscard]] std::string format_speed(std::uint64_t bytes_per_second);
/// "0:05", "12:40", "3:05:00".
[[nodiscard]] std::string format_span(std::chrono::seconds span);
/// "2.5x"; "-" when nothing was stored.
[[nodiscard]] std::string format_ratio(std::uint64_t source_bytes, std::uint64_t stored_bytes);
/// When a backup ended, for people. Its begin is recorded as the second behind that in which HANA began, so that the
/// recorded end of a backup shorter than that lies before it: such a one ends when it begins.
[[nodiscard]] std::string end_of_backup(const std::string& begin, const std::string& end);
/// Text from another program on one line: control characters become '?', so that no terminal is steered by it.
[[nodiscard]] std::string one_line(const std::string& text);

/// Rows under a heading, columns as wide as their widest cell, two blanks apart; no blanks at line ends.
class Text_Table {
 public:
  explicit Text_Table(std::vector<std::string> heading) { rows_.push_back(std::move(heading)); }
  void add(std::vector<std::string> row) { rows_.push_back(std::move(row)); }
  /// Each line with `indent` before it.
  [[nodiscard]] std::string text(const std::string& indent = "") const;

 private:
  std::vector<std::vector<std::string>> rows_;
};

}  // namespace dorsal3
