#include "backupd/jobs/activity_rows.h"

#include "backupd/store/list_query.h"
#include "platform/clock.h"
#include "platform/log.h"
#include "scrt/time_text.h"

namespace backupd {

namespace {

std::string kind_of_run(Sql_Session& session, const std::string& def_id) {
  const auto row = session.first("SELECT document FROM job_definitions WHERE id = :a", {def_id}, 1);
  if (!row) return {};
  const json_spirit::Object definition = stored_object(row->text(0));
  std::string type;
  std::string subtype;
  json_spirit::object_get(definition, "type", type);
  json_spirit::object_get(definition, "subtype", subtype);
  if (type == "restore") return kind_of_restore;
  return subtype == "log" ? kind_of_log_backup : kind_of_data_backup;
}

/// What "ended_at" becomes for a run that ends now; 0 while it goes on.
std::int64_t end_of(const Activity_Row& row) { return row.ended() ? platform::Clock::current().wall_seconds() : 0; }

}  // namespace

void Activity_Row::set_state(Job_State new_state, const std::string& message) {
  state = new_state;
  document["state"] = static_cast<int>(state);
  document["state_name"] = job_state_to_string(state);
  document["message"] = message;
}

std::optional<Activity_Row> find_activity(Sql_Session& session, const std::string& id) {
  const auto row = session.first("SELECT def_id, host_uuid, state, document FROM activities WHERE id = :a", {id}, 4);
  if (!row) return std::nullopt;
  return Activity_Row{id, row->text(0), row->text(1), static_cast<Job_State>(row->number(2)),
                      stored_object(row->text(3))};
}

void insert_activity(Sql_Session& session, Activity_Row& row) {
  const std::string kind = kind_of_run(session, row.def_id);
  row.document[kind_key] = kind;
  session.execute(
      "INSERT INTO activities (id, seq, def_id, host_uuid, state, ended, document, kind, ended_at) "
      "VALUES (:a, :b, :c, :d, :e, :f, :g, :h, :i)",
      {row.id, session.next_number("activity"), row.def_id, row.host_uuid, std::int64_t{row.state},
       std::int64_t{row.ended() ? 1 : 0}, json_spirit::dump_json(row.document), kind, end_of(row)});
}

void update_activity(Sql_Session& session, const Activity_Row& row) {
  session.execute(
      "UPDATE activities SET state = :a, ended = :b, document = :c, "
      "ended_at = CASE WHEN ended = 1 AND :d > 0 AND ended_at > 0 THEN ended_at ELSE :e END WHERE id = :f",
      {std::int64_t{row.state}, std::int64_t{row.ended() ? 1 : 0}, json_spirit::dump_json(row.document), end_of(row),
       end_of(row), row.id});
}

std::string running_activity(Sql_Session& session, const std::string& def_id) {
  const auto row = session.first("SELECT id FROM activities WHERE def_id = :a AND ended = 0 LIMIT 1", {def_id}, 1);
  return row ? row->text(0) : std::string();
}

void log_to_activity(Sql_Session& session, const std::string& id, Log_Level level, const std::string& text) {
  const std::int64_t priority = level == Log_Level::info ? LM_INFO : LM_WARNING;
  session.execute("INSERT INTO job_log (id, job_act_id, priority, line, line_time) VALUES (:a, :b, :c, :d, :e)",
                  {session.next_number("job_log"), id, priority, text,
                   posix_time_to_utc_text(platform::Clock::current().wall_seconds())});
}

}  // namespace backupd
