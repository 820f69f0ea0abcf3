#pragma once

#include "agent/instance/instance_manager.h"
#include "agentd/modules/module.h"
#include "json/value.h"
#include "net/json_rpc_peer.h"

namespace agentd {

/// How the log backup of an instance stands on this host: what is set up, and what the system itself is set to. `open`:
/// the instance runs and is no secondary. Changes nothing.
///
/// {"open", "files": [{"path", "live", "database", "definition_uuid", "problem"}], "other_systems": [SIDs that have a
/// log backup on this host], "settings", "lacks", "databases": [{"name", "settings", "lacks"}]}. Files are those of
/// this instance; "databases" are those with settings of their own; "lacks" is what keeps logs from Backint, "" for
/// nothing. False, with a reason, when something cannot be read.
[[nodiscard]] bool log_backup_status(const Instance& instance, bool open, json_spirit::Object& status,
                                     std::string& error);

/// The same as a row of a check: it fails where logs that are to be backed up are not, such as on a new primary whose
/// log backup nobody has switched on after the takeover, and where the system sends its logs to nobody.
[[nodiscard]] json_spirit::Object check_log_backup(const Instance& instance, bool open);

/// Answers "instance.log_backup" {"type", "name"} with log_backup_status. Any thread.
class Log_Backup_Service {
 public:
  Log_Backup_Service(const Modules& modules, Instance_Manager& manager) : modules_(modules), manager_(manager) {}
  [[nodiscard]] JSON_RPC_Answer status(const json_spirit::Object& params) const;
  /// The instance runs here and is no secondary. False also for one that no module knows.
  [[nodiscard]] bool is_open(const std::string& type, const std::string& name) const;

 private:
  const Modules& modules_;
  Instance_Manager& manager_;
};

}  // namespace agentd
