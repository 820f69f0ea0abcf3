#pragma once

#include <string>

namespace sap_hana {

/// System replication as the local site of one system sees it.
class Replication_State_Getter {
 public:
  struct Replication_State {
    std::string mode;            ///< "none", "primary", "sync", "syncmem", "async"
    std::string operation_mode;  ///< "logreplay" and others; empty when there is none
  };

  explicit Replication_State_Getter(const std::string& sid) : sid_(sid) {}
  /// Asks hdbnsutil, again while it has no mode yet, then without the services, then reads the configuration. False,
  /// with a message, when nothing tells; `state` is then empty.
  [[nodiscard]] bool get_state(Replication_State& state);

 private:
  std::string sid_;
};

}  // namespace sap_hana
