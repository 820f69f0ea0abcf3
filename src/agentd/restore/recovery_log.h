#pragma once

#include <iosfwd>
#include <optional>
#include <string>

#include "json/value.h"
#include "net/json_rpc_peer.h"

namespace agentd {

/// What HANA's backup.log says of one recovery. Times are UTC.
struct Logged_Recovery {
  std::string id;  ///< HANA's own of it: no two recoveries of a database share one
  std::string started;
  std::string command;  ///< the statement
  std::string ended;    ///< empty while it goes on
  bool successful = false;
  std::string reached_time;  ///< of a recovery over logs; else empty
  std::string message;       ///< of the end
};

/// The last recovery in a backup.log, which is read to its end; none when there is none.
[[nodiscard]] std::optional<Logged_Recovery> last_recovery(std::istream& log);

/// The request "instance.recovery" {"name", "database"}: the last recovery of a database of an instance of this host,
/// by HANA's backup.log; an empty database, and "SYSTEMDB", are the system's. The result is {"found", "id", "started",
/// "command", "ended", "successful", "reached_time", "message"}; an error when a log is there and cannot be read.
[[nodiscard]] JSON_RPC_Answer tell_last_recovery(const json_spirit::Object& params);

}  // namespace agentd
