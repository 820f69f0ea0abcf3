#include "backupd/activity_store.h"

#include <algorithm>
#include <optional>

#include "backupd/activity_report.h"
#include "backupd/body_reader.h"
#include "job/job_state.h"
#include "platform/clock.h"
#include "scrt/time_text.h"

namespace backupd {

namespace {

constexpr std::size_t log_lines_shown = 1000;
// Stands in a run that this server took for ended without being told by its agent.
constexpr char assumed_key[] = "end_assumed";
// A run that is being handed over is not yet known to its agent.
constexpr std::time_t hand_over_seconds = 600;

Outcome store_failed() {
  return Outcome::refuse(Outcome::internal, "the runs of jobs cannot be read or written now; see the server's log");
}

struct Known {
  std::string host_uuid;
  bool ended = false;
  json_spirit::Object document;
};

std::optional<Known> find(Sql_Session& session, const std::string& id) {
  const auto row = session.first("SELECT host_uuid, ended, document FROM activities WHERE id = :a", {id}, 3);
  if (!row) return std::nullopt;
  return Known{row->text(0), row->number(1) != 0, stored_object(row->text(2))};
}

void insert(Sql_Session& session, const std::string& id, const std::string& def_id, const std::string& host_uuid,
            Job_State state, const json_spirit::Object& document) {
  session.execute(
      "INSERT INTO activities (id, seq, def_id, host_uuid, state, ended, document) "
      "VALUES (:a, :b, :c, :d, :e, :f, :g)",
      {id, session.next_number("activity"), def_id, host_uuid, std::int64_t{state},
       std::int64_t{is_finished(state) ? 1 : 0}, json_spirit::dump_json(document)});
}

void update(Sql_Session& session, const std::string& id, Job_State state, const json_spirit::Object& document) {
  session.execute(
      "UPDATE activities SET state = :a, ended = :b, document = :c WHERE id = :d",
      {std::int64_t{state}, std::int64_t{is_finished(state) ? 1 : 0}, json_spirit::dump_json(document), id});
}

void set_state(json_spirit::Object& document, Job_State state, const std::string& message) {
  document["state"] = static_cast<int>(state);
  document["state_name"] = job_state_to_string(state);
  document["message"] = message;
}

/// What the server knew from the start and an agent does not tell.
void keep_origin(const json_spirit::Object& known, json_spirit::Object& document) {
  for (const char* key : {"name", "host_uuid"})
    if (const json_spirit::Value* value = known.find(key)) document[key] = *value;
}

std::string definition_name(Sql_Session& session, const std::string& def_id) {
  const auto row = session.first("SELECT name FROM job_definitions WHERE id = :a", {def_id}, 1);
  return row ? row->text(0) : std::string();
}

bool is_handed_over_now(const json_spirit::Object& document) {
  int state = JOB_STATE_NONE;
  std::string start;
  std::time_t time = 0;
  json_spirit::object_get(document, "state", state);
  json_spirit::object_get(document, "start_time", start);
  return state == JOB_STATE_DISPATCHING && iso8601_to_posix_time(start.c_str(), time) &&
         platform::Clock::current().wall_seconds() - time < hand_over_seconds;
}

Outcome take_report(Sql_Session& session, const std::string& host_uuid, Activity_Report& report,
                    std::vector<std::string>& ended) {
  const std::optional<Known> known = find(session, report.id);
  if (known && known->host_uuid != host_uuid)
    return Outcome::refuse(Outcome::forbidden, "the run " + report.id + " belongs to another host");
  report.document["host_uuid"] = host_uuid;
  if (!known) {
    report.document["name"] = definition_name(session, report.def_id);
    insert(session, report.id, report.def_id, host_uuid, report.state, report.document);
  } else {
    // Reports are handled side by side, so an older one may come after the last; only an end that this server had to
    // assume gives way.
    if (known->ended && !is_finished(report.state) && !known->document.contains(assumed_key)) return {};
    keep_origin(known->document, report.document);
    update(session, report.id, report.state, report.document);
  }
  if (is_finished(report.state) && !(known && known->ended)) ended.push_back(report.id);
  return {};
}

json_spirit::Array sets_of(Sql_Session& session, const std::string& id) {
  json_spirit::Array sets;
  for (const Sql_Row& row :
       session.query("SELECT uuid, database_name, type FROM sets WHERE job_act_id = :a ORDER BY id", {id}, 3))
    sets.emplace_back(json_spirit::Object{{"name", row.text(1)}, {"kind", row.text(2)}, {"set", row.text(0)}});
  return sets;
}

json_spirit::Array log_of(Sql_Session& session, const std::string& id) {
  json_spirit::Array lines;
  for (const Sql_Row& row : session.query("SELECT priority, line, line_time FROM job_log WHERE job_act_id = :a "
                                          "ORDER BY id DESC LIMIT " +
                                              std::to_string(log_lines_shown),
                                          {id}, 3))
    lines.emplace_back(json_spirit::Object{{"priority", row.number(0)}, {"text", row.text(1)}, {"time", row.text(2)}});
  std::reverse(lines.begin(), lines.end());
  return lines;
}

}  // namespace

Outcome Activity_Store::begin(const std::string& id, const json_spirit::Object& definition) {
  std::string def_id;
  std::string name;
  std::string host_uuid;
  json_spirit::object_get(definition, "id", def_id);
  json_spirit::object_get(definition, "name", name);
  json_spirit::object_get(definition, "host_uuid", host_uuid);
  Activity_Report report;
  const json_spirit::Object first{{"id", id},
                                  {"def_id", def_id},
                                  {"state", static_cast<int>(JOB_STATE_DISPATCHING)},
                                  {"start_time", platform::Clock::current().wall_seconds()}};
  if (Outcome outcome = report.read(first); !outcome.ok()) return outcome;
  report.document["name"] = name;
  report.document["host_uuid"] = host_uuid;
  Outcome outcome;
  const bool stored = database_.write([&](Sql_Session& session) {
    const auto running =
        session.first("SELECT id FROM activities WHERE def_id = :a AND ended = 0 LIMIT 1", {def_id}, 1);
    if (running) {
      outcome = Outcome::refuse(Outcome::conflict, "the job \"" + name + "\" is running as " + running->text(0) +
                                                       "; wait for its end or stop it");
      return false;
    }
    insert(session, id, def_id, host_uuid, report.state, report.document);
    return true;
  });
  return stored || !outcome.ok() ? outcome : store_failed();
}

bool Activity_Store::fail(const std::string& id, const std::string& message) {
  return database_.write([&](Sql_Session& session) {
    std::optional<Known> known = find(session, id);
    if (!known || known->ended) return true;
    set_state(known->document, JOB_STATE_ERROR, message);
    known->document[assumed_key] = true;
    update(session, id, JOB_STATE_ERROR, known->document);
    return true;
  });
}

Outcome Activity_Store::report(const std::string& host_uuid, const json_spirit::Array& records,
                               std::vector<std::string>& ended) {
  std::vector<Activity_Report> reports(records.size());
  for (std::size_t i = 0; i < records.size(); ++i)
    if (Outcome outcome = reports[i].read(records[i]); !outcome.ok()) return outcome;
  Outcome outcome;
  std::vector<std::string> now_ended;
  const bool stored = database_.write([&](Sql_Session& session) {
    for (Activity_Report& report : reports)
      if (outcome = take_report(session, host_uuid, report, now_ended); !outcome.ok()) return false;
    return true;
  });
  if (!stored) return outcome.ok() ? store_failed() : outcome;
  ended.insert(ended.end(), now_ended.begin(), now_ended.end());
  return {};
}

bool Activity_Store::forget_unknown(const std::string& host_uuid, const json_spirit::Array& known,
                                    std::vector<std::string>& ended) {
  return database_.write([&](Sql_Session& session) {
    for (const Sql_Row& row :
         session.query("SELECT id, document FROM activities WHERE host_uuid = :a AND ended = 0", {host_uuid}, 2)) {
      const std::string id = row.text(0);
      if (std::find(known.begin(), known.end(), json_spirit::Value(id)) != known.end()) continue;
      json_spirit::Object document = stored_object(row.text(1));
      if (is_handed_over_now(document)) continue;
      set_state(document, JOB_STATE_ERROR, "the agent does not know of this run any more");
      document[assumed_key] = true;
      update(session, id, JOB_STATE_ERROR, document);
      ended.push_back(id);
    }
    return true;
  });
}

Outcome Activity_Store::add_log(const std::string& host_uuid, const std::string& id, const json_spirit::Array& lines) {
  struct Line {
    std::int64_t priority = 0;
    std::string text;
    std::string time;
  };
  std::vector<Line> read;
  for (const json_spirit::Value& value : lines) {
    if (!value.is_object()) return Outcome::refuse(Outcome::bad_request, "a log line is not an object");
    Line line;
    Body_Reader reader(value.get_obj(), "the log line");
    reader.number("priority", line.priority);
    reader.text("text", line.text);
    reader.text("time", line.time);
    if (Outcome outcome = reader.finish(); !outcome.ok()) return outcome;
    read.push_back(std::move(line));
  }
  Outcome outcome;
  const bool stored = database_.write([&](Sql_Session& session) {
    const std::optional<Known> known = find(session, id);
    if (known && known->host_uuid != host_uuid) {
      outcome = Outcome::refuse(Outcome::forbidden, "the run " + id + " belongs to another host");
      return false;
    }
    for (const Line& line : read)
      session.execute("INSERT INTO job_log (id, job_act_id, priority, line, line_time) VALUES (:a, :b, :c, :d, :e)",
                      {session.next_number("job_log"), id, line.priority, line.text, line.time});
    return true;
  });
  return stored || !outcome.ok() ? outcome : store_failed();
}

bool Activity_Store::list(const List_Query& query, List_Page& page) {
  return database_.read([&](Sql_Session& session) {
    page.total = count_rows(session, "activities", query);
    for (const Sql_Row& row : select_rows(session, "activities", "document, id", 2, query)) {
      json_spirit::Object record = stored_object(row.text(0));
      record["databases"] = sets_of(session, row.text(1));
      page.rows.emplace_back(std::move(record));
    }
  });
}

Outcome Activity_Store::get(const std::string& id, json_spirit::Object& record) {
  std::optional<Known> known;
  if (!database_.read([&](Sql_Session& session) {
        known = find(session, id);
        if (!known) return;
        known->document["databases"] = sets_of(session, id);
        known->document["log"] = log_of(session, id);
      }))
    return store_failed();
  if (!known) return Outcome::refuse(Outcome::not_found, "there is no run " + id + "; list the jobs");
  record = std::move(known->document);
  return {};
}

bool Activity_Store::ended_with_records(std::vector<std::string>& ids) {
  return database_.read([&](Sql_Session& session) {
    for (const Sql_Row& row : session.query("SELECT DISTINCT a.id FROM activities a JOIN backint_jobs j "
                                            "ON j.job_act_id = a.id WHERE a.ended = 1",
                                            {}, 1))
      ids.push_back(row.text(0));
  });
}

}  // namespace backupd
