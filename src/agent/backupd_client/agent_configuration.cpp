#include "agent/backupd_client/agent_configuration.h"

#include <sys/stat.h>
#include <toml++/toml.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <sstream>

#include "platform/file_root.h"
#include "platform/files.h"
#include "platform/product_paths.h"
#include "scrt/uuid.h"

namespace {

constexpr const char* file_name = "agent.toml";
constexpr const char* default_key_file = "agent.key";
constexpr const char* default_module = "hana";
constexpr std::size_t key_limit_bytes = 4096;
constexpr unsigned longest_span_seconds = 24 * 60 * 60;

bool fail(std::string& error, const std::string& text) {
  error = text;
  return false;
}

/// Reads the keys of one file, remembers the first thing that is wrong.
class Reader {
 public:
  Reader(const toml::table& table, const std::string& source) : table_(table), source_(source) {}

  [[nodiscard]] bool ok() const { return error_.empty(); }
  [[nodiscard]] const std::string& error() const { return error_; }

  void refuse(const std::string& key, const std::string& why) {
    if (ok()) error_ = source_ + ": " + key + " " + why;
  }

  void text(const char* key, std::string& value, bool mandatory = false) {
    const toml::node* const node = find(key);
    if (node == nullptr) {
      if (mandatory) refuse(key, "is missing; add it (see the agent's configuration page)");
      return;
    }
    const toml::value<std::string>* const found = node->as_string();
    if (found == nullptr)
      refuse(key, "must be a text");
    else if (found->get().empty())
      refuse(key, "is empty; give a value or leave the key out");
    else
      value = found->get();
  }

  void path(const char* key, std::string& value) {
    text(key, value);
    if (!value.empty() && value.front() != '/') refuse(key, "must be an absolute path");
  }

  void number(const char* key, unsigned& value, unsigned least) {
    const toml::node* const node = find(key);
    if (node == nullptr) return;
    const toml::value<std::int64_t>* const found = node->as_integer();
    if (found == nullptr || found->get() < least || found->get() > longest_span_seconds)
      refuse(key, "must be a whole number of seconds from " + std::to_string(least) + " to " +
                      std::to_string(longest_span_seconds));
    else
      value = static_cast<unsigned>(found->get());
  }

  void names(const char* key, std::vector<std::string>& values) {
    const toml::node* const node = find(key);
    if (node == nullptr) return;
    const toml::array* const found = node->as_array();
    if (found == nullptr) return refuse(key, "must be a list of module names");
    values.clear();
    for (const toml::node& item : *found) {
      const toml::value<std::string>* const name = item.as_string();
      if (name == nullptr || !is_module_name(name->get()))
        return refuse(key, "must be a list of module names of letters, digits, '-' and '_', as in [\"hana\"]");
      values.push_back(name->get());
    }
  }

  void refuse_unknown_keys() {
    for (const auto& [key, value] : table_)
      if (std::find(known_.begin(), known_.end(), key.str()) == known_.end())
        refuse(std::string(key.str()), "is not a known key; correct or remove it");
  }

 private:
  const toml::table& table_;
  const std::string& source_;
  std::vector<std::string> known_;
  std::string error_;

  const toml::node* find(const char* key) {
    known_.emplace_back(key);
    return table_.get(key);
  }

