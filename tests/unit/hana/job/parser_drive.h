#pragma once

#include <algorithm>
#include <memory>
#include <string>
#include <string_view>

#include "json/yajl_generator.h"
#include "json/yajl_handler.h"

namespace parser_drive {

/// Text without a terminator in a buffer of exactly its size, so that a sanitizer sees every byte read too far.
class Exact_Text {
 public:
  explicit Exact_Text(std::string_view text) : bytes_(new char[text.size()]), size_(text.size()) {
    std::copy(text.begin(), text.end(), bytes_.get());
  }
  [[nodiscard]] const char* data() const { return bytes_.get(); }
  [[nodiscard]] std::size_t size() const { return size_; }
  [[nodiscard]] std::string_view view() const { return {bytes_.get(), size_}; }

 private:
  std::unique_ptr<char[]> bytes_;
  std::size_t size_;
};

inline bool give_key(YAJL_Handler& handler, std::string_view key) {
  const Exact_Text text(key);
  return handler.handle_map_key_i(text.data(), text.size());
}

inline bool give_string(YAJL_Handler& handler, std::string_view value) {
  const Exact_Text text(value);
  return handler.handle_string_i(text.data(), text.size());
}

inline bool give_number(YAJL_Handler& handler, std::string_view value) {
  const Exact_Text text(value);
  return handler.handle_number_i(text.data(), text.size());
}

inline JSON_Parse_Result parse(YAJL_Handler& handler, std::string_view document) {
  const Exact_Text text(document);
  return parse_json(text.view(), handler);
}

/// What an object with a generate operation writes.
template <typename T>
std::string generate(T& object) {
  const YAJL_Generator generator;
  if (object.generate(generator.handle()) != 0) return "generate failed";
  return generator.text();
}

}  // namespace parser_drive
