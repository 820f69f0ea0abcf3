#include "hdbbackint/protocol/line_tokens.h"

namespace hdbbackint {

namespace {

constexpr std::string_view blanks = " \t";

bool is_blank(char c) { return blanks.find(c) != std::string_view::npos; }

/// Reads from behind the opening quote; `at` ends behind the closing one.
bool read_quoted(std::string_view line, std::size_t& at, std::string& token) {
  for (; at < line.size(); ++at) {
    if (line[at] == '"') {
      ++at;
      return true;
    }
    const bool escaped_quote = line[at] == '\\' && at + 1 < line.size() && line[at + 1] == '"';
    if (escaped_quote) ++at;
    token += line[at];
  }
  return false;
}

}  // namespace

bool split_line(std::string_view line, std::vector<std::string>& tokens) {
  tokens.clear();
  std::size_t at = 0;
  for (;;) {
    at = line.find_first_not_of(blanks, at);
    if (at == std::string_view::npos) return true;
    std::string token;
    if (line[at] == '"') {
      ++at;
      if (!read_quoted(line, at, token)) return false;
      if (at < line.size() && !is_blank(line[at])) return false;
    } else {
      const std::size_t end = std::min(line.find_first_of(blanks, at), line.size());
      token = line.substr(at, end - at);
      at = end;
    }
    tokens.push_back(std::move(token));
  }
}

std::string quote_parameter(std::string_view text) {
  const bool bare = !text.empty() && text.back() == '\\' && text.front() != '"' &&
                    text.find_first_of(blanks) == std::string_view::npos;
  if (bare) return std::string(text);
  std::string quoted = "\"";
  for (const char c : text) {
    if (c == '"') quoted += '\\';
    quoted += c;
  }
  quoted += '"';
  return quoted;
}

}  // namespace hdbbackint
