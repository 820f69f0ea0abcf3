#include "agent/instance/account_cipher.h"

#include <openssl/evp.h>
#include <openssl/rand.h>

#include <climits>
#include <memory>
#include <utility>
#include <vector>

namespace {

using Context = std::unique_ptr<EVP_CIPHER_CTX, void (*)(EVP_CIPHER_CTX*)>;

const unsigned char* bytes_of(std::string_view text) { return reinterpret_cast<const unsigned char*>(text.data()); }
unsigned char* bytes_of(std::string& text) { return reinterpret_cast<unsigned char*>(text.data()); }

bool fits(std::string_view text) { return text.size() <= static_cast<std::size_t>(INT_MAX) / 2; }
int length_of(std::string_view text) { return static_cast<int>(text.size()); }

/// Plain bytes that are wiped when they go.
struct Wiped_Bytes {
  explicit Wiped_Bytes(std::size_t size) : bytes(size + 1) {}
  ~Wiped_Bytes() { platform::wipe_memory(bytes.data(), bytes.size()); }
  Wiped_Bytes(const Wiped_Bytes&) = delete;
  Wiped_Bytes& operator=(const Wiped_Bytes&) = delete;
  std::vector<unsigned char> bytes;
};

int digit_value(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace

bool make_cipher_key(secure_string& key) {
  Wiped_Bytes random(cipher_key_bytes);
  if (RAND_bytes(random.bytes.data(), static_cast<int>(cipher_key_bytes)) != 1) return false;
  key.assign(reinterpret_cast<const char*>(random.bytes.data()), cipher_key_bytes);
  return true;
}

bool seal(const secure_string& key, std::string_view context, const secure_string& text, Sealed_Text& sealed) {
  if (key.size() != cipher_key_bytes || !fits(text.view()) || !fits(context)) return false;
  Sealed_Text made{std::string(cipher_nonce_bytes, '\0'), std::string(cipher_tag_bytes, '\0'),
                   std::string(text.size(), '\0')};
  const Context cipher(EVP_CIPHER_CTX_new(), &EVP_CIPHER_CTX_free);
  int length = 0;
  unsigned char rest[cipher_tag_bytes];
  const bool done =
      cipher != nullptr && RAND_bytes(bytes_of(made.nonce), static_cast<int>(cipher_nonce_bytes)) == 1 &&
      EVP_EncryptInit_ex(cipher.get(), EVP_aes_256_gcm(), nullptr, bytes_of(key.view()), bytes_of(made.nonce)) == 1 &&
      EVP_EncryptUpdate(cipher.get(), nullptr, &length, bytes_of(context), length_of(context)) == 1 &&
      EVP_EncryptUpdate(cipher.get(), bytes_of(made.data), &length, bytes_of(text.view()), length_of(text.view())) ==
          1 &&
      EVP_EncryptFinal_ex(cipher.get(), rest, &length) == 1 &&
      EVP_CIPHER_CTX_ctrl(cipher.get(), EVP_CTRL_GCM_GET_TAG, static_cast<int>(cipher_tag_bytes), made.tag.data()) == 1;
  if (done) sealed = std::move(made);
  return done;
}

bool unseal(const secure_string& key, std::string_view context, const Sealed_Text& sealed, secure_string& text) {
  text.clear();
  if (key.size() != cipher_key_bytes || sealed.nonce.size() != cipher_nonce_bytes ||
      sealed.tag.size() != cipher_tag_bytes || !fits(sealed.data) || !fits(context))
    return false;
  Wiped_Bytes plain(sealed.data.size());
  std::string tag = sealed.tag;
  const Context cipher(EVP_CIPHER_CTX_new(), &EVP_CIPHER_CTX_free);
  int length = 0;
  unsigned char rest[cipher_tag_bytes];
  const bool done =
      cipher != nullptr &&
      EVP_DecryptInit_ex(cipher.get(), EVP_aes_256_gcm(), nullptr, bytes_of(key.view()),
                         bytes_of(std::string_view(sealed.nonce))) == 1 &&
      EVP_DecryptUpdate(cipher.get(), nullptr, &length, bytes_of(context), length_of(context)) == 1 &&
      EVP_DecryptUpdate(cipher.get(), plain.bytes.data(), &length, bytes_of(std::string_view(sealed.data)),
                        length_of(sealed.data)) == 1 &&
      EVP_CIPHER_CTX_ctrl(cipher.get(), EVP_CTRL_GCM_SET_TAG, static_cast<int>(cipher_tag_bytes), tag.data()) == 1 &&
      EVP_DecryptFinal_ex(cipher.get(), rest, &length) == 1;
  if (done) text.assign(reinterpret_cast<const char*>(plain.bytes.data()), sealed.data.size());
  return done;
}

std::string to_hex(std::string_view bytes) {
  static constexpr char digits[] = "0123456789abcdef";
  std::string hex;
  hex.reserve(bytes.size() * 2);
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    hex += digits[byte >> 4];
    hex += digits[byte & 15];
  }
  return hex;
}

bool from_hex(std::string_view hex, std::string& bytes) {
  if (hex.size() % 2 != 0) return false;
  std::string made;
  made.reserve(hex.size() / 2);
  for (std::size_t at = 0; at < hex.size(); at += 2) {
    const int high = digit_value(hex[at]);
    const int low = digit_value(hex[at + 1]);
    if (high < 0 || low < 0) return false;
    made += static_cast<char>(high * 16 + low);
  }
  bytes = std::move(made);
  return true;
}
