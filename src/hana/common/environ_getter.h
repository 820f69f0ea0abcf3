#pragma once

#include <string>
#include <vector>

namespace sap_hana {

/// Facts about the surroundings of a system. Keeps no state; safe from any thread.
class Environ_Getter {
 public:
  [[nodiscard]] static Environ_Getter* instance();
  /// The landscape id of the system. False, with a message, when the configuration does not tell it.
  [[nodiscard]] bool get_landscape_id(const char* sid, std::string& id);
  /// The directories with HANA's traces and backup.log, one per instance and host. False, with a message, when the
  /// system is not installed here or has none.
  [[nodiscard]] bool get_trace_dirs(const std::string& sid, std::vector<std::string>& dirs);
};

}  // namespace sap_hana
