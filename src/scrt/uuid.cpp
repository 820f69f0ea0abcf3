#include "scrt/uuid.h"

#include <openssl/evp.h>
#include <sys/random.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

constexpr std::size_t text_length = 36;

bool is_dash_position(std::size_t at) { return at == 8 || at == 13 || at == 18 || at == 23; }

int digit_value(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

void set_version_and_variant(unsigned char* binary, unsigned version) {
  binary[6] = static_cast<unsigned char>((binary[6] & 0x0fU) | (version << 4));
  binary[8] = static_cast<unsigned char>((binary[8] & 0x3fU) | 0x80U);
}

void fill_random(unsigned char* bytes, std::size_t size) {
  while (size != 0) {
    const ssize_t got = ::getrandom(bytes, size, 0);
    if (got < 0 && errno == EINTR) continue;
    // Without randomness no identifier is unique: nothing sensible can go on.
    if (got <= 0) std::abort();
    bytes += got;
    size -= static_cast<std::size_t>(got);
  }
}

}  // namespace

std::string make_uuid() {
  unsigned char binary[uuid_bytes];
  fill_random(binary, sizeof binary);
  set_version_and_variant(binary, 4);
  return uuid_binary_to_string(binary);
}

bool uuid_string_to_binary(const char* text, unsigned char* binary) {
  if (text == nullptr || std::strlen(text) != text_length) return false;
  unsigned char bytes[uuid_bytes] = {};
  std::size_t digit = 0;
  for (std::size_t at = 0; at < text_length; ++at) {
    if (is_dash_position(at)) {
      if (text[at] != '-') return false;
      continue;
    }
    const int value = digit_value(text[at]);
    if (value < 0) return false;
    bytes[digit / 2] = static_cast<unsigned char>((bytes[digit / 2] << 4) | value);
    ++digit;
  }
  std::memcpy(binary, bytes, sizeof bytes);
  return true;
}

std::string uuid_binary_to_string(const unsigned char* binary) {
  static constexpr char digits[] = "0123456789abcdef";
  std::string text;
  text.reserve(text_length);
  for (std::size_t i = 0; i < uuid_bytes; ++i) {
    if (is_dash_position(text.size())) text += '-';
    text += digits[binary[i] >> 4];
    text += digits[binary[i] & 15U];
  }
  return text;
}

std::string uuid_v5(const std::string& space, std::string_view name) {
  unsigned char space_binary[uuid_bytes];
  if (!uuid_string_to_binary(space.c_str(), space_binary)) return {};
  std::vector<unsigned char> input(space_binary, space_binary + sizeof space_binary);
  input.insert(input.end(), name.begin(), name.end());
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned size = 0;
  if (EVP_Digest(input.data(), input.size(), digest, &size, EVP_sha1(), nullptr) != 1 || size < uuid_bytes) return {};
  set_version_and_variant(digest, 5);
  return uuid_binary_to_string(digest);
}
