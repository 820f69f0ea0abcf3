#pragma once

#include <string>

namespace sap_hana {

/// The topology of one system as its nameserver.ini tells it; works while HANA is down.
class Name_Server_Config_Parser {
 public:
  explicit Name_Server_Config_Parser(std::string sid) : sid_(std::move(sid)) {}
  /// Whether the system spans several hosts. False, with a message, when the file cannot be read.
  [[nodiscard]] bool is_cluster(bool& cluster);
  /// Whether this host is the active master name server.
  [[nodiscard]] bool is_active_master(bool& master);

 private:
  std::string sid_;
};

}  // namespace sap_hana
