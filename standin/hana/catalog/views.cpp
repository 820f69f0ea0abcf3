#include "catalog/views.h"

#include <functional>
#include <set>

#include "base/clock.h"
#include "base/cluster.h"
#include "base/ini.h"
#include "base/text.h"
#include "engine/sql_text.h"

namespace standin {

namespace {

/// One view: its columns and how its rows are made.
class View {
 public:
  View(Sqlite& sqlite, std::string schema, const char* name, const char* columns, bool with_database)
      : sqlite_(sqlite), table_(std::move(schema) + "." + name), with_database_(with_database) {
    int count = 1;
    for (const char* c = columns; *c != '\0'; ++c) count += *c == ',' ? 1 : 0;
    good_ =
        sqlite_.execute("CREATE TABLE " + table_ + "(" + (with_database ? "DATABASE_NAME TEXT," : "") + columns + ")");
    std::string marks = with_database ? "?,?" : "?";
    for (int i = 1; i < count; ++i) marks += ",?";
    insert_ = sqlite_.prepare("INSERT INTO " + table_ + " VALUES(" + marks + ")");
  }
  void begin(const std::string& database) {
    at_ = 0;
    if (with_database_) text(database);
  }
  View& text(const std::string& value) {
    insert_.bind(++at_, value);
    return *this;
  }
  View& number(std::int64_t value) {
    insert_.bind(++at_, value);
    return *this;
  }
  View& null() {
    insert_.bind_null(++at_);
    return *this;
  }
  View& times(std::int64_t ms) {
    if (ms == 0) return null().null();
    return text(timestamp_text(ms, false)).text(timestamp_text(ms, true));
  }
  void end() { good_ = insert_.run() && good_; }
  [[nodiscard]] bool good() const { return good_; }

