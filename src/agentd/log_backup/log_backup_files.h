#pragma once

#include <string>
#include <vector>

namespace agentd {

/// One configuration file of a log backup on this host, as docs/formats/log-backup-configuration.md describes it.
struct Log_Backup_File {
  std::string path;
  bool live = false;          ///< false: a copy that was set aside
  std::string definition_id;  ///< empty when the file cannot be read; then `problem` tells why
  std::string sid;
  std::string instance_name;
  std::string database;  ///< empty: the file of the instance
  std::string problem;
};

/// All of them, by name. Without a directory there are none. False, with a reason, when it cannot be listed.
[[nodiscard]] bool list_log_backup_files(std::vector<Log_Backup_File>& files, std::string& error);

}  // namespace agentd
