#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "backupd/store/database.h"
#include "json/value.h"

namespace backupd {

/// How far a definition that is set up at what it backs up has come there.
struct Setup_Row {
  /// The words are those of the stored record and of the interface.
  static constexpr char installed[] = "installed";  ///< wanted, and as a state
  static constexpr char removed[] = "removed";      ///< wanted, and as a state
  static constexpr char pending[] = "pending";      ///< nobody could be asked yet
  static constexpr char failed[] = "failed";        ///< the agent says no

  std::string definition_id;
  std::string host_uuid;
  std::string wanted;
  std::string state;
  std::string message;
  json_spirit::Array alerts;     ///< that the agent raised the last time
  std::string time;              ///< of the last change of the state, UTC
  bool renew = false;            ///< to be removed before it is set up once more
  std::int64_t wish = 0;         ///< counts what operators asked for
  std::int64_t tries = 0;        ///< in vain, since the wish
  std::int64_t due = 0;          ///< POSIX seconds
  json_spirit::Object at_agent;  ///< the definition that may be set up there now; empty: none

  [[nodiscard]] bool settled() const { return wanted == state; }
};

/// Whether a definition's document is one that is set up at what it backs up.
[[nodiscard]] bool is_set_up(const json_spirit::Object& definition);

// Each within the transaction of its caller.

/// The definition shall be set up; one that is already stays so unless it changed or `renew` is asked for.
void want_setup(Sql_Session& session, const std::string& definition_id, const std::string& host_uuid, bool changed,
                bool renew);
/// It shall be removed. `forced`: it counts as removed, whatever is left at the agent.
void want_removal(Sql_Session& session, const std::string& definition_id, bool forced);
/// False when there is none.
[[nodiscard]] bool find_setup(Sql_Session& session, const std::string& definition_id, Setup_Row& row);
/// Those of a host that are not what is wanted are due now.
void hasten_setups(Sql_Session& session, const std::string& host_uuid);
/// Stores what became of a wish; when another one came meanwhile, only what is known of the agent. False then.
[[nodiscard]] bool store_setup_result(Sql_Session& session, const Setup_Row& row);
/// One that is not what is wanted.
struct Due_Setup {
  std::string definition_id;
  std::string host_uuid;
  std::int64_t due = 0;  ///< POSIX seconds
};
/// All of them, the one that is due first first.
[[nodiscard]] std::vector<Due_Setup> open_setups(Sql_Session& session);
/// Forgets definitions that were removed before `time` (UTC) and that no run needs any more.
void forget_removed(Sql_Session& session, const std::string& time);

/// {"wanted", "state", "message", "alerts", "time"}
[[nodiscard]] json_spirit::Object to_json(const Setup_Row& row);

}  // namespace backupd
