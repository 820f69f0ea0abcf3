#pragma once

#include <string>

#include "dorsal3/outcome.h"
#include "net/http_transport.h"
#include "platform/secure_string.h"

namespace dorsal3 {

/// Where the server is and how the operator shows himself to it.
struct Configuration {
  std::string server_url;
  std::string ca_file;
  std::string key_file;
  net::Endpoint endpoint;
  secure_string key;
};

/// What the command line says about it; empty texts leave the choice to the files.
struct Configuration_Request {
  std::string file;
  std::string server_url;
  std::string key_file;
  std::string home;  ///< the user's home folder; empty: only the system-wide file is read
};

/// Reads the file named in `request`, else ~/.config/dorsal3.toml, else /etc/opt/tarvex/dorsal3/dorsal3.toml; the
/// command line wins over the file. Reads the key as well. False with `failure` filled: file missing or malformed, no
/// server named, key unreadable or readable for others.
[[nodiscard]] bool load_configuration(const Configuration_Request& request, Configuration& configuration,
                                      Failure& failure);

}  // namespace dorsal3
