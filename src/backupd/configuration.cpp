#include "backupd/configuration.h"

#include <toml++/toml.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>
#include <vector>

#include "backupd/http/body_reader.h"
#include "net/http_transport.h"
#include "platform/files.h"
#include "platform/product_paths.h"

namespace backupd {

namespace {

constexpr char file_name[] = "backupd.toml";
constexpr char database_name[] = "backupd.db";
constexpr unsigned most_workers = 256;
constexpr unsigned most_days = 36500;

/// Reads the keys of the file and keeps the first thing that is wrong.
class Reader {
 public:
  Reader(const toml::table& table, const std::string& source) : table_(table), source_(source) {}

  [[nodiscard]] const std::string& error() const { return error_; }
  void refuse(const std::string& what) {
    if (error_.empty()) error_ = source_ + ": " + what;
  }

  void text(const char* key, std::string& value) {
    const toml::node* node = find(key);
    if (node == nullptr) return;
    if (const auto* found = node->as_string())
      value = found->get();
    else
      refuse(std::string(key) + " must be a text");
  }

  void path(const char* key, std::string& value) {
    text(key, value);
    if (!value.empty() && value.front() != '/') refuse(std::string(key) + " must be an absolute path");
  }

  template <typename Number>
  void number(const char* key, Number& value, unsigned least, unsigned most) {
    const toml::node* node = find(key);
    if (node == nullptr) return;
    const auto* found = node->as_integer();
    if (found == nullptr || found->get() < least || found->get() > most)
      refuse(std::string(key) + " must be a whole number from " + std::to_string(least) + " to " +
             std::to_string(most));
    else
      value = static_cast<Number>(found->get());
  }

  void refuse_unknown_keys() {
    for (const auto& [key, value] : table_)
      if (std::find(known_.begin(), known_.end(), key.str()) == known_.end())
        refuse(std::string(key.str()) + " is not a known key; correct or remove it");
  }

 private:
  const toml::node* find(const char* key) {
    known_.emplace_back(key);
    return table_.get(key);
  }

  const toml::table& table_;
  const std::string& source_;
  std::vector<std::string> known_;
  std::string error_;
};

void check(Reader& reader, const Configuration& configuration) {
  if (configuration.certificate.empty() != configuration.private_key.empty())
    reader.refuse("certificate and private_key belong together; give both or none");
  if (!configuration.tls() && !net::is_loopback(configuration.address))
    reader.refuse(
        "the server would listen on " + configuration.address +
        " without TLS, where keys could be read on the way; give certificate and private_key, or listen on 127.0.0.1");
  if (!configuration.host_uuid.empty() && !is_uuid(configuration.host_uuid)) reader.refuse("host_uuid must be a UUID");
  const std::string& url = configuration.public_url;
  if (!url.empty() && ((!url.starts_with("http://") && !url.starts_with("https://")) || url.ends_with('/')))
    reader.refuse("public_url must read http[s]://host:port, without a slash at its end");
}

}  // namespace

std::string Configuration::path() { return platform::product_paths::configuration(file_name); }

bool Configuration::load(Configuration& configuration, std::string& error) {
  std::string text;
  if (!platform::read_file(path(), text) && errno != ENOENT) {
    error = path() + " cannot be read: " + std::strerror(errno);
    return false;
  }
  return parse(text, path(), configuration, error);
}

bool Configuration::parse(const std::string& text, const std::string& source, Configuration& configuration,
                          std::string& error) {
  toml::table table;
  try {
    table = toml::parse(text);
  } catch (const toml::parse_error& broken) {
    error = source + ": line " + std::to_string(broken.source().begin.line) + ": " + std::string(broken.description());
    return false;
  }
  Configuration read;
  read.database = platform::product_paths::backupd_state(database_name);
  Reader reader(table, source);
  reader.text("address", read.address);
  reader.number("port", read.port, 0, std::numeric_limits<unsigned short>::max());
  reader.path("certificate", read.certificate);
  reader.path("private_key", read.private_key);
  reader.text("public_url", read.public_url);
  reader.path("database", read.database);
  reader.path("log_file", read.log_file);
  reader.text("host_uuid", read.host_uuid);
  reader.number("workers", read.workers, 1, most_workers);
  reader.number("days_of_runs", read.history.days_of_runs, 0, most_days);
  reader.number("days_of_log_runs", read.history.days_of_log_runs, 0, most_days);
  reader.refuse_unknown_keys();
  check(reader, read);
  if (!reader.error().empty()) {
    error = reader.error();
    return false;
  }
  configuration = std::move(read);
  return true;
}

std::string Configuration::url(unsigned short listening_port) const {
  if (!public_url.empty()) return public_url;
  const bool ipv6 = address.find(':') != std::string::npos;
  return std::string(tls() ? "https://" : "http://") + (ipv6 ? "[" + address + "]" : address) + ":" +
         std::to_string(listening_port);
}

net::Server_Options Configuration::server_options() const { return {address, port, certificate, private_key, workers}; }

}  // namespace backupd
