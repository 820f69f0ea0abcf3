#include <cstdint>
#include <map>
#include <string>

#include "agentd/instances/ini_section.h"
#include "agentd/log_backup/log_backup_settings.h"
#include "fuzz/small_host.h"
#include "hana/common/ini_file.h"
#include "hana/common/name_server_config_parser.h"
#include "hana/common/replication_state_getter.h"
#include "hana/common/system_control.h"

// A system's global.ini by all that read it, in the module and in the agent, which must understand the same.

namespace {

constexpr const char* configuration = "/usr/sap/HDB/SYS/global/hdb/custom/config/global.ini";
constexpr const char* name_server_configuration = "/usr/sap/HDB/SYS/global/hdb/custom/config/nameserver.ini";

struct Host {
  fuzz::Small_Host files;
  Host() {
    files.write(configuration, "");
    files.write(name_server_configuration, "");
  }
};

void compare_readers(const std::string& text) {
  const sap_hana::Ini_File ini = sap_hana::Ini_File::parse(text);
  for (const char* section : {"persistence", "backup", "multidb", "system_replication", "landscape"}) {
    const auto* of_module = ini.section(section);
    const std::map<std::string, std::string> of_agent = agentd::read_ini_section(text, section);
    fuzz::require(of_agent == (of_module == nullptr ? std::map<std::string, std::string>() : *of_module));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const Host host;
  const std::string text(reinterpret_cast<const char*>(data), size);
  compare_readers(text);
  host.files.overwrite(configuration, text);
  host.files.overwrite(name_server_configuration, text);

  const sap_hana::System_Controller system("HDB");
  fuzz::require(system.is_system_database("SYSTEMDB") &&
                system.is_system_database("TN1") != system.is_multi_container());
  agentd::Log_Backup_Settings settings;
  std::string error;
  fuzz::require(read_log_backup_settings("HDB", "", settings, error) && settings.on() == settings.lacks().empty());
  sap_hana::Replication_State_Getter::Replication_State state;
  fuzz::require(sap_hana::Replication_State_Getter("HDB").get_state(state) && !state.mode.empty());
  bool answer = false;
  static_cast<void>(sap_hana::Name_Server_Config_Parser("HDB").is_cluster(answer));
  static_cast<void>(sap_hana::Name_Server_Config_Parser("HDB").is_active_master(answer));
  return 0;
}
