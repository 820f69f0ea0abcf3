#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "backupd/store/database.h"
#include "backupd/store/list_query.h"

namespace backupd {

/// Whose backups are recorded in order.
struct Ondemand_Database {
  std::string host_uuid;
  std::string sid;
  std::string name;
  auto operator<=>(const Ondemand_Database&) const = default;
  /// For people: "TN1@HDB".
  [[nodiscard]] std::string text() const { return name + "@" + sid; }
};

/// An entry of the queue of runs that are owed to HANA's own backups.
struct Ondemand_Entry {
  /// Why it may not be begun.
  enum Hold : std::int64_t {
    free = 0,
    behind = 1,         ///< an earlier backup of the database is not recorded yet
    no_definition = 2,  ///< its definition was removed, and no other one backs the database's logs up
    given_up = 3        ///< tried so often and so long in vain that only an operator has it tried again, or drops it
  };
  /// A backup that was tried so often does not hold back the later ones of its database any more: it may never be
  /// recorded, and HANA cannot be recovered over logs that nobody knows.
  /// One that HANA has begun again since, as it took the first for failed, holds nothing back after its first try.
  static constexpr std::int64_t tries_in_order = 7;
  /// How long after the first try that failed a backup is given up: while its agent is away it is not tried, and waits
  /// as long as that takes. HANA has made the first kind again, so that nobody misses it;
  /// the other kind may wait for the next full backup of its database, which two weeks of schedules should bring.
  static constexpr std::int64_t seconds_when_begun_again = std::int64_t{24} * 3600;
  static constexpr std::int64_t seconds_otherwise = std::int64_t{14} * 24 * 3600;

  std::int64_t id = 0;
  std::string job_uuid;
  std::string definition_id;
  Ondemand_Database database;
  std::int64_t tries = 0;
  std::int64_t due = 0;  ///< POSIX seconds
  std::string run;       ///< the run that was begun for it, "" when none is under way
  bool run_ended = false;
  std::string run_message;  ///< of the ended run
};

/// Longest pause between two tries.
inline constexpr std::int64_t ondemand_longest_pause_seconds = 3600;

// Each within a session of the caller; what changes something needs a transaction.

/// Adds the entry of a Backint job record, in the transaction that stores its last object. Nothing when it is there.
void add_ondemand_run(Sql_Session& session, const std::string& job_uuid);
/// Removes the entry of a record, in the transaction that commits the backup set of its objects.
void remove_ondemand_run(Sql_Session& session, const std::string& job_uuid);

/// Those with a run, ended or not.
[[nodiscard]] std::vector<Ondemand_Entry> ondemand_runs_under_way(Sql_Session& session);
/// Those that may be begun now, in order.
[[nodiscard]] std::vector<Ondemand_Entry> ondemand_runs_due(Sql_Session& session, std::int64_t now);
/// When the next one of the others falls due; 0 when none does.
[[nodiscard]] std::int64_t next_ondemand_due(Sql_Session& session, std::int64_t now);
/// The run of the entry ended in vain, which is noted `now`; the entry is due at `due`. False when the entry has no
/// such run any more.
[[nodiscard]] bool put_off_ondemand_run(Sql_Session& session, const Ondemand_Entry& entry, std::int64_t now,
                                        std::int64_t due);
/// The entry, which was put off just now, is not begun any more when it was tried for long enough: its objects and
/// records stay as they are. False when it goes on.
[[nodiscard]] bool give_up_ondemand_run(Sql_Session& session, const Ondemand_Entry& entry, std::int64_t now);
/// Lets the entry wait until a definition for its database is stored.
void hold_without_definition(Sql_Session& session, const Ondemand_Entry& entry);

/// A definition of this host was stored: what waited for one is looked at again.
void definition_stored(Sql_Session& session, const std::string& host_uuid);
/// The definition of log backups for a database, "" when there is none: the newest one that names it, else the newest
/// for its whole instance.
[[nodiscard]] std::string find_log_definition(Sql_Session& session, const Ondemand_Database& database);

/// What was given up of a database is tried again, for as long as at first, but takes no turn of newer ones.
void retry_given_up_runs(Sql_Session& session, const Ondemand_Database& database);
/// What was given up of a database leaves the queue, and no set will hold it. Its records and objects stay, so that
/// HANA can still read what it calls saved. The entries as they were shown.
[[nodiscard]] json_spirit::Array drop_given_up_runs(Sql_Session& session, const Ondemand_Database& database);
/// All that waits of a database is due now, except what was given up.
void drain_ondemand_runs(Sql_Session& session, const Ondemand_Database& database);
/// Whether a list has those that were given up.
enum class Given_Up { shown, left_out };
/// As the interface shows them: {"id", "definition_uuid", "host_uuid", "sid", "database", "backint_job_uuid", "state",
/// "tries", "next_try_ms", "stored_ms", "message"}.
[[nodiscard]] bool list_ondemand_runs(Database& database, const List_Query& query, Given_Up given_up, List_Page& page);

}  // namespace backupd
