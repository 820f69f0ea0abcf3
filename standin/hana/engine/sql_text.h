#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace standin {

struct Token {
  enum Kind { word, name, text, number, symbol, end };
  Kind kind = end;
  std::string value;  ///< words upper case, names and texts without their quotes
  std::size_t at = 0;
};

struct Sql_Error {
  int code = 0;
  std::string text;
  std::string state = "HY000";
};

/// Words, "names", 'texts', numbers and single signs; a last token of kind `end`.
std::vector<Token> tokenize(std::string_view sql);
/// The statement with everything outside quotes in upper case, as HANA reads it.
std::string upper_outside_quotes(std::string_view sql);
Sql_Error syntax_error(std::string_view sql, const Token& token);

/// A statement read word by word.
class Token_Reader {
 public:
  explicit Token_Reader(std::string_view sql) : sql_(sql), tokens_(tokenize(sql)) {}
  [[nodiscard]] const Token& peek() const { return tokens_[at_]; }
  Token next() { return tokens_[at_ + 1 < tokens_.size() ? at_++ : at_]; }
  bool accept(std::string_view word_or_symbol);
  bool accept_words(std::initializer_list<std::string_view> words);
  bool accept_text(std::string& value);
  /// A plain word (upper-cased) or a quoted name.
  bool accept_name(std::string& value);
  /// A plain word in the letter case it has, or a quoted name: a password.
  bool accept_as_written(std::string& value);
  [[nodiscard]] bool at_end() const;
  [[nodiscard]] Sql_Error error() const { return syntax_error(sql_, peek()); }

 private:
  std::string_view sql_;
  std::vector<Token> tokens_;
  std::size_t at_ = 0;
};

}  // namespace standin
