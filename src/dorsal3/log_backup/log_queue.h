#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <string>

#include "dorsal3/log_backup/log_backup_picture.h"
#include "dorsal3/verb.h"

namespace dorsal3 {

/// Backups of one database on one host that HANA made by itself and that no set holds yet.
struct Log_Queue {
  std::uint64_t waiting = 0;       ///< without those that were given up
  std::uint64_t given_up = 0;      ///< by the server: only an operator has them tried again, or drops them
  std::chrono::seconds oldest{0};  ///< how long the oldest of all of them lies stored; 0 when that is not known
  std::string message;             ///< why that one waits, or what its last run said

  /// A log backup is recorded within minutes, and tried in vain for two hours before the others pass it.
  static constexpr std::chrono::hours late_after{2};

  [[nodiscard]] bool empty() const { return waiting + given_up == 0; }
  [[nodiscard]] bool late() const { return given_up != 0 || oldest >= late_after; }
  /// "3 wait, the oldest for 2:05:00: <message>; 1 given up".
  [[nodiscard]] std::string text() const;
};

/// By the name of the database.
using Log_Queues = std::map<std::string, Log_Queue>;

[[nodiscard]] bool read_log_queues(Server_Client& server, const Resource& resource, const std::string& host_uuid,
                                   Log_Queues& queues, Failure& failure);

/// Has all that waits or was given up of the subject tried now, or drops what was given up: "hosts" has a row for each
/// database that had some. Dropping wants `yes`.
[[nodiscard]] Outcome retry_log_backups(Context& context, const Log_Backup_Picture& picture,
                                        const Backup_Subject& subject);
[[nodiscard]] Outcome drop_log_backups(Context& context, const Log_Backup_Picture& picture,
                                       const Backup_Subject& subject, bool yes);

}  // namespace dorsal3
