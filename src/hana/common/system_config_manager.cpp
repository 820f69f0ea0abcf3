#include "hana/common/system_config_manager.h"

#include <string>

#include "platform/log.h"

namespace sap_hana {

bool System_Config_Manager::alter(const char* section, const char* key, const char* value) {
  std::string sql = "ALTER SYSTEM ALTER CONFIGURATION ('global.ini','SYSTEM') SET ('";
  sql += section;
  sql += "','";
  sql += key;
  sql += "') = '";
  sql += value;
  sql += "' WITH RECONFIGURE";
  return executor_.execute(sql, nullptr);
}

bool System_Config_Manager::alter_log_mode(LOG_MODE mode) {
  switch (mode) {
    case LOG_MODE_OVERWRITE:
      return alter("persistence", "log_mode", "overwrite");
    case LOG_MODE_NORMAL:
      return alter("persistence", "log_mode", "normal");
    default:
      D3_ERROR("Log mode %d is not known to HANA\n", static_cast<int>(mode));
      return false;
  }
}

bool System_Config_Manager::alter_auto_log_backup(bool on) {
  return alter("persistence", "enable_auto_log_backup", on ? "yes" : "no");
}

bool System_Config_Manager::alter_log_backup_using_backint(bool on) {
  return alter("backup", "log_backup_using_backint", on ? "true" : "false");
}

bool System_Config_Manager::alter_catalog_backup_using_backint(bool on) {
  return alter("backup", "catalog_backup_using_backint", on ? "true" : "false");
}

}  // namespace sap_hana
