#include "engine/system_state.h"

#include <algorithm>
#include <functional>

#include "base/files.h"
#include "base/text.h"

namespace standin {

namespace {

constexpr const char* connection_settings = "PRAGMA synchronous=NORMAL;";
/// Kept in the file once its tables are there, so that each connection need not read the definitions again: one more
/// with each change of them.
constexpr std::int64_t schema_version = 1;
constexpr const char* schema = R"(
PRAGMA journal_mode=WAL;
CREATE TABLE IF NOT EXISTS databases(name TEXT PRIMARY KEY, position INTEGER, status TEXT NOT NULL,
  stops INTEGER NOT NULL DEFAULT 0, broken INTEGER NOT NULL DEFAULT 0);
CREATE TABLE IF NOT EXISTS services(db TEXT, name TEXT, volume INTEGER, port INTEGER, sql_port INTEGER, ballast INTEGER,
  seed INTEGER);
CREATE INDEX IF NOT EXISTS services_by_database ON services(db);
CREATE TABLE IF NOT EXISTS users(db TEXT, name TEXT, salt BLOB, hash BLOB, privileges TEXT, locked INTEGER,
  failures INTEGER, PRIMARY KEY(db, name));
CREATE TABLE IF NOT EXISTS catalog(entry_id INTEGER PRIMARY KEY, db TEXT, entry_type TEXT, backup_id INTEGER,
  start_ms INTEGER, end_ms INTEGER, state TEXT, comment TEXT, message TEXT, savepoint INTEGER, visible_ms INTEGER,
  savepoint_ms INTEGER NOT NULL DEFAULT 0, branch INTEGER NOT NULL DEFAULT 0);
CREATE INDEX IF NOT EXISTS catalog_by_database ON catalog(db, backup_id);
CREATE TABLE IF NOT EXISTS catalog_files(db TEXT, entry_id INTEGER, backup_id INTEGER, source_id INTEGER,
  source_type TEXT, host TEXT, service TEXT, size INTEGER, path TEXT, destination TEXT, ebid TEXT, redo INTEGER);
CREATE INDEX IF NOT EXISTS files_by_database ON catalog_files(db, backup_id);
CREATE TABLE IF NOT EXISTS pages(db TEXT, page INTEGER, hash BLOB, savepoint INTEGER, PRIMARY KEY(db, page))
  WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS ballast_changes(id INTEGER PRIMARY KEY AUTOINCREMENT, db TEXT, service TEXT, first INTEGER,
  pages INTEGER, version INTEGER);
CREATE TABLE IF NOT EXISTS savepoints(db TEXT, id INTEGER, ms INTEGER, redo INTEGER, ballast INTEGER,
  PRIMARY KEY(db, id)) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS redo(db TEXT, position INTEGER, commit_ms INTEGER, statement TEXT, PRIMARY KEY(db, position))
  WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS log_files(entry_id INTEGER PRIMARY KEY, first INTEGER, last INTEGER, segments INTEGER,
  until_ms INTEGER);
CREATE TABLE IF NOT EXISTS service_logs(db TEXT, service TEXT, saved INTEGER, closed INTEGER, segments INTEGER,
  opened_ms INTEGER, PRIMARY KEY(db, service)) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS branches(db TEXT, id INTEGER, parent INTEGER, fork INTEGER, PRIMARY KEY(db, id)) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS log_discards(db TEXT PRIMARY KEY, backup_id INTEGER);
)";

/// Ports as documented: 3NN01/3NN13 name server, 3NN03/3NN15 first tenant, 3NN07 xsengine, then from 3NN40 in threes.
constexpr int nameserver_port = 1;
constexpr int system_sql_port = 13;
constexpr int first_tenant_port = 3;
constexpr int first_tenant_sql_port = 15;
constexpr int first_further_port = 40;
constexpr int ports_per_service = 3;

}  // namespace

bool System_State::open(const Layout& layout) {
  layout_ = layout;
  if (!sqlite_.open(layout.shared("system.db")) || !sqlite_.execute(connection_settings)) return false;
  {
    Statement version = sqlite_.prepare("PRAGMA user_version");
    if (version.step() && version.number(0) == schema_version) return true;
  }
  return sqlite_.execute(schema) && sqlite_.execute("PRAGMA user_version=" + std::to_string(schema_version));
}

