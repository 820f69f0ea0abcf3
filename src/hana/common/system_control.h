#pragma once

#include <string>

namespace sap_hana {

/// Facts of one HANA system as its configuration files tell them, read anew at each call.
class System_Controller {
 public:
  explicit System_Controller(const std::string& sid) : sid_(sid) {}
  /// True when the system runs with tenant databases. With a message also when its configuration is there and cannot be
  /// read; false, with a message, when it is not there.
  [[nodiscard]] bool is_multi_container() const;
  /// True when `name` is the system database; on a system without tenants every name is.
  [[nodiscard]] bool is_system_database(const std::string& name) const;

 private:
  std::string sid_;
};

}  // namespace sap_hana
