#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "engine/system_state.h"

namespace standin {

/// One service's log since its newest log backup. Positions count the database's commits: a segment holds those behind
/// `saved` up to `closed`.
struct Service_Log {
  std::string service;
  std::int64_t saved = 0;      ///< position up to which log backups hold the log
  std::int64_t closed = 0;     ///< position up to which segments are closed
  std::int64_t segments = 0;   ///< closed ones that no log backup holds yet
  std::int64_t opened_ms = 0;  ///< since when the open segment is: no earlier commit is behind `closed`
};

/// A line of a log backup.
struct Log_Entry {
  std::int64_t position = 0;
  std::int64_t commit_ms = 0;
  std::string statement;  ///< empty for what a database writes by itself
};
std::vector<Log_Entry> parse_log_text(const std::string& text);

/// A database's redo log, as all of its services see it. Each thread uses its own.
class Redo_Log {
 public:
  Redo_Log(System_State& state, std::string database) : state_(state), database_(std::move(database)) {}
  std::int64_t position();
  /// What a database writes without anybody's statement; it changes no table.
  bool write_own_entry();
  /// Of the entries behind `position`, as they count for the size of segments and of the log area.
  std::int64_t bytes_behind(std::int64_t position);
  /// "position<tab>time<tab>statement" lines of the entries behind `first` up to `last`; a line end in a statement is
  /// "\n", a backslash is doubled.
  std::string text(std::int64_t first, std::int64_t last);

  std::optional<Service_Log> of_service(const std::string& service);
  bool begin(const Service_Log& log);
  /// Ends the open segment at `position`.
  bool close_segment(const std::string& service, std::int64_t position, std::int64_t now);
  bool mark_saved(const Service_Log& saved);
  /// The position up to which all services' logs are in backups; nothing while no log is kept.
  std::optional<std::int64_t> saved_by_all();

  /// The log is overwritten: what data backups until now need is lost, and log backups wait for the next full one.
  bool discard();
  /// Where a service's log backups begin: at the newest full data backup that came after the last discard.
  std::optional<Service_Log> start_behind_full(const std::string& service);

 private:
  System_State& state_;
  std::string database_;
};

/// The tables lie in the index server, or in the name server of a system database: its log holds the statements.
bool has_tables(const Layout& layout, const std::string& service);

}  // namespace standin