std::vector<Database> System_State::databases() {
  std::vector<Database> found;
  Statement rows = sqlite_.prepare(
      "SELECT d.name, d.status, s.name, s.volume, s.port, s.sql_port, s.ballast, s.seed FROM databases d LEFT JOIN "
      "services s ON s.db=d.name ORDER BY d.position, d.name, s.volume, s.rowid");
  while (rows.step()) {
    if (found.empty() || found.back().name != rows.text(0)) found.push_back({rows.text(0), rows.text(1), {}});
    if (rows.is_null(2)) continue;
    found.back().services.push_back({rows.text(2), static_cast<int>(rows.number(3)), static_cast<int>(rows.number(4)),
                                     static_cast<int>(rows.number(5)), rows.number(6),
                                     static_cast<std::uint64_t>(rows.number(7))});
  }
  return found;
}

std::optional<Database> System_State::database(const std::string& name) {
  for (Database& database : databases())
    if (database.name == name) return std::move(database);
  return std::nullopt;
}

bool System_State::add_database(const std::string& name, const std::vector<std::string>& services,
                                std::int64_t ballast_pages) {
  Statement count = sqlite_.prepare("SELECT count(*), (SELECT count(*) FROM services) FROM databases");
  if (!count.step()) return false;
  const std::int64_t position = count.number(0);
  const int used = static_cast<int>(count.number(1));
  count = Statement();
  Statement insert = sqlite_.prepare("INSERT INTO databases(name,position,status) VALUES(?,?,'YES')");
  if (!insert.bind(1, name).bind(2, position).run()) return false;
  const bool first_tenant = layout_.multi() ? position == 1 : true;
  const auto share = ballast_pages / static_cast<std::int64_t>(std::max<std::size_t>(services.size(), 1));
  int volume = name == system_database || !layout_.multi() ? 1 : 2;
  for (std::size_t i = 0; i < services.size(); ++i) {
    const std::string& service = services[i];
    int port = layout_.port(first_further_port + (used + static_cast<int>(i)) * ports_per_service);
    int sql_port = service == "indexserver" ? port + 1 : 0;
    if (service == "nameserver") {
      port = layout_.port(nameserver_port);
      sql_port = layout_.multi() ? layout_.port(system_sql_port) : 0;
    } else if (service == "indexserver" && first_tenant) {
      port = layout_.port(first_tenant_port);
      sql_port = layout_.port(first_tenant_sql_port);
    }
    // A tenant's index server usually has volume 3 and its xsengine volume 2.
    int own_volume = volume;
    if (layout_.multi() && name != system_database)
      own_volume = service == "indexserver" ? 3 : (volume == 3 ? ++volume : volume);
    if (own_volume == volume) ++volume;
    Statement row = sqlite_.prepare("INSERT INTO services VALUES(?,?,?,?,?,?,?)");
    row.bind(1, name).bind(2, service).bind(3, own_volume).bind(4, port).bind(5, sql_port).bind(6, share);
    const auto seed = static_cast<std::int64_t>(std::hash<std::string>{}(name + "/" + service));
    if (!row.bind(7, seed).run()) return false;
  }
  return write_database_list();
}

bool System_State::set_status(const std::string& name, const std::string& status) {
  Statement update = sqlite_.prepare("UPDATE databases SET status=?1, stops=stops+(?1='NO') WHERE name=?2");
  return update.bind(1, status).bind(2, name).run() && sqlite3_changes(sqlite_.raw()) == 1 && write_database_list();
}

bool System_State::write_database_list() {
  if (!layout_.multi()) return true;
  std::string text = "# DATABASE:CONTAINER:USER:GROUP:USERID:GROUPID:HOST:SQLPORT:ACTIVE\n";
  for (const Database& database : databases()) {
    if (database.name == system_database) continue;
    int sql_port = 0;
    for (const Service& service : database.services) sql_port = std::max(sql_port, service.sql_port);
    text += database.name + "::::::" + layout_.host + ":" + std::to_string(sql_port) + ":" +
            (database.status == "YES" ? "yes" : "no") + "\n";
  }
  return write_file(layout_.real(layout_.global_directory() + "/mdc/databases.lst"), text);
}

std::int64_t System_State::stops_of(const std::string& name) {
  Statement row = sqlite_.prepare("SELECT stops FROM databases WHERE name=?");
  return row.bind(1, name).step() ? row.number(0) : 0;
}

bool System_State::set_broken(const std::string& name, bool broken) {
  Statement update = sqlite_.prepare("UPDATE databases SET broken=? WHERE name=?");
  return update.bind(1, broken ? 1 : 0).bind(2, name).run();
}

bool System_State::is_broken(const std::string& name) {
  Statement row = sqlite_.prepare("SELECT broken FROM databases WHERE name=?");
  return row.bind(1, name).step() && row.number(0) != 0;
}

std::string System_State::tables_file(const std::string& database) const {
  return layout_.shared("data/" + path_part(database) + ".db");
}

}  // namespace standin
