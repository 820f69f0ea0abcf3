#pragma once

#include <string>
#include <string_view>

#include "platform/secure_string.h"

// AES-256-GCM over whole texts.

constexpr std::size_t cipher_key_bytes = 32;
constexpr std::size_t cipher_nonce_bytes = 12;
constexpr std::size_t cipher_tag_bytes = 16;

struct Sealed_Text {
  std::string nonce;
  std::string tag;
  std::string data;
};

/// Random bytes for a key. False when the system has none to give.
[[nodiscard]] bool make_cipher_key(secure_string& key);
/// Encrypts `text` under a new nonce; `context` is bound to it without being stored. False on a bad key or a failure of
/// the library.
[[nodiscard]] bool seal(const secure_string& key, std::string_view context, const secure_string& text,
                        Sealed_Text& sealed);
/// Undoes seal. False when the key or the context is another one or anything was changed; `text` is then empty.
[[nodiscard]] bool unseal(const secure_string& key, std::string_view context, const Sealed_Text& sealed,
                          secure_string& text);

[[nodiscard]] std::string to_hex(std::string_view bytes);
/// False, with `bytes` left alone, when `hex` is not pairs of hexadecimal digits.
[[nodiscard]] bool from_hex(std::string_view hex, std::string& bytes);
