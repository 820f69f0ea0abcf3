#include "hana/common/system_control.h"

#include <strings.h>

#include "hana/common/hana_paths.h"
#include "hana/common/ini_file.h"

namespace sap_hana {

bool System_Controller::is_multi_container() const {
  Ini_File ini;
  if (!read_system_configuration(sid_, "global.ini", ini)) return false;
  const std::string* mode = ini.find("multidb", "mode");
  return mode != nullptr && ::strcasecmp(mode->c_str(), "multidb") == 0;
}

bool System_Controller::is_system_database(const std::string& name) const {
  // HANA takes the system database's name in any letter case.
  return !is_multi_container() || ::strcasecmp(name.c_str(), std::string(system_database_name).c_str()) == 0;
}

}  // namespace sap_hana
