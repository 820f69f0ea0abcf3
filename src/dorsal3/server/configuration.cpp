#include "dorsal3/server/configuration.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#define TOML_EXCEPTIONS 0
#include <toml++/toml.h>

#include "platform/file_root.h"
#include "platform/files.h"
#include "platform/product_paths.h"

namespace dorsal3 {

namespace {

constexpr std::size_t key_file_limit_bytes = 4096;
constexpr mode_t mode_others = S_IRWXO;

Failure configuration_failure(std::string message) { return {exit_configuration, "configuration", std::move(message)}; }

/// The file to read; empty when there is none.
std::string choose_file(const Configuration_Request& request) {
  if (!request.file.empty()) return request.file;
  if (!request.home.empty()) {
    std::string own = request.home + "/.config/dorsal3.toml";
    if (platform::is_regular_file(own.c_str())) return own;
  }
  std::string common = platform::product_paths::configuration("dorsal3.toml");
  return platform::is_regular_file(common.c_str()) ? common : std::string();
}

bool read_text_key(const toml::table& table, const char* key, std::string& out, const std::string& path,
                   Failure& failure) {
  const toml::node* node = table.get(key);
  if (node == nullptr) return true;
  const auto* text = node->as_string();
  if (text == nullptr) {
    failure = configuration_failure(path + ": \"" + key + "\" is not a text");
    return false;
  }
  out = text->get();
  return true;
}

bool read_file_into(const std::string& path, Configuration& configuration, Failure& failure) {
  std::string text;
  if (!platform::read_file(path, text)) {
    failure = configuration_failure("cannot read the configuration " + path + ": " + std::strerror(errno));
    return false;
  }
  const toml::parse_result parsed = toml::parse(text);
  if (!parsed) {
    failure = configuration_failure(path + ", line " + std::to_string(parsed.error().source().begin.line) + ": " +
                                    std::string(parsed.error().description()));
    return false;
  }
  const toml::table& table = parsed.table();
  for (const auto& [key, value] : table) {
    if (key != "server" && key != "ca_file" && key != "key_file") {
      failure = configuration_failure(path + ": unknown key \"" + std::string(key.str()) +
                                      "\"; known are server, ca_file and key_file");
      return false;
    }
  }
  return read_text_key(table, "server", configuration.server_url, path, failure) &&
         read_text_key(table, "ca_file", configuration.ca_file, path, failure) &&
         read_text_key(table, "key_file", configuration.key_file, path, failure);
}

bool read_key(Configuration& configuration, Failure& failure) {
  const std::string& path = configuration.key_file;
  struct stat status {};
  if (::stat(platform::File_Root::current().real(path).c_str(), &status) != 0) {
    failure = configuration_failure("cannot read the key " + path + ": " + std::strerror(errno) +
                                    "; ask the administrator of backupd for an operator's or viewer's key");
    return false;
  }
  if ((status.st_mode & mode_others) != 0) {
    failure = configuration_failure("the key " + path + " is open to every user; do: chmod 600 " + path);
    return false;
  }
  std::string text;
  const bool read = platform::read_file(path, text, key_file_limit_bytes);
  if (!read) {
    failure = configuration_failure("cannot read the key " + path + ": " + std::strerror(errno));
  } else {
    const std::size_t end = text.find_last_not_of(" \t\r\n");
    configuration.key = secure_string(std::string_view(text).substr(0, end == std::string::npos ? 0 : end + 1));
    if (configuration.key.empty()) failure = configuration_failure("the key " + path + " is empty");
  }
  platform::wipe_memory(text.data(), text.size());
  return read && !configuration.key.empty();
}

}  // namespace

bool load_configuration(const Configuration_Request& request, Configuration& configuration, Failure& failure) {
  const std::string file = choose_file(request);
  if (!file.empty() && !read_file_into(file, configuration, failure)) return false;
  if (!request.server_url.empty()) configuration.server_url = request.server_url;
  if (!request.key_file.empty()) configuration.key_file = request.key_file;

  if (configuration.server_url.empty() || configuration.key_file.empty()) {
    failure = configuration_failure(
        std::string(configuration.server_url.empty() ? "no server is named" : "no key file is named") +
        "; set server and key_file in ~/.config/dorsal3.toml or " +
        platform::product_paths::configuration("dorsal3.toml") + ", or give --server and --key-file");
    return false;
  }
  if (!net::parse_endpoint(configuration.server_url, configuration.endpoint)) {
    failure = configuration_failure("\"" + configuration.server_url +
                                    "\" is not a server's address; it looks like https://backup.example:8443");
    return false;
  }
  if (!configuration.endpoint.is_private()) {
    failure = configuration_failure("the server's address \"" + configuration.server_url +
                                    "\" is without TLS, where the key could be read on the way; use https");
    return false;
  }
  configuration.endpoint.ca_file = configuration.ca_file;
  return read_key(configuration, failure);
}

}  // namespace dorsal3
