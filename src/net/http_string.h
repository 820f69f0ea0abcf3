#pragma once

#include <cstdint>
#include <string>
#include <string_view>

/// One value held both percent-encoded and decoded.
struct HTTP_String {
  std::uint64_t flags_ = 0;  ///< how encoded_val_ was encoded, the flags of http_encode_string_i
  std::string encoded_val_;
  std::string decoded_val_;

  void assign_encoded(std::string_view text);
  void assign_decoded(std::string_view text, std::uint64_t flags = 0);
};

/// Undoes percent-encoding ("+" stays "+" unless `plus_is_blank`). A broken "%" sequence is kept as it stands.
[[nodiscard]] std::string http_decode_string(std::string_view text, bool plus_is_blank = false);
