#pragma once

#include <memory>
#include <string>

#include "backupd/configuration.h"
#include "backupd/server_core.h"
#include "backupd/store/database.h"
#include "net/http_server.h"

namespace backupd {

/// The running server: database, core and listener. One thread starts and stops it.
class Server {
 public:
  explicit Server(Configuration configuration) : configuration_(std::move(configuration)) {}

  /// False with a reason. When it returns true requests are answered, and the port stands in
  /// "/var/opt/tarvex/dorsal3/backupd/port".
  [[nodiscard]] bool start(std::string& error);
  [[nodiscard]] unsigned short port() const { return http_ ? http_->port() : 0; }
  [[nodiscard]] Server_Core& core() { return *core_; }
  /// Lets running requests end, then closes.
  void stop();

 private:
  const Configuration configuration_;
  Database database_;
  std::unique_ptr<Server_Core> core_;
  std::unique_ptr<net::Http_Server> http_;
};

/// Opens the database that the configuration names, making its directory. False with a reason.
[[nodiscard]] bool open_database(const Configuration& configuration, Database& database, std::string& error);

}  // namespace backupd
