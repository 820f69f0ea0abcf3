#include "hana/common/system_control.h"

#include <strings.h>

#include "hana/common/hana_paths.h"
#include "hana/common/ini_file.h"
#include "platform/files.h"

namespace sap_hana {

bool System_Controller::is_multi_container() const {
  constexpr const char* file_name = "global.ini";
  Ini_File ini;
  if (!read_system_configuration(sid_, file_name, ini)) {
    // In doubt there are tenants: HANA refuses a tenant's statement where there are none, while the statement of a
    // whole system would stop, overwrite or back up more, or something else, than was meant.
    const std::string path = system_configuration(sid_, file_name);
    return platform::is_regular_file(path.c_str()) || platform::is_directory(path.c_str());
  }
  const std::string* mode = ini.find("multidb", "mode");
  return mode != nullptr && ::strcasecmp(mode->c_str(), "multidb") == 0;
}

bool System_Controller::is_system_database(const std::string& name) const {
  // HANA takes the system database's name in any letter case.
  return !is_multi_container() || ::strcasecmp(name.c_str(), std::string(system_database_name).c_str()) == 0;
}

}  // namespace sap_hana
