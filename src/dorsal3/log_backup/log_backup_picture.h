#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "dorsal3/server/resources.h"

namespace dorsal3 {

/// One host of an instance, as its agent sees the log backup there.
struct Log_Backup_Host {
  std::string uuid;
  std::string name;
  std::string error;           ///< why its agent could not be asked; then the rest is empty
  json_spirit::Object status;  ///< what "instance.log_backup" answers (docs/backupd-api.md)

  /// The instance runs there and is no secondary: HANA's settings count.
  [[nodiscard]] bool open() const;
  /// The file by which the logs of a database are stored: its own, else that of the instance. False when there is none.
  [[nodiscard]] bool find_file(const std::string& database, json_spirit::Object& file) const;
  /// What keeps the logs of a database from Backint; empty for nothing.
  [[nodiscard]] std::string lacks(const std::string& database) const;
  /// Copies that were set aside, which count as installed.
  [[nodiscard]] std::vector<std::string> copies() const;
  /// Other systems on this host that have a log backup.
  [[nodiscard]] std::vector<std::string> other_systems() const;
};

/// Everything the command knows of the log backup of an instance.
struct Log_Backup_Picture {
  Resource resource;
  std::vector<std::string> databases;  ///< of the instance; those of the files when it cannot be asked
  std::string databases_error;         ///< why it could not be asked
  std::vector<Log_Backup_Host> hosts;
  std::vector<json_spirit::Object> definitions;  ///< log backups of the instance, those being removed too

  /// The definition by its id; null when the server does not know it.
  [[nodiscard]] const json_spirit::Object* definition(const std::string& id) const;
  /// Those that shall be set up for exactly this entry; on one host unless `host_uuid` is empty.
  [[nodiscard]] std::vector<json_spirit::Object> definitions_of(const std::string& entry,
                                                                const std::string& host_uuid) const;
};

/// Asks the server and the agents of all hosts, or of `host_uuid` alone when it is not empty. An agent that cannot be
/// asked is told in the picture.
[[nodiscard]] bool read_picture(Server_Client& server, const Resource& resource, const std::string& host_uuid,
                                Log_Backup_Picture& picture, Failure& failure);
/// The same for one host.
void read_host(Server_Client& server, const Resource& resource, Log_Backup_Host& host);

/// {"wanted", "state", "message"} of a definition; empty texts when it has none.
struct Setup_View {
  std::string wanted;
  std::string state;
  std::string message;
  explicit Setup_View(const json_spirit::Object& holder);
  [[nodiscard]] bool installed() const { return wanted == "installed" && state == "installed"; }
  /// The definition is kept for its runs alone.
  [[nodiscard]] bool removed() const { return wanted == "removed" && state == "removed"; }
  /// Nobody could be asked yet.
  [[nodiscard]] bool pending() const { return state == "pending"; }
};

}  // namespace dorsal3
