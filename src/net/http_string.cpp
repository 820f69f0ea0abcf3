#include "net/http_string.h"

#include <cstring>
#include <iterator>

#include "scrt/http_encode.h"

namespace {

constexpr int not_a_digit = -1;
constexpr int decimal_digits = 10;
constexpr int hex_base = 16;

int hex_digit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + decimal_digits;
  if (c >= 'A' && c <= 'F') return c - 'A' + decimal_digits;
  return not_a_digit;
}

}  // namespace

void HTTP_String::assign_encoded(std::string_view text) {
  flags_ = 0;
  encoded_val_ = text;
  decoded_val_ = http_decode_string(text);
}

void HTTP_String::assign_decoded(std::string_view text, std::uint64_t flags) {
  flags_ = flags;
  decoded_val_ = text;
  encoded_val_.clear();
  // The encoder takes null-ended text: a null byte inside is written here. A false means an empty piece.
  for (std::size_t begin = 0; begin <= decoded_val_.size(); begin += std::strlen(decoded_val_.c_str() + begin) + 1) {
    if (begin != 0) encoded_val_ += "%00";
    (void)http_encode_string_i(decoded_val_.c_str() + begin, static_cast<unsigned>(flags),
                               std::back_inserter(encoded_val_));
  }
}

std::string http_decode_string(std::string_view text, bool plus_is_blank) {
  std::string decoded;
  decoded.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '%' && i + 2 < text.size()) {
      const int high = hex_digit(text[i + 1]);
      const int low = hex_digit(text[i + 2]);
      if (high != not_a_digit && low != not_a_digit) {
        decoded += static_cast<char>(high * hex_base + low);
        i += 2;
        continue;
      }
    }
    decoded += plus_is_blank && text[i] == '+' ? ' ' : text[i];
  }
  return decoded;
}
