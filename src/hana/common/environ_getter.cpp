#include "hana/common/environ_getter.h"

#include "hana/common/hana_paths.h"
#include "hana/common/ini_file.h"
#include "hana/common/installation.h"
#include "platform/log.h"

namespace sap_hana {

Environ_Getter* Environ_Getter::instance() {
  static Environ_Getter getter;
  return &getter;
}

bool Environ_Getter::get_landscape_id(const char* sid, std::string& id) {
  constexpr const char* file = "nameserver.ini";
  Ini_File ini;
  const std::string system = sid == nullptr ? "" : sid;
  if (!read_system_configuration(system, file, ini)) return false;
  const std::string* found = ini.find("landscape", "id");
  if (found == nullptr || found->empty()) {
    D3_ERROR("The landscape id of HANA system %C is not known: '%C' has none\n", system.c_str(),
             system_configuration(system, file).c_str());
    return false;
  }
  id = *found;
  return true;
}

bool Environ_Getter::get_trace_dirs(const std::string& sid, std::vector<std::string>& dirs) {
  std::vector<std::string> found;
  for (const std::string& instance_name : installed_instances(sid))
    for (const std::string& host : host_folders(sid, instance_name))
      found.push_back(trace_directory(sid, instance_name, host));
  if (found.empty()) {
    D3_ERROR("HANA system '%C' has no trace directory on this host\n", platform::cut_for_log(sid).c_str());
    return false;
  }
  dirs = std::move(found);
  return true;
}

}  // namespace sap_hana
