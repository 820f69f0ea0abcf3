#include "catalog/catalog.h"

#include <algorithm>

#include "base/clock.h"
#include "base/text.h"

namespace standin {

std::int64_t Catalog::begin(const std::string& database, const std::string& type, std::int64_t backup_id,
                            const std::string& comment, std::int64_t savepoint, std::int64_t visible_ms) {
  Statement row = state_.sqlite().prepare(
      "INSERT INTO catalog(db,entry_type,backup_id,start_ms,end_ms,state,comment,message,savepoint,visible_ms,branch) "
      "VALUES(?1,?2,?3,?4,NULL,'running',?5,'',?6,?7,(SELECT coalesce(max(id),0) FROM branches WHERE db=?1))");
  // Ids are times, but never twice the same: behind those of a time that stands still or was moved back.
  const std::int64_t start_ms = std::min(backup_id, now_ms());
  row.bind(1, database).bind(2, type).bind(3, backup_id).bind(4, start_ms).bind(5, comment).bind(6, savepoint);
  if (!row.bind(7, start_ms + (visible_ms - backup_id)).run()) return 0;
  return sqlite3_last_insert_rowid(state_.sqlite().raw());
}

bool Catalog::add_file(const std::string& database, std::int64_t entry, std::int64_t backup_id,
                       const Catalog_File& file) {
  Statement row = state_.sqlite().prepare("INSERT INTO catalog_files VALUES(?,?,?,?,?,?,?,?,?,?,?,?)");
  row.bind(1, database).bind(2, entry).bind(3, backup_id).bind(4, file.source_id).bind(5, file.source_type);
  row.bind(6, state_.layout().host).bind(7, file.service).bind(8, file.size).bind(9, file.path);
  row.bind(10, file.destination);
  if (file.external_id.empty())
    row.bind_null(11);
  else
    row.bind(11, file.external_id);
  return row.bind(12, file.redo).run();
}

bool Catalog::note_log(std::int64_t entry, std::int64_t first, std::int64_t last, std::int64_t segments,
                       std::int64_t until_ms) {
  Statement row = state_.sqlite().prepare("INSERT OR REPLACE INTO log_files VALUES(?,?,?,?,?)");
  return row.bind(1, entry).bind(2, first).bind(3, last).bind(4, segments).bind(5, until_ms).run();
}

bool Catalog::note_savepoint(std::int64_t entry, std::int64_t ms) {
  Statement row = state_.sqlite().prepare("UPDATE catalog SET savepoint_ms=? WHERE entry_id=?");
  return row.bind(1, ms).bind(2, entry).run();
}

bool Catalog::complete_file(std::int64_t entry, const Catalog_File& file) {
  Statement row = state_.sqlite().prepare("UPDATE catalog_files SET size=?, ebid=? WHERE entry_id=? AND path=?");
  row.bind(1, file.size).bind(3, entry).bind(4, file.path);
  if (file.external_id.empty())
    row.bind_null(2);
  else
    row.bind(2, file.external_id);
  return row.run();
}

bool Catalog::set_pending(std::int64_t entry, bool with_end) {
  Statement row = state_.sqlite().prepare("UPDATE catalog SET state='cancel pending', end_ms=? WHERE entry_id=?");
  if (with_end)
    row.bind(1, now_ms());
  else
    row.bind_null(1);
  return row.bind(2, entry).run();
}

std::optional<std::string> Catalog::state_of_data_backup(const std::string& database, std::int64_t backup_id) {
  Statement row = state_.sqlite().prepare(
      "SELECT state FROM catalog WHERE db=? AND backup_id=? AND entry_type LIKE '%data backup'");
  if (!row.bind(1, database).bind(2, backup_id).step()) return std::nullopt;
  return row.text(0);
}

bool Catalog::finish(std::int64_t entry, const std::string& state, const std::string& message) {
  Statement row = state_.sqlite().prepare("UPDATE catalog SET state=?, message=?, end_ms=? WHERE entry_id=?");
  return row.bind(1, state).bind(2, message).bind(3, now_ms()).bind(4, entry).run();
}

std::optional<Backup_Base> Catalog::base_of_delta(const std::string& database, bool only_full) {
  const auto newest = [&](const char* types) -> std::optional<Backup_Base> {
    Statement rows =
        state_.sqlite().prepare(std::string("SELECT backup_id, savepoint FROM catalog WHERE db=? AND "
                                            "state='successful' AND backup_id>(SELECT coalesce(max(id),0) FROM "
                                            "branches WHERE db=?) AND entry_type IN (") +
                                types + ") ORDER BY backup_id DESC LIMIT 1");
    if (!rows.bind(1, database).bind(2, database).step()) return std::nullopt;
    return Backup_Base{rows.number(0), rows.number(1)};
  };
  const auto full = newest("'complete data backup'");
  if (!full || only_full) return full;
  return newest("'complete data backup','incremental data backup','differential data backup'");
}

bool Catalog::fail_unfinished() {
  Statement row = state_.sqlite().prepare(
      "UPDATE catalog SET state='failed', message='The database was stopped while the backup was running', end_ms=? "
      "WHERE end_ms IS NULL OR state IN ('running','cancel pending')");
  return row.bind(1, now_ms()).run();
}

bool Catalog::forget(const std::string& database, std::int64_t backup_id) {
  bool good = true;
  for (const char* sql :
       {"DELETE FROM log_files WHERE entry_id IN (SELECT entry_id FROM catalog WHERE db=? AND "
        "backup_id=?)",
        "DELETE FROM catalog_files WHERE db=? AND backup_id=?", "DELETE FROM catalog WHERE db=? AND backup_id=?"}) {
    Statement row = state_.sqlite().prepare(sql);
    good = row.bind(1, database).bind(2, backup_id).run() && good;
  }
  return good && sqlite3_changes(state_.sqlite().raw()) > 0;
}

std::int64_t Catalog::newest_id(const std::string& database) {
  Statement row = state_.sqlite().prepare("SELECT coalesce(max(backup_id),0) FROM catalog WHERE db=?");
  return row.bind(1, database).step() ? row.number(0) : 0;
}

std::string Catalog::text(const std::string& database) {
  std::string text;
  const auto add = [&](const char* kind, Statement rows) {
    rows.bind(1, database);
    while (rows.step()) {
      text += kind;
      for (int i = 0; i < sqlite3_column_count(rows.raw()); ++i)
        text += "\t" + replace_all(replace_all(rows.text(i), "\t", " "), "\n", " ");
      text += "\n";
    }
  };
  add("entry", state_.sqlite().prepare(
                   "SELECT entry_id,entry_type,backup_id,start_ms,end_ms,state,savepoint,savepoint_ms,branch,comment,"
                   "message FROM "
                   "catalog WHERE db=? ORDER BY entry_id"));
  add("file", state_.sqlite().prepare("SELECT entry_id,backup_id,source_id,source_type,host,service,size,path,"
                                      "destination,ebid,redo FROM catalog_files WHERE db=? ORDER BY entry_id"));
  add("log",
      state_.sqlite().prepare("SELECT l.entry_id,first,last,segments,until_ms FROM log_files l JOIN catalog c ON "
                              "c.entry_id=l.entry_id WHERE c.db=? ORDER BY l.entry_id"));
  add("branch", state_.sqlite().prepare("SELECT id,parent,fork FROM branches WHERE db=? ORDER BY id"));
  return text;
}

}  // namespace standin
