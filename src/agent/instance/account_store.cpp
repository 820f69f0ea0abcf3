#include "agent/instance/account_store.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdint>
#include <utility>

#include "agent/instance/account_cipher.h"
#include "json/value.h"
#include "platform/file_root.h"
#include "platform/files.h"
#include "platform/log.h"
#include "platform/product_paths.h"

namespace {

constexpr const char* format_name = "dorsal3-accounts";
constexpr int format_version = 1;
constexpr const char* cipher_name = "AES-256-GCM";
/// Bound to the encrypted text, so that no other text of the same key passes for accounts.
constexpr std::string_view cipher_context = "dorsal3-accounts 1";
constexpr mode_t mode_of_others = S_IRWXG | S_IRWXO;
constexpr std::size_t length_bytes = 4;
constexpr std::size_t fields_of_account = 6;

void append_field(std::string_view field, secure_string& text) {
  for (std::size_t shift = length_bytes * 8; shift != 0;) {
    shift -= 8;
    text.push_back(static_cast<char>((field.size() >> shift) & 0xffU));
  }
  text.append(field);
}

bool take_field(std::string_view& text, std::string_view& field) {
  if (text.size() < length_bytes) return false;
  std::uint32_t size = 0;
  for (std::size_t i = 0; i < length_bytes; ++i) size = size << 8 | static_cast<unsigned char>(text[i]);
  text.remove_prefix(length_bytes);
  if (text.size() < size) return false;
  field = text.substr(0, size);
  text.remove_prefix(size);
  return true;
}

secure_string write_accounts(const Accounts& accounts) {
  secure_string text;
  for (const auto& [key, account] : accounts) {
    append_field(std::get<0>(key), text);
    append_field(std::get<1>(key), text);
    append_field(std::get<2>(key), text);
    append_field(account.username, text);
    append_field(account.password.view(), text);
    append_field(account.extra, text);
  }
  return text;
}

bool read_accounts(std::string_view text, Accounts& accounts) {
  while (!text.empty()) {
    std::string_view fields[fields_of_account];
    for (std::string_view& field : fields)
      if (!take_field(text, field)) return false;
    Account account{std::string(fields[3]), secure_string(fields[4]), std::string(fields[5])};
    accounts[{std::string(fields[0]), std::string(fields[1]), std::string(fields[2])}] = std::move(account);
  }
  return true;
}

bool is_private(const std::string& path) {
  struct stat status {};
  return ::stat(platform::File_Root::current().real(path).c_str(), &status) == 0 &&
         (status.st_mode & mode_of_others) == 0;
}

/// Reads the key of the host. False with errno ENOENT, without a message, when there is none yet.
bool load_key(secure_string& key) {
  const std::string path = Account_Store::key_path();
  std::string text;
  if (!platform::read_file(path, text, cipher_key_bytes * 2 + 2)) {
    if (errno != ENOENT) D3_ERROR("Failed to read the key of the accounts '%C': %m\n", path.c_str());
    return false;
  }
  while (text.ends_with('\n')) text.pop_back();
  std::string bytes;
  const bool good = is_private(path) && from_hex(text, bytes) && bytes.size() == cipher_key_bytes;
  if (good) key.assign(bytes.data(), bytes.size());
  platform::wipe_memory(bytes.data(), bytes.size());
  platform::wipe_memory(text.data(), text.size());
  if (!good) {
    D3_ERROR("The key of the accounts '%C' is not usable: it must hold %d hexadecimal digits and have mode 0600\n",
             path.c_str(), static_cast<int>(cipher_key_bytes * 2));
    errno = EINVAL;
  }
  return good;
}

/// A key is made only where there are no accounts that another key has closed.
bool load_or_make_key(secure_string& key) {
  if (load_key(key)) return true;
  if (errno != ENOENT) return false;
  const std::string path = Account_Store::key_path();
  if (platform::is_regular_file(Account_Store::path().c_str())) {
    D3_ERROR("The key of the accounts '%C' is gone: put it back, or move '%C' away and store the accounts anew\n",
             path.c_str(), Account_Store::path().c_str());
    return false;
  }
  if (!make_cipher_key(key)) {
    D3_ERROR("Failed to make a key for the accounts: the system gave no random bytes\n");
    return false;
  }
  std::string text = to_hex(key.view());
  text += '\n';
  const bool written = platform::write_file_durably(path, text, platform::mode_private_file);
  platform::wipe_memory(text.data(), text.size());
  if (!written) D3_ERROR("Failed to write the key of the accounts '%C': %m\n", path.c_str());
  return written;
}

/// The envelope of the file. False with what is wrong in `error`.
bool read_envelope(const std::string& text, Sealed_Text& sealed, std::string& error) {
  json_spirit::Value value;
  if (!json_spirit::load_json(text, value, &error)) return false;
  try {
    const json_spirit::Object& object = value.get_obj();
    if (json_spirit::object_require<std::string>(object, "format") != format_name ||
        json_spirit::object_require<int>(object, "version") != format_version ||
        json_spirit::object_require<std::string>(object, "cipher") != cipher_name) {
      error = "it is of another kind or version";
      return false;
    }
    if (from_hex(json_spirit::object_require<std::string>(object, "nonce"), sealed.nonce) &&
        from_hex(json_spirit::object_require<std::string>(object, "tag"), sealed.tag) &&
        from_hex(json_spirit::object_require<std::string>(object, "data"), sealed.data))
      return true;
    error = "it holds something that is not hexadecimal";
  } catch (const json_spirit::Error& failure) {
    error = failure.what();
  }
  return false;
}

}  // namespace

