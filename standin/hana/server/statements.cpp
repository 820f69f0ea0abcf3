#include "server/statements.h"

#include <unistd.h>

#include "base/clock.h"
#include "base/text.h"
#include "engine/system_replication.h"
#include "server/configuration.h"

namespace standin {

namespace {
constexpr const char* delta_since = "1.00.100";
constexpr std::size_t tool_option_limit = 512;
constexpr int unknown_table = 259;
constexpr int unknown_schema = 362;
}  // namespace

bool Statements::may(std::initializer_list<std::string_view> privileges) {
  Accounts accounts(state_);
  for (const std::string_view privilege : privileges)
    if (accounts.has(database_, user_, privilege)) return true;
  return false;
}

Statements::Answer Statements::run(const std::string& sql, bool autocommit, Result& result) {
  Token_Reader reader(sql);
  if (reader.accept("SELECT") || reader.accept("WITH")) return select(sql, result);
  if (load_replication(state_.layout()).secondary())
    return Sql_Error{7, "feature not supported: this statement on a read-enabled secondary site"};
  if (reader.accept("BACKUP")) return backup(sql, reader);
  if (reader.accept_words({"ALTER", "SYSTEM"})) return alter_system(reader);
  if (reader.accept("COMMIT")) {
    if (auto error = wait_for_log()) return error;
    return tables_.commit();
  }
  if (reader.accept("ROLLBACK")) {
    tables_.rollback();
    return std::nullopt;
  }
  for (const std::string_view word : {"UPSERT", "INSERT", "UPDATE", "DELETE"})
    if (reader.accept(word)) return change(sql, autocommit, result);
  if (reader.accept_words({"CREATE", "TABLE"}) || reader.accept_words({"DROP", "TABLE"}))
    return change(sql, true, result);
  if (reader.accept("RECOVER")) return recover(sql, reader);
  if (reader.accept_words({"CREATE", "DATABASE"})) return create_database(reader);
  if (reader.accept("GRANT")) return Sql_Error{7, "feature not supported: the stand-in does not know this statement"};
  return reader.error();
}

Sql_Error connection_down() {
  return {-10807, "Connection down: [89006] System call 'recv' failed, rc=104:Connection reset by peer"};
}

Statements::Answer Statements::wait_for_log() {
  constexpr std::int64_t step_ms = 50;
  const std::int64_t stops = state_.stops_of(database_);
  while (instance_.log_writer().full(state_, database_)) {
    // Its session has ended: what it waited to change may be another content by now.
    if (state_.stops_of(database_) != stops) return connection_down();
    const bool fails = instance_.faults().take("log_area_full", database_).value_or("hang") == "fail";
    if (fails || instance_.phase() != Instance::running)
      return Sql_Error{2, "general error: the log area is full, no log backup has taken the log"};
    sleep_ms(step_ms);
  }
  if (state_.stops_of(database_) != stops) return connection_down();
  return std::nullopt;
}

Statements::Answer Statements::change(const std::string& sql, bool autocommit, Result& result) {
  if (auto error = wait_for_log()) return error;
  return tables_.change(sql, autocommit, result);
}

Statements::Answer Statements::select(const std::string& sql, Result& result) {
  const bool catalog = contains_without_case(sql, "M_BACKUP") || contains_without_case(sql, "SYS_DATABASES.");
  if (catalog && !may({"CATALOG READ", "BACKUP ADMIN", "BACKUP OPERATOR", "DATABASE ADMIN"}))
    return missing_privilege();
  if (tables_.in_transaction()) {
    // The transaction sees its own tables; the views are the same for all.
    const auto problem = tables_.select(sql, result);
    if (!problem || (problem->code != unknown_table && problem->code != unknown_schema)) return problem;
    result = {};
  }
  const View_Source source{state_, database_, instance_.backups().progress(), instance_.start_ms(),
                           static_cast<int>(::getpid())};
  return run_select(
      state_.tables_file(database_), sql, [&](Sqlite& sqlite) { return attach_views(sqlite, sql, source); }, result);
}

Statements::Answer Statements::read_database(Token_Reader& reader, std::string& name) {
  name = database_;
  if (!reader.accept("FOR")) return std::nullopt;
  if (reader.accept_words({"FULL", "SYSTEM"})) return Sql_Error{7, "feature not supported: backup of the full system"};
  if (!reader.accept_name(name)) return reader.error();
  if (!state_.layout().multi()) return Sql_Error{7, "feature not supported: FOR in a single-container system"};
  if (name != database_ && database_ != system_database)
    return Sql_Error{7, "feature not supported: FOR is possible in the system database only"};
  if (name != database_ && !may({"DATABASE ADMIN", "DATABASE BACKUP ADMIN"})) return missing_privilege();
  return std::nullopt;
}

Statements::Answer Statements::backup(const std::string& sql, Token_Reader& reader) {
  if (reader.accept("DATA")) return backup_data(sql, reader);
  if (reader.accept("CANCEL")) return backup_cancel(reader);
  return reader.error();
}

Statements::Answer Statements::backup_data(const std::string& sql, Token_Reader& reader) {
  Backup_Request request;
  request.statement = std::string(trim(sql));
  const bool knows_deltas = !version_below(state_.layout().version, delta_since);
  if (knows_deltas && reader.accept("INCREMENTAL"))
    request.type = incremental_backup;
  else if (knows_deltas && reader.accept("DIFFERENTIAL"))
    request.type = differential_backup;
  if (auto error = read_database(reader, request.database)) return error;
  if (!reader.accept("USING")) return reader.error();
  request.backint = reader.accept("BACKINT");
  if (!request.backint && !reader.accept("FILE")) return reader.error();
  if (!reader.accept("(") || !reader.accept_text(request.prefix) || !reader.accept(")")) return reader.error();
  bool asynchronous = false;
  for (;;) {
    if (request.backint && reader.accept("TOOLOPTION")) {
      if (!reader.accept_text(request.tool_option)) return reader.error();
    } else if (reader.accept("ASYNCHRONOUS")) {
      asynchronous = true;
    } else if (reader.accept("COMMENT")) {
      if (!reader.accept_text(request.comment)) return reader.error();
    } else {
      break;
    }
  }
  if (!reader.at_end()) return reader.error();
  if (request.tool_option.size() > tool_option_limit) return Sql_Error{2, "general error: TOOLOPTION is too long"};
  if (!may({"BACKUP ADMIN", "BACKUP OPERATOR"})) return missing_privilege();
  std::shared_ptr<Running_Backup> running;
  if (auto error = instance_.backups().start(state_, request, running)) return error;
  return asynchronous ? std::nullopt : Backups::wait(*running);
}

Statements::Answer Statements::backup_cancel(Token_Reader& reader) {
  std::string database;
  if (auto error = read_database(reader, database)) return error;
  if (reader.peek().kind != Token::number) return reader.error();
  const std::int64_t id = parse_number(reader.next().value).value_or(0);
  if (!reader.at_end()) return reader.error();
  if (!may({"BACKUP ADMIN", "BACKUP OPERATOR"})) return missing_privilege();
  return instance_.backups().cancel(state_, database, id);
}

Statements::Answer Statements::recover(const std::string& sql, Token_Reader& reader) {
  Recovery_Request request;
  if (auto error = parse_recovery(state_.layout(), sql, reader, request)) return error;
  if (!state_.layout().multi() || database_ != system_database || request.database.empty())
    return Sql_Error{7,
                     "feature not supported: only tenants are recovered by a statement, in the system database; others "
                     "while the instance starts"};
  if (!may({"DATABASE ADMIN", "DATABASE RECOVERY OPERATOR"})) return missing_privilege();
  return instance_.recoveries().recover_tenant(state_, request);
}

Statements::Answer Statements::alter_system(Token_Reader& reader) {
  if (reader.accept_words({"ALTER", "CONFIGURATION"})) {
    if (!may({"INIFILE ADMIN"})) return missing_privilege();
    return alter_configuration(state_, database_, reader);
  }
  const bool start = reader.accept_words({"START", "DATABASE"});
  if (!start && !reader.accept_words({"STOP", "DATABASE"})) return reader.error();
  std::string name;
  if (!reader.accept_name(name)) return reader.error();
  if (!start) reader.accept("IMMEDIATE");
  if (!reader.at_end()) return reader.error();
  return start_or_stop(start, name);
}

Statements::Answer Statements::create_database(Token_Reader& reader) {
  std::string name, password;
  if (!reader.accept_name(name)) return reader.error();
  if (!reader.accept_words({"SYSTEM", "USER", "PASSWORD"}) || !reader.accept_as_written(password))
    return reader.error();
  const bool started = !reader.accept_words({"NO", "START"});
  if (!reader.at_end()) return reader.error();
  if (!state_.layout().multi() || database_ != system_database)
    return Sql_Error{7, "feature not supported: databases are created in the system database"};
  if (!may({"DATABASE ADMIN"})) return missing_privilege();
  if (state_.database(name)) return Sql_Error{2, "general error: database " + name + " already exists"};
  const Layout& layout = state_.layout();
  const bool good =
      state_.add_database(name, {"indexserver"}, 0) && Accounts(state_).set(name, "SYSTEM", password, "ALL") &&
      make_directories(layout.real(layout.backint_directory(name))) &&
      make_directories(layout.real(layout.trace_directory(name))) && state_.set_status(name, started ? "YES" : "NO");
  return good ? std::nullopt : Answer(Sql_Error{2, "general error: database " + name + " could not be created"});
}

Statements::Answer Statements::start_or_stop(bool start, const std::string& name) {
  if (!state_.layout().multi() || database_ != system_database)
    return Sql_Error{7, "feature not supported: databases are started and stopped in the system database"};
  if (!may({"DATABASE ADMIN", start ? "DATABASE START" : "DATABASE STOP"})) return missing_privilege();
  const auto database = state_.database(name);
  if (!database || name == system_database) return Sql_Error{332, "invalid database name: " + name};
  const std::string wanted = start ? "YES" : "NO";
  if (database->status == wanted) {
    const std::string answer = instance_.faults().take("already_there", name).value_or("told");
    if (answer == "ok") return std::nullopt;
    if (answer == "error") return Sql_Error{2, "general error: database " + name + " cannot be changed"};
    return Sql_Error{2, "general error: database " + name + (start ? " is already running" : " is already stopped")};
  }
  if (start && instance_.recoveries().running(name))
    return Sql_Error{2, "general error: database " + name + " is being recovered"};
  if (start && state_.is_broken(name))
    return Sql_Error{2, "general error: database " + name +
                            " cannot be started: its recovery has not been completed, recover it first"};
  constexpr std::int64_t default_change_ms = 100;
  if (!state_.set_status(name, start ? "STARTING" : "STOPPING")) return Sql_Error{2, "general error"};
  instance_.faults().pause("database_change_ms", default_change_ms, name);
  if (instance_.faults().take("database_change_fails", name)) {
    if (!state_.set_status(name, database->status)) return Sql_Error{2, "general error"};
    return Sql_Error{2, "general error: database " + name + " did not reach the state"};
  }
  if (!state_.set_status(name, wanted)) return Sql_Error{2, "general error"};
  return std::nullopt;
}

}  // namespace standin
