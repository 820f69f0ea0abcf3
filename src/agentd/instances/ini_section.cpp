#include "agentd/instances/ini_section.h"

#include <sstream>

namespace agentd {

namespace {

std::string trimmed(const std::string& text) {
  constexpr const char* blanks = " \t\r";
  const std::size_t begin = text.find_first_not_of(blanks);
  if (begin == std::string::npos) return {};
  return text.substr(begin, text.find_last_not_of(blanks) - begin + 1);
}

}  // namespace

std::map<std::string, std::string> read_ini_section(const std::string& text, const std::string& section) {
  std::map<std::string, std::string> values;
  bool inside = false;
  std::stringstream lines(text);
  for (std::string raw; std::getline(lines, raw);) {
    const std::string line = trimmed(raw);
    if (line.empty() || line.front() == '#' || line.front() == ';') continue;
    if (line.front() == '[') {
      const std::size_t close = line.find(']');
      inside = close != std::string::npos && trimmed(line.substr(1, close - 1)) == section;
      continue;
    }
    const std::size_t equals = line.find('=');
    if (inside && equals != std::string::npos)
      values[trimmed(line.substr(0, equals))] = trimmed(line.substr(equals + 1));
  }
  return values;
}

}  // namespace agentd