 private:
  Sqlite& sqlite_;
  std::string table_;
  bool with_database_;
  Statement insert_;
  int at_ = 0;
  bool good_ = false;
};

constexpr const char* catalog_columns =
    "ENTRY_ID,ENTRY_TYPE_NAME,BACKUP_ID,SYS_START_TIME,UTC_START_TIME,SYS_END_TIME,UTC_END_TIME,STATE_NAME,COMMENT,"
    "MESSAGE,SYSTEM_ID,ENCRYPTION_ROOT_KEY_HASH,SOURCE_DATABASE_NAME";
void fill_catalog(View& view, const View_Source& source, const Database& database) {
  Statement rows = source.state.sqlite().prepare(
      "SELECT entry_id,entry_type,backup_id,start_ms,end_ms,state,comment,message FROM catalog WHERE db=? AND "
      "visible_ms<=? ORDER BY entry_id");
  rows.bind(1, database.name).bind(2, now_ms());
  while (rows.step()) {
    view.begin(database.name);
    view.number(rows.number(0)).text(rows.text(1)).number(rows.number(2)).times(rows.number(3)).times(rows.number(4));
    view.text(rows.text(5)).text(rows.text(6)).text(rows.text(7)).text(source.state.layout().sid).text("").text("");
    view.end();
  }
}

constexpr const char* file_columns =
    "ENTRY_ID,BACKUP_ID,SOURCE_ID,SOURCE_TYPE_NAME,HOST,SERVICE_TYPE_NAME,REDO_LOG_POSITION,FIRST_REDO_LOG_POSITION,"
    "LAST_REDO_LOG_POSITION,BACKUP_SIZE,DESTINATION_PATH,DESTINATION_TYPE_NAME,EXTERNAL_BACKUP_ID,LOG_SEGMENT_COUNT";
constexpr int first_position = 11, last_position = 12, segment_count = 13;
void fill_files(View& view, const View_Source& source, const Database& database) {
  Statement rows = source.state.sqlite().prepare(
      "SELECT f.entry_id,f.backup_id,source_id,source_type,host,service,redo,size,path,destination,ebid,l.first,l.last,"
      "l.segments FROM catalog_files f JOIN catalog c ON c.entry_id=f.entry_id LEFT JOIN log_files l ON "
      "l.entry_id=f.entry_id WHERE f.db=? AND visible_ms<=? ORDER BY f.rowid");
  rows.bind(1, database.name).bind(2, now_ms());
  while (rows.step()) {
    view.begin(database.name);
    view.number(rows.number(0)).number(rows.number(1)).number(rows.number(2)).text(rows.text(3)).text(rows.text(4));
    const auto number_or_null = [&](int column) {
      if (rows.is_null(column))
        view.null();
      else
        view.number(rows.number(column));
    };
    view.text(rows.text(5)).number(rows.number(6));
    number_or_null(first_position);
    number_or_null(last_position);
    view.number(rows.number(7)).text(rows.text(8)).text(rows.text(9));
    if (rows.is_null(10))
      view.null();
    else
      view.text(rows.text(10));
    number_or_null(segment_count);
    view.end();
  }
}

constexpr const char* progress_columns =
    "BACKUP_ID,HOST,PORT,SERVICE_NAME,ENTRY_TYPE_NAME,SYS_START_TIME,UTC_START_TIME,SYS_END_TIME,UTC_END_TIME,STATE_"
    "NAME,"
    "BACKUP_SIZE,TRANSFERRED_SIZE";
void fill_progress(View& view, const View_Source& source, const Database& database) {
  for (const Progress_Row& row : source.progress) {
    if (row.database != database.name) continue;
    view.begin(database.name);
    view.number(row.backup_id).text(source.state.layout().host).number(row.port).text(row.service).text(row.type);
    view.times(row.start_ms).times(row.end_ms).text(row.state).number(row.size).number(row.transferred).end();
  }
}

constexpr const char* service_columns =
    "HOST,PORT,SERVICE_NAME,PROCESS_ID,DETAIL,ACTIVE_STATUS,SQL_PORT,COORDINATOR_TYPE,IS_DATABASE_LOCAL";
void fill_services(View& view, const View_Source& source, const Database& database) {
  for (const Service& service : database.services) {
    view.begin(database.name);
    view.text(source.state.layout().host).number(service.port).text(service.name).number(source.process_id);
    const bool master = service.name == "nameserver" || service.name == "indexserver";
    view.text(master ? "master" : "")
        .text("YES")
        .number(service.sql_port)
        .text(master ? "MASTER" : "NONE")
        .text("TRUE");
    view.end();
  }
}

constexpr const char* database_columns = "SYSTEM_ID,DATABASE_NAME,HOST,START_TIME,VERSION,USAGE";
constexpr const char* database_columns_of_all = "SYSTEM_ID,HOST,START_TIME,VERSION,USAGE";

constexpr const char* databases_columns =
    "DATABASE_NAME,DESCRIPTION,ACTIVE_STATUS,ACTIVE_STATUS_DETAILS,OS_USER,OS_GROUP,RESTART_MODE,"
    "FALLBACK_SNAPSHOT_CREATE_TIME";
void fill_databases(Sqlite& sqlite, const View_Source& source) {
  View view(sqlite, "SYS", "M_DATABASES", databases_columns, false);
  const Layout& layout = source.state.layout();
  for (const Database& database : source.state.databases()) {
    if (source.database != system_database && database.name != source.database) continue;
    view.begin({});
    const std::string label = database.name == system_database ? "SystemDB" : database.name;
    view.text(database.name).text(label + "-" + layout.sid + "-" + layout.number).text(database.status);
    view.text(database.status == "YES" ? "ACTIVE" : "").text("").text("").text("DEFAULT").null().end();
  }
}

void fill_inifiles(View& view, const View_Source& source, const Database& database) {
  const Layout& layout = source.state.layout();
  const auto add = [&](const std::string& file, const char* layer, const std::string& tenant, const std::string& path) {
    const Ini ini = Ini::load(path);
    for (const Ini::Entry& entry : ini.entries()) {
      view.begin(database.name);
      view.text(file).text(layer).text(tenant).text("").text(entry.section).text(entry.key).text(entry.value).end();
    }
  };
  for (const std::string file : {"global.ini", "nameserver.ini", "indexserver.ini"}) {
    add(file, "SYSTEM", "", layout.configuration(file));
    if (layout.multi() && database.name != system_database)
      add(file, "DATABASE", database.name, layout.configuration(layout.database_folder(database.name) + "/" + file));
  }
}

void fill_landscape(View& view, const View_Source& source, const Database& database) {
  const Layout& layout = source.state.layout();
  for (const Cluster_Host& host : hosts_of(layout)) {
    const Layout place = layout_of(layout, host);
    const bool active = host.name == layout.host || phase_of(place) == "running";
    const int rank = master_rank(place);
    const char* role = host.name == layout.host ? "MASTER" : "SLAVE";
    view.begin(database.name);
    view.text(host.name).text(active ? "YES" : "NO").text(active ? "OK" : "ERROR");
    view.text(rank < 0 ? "SLAVE" : "MASTER " + std::to_string(rank + 1)).text(role);
    view.text("WORKER").text(role).end();
  }
}

using Filler = std::function<void(View&, const View_Source&, const Database&)>;

using Names = std::set<std::string>;

/// The names that stand in the statement with SYS_DATABASES before them, or without it: a view that nothing names is
/// not filled, since a long history makes that slow.
Names names_in(const std::string& sql, bool of_all) {
  Names names;
  const auto tokens = tokenize(sql);
  for (std::size_t i = 0; i < tokens.size(); ++i) {
    if (tokens[i].kind != Token::word && tokens[i].kind != Token::name) continue;
    const bool qualified = i >= 2 && tokens[i - 1].kind == Token::symbol && tokens[i - 1].value == "." &&
                           upper(tokens[i - 2].value) == "SYS_DATABASES";
    if (qualified == of_all) names.insert(tokens[i].value);
  }
  return names;
}

bool fill_schema(Sqlite& sqlite, const std::string& schema, const Names& names, const View_Source& source, bool all) {
  const Layout& layout = source.state.layout();
  // One transaction for all rows: each of its own would cost as much as the row.
  bool good = sqlite.execute("BEGIN");
  const auto fill = [&](const char* name, const char* columns, const Filler& filler) {
    if (!names.contains(name)) return;
    View view(sqlite, schema, name, columns, all);
    for (const Database& database : source.state.databases())
      if (all ? database.status == "YES" : database.name == source.database) filler(view, source, database);
    good = view.good() && good;
  };
  fill("M_BACKUP_CATALOG", catalog_columns, fill_catalog);
  fill("M_BACKUP_CATALOG_FILES", file_columns, fill_files);
  constexpr const char* progress_since = "1.00.100";
  if (!version_below(layout.version, progress_since)) fill("M_BACKUP_PROGRESS", progress_columns, fill_progress);
  fill("M_SERVICES", service_columns, fill_services);
  fill("M_INIFILE_CONTENTS", "FILE_NAME,LAYER_NAME,TENANT_NAME,HOST,SECTION,KEY,VALUE", fill_inifiles);
  fill("M_LANDSCAPE_HOST_CONFIGURATION",
       "HOST,HOST_ACTIVE,HOST_STATUS,NAMESERVER_CONFIG_ROLE,NAMESERVER_ACTUAL_ROLE,INDEXSERVER_CONFIG_ROLE,"
       "INDEXSERVER_ACTUAL_ROLE",
       fill_landscape);
  fill("M_DATABASE", all ? database_columns_of_all : database_columns,
       [&](View& view, const View_Source& from, const Database& database) {
         view.begin(database.name);
         view.text(layout.sid);
         if (!all) view.text(database.name);
         view.text(layout.host).text(timestamp_text(from.start_ms, false)).text(layout.version).text("CUSTOM").end();
       });
  return sqlite.execute("COMMIT") && good;
}

}  // namespace

bool attach_views(Sqlite& sqlite, const std::string& sql, const View_Source& source) {
  const Names own = names_in(sql, false);
  if (!sqlite.execute("ATTACH ':memory:' AS SYS")) return false;
  if (!sqlite.execute("CREATE TABLE SYS.DUMMY(DUMMY TEXT); INSERT INTO SYS.DUMMY VALUES('X')")) return false;
  if (!fill_schema(sqlite, "SYS", own, source, false)) return false;
  const bool multi = source.state.layout().multi();
  if (multi && own.contains("M_DATABASES")) fill_databases(sqlite, source);
  if (!multi || source.database != system_database) return true;
  return sqlite.execute("ATTACH ':memory:' AS SYS_DATABASES") &&
         fill_schema(sqlite, "SYS_DATABASES", names_in(sql, true), source, true);
}

}  // namespace standin