  static bool is_module_name(const std::string& name) {
    return !name.empty() && std::all_of(name.begin(), name.end(), [](unsigned char c) {
      return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '_';
    });
  }
};

std::string own_host_name() {
  std::array<char, HOST_NAME_MAX + 1> name{};
  if (::gethostname(name.data(), name.size() - 1) != 0) return "localhost";
  return name.data();
}

void check_server(Reader& reader, Agent_Configuration& configuration) {
  std::string& url = configuration.server_url;
  while (!url.empty() && url.back() == '/') url.pop_back();
  if (!net::parse_endpoint(url, configuration.endpoint))
    reader.refuse("server_url", "is '" + url + "', not of the form https://host:port");
  configuration.endpoint.ca_file = configuration.ca_file;
}

void check_host(Reader& reader, const Agent_Configuration& configuration) {
  unsigned char binary[uuid_bytes];
  if (!uuid_string_to_binary(configuration.host_uuid.c_str(), binary))
    reader.refuse("host_uuid", "is '" + configuration.host_uuid + "', not a uuid");
}

bool readable_by_everybody(const std::string& path) {
  struct stat status {};
  return ::stat(platform::File_Root::current().real(path).c_str(), &status) == 0 && (status.st_mode & S_IROTH) != 0;
}

/// A key is one word: what goes into a header field.
bool take_key(std::string& content, const std::string& source, secure_string& key, std::string& error) {
  std::size_t size = content.size();
  while (size > 0 && (content[size - 1] == '\n' || content[size - 1] == '\r')) --size;
  const bool good = size > 0 && std::all_of(content.begin(), content.begin() + static_cast<std::ptrdiff_t>(size),
                                            [](char c) { return c > ' ' && c <= '~'; });
  if (good) key.assign(content.data(), size);
  platform::wipe_memory(content.data(), content.size());
  return good || fail(error, source + " holds no usable access key; write the key that backupd gave for this host");
}

bool read_key_file(const std::string& path, secure_string& key, std::string& error) {
  std::string content;
  if (!platform::read_file(path, content, key_limit_bytes))
    return fail(error, "cannot read the access key " + path + ": " + std::strerror(errno));
  if (readable_by_everybody(path)) {
    platform::wipe_memory(content.data(), content.size());
    return fail(error, "the access key " + path + " may be read by everybody; take the right away (chmod o-rwx)");
  }
  return take_key(content, path, key, error);
}

}  // namespace

std::string Agent_Configuration::path() { return platform::product_paths::configuration(file_name); }

bool Agent_Configuration::load(Agent_Configuration& configuration, std::string& error) {
  const std::string file = path();
  std::string text;
  if (!platform::read_file(file, text))
    return fail(error, "cannot read the agent's configuration " + file + ": " + std::strerror(errno) +
                           "; write it with server_url and host_uuid");
  Agent_Configuration loaded;
  const bool good = parse(text, file, loaded, error);
  platform::wipe_memory(text.data(), text.size());
  if (!good) return false;
  if (!loaded.access_key.empty() && readable_by_everybody(file))
    return fail(error, file + " holds access_key and may be read by everybody; take the right away (chmod o-rwx)");
  configuration = std::move(loaded);
  return true;
}

bool Agent_Configuration::parse(const std::string& text, const std::string& source, Agent_Configuration& configuration,
                                std::string& error) {
  toml::table table;
  try {
    table = toml::parse(text, source);
  } catch (const toml::parse_error& caught) {
    std::ostringstream line;
    line << source << ": line " << caught.source().begin.line << ": " << caught.description();
    return fail(error, line.str());
  }
  Reader reader(table, source);
  Agent_Configuration read;
  std::string key;
  reader.text("server_url", read.server_url, true);
  reader.path("ca_file", read.ca_file);
  reader.text("host_uuid", read.host_uuid, true);
  reader.text("host_name", read.host_name);
  reader.text("access_key", key);
  reader.path("access_key_file", read.access_key_file);
  reader.names("modules", read.modules);
  reader.path("log_file", read.log_file);
  reader.number("heartbeat_seconds", read.heartbeat_seconds, 1);
  reader.number("stop_limit_seconds", read.stop_limit_seconds, 0);
  reader.refuse_unknown_keys();
  if (reader.ok()) check_server(reader, read);
  if (reader.ok()) check_host(reader, read);
  if (!key.empty() && !read.access_key_file.empty())
    reader.refuse("access_key", "and access_key_file exclude each other; keep one");
  if (!reader.ok()) return fail(error, reader.error());

  if (!key.empty() && !take_key(key, source, read.access_key, error)) return false;
  if (read.access_key.empty() && read.access_key_file.empty())
    read.access_key_file = platform::product_paths::configuration(default_key_file);
  if (read.host_name.empty()) read.host_name = own_host_name();
  if (table.get("modules") == nullptr) read.modules.emplace_back(default_module);
  configuration = std::move(read);
  return true;
}

bool Agent_Configuration::load_configured_key(secure_string& key, std::string& error) const {
  if (access_key.empty()) return read_key_file(access_key_file, key, error);
  key = access_key;
  return true;
}

bool Agent_Configuration::load_access_key(secure_string& key, std::string& error) const {
  errno = 0;
  if (load_configured_key(key, error)) return true;
  const std::string copy = platform::product_paths::access_key();
  std::string second;
  if (platform::is_regular_file(copy.c_str()) && read_key_file(copy, key, second)) return true;
  if (!second.empty()) error += "; " + second;
  return false;
}
