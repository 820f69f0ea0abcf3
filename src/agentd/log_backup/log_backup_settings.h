#pragma once

#include <string>

#include "json/value.h"

namespace agentd {

/// What a database does with its logs, by the system's own configuration files. A restart may still be due for a log
/// mode that was changed.
struct Log_Backup_Settings {
  std::string log_mode = "normal";
  bool auto_log_backup = true;
  bool log_using_backint = false;
  bool catalog_using_backint = false;

  /// Logs reach the storage pool by themselves.
  [[nodiscard]] bool on() const;
  /// What keeps them from it, such as "log_backup_using_backint is false"; empty when nothing does.
  [[nodiscard]] std::string lacks() const;
};

/// Reads "global.ini" of the system and, above it, that of the database (none for an empty name). What neither sets has
/// HANA's default. False, with a reason, when a file is there that cannot be read.
[[nodiscard]] bool read_log_backup_settings(const std::string& sid, const std::string& database,
                                            Log_Backup_Settings& settings, std::string& error);

/// {"log_mode", "enable_auto_log_backup", "log_backup_using_backint", "catalog_backup_using_backint"}
[[nodiscard]] json_spirit::Object to_json(const Log_Backup_Settings& settings);

}  // namespace agentd
