#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "json/value.h"
#include "platform/clock.h"

namespace agentd {

/// Databases that a restore writes over.
struct Restored_Databases {
  std::string resource_uuid;           ///< of the system that is restored into
  std::string sid;                     ///< of the backed-up system, for when that of the other one cannot be read
  std::vector<std::string> databases;  ///< each once; empty: the definition is no restore

  /// Out of a job definition's document.
  [[nodiscard]] static Restored_Databases of(const json_spirit::Value& definition);
};

/// Has backupd record the log backups of these databases that wait on this host, and waits until all are in their sets:
/// after the restore their database would not be the one that they were made of. Waits for `drain_limit` in all, less
/// when `stop` is set. What is left then is named in the log, and so is a backupd that does not answer; the restore
/// need not fail over either.
void drain_log_backups(const Restored_Databases& restored, const std::string& host_uuid, platform::Wait_Event& stop);

inline constexpr std::chrono::minutes drain_limit{10};
/// Most databases have one or two that a run records within a second or two; the pauses double from here on.
inline constexpr std::chrono::milliseconds drain_first_poll{250};
inline constexpr std::chrono::seconds drain_poll{5};

}  // namespace agentd
