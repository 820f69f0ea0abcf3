#pragma once

#include <map>
#include <string>

namespace agentd {

/// The "key = value" lines of one section of a configuration file of the database system; `section` is its name without
/// brackets. Lines that are none are passed over; a key set twice has its last value.
[[nodiscard]] std::map<std::string, std::string> read_ini_section(const std::string& text, const std::string& section);

}  // namespace agentd
