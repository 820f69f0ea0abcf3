#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

#include "scrt/http_encode.h"

/// Writes "key=value" pairs joined by "&" through an output iterator, each call one pair, so that calls chain.
template <typename Iterator>
class HTTP_Query_String_Builder_T {
 public:
  enum { ENCODE_FLAGS = http_encode_slash | http_encode_blank_as_plus };

  explicit HTTP_Query_String_Builder_T(Iterator iter) : iter_(iter) {}

  /// A null or empty key writes nothing and does not count as a pair. A null value writes the key alone, an empty one
  /// the key and "=".
  HTTP_Query_String_Builder_T& operator()(const char* key, const char* value, bool encode_key = true,
                                          bool encode_value = true, const char* prefix = nullptr) {
    if (!begin_pair(key, encode_key, prefix) || value == nullptr) return *this;
    *iter_++ = '=';
    write(value, encode_value);
    return *this;
  }
  HTTP_Query_String_Builder_T& operator()(const char* key, const std::string& value, bool encode_key = true,
                                          bool encode_value = true, const char* prefix = nullptr) {
    return (*this)(key, value.c_str(), encode_key, encode_value, prefix);
  }
  /// A number is written in decimal and never encoded.
  HTTP_Query_String_Builder_T& operator()(const char* key, std::uint64_t value, bool encode_key = true,
                                          const char* prefix = nullptr) {
    constexpr std::size_t number_bytes = 21;
    char text[number_bytes];
    std::snprintf(text, sizeof text, "%lu", static_cast<unsigned long>(value));
    return (*this)(key, text, encode_key, false, prefix);
  }

 private:
  bool begin_pair(const char* key, bool encode, const char* prefix) {
    if (key == nullptr || *key == '\0') return false;
    if (sep_) *iter_++ = '&';
    sep_ = true;
    if (prefix != nullptr && *prefix != '\0') write(prefix, encode);
    write(key, encode);
    return true;
  }
  void write(const char* text, bool encode) {
    if (encode) {
      Forwarding_Output output{&iter_};
      http_encode_string_i(text, ENCODE_FLAGS, output);
    } else {
      for (; *text != '\0'; ++text) *iter_++ = *text;
    }
  }

  /// Lets the encoder, which takes its iterator by value, write through ours.
  struct Forwarding_Output {
    Iterator* iter;
    Forwarding_Output& operator*() { return *this; }
    Forwarding_Output& operator++() { return *this; }
    Forwarding_Output operator++(int) { return *this; }
    Forwarding_Output& operator=(char c) {
      *(*iter)++ = c;
      return *this;
    }
  };

  Iterator iter_;
  bool sep_ = false;
};
