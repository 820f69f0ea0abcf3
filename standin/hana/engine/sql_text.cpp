#include "engine/sql_text.h"

#include <cctype>

#include "base/text.h"

namespace standin {

namespace {

bool is_space(char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; }
bool is_word(char c) {
  return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_' || c == '#' || c == '$' ||
         static_cast<unsigned char>(c) >= 0x80;
}

/// Reads a quoted text whose quote is doubled inside.
std::string quoted(std::string_view sql, std::size_t& at) {
  const char quote = sql[at++];
  std::string value;
  for (; at < sql.size(); ++at) {
    if (sql[at] == quote) {
      if (at + 1 >= sql.size() || sql[at + 1] != quote) break;
      ++at;
    }
    value += sql[at];
  }
  if (at < sql.size()) ++at;
  return value;
}

}  // namespace

std::vector<Token> tokenize(std::string_view sql) {
  std::vector<Token> tokens;
  std::size_t at = 0;
  while (at < sql.size()) {
    const std::size_t start = at;
    const char c = sql[at];
    if (is_space(c)) {
      ++at;
    } else if (sql.substr(at, 2) == "--") {
      while (at < sql.size() && sql[at] != '\n') ++at;
    } else if (c == '\'' || c == '"') {
      std::string value = quoted(sql, at);
      tokens.push_back({c == '\'' ? Token::text : Token::name, std::move(value), start});
    } else if (is_word(c)) {
      while (at < sql.size() && is_word(sql[at])) ++at;
      const std::string word = upper(sql.substr(start, at - start));
      tokens.push_back({parse_number(word) ? Token::number : Token::word, word, start});
    } else {
      ++at;
      tokens.push_back({Token::symbol, std::string(1, c), start});
    }
  }
  tokens.push_back({Token::end, {}, sql.size()});
  return tokens;
}

std::string upper_outside_quotes(std::string_view sql) {
  std::string text(sql);
  char open = '\0';
  for (std::size_t at = 0; at < text.size(); ++at) {
    char& c = text[at];
    if (open != '\0') {
      if (c == open) open = '\0';
    } else if (text.compare(at, 2, "--") == 0) {
      open = '\n';
    } else if (c == '\'' || c == '"') {
      open = c;
    } else if (c >= 'a' && c <= 'z') {
      c = static_cast<char>(c - 'a' + 'A');
    }
  }
  return text;
}

Sql_Error syntax_error(std::string_view sql, const Token& token) {
  std::size_t line = 1;
  std::size_t column = 1;
  for (const char c : sql.substr(0, token.at)) {
    ++column;
    if (c != '\n') continue;
    ++line;
    column = 1;
  }
  std::string near = token.value;
  if (token.kind != Token::end && token.at < sql.size()) {
    std::size_t size = 1;
    while (token.at + size < sql.size() && is_word(sql[token.at]) && is_word(sql[token.at + size])) ++size;
    near = std::string(sql.substr(token.at, size));
  }
  return {257, "sql syntax error: incorrect syntax near \"" + near + "\": line " + std::to_string(line) + " col " +
                   std::to_string(column) + " (at pos " + std::to_string(token.at + 1) + ")"};
}

bool Token_Reader::accept(std::string_view wanted) {
  const Token& token = peek();
  if ((token.kind != Token::word && token.kind != Token::symbol) || token.value != wanted) return false;
  next();
  return true;
}

bool Token_Reader::accept_words(std::initializer_list<std::string_view> words) {
  const std::size_t start = at_;
  for (const std::string_view word : words)
    if (!accept(word)) {
      at_ = start;
      return false;
    }
  return true;
}

bool Token_Reader::accept_text(std::string& value) {
  if (peek().kind != Token::text) return false;
  value = next().value;
  return true;
}

bool Token_Reader::accept_name(std::string& value) {
  if (peek().kind != Token::word && peek().kind != Token::name) return false;
  value = next().value;
  return true;
}

bool Token_Reader::accept_as_written(std::string& value) {
  const Token token = peek();
  if (token.kind != Token::word && token.kind != Token::number && token.kind != Token::name) return false;
  value = token.kind == Token::name ? token.value : std::string(sql_.substr(token.at, token.value.size()));
  next();
  return true;
}

bool Token_Reader::at_end() const {
  return peek().kind == Token::end || (peek().value == ";" && tokens_[at_ + 1].kind == Token::end);
}

}  // namespace standin