std::string Account_Store::path() { return platform::product_paths::agent_state("accounts"); }
std::string Account_Store::key_path() { return platform::product_paths::agent_state("accounts.key"); }

bool Account_Store::load(Accounts& accounts) {
  const std::string file = path();
  std::string text;
  if (!platform::read_file(file, text)) {
    if (errno == ENOENT) {
      accounts.clear();
      return true;
    }
    D3_ERROR("Failed to read the accounts '%C': %m\n", file.c_str());
    return false;
  }
  Sealed_Text sealed;
  std::string error;
  if (!read_envelope(text, sealed, error)) {
    D3_ERROR("The file '%C' is not a file of accounts (%C): it is left as it is; move it away to begin anew\n",
             file.c_str(), platform::cut_for_log(error).c_str());
    return false;
  }
  secure_string key;
  if (!load_key(key)) {
    if (errno == ENOENT)
      D3_ERROR("The key of the accounts '%C' is gone: put it back, or move '%C' away and store the accounts anew\n",
               key_path().c_str(), file.c_str());
    return false;
  }
  secure_string content;
  Accounts found;
  if (!unseal(key, cipher_context, sealed, content) || !read_accounts(content.view(), found)) {
    D3_ERROR(
        "The accounts '%C' cannot be decrypted: the file was changed or belongs to another key than '%C'; it is left "
        "as it is\n",
        file.c_str(), key_path().c_str());
    return false;
  }
  accounts = std::move(found);
  return true;
}

bool Account_Store::save(const Accounts& accounts) {
  const std::string file = path();
  char directory[platform::path_buffer_bytes];
  if (platform::dirname_r(file.c_str(), directory, sizeof directory, '/') == nullptr ||
      platform::mkdir_p(directory, platform::mode_directory) != 0) {
    D3_ERROR("Failed to make the directory of the accounts '%C': %m\n", file.c_str());
    return false;
  }
  secure_string key;
  if (!load_or_make_key(key)) return false;
  Sealed_Text sealed;
  if (!seal(key, cipher_context, write_accounts(accounts), sealed)) {
    D3_ERROR("Failed to encrypt the accounts\n");
    return false;
  }
  const json_spirit::Object envelope{{"format", format_name},     {"version", format_version},
                                     {"cipher", cipher_name},     {"nonce", to_hex(sealed.nonce)},
                                     {"tag", to_hex(sealed.tag)}, {"data", to_hex(sealed.data)}};
  if (platform::write_file_durably(file, json_spirit::dump_json_pretty(envelope) + "\n", platform::mode_private_file))
    return true;
  D3_ERROR("Failed to write the accounts '%C': %m\n", file.c_str());
  return false;
}
