#include "hdbbackint/protocol/tool_option.h"

namespace hdbbackint {

namespace {

std::string_view trimmed(std::string_view text) {
  const std::size_t first = text.find_first_not_of(" \t");
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

}  // namespace

std::string tool_option_value(std::string_view option, std::string_view key) {
  while (!option.empty()) {
    const std::size_t end = std::min(option.find(';'), option.size());
    const std::string_view pair = option.substr(0, end);
    const std::size_t equals = pair.find('=');
    if (equals != std::string_view::npos && trimmed(pair.substr(0, equals)) == key) {
      return std::string(trimmed(pair.substr(equals + 1)));
    }
    option.remove_prefix(std::min(end + 1, option.size()));
  }
  return {};
}

}  // namespace hdbbackint
