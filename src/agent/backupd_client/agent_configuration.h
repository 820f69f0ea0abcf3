#pragma once

#include <string>
#include <vector>

#include "net/http_transport.h"
#include "platform/secure_string.h"

/// What the host was told about its backup server: the file that agent and hdbbackint share,
/// "/etc/opt/tarvex/dorsal3/agent.toml" (docs/formats/agent-configuration.md).
struct Agent_Configuration {
  std::string server_url;  ///< "http[s]://host:port", without a trailing '/'
  std::string ca_file;     ///< documented path of the accepted authorities; empty: the system's
  std::string host_uuid;
  std::string host_name;             ///< the system's own when the file does not say
  secure_string access_key;          ///< when it stands in the file itself
  std::string access_key_file;       ///< documented path of a file that holds it
  std::vector<std::string> modules;  ///< module names, "hana" for "hana.so"
  std::string log_file;              ///< documented path; empty: standard error alone
  unsigned heartbeat_seconds = 60;
  unsigned stop_limit_seconds = 60;  ///< how long running jobs may take to end when the agent stops
  net::Endpoint endpoint;            ///< made of server_url and ca_file

  /// The documented path of the file.
  [[nodiscard]] static std::string path();
  /// Reads the file. False with what, why and what to do next in `error`; `configuration` is then left alone.
  /// Unknown keys and values of a wrong type are refused.
  [[nodiscard]] static bool load(Agent_Configuration& configuration, std::string& error);
  /// The same from text; `source` names it in messages.
  [[nodiscard]] static bool parse(const std::string& text, const std::string& source,
                                  Agent_Configuration& configuration, std::string& error);

  /// The key for backupd: the one configured, or, where the caller may not read that file, the copy that the agent
  /// keeps for the SAP group. A key that everybody may read is refused.
  [[nodiscard]] bool load_access_key(secure_string& key, std::string& error) const;
  /// The configured key only, never the copy.
  [[nodiscard]] bool load_configured_key(secure_string& key, std::string& error) const;
};
