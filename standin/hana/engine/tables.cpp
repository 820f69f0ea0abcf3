#include "engine/tables.h"

#include <algorithm>
#include <cctype>
#include <iterator>

#include "base/clock.h"
#include "base/text.h"

namespace standin {

namespace {

bool has_kv(Sqlite& sqlite) {
  Statement kv = sqlite.prepare("SELECT 1 FROM sqlite_master WHERE name='KV'");
  return kv.step();
}

/// The table that every database has is made by the first who comes. Another may make it meanwhile and keep a
/// transaction open on it, which nobody should wait for who only wants the table to stand.
bool make_kv(Sqlite& sqlite) {
  constexpr int step_ms = 50;
  sqlite3_busy_timeout(sqlite.raw(), step_ms);
  bool made = has_kv(sqlite);
  for (int waited = 0; !made && waited < busy_milliseconds; waited += step_ms) {
    made = sqlite.execute("CREATE TABLE KV(K TEXT PRIMARY KEY, V TEXT)");
    if (!made && !sqlite.busy()) break;
    made = made || has_kv(sqlite);
  }
  sqlite3_busy_timeout(sqlite.raw(), busy_milliseconds);
  return made || has_kv(sqlite);
}

/// TO_VARCHAR(timestamp, picture) for the parts of a picture that HANA's tools use.
void to_varchar(sqlite3_context* context, int count, sqlite3_value** values) {
  if (sqlite3_value_type(values[0]) == SQLITE_NULL) {
    sqlite3_result_null(context);
    return;
  }
  const std::string text = reinterpret_cast<const char*>(sqlite3_value_text(values[0]));
  if (count == 1) {
    sqlite3_result_text(context, text.c_str(), -1, SQLITE_TRANSIENT);
    return;
  }
  struct Part {
    std::string_view picture;
    std::size_t at, size;
  };
  constexpr Part parts[] = {{"YYYY", 0, 4}, {"HH24", 11, 2}, {"MM", 5, 2},  {"DD", 8, 2},
                            {"MI", 14, 2},  {"SS", 17, 2},   {"FF3", 20, 3}};
  const std::string picture = upper(reinterpret_cast<const char*>(sqlite3_value_text(values[1])));
  std::string out;
  for (std::size_t at = 0; at < picture.size();) {
    std::size_t used = 0;
    for (const Part& part : parts)
      if (used == 0 && std::string_view(picture).substr(at).starts_with(part.picture)) {
        if (part.at < text.size()) out += text.substr(part.at, part.size);
        used = part.picture.size();
      }
    if (used == 0) out += picture[at];
    at += used == 0 ? 1 : used;
  }
  sqlite3_result_text(context, out.c_str(), static_cast<int>(out.size()), SQLITE_TRANSIENT);
}

Sql_Error missing_table(const std::string& sql, const std::string& name) {
  const std::size_t dot = name.find('.');
  const std::string schema = dot == std::string::npos ? std::string() : name.substr(0, dot);
  const std::string table = dot == std::string::npos ? name : name.substr(dot + 1);
  const std::size_t found = upper(sql).find(upper(schema.empty() ? table : schema));
  const std::size_t at = found == std::string::npos ? 0 : found;
  const std::string place = ": line 1 col " + std::to_string(at + 1) + " (at pos " + std::to_string(at) + ")";
  if (!schema.empty() && schema != "SYS" && schema != "SYS_DATABASES")
    return {362, "invalid schema name: " + schema + place};
  return {259, "invalid table name:  Could not find table/view " + table + " in schema " +
                   (schema.empty() ? "SYSTEM" : schema) + place};
}

Sql_Error translate(Sqlite& sqlite, const std::string& sql) {
  const std::string message = sqlite.error();
  const auto rest = [&](std::string_view start) { return message.substr(start.size()); };
  if (message.starts_with("no such table: ")) {
    const std::string name = rest("no such table: ");
    if (name.starts_with("SYS_DATABASES.")) {
      Statement schema = sqlite.prepare("SELECT 1 FROM SYS_DATABASES.sqlite_master");
      if (schema.raw() == nullptr) {
        const std::size_t at = upper(sql).find("SYS_DATABASES");
        return {362, "invalid schema name: SYS_DATABASES: line 1 col " + std::to_string(at + 1) + " (at pos " +
                         std::to_string(at) + ")"};
      }
    }
    return missing_table(sql, name);
  }
  if (message.starts_with("no such column: ")) return {260, "invalid column name: " + rest("no such column: ")};
  if (message.starts_with("ambiguous column name: "))
    return {268, "column ambiguously defined: " + rest("ambiguous column name: ")};
  if (message.starts_with("no such function: "))
    return {328, "invalid name of function or procedure: " + rest("no such function: ")};
  if (message.starts_with("near \"") || message.starts_with("incomplete") || message.starts_with("unrecognized")) {
    const std::size_t end = message.rfind('"');
    const std::string near = message.starts_with("near \"") && end > 6 ? message.substr(6, end - 6) : std::string();
    const std::size_t at = near.empty() ? sql.size() : sql.find(near);
    Token token{Token::symbol, near, at == std::string::npos ? sql.size() : at};
    return syntax_error(sql, token);
  }
  if (message.starts_with("UNIQUE constraint failed"))
    return {301, "unique constraint violated: Table(" + rest("UNIQUE constraint failed: ") + ")"};
  return {2, "general error: " + message};
}

std::string hexadecimal(const std::string& data) { return "0x" + upper(hex(data.data(), data.size())); }

void add_functions(Sqlite& sqlite) {
  for (const char* name : {"TO_VARCHAR", "TO_NVARCHAR"})
    sqlite3_create_function(sqlite.raw(), name, -1, SQLITE_UTF8, nullptr, to_varchar, nullptr, nullptr);
}

std::optional<Sql_Error> collect(Sqlite& sqlite, Statement& statement, const std::string& sql, Result& result) {
  const int columns = sqlite3_column_count(statement.raw());
  result.has_rows = columns != 0;
  for (int i = 0; i < columns; ++i) result.columns.emplace_back(sqlite3_column_name(statement.raw(), i));
  while (statement.step()) {
    std::vector<Cell> row;
    for (int i = 0; i < columns; ++i) {
      switch (sqlite3_column_type(statement.raw(), i)) {
        case SQLITE_NULL:
          row.push_back({'0', {}});
          break;
        case SQLITE_INTEGER:
        case SQLITE_FLOAT:
          row.push_back({'n', statement.text(i)});
          break;
        case SQLITE_BLOB:
          row.push_back({'b', hexadecimal(statement.text(i))});
          break;
        default:
          row.push_back({'t', statement.text(i)});
          break;
      }
    }
    result.rows.push_back(std::move(row));
  }
  if (statement.failed()) return translate(sqlite, sql);
  return std::nullopt;
}

/// Words of the engine's that HANA reserves too; its other ones are names like any.
bool is_reserved(std::string_view word) {
  constexpr std::string_view words[] = {"ALL",      "ALTER", "AS",           "BEFORE",       "BEGIN",
                                        "CASE",     "CROSS", "CURRENT_DATE", "CURRENT_TIME", "CURRENT_TIMESTAMP",
                                        "DISTINCT", "ELSE",  "END",          "EXCEPT",       "FOR",
                                        "FROM",     "FULL",  "GROUP",        "HAVING",       "IF",
                                        "IN",       "INNER", "INTERSECT",    "INTO",         "IS",
                                        "JOIN",     "LEFT",  "LIMIT",        "NATURAL",      "NULL",
                                        "ON",       "ORDER", "RIGHT",        "SELECT",       "SET",
                                        "UNION",    "USING", "VALUES",       "WHEN",         "WHERE",
                                        "WITH"};
  return std::find(std::begin(words), std::end(words), word) != std::end(words);
}

/// The statement with quotes around words that stand where a table's or a column's name must, and mean something else
/// to the engine only.
std::string with_plain_names(const std::string& sql) {
  std::string text;
  std::size_t copied = 0;
  Token before;
  for (const Token& token : tokenize(sql)) {
    bool name_wanted = before.kind == Token::symbol && before.value == ".";
    for (const std::string_view word : {"FROM", "JOIN", "INTO", "UPDATE", "TABLE"})
      name_wanted = name_wanted || (before.kind == Token::word && before.value == word);
    const int size = static_cast<int>(token.value.size());
    if (name_wanted && token.kind == Token::word && sqlite3_keyword_check(token.value.c_str(), size) != 0 &&
        !is_reserved(token.value)) {
      text += sql.substr(copied, token.at - copied) + "\"" + token.value + "\"";
      copied = token.at + token.value.size();
    }
    before = token;
  }
  return text + sql.substr(copied);
}

/// HANA's UPSERT, in the words of the engine.
std::string engine_words(const std::string& sql) {
  const std::string text = with_plain_names(upper_outside_quotes(sql));
  const std::string_view body = trim(text);
  if (!body.starts_with("UPSERT ")) return text;
  std::string rest(body.substr(std::string_view("UPSERT ").size()));
  const std::size_t with_key = rest.rfind(" WITH PRIMARY KEY");
  if (with_key != std::string::npos) rest.erase(with_key);
  return "INSERT OR REPLACE INTO " + rest;
}

std::string without_end(const std::string& sql) {
  std::string_view text = trim(sql);
  while (text.ends_with(';')) text = trim(text.substr(0, text.size() - 1));
  return std::string(text);
}

}  // namespace

std::optional<Sql_Error> run_select(const std::string& tables_file, const std::string& given,
                                    const std::function<bool(Sqlite&)>& attach, Result& result) {
  const std::string sql = engine_words(without_end(given));
  Sqlite sqlite;
  if (!sqlite.open(tables_file) || !make_kv(sqlite) || !attach(sqlite))
    return Sql_Error{2, "general error: " + sqlite.error()};
  add_functions(sqlite);
  Statement statement = sqlite.prepare(sql);
  if (statement.raw() == nullptr) return translate(sqlite, sql);
  return collect(sqlite, statement, sql, result);
}

bool open_tables(Sqlite& sqlite, const std::string& tables_file) {
  if (!sqlite.open(tables_file) || !make_kv(sqlite)) return false;
  add_functions(sqlite);
  return true;
}

std::optional<Sql_Error> replay_statement(Sqlite& sqlite, const std::string& sql) {
  Statement statement = sqlite.prepare(sql);
  if (statement.raw() == nullptr) return translate(sqlite, sql);
  Result ignored;
  return collect(sqlite, statement, sql, ignored);
}

bool Table_Session::open() {
  if (!opened_) opened_ = open_tables(sqlite_, state_.tables_file(database_));
  return opened_;
}

std::optional<Sql_Error> Table_Session::change(const std::string& given, bool autocommit, Result& result) {
  const std::string sql = engine_words(without_end(given));
  if (!open()) return Sql_Error{2, "general error: " + sqlite_.error()};
  if (pending_.empty() && !sqlite_.execute("BEGIN IMMEDIATE"))
    return Sql_Error{131, "transaction rolled back by lock wait timeout: " + sqlite_.error()};
  std::optional<Sql_Error> error;
  {
    Statement statement = sqlite_.prepare(sql);
    if (statement.raw() == nullptr)
      error = translate(sqlite_, sql);
    else
      error = collect(sqlite_, statement, sql, result);
    result.has_rows = false;
    result.affected = error ? 0 : sqlite3_changes(sqlite_.raw());
  }
  if (error) {
    if (pending_.empty()) sqlite_.execute("ROLLBACK");
    return error;
  }
  pending_.push_back(sql);
  return autocommit ? commit() : std::nullopt;
}

std::optional<Sql_Error> Table_Session::select(const std::string& given, Result& result) {
  const std::string sql = engine_words(without_end(given));
  if (!open()) return Sql_Error{2, "general error: " + sqlite_.error()};
  Statement statement = sqlite_.prepare(sql);
  if (statement.raw() == nullptr) return translate(sqlite_, sql);
  return collect(sqlite_, statement, sql, result);
}

std::optional<Sql_Error> Table_Session::commit() {
  if (pending_.empty()) return std::nullopt;
  // The log comes first, as in any database: what it does not hold was not committed.
  Sqlite& log = state_.sqlite();
  bool good = log.execute("BEGIN IMMEDIATE");
  Statement top = log.prepare("SELECT coalesce(max(position),0) FROM redo WHERE db=?");
  std::int64_t position = good && top.bind(1, database_).step() ? top.number(0) : 0;
  top = Statement();
  const std::int64_t at = now_ms();
  for (const std::string& sql : pending_) {
    Statement row = log.prepare("INSERT INTO redo VALUES(?,?,?,?)");
    good = good && row.bind(1, database_).bind(2, ++position).bind(3, at).bind(4, sql).run();
  }
  good = good && sqlite_.execute("COMMIT");
  if (good) good = log.execute("COMMIT");
  pending_.clear();
  if (good) return std::nullopt;
  log.execute("ROLLBACK");
  sqlite_.execute("ROLLBACK");
  return Sql_Error{2, "general error: commit failed"};
}

void Table_Session::rollback() {
  if (!pending_.empty()) sqlite_.execute("ROLLBACK");
  pending_.clear();
}

}  // namespace standin
