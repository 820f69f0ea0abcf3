#include "backupd/server.h"

#include <cerrno>
#include <cstring>

#include "platform/files.h"
#include "platform/log.h"
#include "platform/product_paths.h"

namespace backupd {

namespace {

constexpr char port_file[] = "port";
constexpr mode_t mode_state_directory = 0700;
constexpr mode_t mode_readable_file = 0644;

std::string parent_of(const std::string& path) { return path.substr(0, path.rfind('/')); }

/// The last directory is the server's own; those above it are shared with other programs.
bool make_directory_of(const std::string& file, std::string& error) {
  const std::string directory = parent_of(file);
  const std::string above = parent_of(directory);
  if (directory.empty()) return true;
  if ((above.empty() || platform::mkdir_p(above.c_str(), platform::mode_directory) == 0) &&
      platform::mkdir_p(directory.c_str(), mode_state_directory) == 0)
    return true;
  error = "the directory " + directory + " cannot be made: " + std::strerror(errno);
  return false;
}

}  // namespace

bool open_database(const Configuration& configuration, Database& database, std::string& error) {
  // Keys' hashes and alerts are nobody else's business.
  return make_directory_of(configuration.database, error) && database.open(configuration.database, error);
}

bool Server::start(std::string& error) {
  if (!open_database(configuration_, database_, error)) return false;
  core_ = std::make_unique<Server_Core>(
      database_, Server_Core::Options{configuration_.url(configuration_.port), configuration_.host_uuid,
                                      DORSAL3_VERSION, configuration_.history});
  core_->clean_pools();
  http_ = std::make_unique<net::Http_Server>(core_->handler(), configuration_.server_options());
  if (!http_->start(error)) return false;
  const std::string url = configuration_.url(http_->port());
  core_->pools.public_url(url);
  const std::string path = platform::product_paths::backupd_state(port_file);
  if (!make_directory_of(path, error)) return false;
  if (!platform::write_file_durably(path, std::to_string(http_->port()) + "\n", mode_readable_file)) {
    error = path + " cannot be written: " + std::strerror(errno);
    return false;
  }
  core_->starter.start();
  core_->setups.start();
  core_->key_watch.start();
  D3_INFO("listening on %C\n", url.c_str());
  return true;
}

void Server::stop() {
  if (http_) http_->stop();
  D3_INFO("stopped\n");
}

}  // namespace backupd
