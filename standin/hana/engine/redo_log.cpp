#include "engine/redo_log.h"

#include "base/clock.h"
#include "base/text.h"

namespace standin {

namespace {
constexpr std::int64_t bytes_per_entry = 64;
}

namespace {
/// On one line, whatever a value holds.
std::string escaped(const std::string& statement) {
  return replace_all(replace_all(statement, "\\", "\\\\"), "\n", "\\n");
}

std::string unescaped(std::string_view text) {
  std::string statement;
  for (std::size_t at = 0; at < text.size(); ++at) {
    const bool escape = text[at] == '\\' && at + 1 < text.size();
    if (escape) ++at;
    statement += escape && text[at] == 'n' ? '\n' : text[at];
  }
  return statement;
}
}  // namespace

std::vector<Log_Entry> parse_log_text(const std::string& text) {
  std::vector<Log_Entry> entries;
  for (const std::string& line : split(text, '\n')) {
    const std::size_t first = line.find('\t');
    const std::size_t second = line.find('\t', first + 1);
    if (first == std::string::npos || second == std::string::npos) continue;
    entries.push_back({parse_number(line.substr(0, first)).value_or(0),
                       parse_number(line.substr(first + 1, second - first - 1)).value_or(0),
                       unescaped(std::string_view(line).substr(second + 1))});
  }
  return entries;
}

bool has_tables(const Layout& layout, const std::string& service) {
  return service == "indexserver" || (service == "nameserver" && layout.multi());
}

std::int64_t Redo_Log::position() {
  Statement top = state_.sqlite().prepare("SELECT coalesce(max(position),0) FROM redo WHERE db=?");
  return top.bind(1, database_).step() ? top.number(0) : 0;
}

bool Redo_Log::write_own_entry() {
  Statement row =
      state_.sqlite().prepare("INSERT INTO redo SELECT ?1, coalesce(max(position),0)+1, ?2, '' FROM redo WHERE db=?1");
  return row.bind(1, database_).bind(2, now_ms()).run();
}

std::int64_t Redo_Log::bytes_behind(std::int64_t position) {
  Statement sum =
      state_.sqlite().prepare("SELECT coalesce(sum(length(statement)+?),0) FROM redo WHERE db=? AND position>?");
  return sum.bind(1, bytes_per_entry).bind(2, database_).bind(3, position).step() ? sum.number(0) : 0;
}

std::string Redo_Log::text(std::int64_t first, std::int64_t last) {
  Statement rows = state_.sqlite().prepare(
      "SELECT position,commit_ms,statement FROM redo WHERE db=? AND position>? AND position<=? ORDER BY position");
  rows.bind(1, database_).bind(2, first).bind(3, last);
  std::string text;
  while (rows.step()) text += rows.text(0) + "\t" + rows.text(1) + "\t" + escaped(rows.text(2)) + "\n";
  return text;
}

std::optional<Service_Log> Redo_Log::of_service(const std::string& service) {
  Statement row =
      state_.sqlite().prepare("SELECT saved,closed,segments,opened_ms FROM service_logs WHERE db=? AND service=?");
  if (!row.bind(1, database_).bind(2, service).step()) return std::nullopt;
  return Service_Log{service, row.number(0), row.number(1), row.number(2), row.number(3)};
}

bool Redo_Log::begin(const Service_Log& log) {
  Statement row = state_.sqlite().prepare("INSERT OR REPLACE INTO service_logs VALUES(?,?,?,?,?,?)");
  row.bind(1, database_).bind(2, log.service).bind(3, log.saved).bind(4, log.closed).bind(5, log.segments);
  return row.bind(6, log.opened_ms).run();
}

bool Redo_Log::close_segment(const std::string& service, std::int64_t position, std::int64_t now) {
  Statement row = state_.sqlite().prepare(
      "UPDATE service_logs SET closed=?, segments=segments+1, opened_ms=? WHERE db=? AND service=?");
  return row.bind(1, position).bind(2, now).bind(3, database_).bind(4, service).run();
}

bool Redo_Log::mark_saved(const Service_Log& saved) {
  Statement row =
      state_.sqlite().prepare("UPDATE service_logs SET saved=?, segments=segments-? WHERE db=? AND service=?");
  return row.bind(1, saved.closed).bind(2, saved.segments).bind(3, database_).bind(4, saved.service).run();
}

std::optional<std::int64_t> Redo_Log::saved_by_all() {
  Statement least = state_.sqlite().prepare("SELECT min(saved) FROM service_logs WHERE db=?");
  if (!least.bind(1, database_).step() || least.is_null(0)) return std::nullopt;
  return least.number(0);
}

namespace {
/// Of the newest successful full data backup after the last discard: its id, its redo position and when it began.
constexpr const char* newest_full =
    "SELECT c.backup_id, s.redo, c.start_ms FROM catalog c JOIN savepoints s ON s.db=c.db AND s.id=c.savepoint WHERE "
    "c.db=?1 AND c.state='successful' AND c.entry_type='complete data backup' AND c.backup_id > coalesce((SELECT "
    "backup_id FROM "
    "log_discards WHERE db=?1),0) ORDER BY c.backup_id DESC LIMIT 1";
}  // namespace

bool Redo_Log::discard() {
  Statement full = state_.sqlite().prepare(newest_full);
  bool good = true;
  if (full.bind(1, database_).step()) {
    Statement row = state_.sqlite().prepare("INSERT OR REPLACE INTO log_discards VALUES(?,?)");
    good = row.bind(1, database_).bind(2, full.number(0)).run();
  }
  if (!saved_by_all()) return good;
  Statement logs = state_.sqlite().prepare("DELETE FROM service_logs WHERE db=?");
  return logs.bind(1, database_).run() && good;
}

std::optional<Service_Log> Redo_Log::start_behind_full(const std::string& service) {
  Statement full = state_.sqlite().prepare(newest_full);
  if (!full.bind(1, database_).step()) return std::nullopt;
  return Service_Log{service, full.number(1), full.number(1), 0, full.number(2)};
}

}  // namespace standin
