#include "hdbbackint/protocol/request.h"

#include <array>

#include "hdbbackint/protocol/line_tokens.h"
#include "scrt/numbers.h"

namespace hdbbackint {

namespace {

constexpr std::string_view interface_prefix = "backint ";
using Tokens = std::vector<std::string>;

/// The text at `index`, empty when the line is shorter.
std::string token_at(const Tokens& tokens, std::size_t index) {
  return index < tokens.size() ? tokens[index] : std::string();
}

/// Each reads the parameters behind its keyword; null, or what is missing.
using Reader = const char* (*)(const Tokens& tokens, Request& request);

const char* read_software_id(const Tokens& tokens, Request& request) {
  const std::string interface = token_at(tokens, 1);
  if (!interface.starts_with(interface_prefix)) return "the interface version is missing";
  request.caller_interface = interface.substr(interface_prefix.size());
  request.caller = token_at(tokens, 2);
  return nullptr;
}

const char* read_tool_option(const Tokens& tokens, Request& request) {
  request.tool_option = token_at(tokens, 1);
  return nullptr;
}

const char* read_saved_object(const Tokens& tokens, Request& request, Request_Entry::Kind kind) {
  Request_Entry entry;
  entry.kind = kind;
  entry.name = token_at(tokens, 1);
  if (entry.name.empty()) return "the name is missing";
  std::uint64_t size = 0;
  if (parse_uint64(token_at(tokens, 2), size)) entry.size_hint = size;
  request.entries.push_back(std::move(entry));
  return nullptr;
}

const char* read_pipe(const Tokens& tokens, Request& request) {
  return read_saved_object(tokens, request, Request_Entry::Kind::pipe);
}
const char* read_file(const Tokens& tokens, Request& request) {
  return read_saved_object(tokens, request, Request_Entry::Kind::file);
}

const char* read_newest_to_restore(const Tokens& tokens, Request& request) {
  Request_Entry entry{Request_Entry::Kind::newest, token_at(tokens, 1), {}, token_at(tokens, 2), {}};
  if (entry.name.empty()) return "the name is missing";
  request.entries.push_back(std::move(entry));
  return nullptr;
}

const char* read_version_to_restore(const Tokens& tokens, Request& request) {
  Request_Entry entry{Request_Entry::Kind::version, token_at(tokens, 2), token_at(tokens, 1), token_at(tokens, 3), {}};
  if (entry.ebid.empty()) return "the external backup id is missing";
  if (entry.name.empty()) return "the name is missing";
  request.entries.push_back(std::move(entry));
  return nullptr;
}

const char* read_newest_to_inquire(const Tokens& tokens, Request& request) {
  request.entries.push_back({Request_Entry::Kind::newest, token_at(tokens, 1), {}, {}, {}});
  return nullptr;
}

const char* read_version_to_inquire(const Tokens& tokens, Request& request) {
  Request_Entry entry{Request_Entry::Kind::version, token_at(tokens, 2), token_at(tokens, 1), {}, {}};
  if (entry.ebid.empty()) return "the external backup id is missing";
  request.entries.push_back(std::move(entry));
  return nullptr;
}

const char* read_version_to_delete(const Tokens& tokens, Request& request) {
  Request_Entry entry{Request_Entry::Kind::version, token_at(tokens, 2), token_at(tokens, 1), {}, {}};
  if (entry.ebid.empty()) return "the external backup id is missing";
  if (entry.name.empty()) return "the name is missing";
  request.entries.push_back(std::move(entry));
  return nullptr;
}

struct Keyword {
  std::string_view word;
  Function function;  ///< none: in every function
  Reader reader;
};

constexpr std::array<Keyword, 9> keywords{{
    {"#SOFTWAREID", Function::none, read_software_id},
    {"#TOOLOPTION", Function::none, read_tool_option},
    {"#PIPE", Function::backup, read_pipe},
    {"#FILE", Function::backup, read_file},
    {"#NULL", Function::restore, read_newest_to_restore},
    {"#EBID", Function::restore, read_version_to_restore},
    {"#NULL", Function::inquire, read_newest_to_inquire},
    {"#EBID", Function::inquire, read_version_to_inquire},
    {"#EBID", Function::remove, read_version_to_delete},
}};

const Keyword* find_keyword(std::string_view line, Function function) {
  const std::string_view word = line.substr(0, line.find_first_of(" \t"));
  for (const Keyword& keyword : keywords) {
    const bool fits = keyword.function == Function::none || keyword.function == function;
    if (fits && keyword.word == word) return &keyword;
  }
  return nullptr;
}

void read_line(std::string_view line, Function function, std::size_t number, Request& request) {
  const Keyword* keyword = find_keyword(line, function);
  if (keyword == nullptr) return;
  Tokens tokens;
  const char* problem = "a quote is not closed or text follows it";
  if (split_line(line, tokens)) problem = keyword->reader(tokens, request);
  if (problem == nullptr) return;
  request.malformed.push_back("line " + std::to_string(number) + ": " + std::string(keyword->word) + ": " + problem);
}

}  // namespace

Request parse_request(std::string_view text, Function function) {
  Request request;
  for (std::size_t number = 1; !text.empty(); ++number) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    std::string_view line = text.substr(0, end);
    if (line.ends_with('\r')) line.remove_suffix(1);
    read_line(line, function, number, request);
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return request;
}

}  // namespace hdbbackint
