#pragma once

#include "hana/common/hdbsql_executor.h"

namespace sap_hana {

/// Changes the system layer of global.ini through SQL, so that running services take the change at once. The executor
/// outlives this object.
class System_Config_Manager {
 public:
  enum LOG_MODE { LOG_MODE_UNKNOWN = 0, LOG_MODE_OVERWRITE = 1, LOG_MODE_NORMAL = 2 };

  explicit System_Config_Manager(const HDBSQL_Executor& executor) : executor_(executor) {}
  /// False, with a message, also for LOG_MODE_UNKNOWN.
  [[nodiscard]] bool alter_log_mode(LOG_MODE mode);
  [[nodiscard]] bool alter_auto_log_backup(bool on);
  [[nodiscard]] bool alter_log_backup_using_backint(bool on);
  [[nodiscard]] bool alter_catalog_backup_using_backint(bool on);

 private:
  [[nodiscard]] bool alter(const char* section, const char* key, const char* value);

  const HDBSQL_Executor& executor_;
};

}  // namespace sap_hana
