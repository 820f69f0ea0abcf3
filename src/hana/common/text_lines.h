#pragma once

#include <string>
#include <string_view>

// Lines of tool output.

namespace sap_hana {

/// Takes the first line off `text`, without its end ("\n" or "\r\n").
[[nodiscard]] std::string_view take_line(std::string_view& text);
/// The last line that is not blank; empty without one.
[[nodiscard]] std::string_view last_line(std::string_view text);
[[nodiscard]] bool is_blank(std::string_view line);
/// Without blanks, tabs and line ends at both sides.
[[nodiscard]] std::string_view trimmed(std::string_view text);
/// Text of another process for a log line: control characters as '?', cut at `limit` bytes.
[[nodiscard]] std::string printable(std::string_view text, std::size_t limit);
/// True when it holds a byte below blank, or DEL.
[[nodiscard]] bool has_control_characters(std::string_view text);

}  // namespace sap_hana
