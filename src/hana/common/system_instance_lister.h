#pragma once

#include <list>
#include <string>

#include "hana/common/hana_records.h"

namespace sap_hana {

/// Finds the HANA installations of this host in the file system; works while HANA is down.
class System_Instance_Lister {
 public:
  /// All instances, in order of system id and instance name, appended. A host without HANA is a success with none.
  [[nodiscard]] bool list(std::list<System_Instance_Info>& infos);
  /// One instance. False, with a message, when it is not installed here; `info` is then left alone.
  [[nodiscard]] bool list(System_Instance_Info& info, const std::string& sid, const std::string& instance_name);
};

}  // namespace sap_hana
