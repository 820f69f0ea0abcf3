#include "hana/common/ondemand_conf_path.h"

#include "platform/files.h"
#include "platform/log.h"
#include "platform/product_paths.h"

namespace sap_hana {

std::string hana_state_directory() {
  return platform::product_paths::expand("/var/opt/tarvex/dorsal3/$COMPONENT/hana");
}

bool is_live_ondemand_conf(const std::string& file_name) {
  return file_name.starts_with(ondemand_conf_prefix) && file_name.find('.') == std::string::npos;
}

bool ondemand_conf_path(const std::string& sid, const std::string& instance_name, const std::string& database,
                        std::string& path) {
  if (sid.empty() || instance_name.empty()) {
    D3_ERROR("No configuration file of a log backup without a SID and an instance name, they are '%C' and '%C'\n",
             sid.c_str(), instance_name.c_str());
    return false;
  }
  path = hana_state_directory() + '/' + ondemand_conf_prefix + '_' + platform::encode_file_name(sid) + '_' +
         platform::encode_file_name(instance_name);
  if (!database.empty()) path += '_' + platform::encode_file_name(database);
  return true;
}

}  // namespace sap_hana
