#pragma once

#include <string>

#include "backupd/jobs/history_keeper.h"
#include "net/http_server.h"

namespace backupd {

/// What the server is told by its file, "/etc/opt/tarvex/dorsal3/backupd.toml" (docs/formats/backupd-configuration.md).
struct Configuration {
  std::string address = "127.0.0.1";
  unsigned short port = default_port;  ///< 0: any free one
  std::string certificate;             ///< documented paths of PEM files; TLS when set
  std::string private_key;
  std::string public_url;  ///< how agents reach this server; empty: made of address and port
  std::string database;    ///< documented path
  std::string log_file;    ///< documented path; empty: standard error alone
  std::string host_uuid;   ///< of this server's own host, whose file:// pools it may sweep; may be empty
  unsigned workers = 8;
  History_Limits history;

  static constexpr unsigned short default_port = 9443;

  [[nodiscard]] static std::string path();
  /// Reads the file; without one everything has its default. False with what, why and what to do next; `configuration`
  /// is then left alone. Unknown keys are refused, and so is listening beyond loopback without TLS.
  [[nodiscard]] static bool load(Configuration& configuration, std::string& error);
  /// The same from text; `source` names it in messages.
  [[nodiscard]] static bool parse(const std::string& text, const std::string& source, Configuration& configuration,
                                  std::string& error);

  [[nodiscard]] bool tls() const { return !certificate.empty(); }
  /// The url agents use when the server listens on `listening_port`.
  [[nodiscard]] std::string url(unsigned short listening_port) const;
  [[nodiscard]] net::Server_Options server_options() const;
};

}  // namespace backupd
