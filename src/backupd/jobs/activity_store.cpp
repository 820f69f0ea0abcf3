#include "backupd/jobs/activity_store.h"

#include <algorithm>
#include <optional>

#include "backupd/http/body_reader.h"
#include "backupd/jobs/activity_report.h"
#include "backupd/restore/restored_bytes.h"
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

/// What the server knew from the start and an agent does not tell.
void keep_origin(const json_spirit::Object& known, json_spirit::Object& document) {
  for (const char* key : {"name", kind_key, "host_uuid", follows_key, followed_by_key, run_chain_key})
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

bool is_to_be_sent(const Run_Chain& chain) {
  return chain.hand_over == Run_Chain::waiting || chain.hand_over == Run_Chain::unsure;
}

/// For a data backup whose agent may never have heard of it: it waits again to be handed over. The agent answers a run
/// that it has already as done.
bool may_be_sent_again(Activity_Row& row) {
  std::optional<Run_Chain> chain = Run_Chain::of(row.document);
  if (!chain || row.state != JOB_STATE_DISPATCHING || chain->hand_over == Run_Chain::taken) return false;
  if (chain->hand_over == Run_Chain::sent) chain->hand_over = Run_Chain::unsure;
  chain->keep_in(row.document);
  return true;
}

/// False when the report comes too late to change anything.
bool still_counts(const Activity_Row& known, const Activity_Report& report) {
  if (!known.ended() || known.document.contains(assumed_key)) return true;
  // Reports are handled side by side, so an older one may come after the last; and what went on elsewhere stays
  // declined.
  return is_finished(report.state) && !known.document.contains(followed_by_key);
}

/// What one report of an agent changes.
Outcome take_report(Sql_Session& session, const std::string& host_uuid, Activity_Report& report,
                    const Choose_Host& choose, Activity_Store::Ended& ended) {
  const std::optional<Activity_Row> known = find_activity(session, report.id);
  if (known && known->host_uuid != host_uuid)
    return Outcome::refuse(Outcome::forbidden, "the run " + report.id + " belongs to another host");
  report.document["host_uuid"] = host_uuid;
  Activity_Row row{report.id, report.def_id, host_uuid, report.state, report.document};
  if (!known) {
    row.document["name"] = definition_name(session, report.def_id);
    insert_activity(session, row);
  } else {
    if (!still_counts(*known, report)) return {};
    keep_origin(known->document, row.document);
    row.def_id = known->def_id;
    const bool declined = row.state == JOB_STATE_SKIPPED && !known->ended();
    if (declined) ended.followed = follow_declined_run(session, row, choose) || ended.followed;
    update_activity(session, row);
  }
  if (row.ended() && !(known && known->ended())) ended.runs.push_back(row.id);
  return {};
}

json_spirit::Array sets_of(Sql_Session& session, const std::string& id) {
  json_spirit::Array sets;
  for (const Sql_Row& row : session.query("SELECT uuid, database_name, type, requested_type, lift_reason FROM sets "
                                          "WHERE job_act_id = :a ORDER BY id",
                                          {id}, 5)) {
    json_spirit::Object set{{"name", row.text(1)}, {"kind", row.text(2)}, {"set", row.text(0)}};
    if (const std::string requested = row.text(3); !requested.empty()) set["requested"] = requested;
    if (const std::string reason = row.text(4); !reason.empty()) set["lift_reason"] = reason;
    sets.emplace_back(std::move(set));
  }
  return sets;
}

struct Log_Line {
  std::string run;
  std::int64_t priority = 0;
  std::string text;
  std::string time;
};

Outcome read_line(const std::string& run, const json_spirit::Value& value, std::vector<Log_Line>& lines) {
  if (!value.is_object()) return Outcome::refuse(Outcome::bad_request, "a log line is not an object");
  Log_Line line{run, 0, {}, {}};
  Body_Reader reader(value.get_obj(), "the log line");
  reader.number("priority", line.priority);
  reader.text("text", line.text);
  reader.text("time", line.time);
  if (Outcome outcome = reader.finish(); !outcome.ok()) return outcome;
  lines.push_back(std::move(line));
  return {};
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

/// What is kept of a run in other places.
void add_kept(Sql_Session& session, const std::string& id, json_spirit::Object& document) {
  document["databases"] = sets_of(session, id);
  std::string kind;
  if (json_spirit::object_get(document, kind_key, kind) && kind == kind_of_restore)
    document[restored_size_key] = restored_bytes_of(session, id);
}

}  // namespace

Outcome Activity_Store::begin(const New_Run& run) {
  Activity_Row row = new_activity(run.id, run.def_id, run.name, run.host_uuid);
  if (run.chain) run.chain->keep_in(row.document);
  Outcome outcome;
  const bool stored = database_.write([&](Sql_Session& session) {
    const std::string running = running_activity(session, run.def_id);
    if (!running.empty()) {
      outcome = Outcome::refuse(
          Outcome::conflict, "the job \"" + run.name + "\" is running as " + running + "; wait for its end or stop it");
      return false;
    }
    insert_activity(session, row);
    tell_passed_over(session, run.id, run.passed_over, run.passed_over.size());
    return true;
  });
  return stored || !outcome.ok() ? outcome : store_failed();
}

bool Activity_Store::fail(const std::string& id, const std::string& message) {
  return change_unended(id, [&](Sql_Session&, Activity_Row& row) {
    row.set_state(JOB_STATE_ERROR, message);
    row.document[assumed_key] = true;
    return true;
  });
}

Outcome Activity_Store::report(const std::string& host_uuid, const json_spirit::Array& records,
                               const Choose_Host& choose, Ended& ended) {
  std::vector<Activity_Report> reports(records.size());
  for (std::size_t i = 0; i < records.size(); ++i)
    if (Outcome outcome = reports[i].read(records[i]); !outcome.ok()) return outcome;
  Outcome outcome;
  Ended now_ended;
  const bool stored = database_.write([&](Sql_Session& session) {
    for (Activity_Report& report : reports)
      if (outcome = take_report(session, host_uuid, report, choose, now_ended); !outcome.ok()) return false;
    return true;
  });
  if (!stored) return outcome.ok() ? store_failed() : outcome;
  ended.add(now_ended);
  return {};
}

bool Activity_Store::forget_unknown(const std::string& host_uuid, const json_spirit::Array& known,
                                    const std::set<std::string>& being_sent, Ended& ended) {
  Ended now_ended;
  const bool stored = database_.write([&](Sql_Session& session) {
    for (const Sql_Row& found :
         session.query("SELECT id FROM activities WHERE host_uuid = :a AND ended = 0", {host_uuid}, 1)) {
      const std::string id = found.text(0);
      if (being_sent.contains(id) || std::find(known.begin(), known.end(), json_spirit::Value(id)) != known.end())
        continue;
      std::optional<Activity_Row> row = find_activity(session, id);
      if (!row) continue;
      if (may_be_sent_again(*row)) {
        update_activity(session, *row);
        now_ended.followed = true;
      } else if (!is_handed_over_now(row->document)) {
        row->set_state(JOB_STATE_ERROR, "the agent does not know of this run any more");
        row->document[assumed_key] = true;
        update_activity(session, *row);
        now_ended.runs.push_back(id);
      }
    }
    return true;
  });
  if (stored) ended.add(now_ended);
  return stored;
}

bool Activity_Store::waiting(std::vector<Waiting_Run>& runs) {
  return database_.read([&](Sql_Session& session) {
    for (const Sql_Row& row :
         session.query("SELECT id, def_id, host_uuid, document FROM activities WHERE ended = 0 AND state = :a "
                       "ORDER BY seq",
                       {std::int64_t{JOB_STATE_DISPATCHING}}, 4)) {
      std::optional<Run_Chain> chain = Run_Chain::of(stored_object(row.text(3)));
      if (chain && is_to_be_sent(*chain))
        runs.push_back(
            {row.text(0), row.text(1), row.text(2), std::move(chain->options), chain->hand_over == Run_Chain::waiting});
    }
  });
}

bool Activity_Store::send_begins(const std::string& id) {
  bool waits = false;
  const bool stored = change_unended(id, [&](Sql_Session&, Activity_Row& row) {
    std::optional<Run_Chain> chain = Run_Chain::of(row.document);
    waits = row.state == JOB_STATE_DISPATCHING && chain && is_to_be_sent(*chain);
    if (!waits) return false;
    chain->hand_over = Run_Chain::sent;
    chain->keep_in(row.document);
    return true;
  });
  return stored && waits;
}

bool Activity_Store::send_ended(const std::string& id, Run_Chain::Hand_Over hand_over) {
  return change_unended(id, [hand_over](Sql_Session&, Activity_Row& row) {
    std::optional<Run_Chain> chain = Run_Chain::of(row.document);
    if (!chain) return false;
    chain->hand_over = hand_over;
    chain->keep_in(row.document);
    return true;
  });
}

bool Activity_Store::pass_over(const std::string& id, const Choose_Host& choose, Ended& ended) {
  Ended now_ended;
  const bool stored = change_unended(id, [&](Sql_Session& session, Activity_Row& row) {
    const std::optional<Run_Chain> chain = Run_Chain::of(row.document);
    if (!chain || chain->hand_over != Run_Chain::waiting) return false;
    row.set_state(JOB_STATE_SKIPPED, "the agent of the host " + row.host_uuid + " is not connected");
    log_to_activity(session, id, Log_Level::warning,
                    "The agent of the host " + row.host_uuid + " is not connected, the host is passed over\n");
    now_ended.followed = follow_declined_run(session, row, choose);
    now_ended.runs.push_back(id);
    return true;
  });
  if (stored) ended.add(now_ended);
  return stored;
}

bool Activity_Store::stop(const std::string& id, bool& ended) {
  bool now_ended = false;
  const bool stored = change_unended(id, [&](Sql_Session&, Activity_Row& row) {
    std::optional<Run_Chain> chain = Run_Chain::of(row.document);
    if (!chain) return false;
    now_ended = chain->hand_over == Run_Chain::waiting;
    if (now_ended) row.set_state(JOB_STATE_CANCELED, "stopped before its agent was asked");
    chain->stopped = true;
    chain->keep_in(row.document);
    return true;
  });
  ended = stored && now_ended;
  return stored;
}

bool Activity_Store::change_unended(const std::string& id,
                                    const std::function<bool(Sql_Session& session, Activity_Row& row)>& change) {
  return database_.write([&](Sql_Session& session) {
    std::optional<Activity_Row> row = find_activity(session, id);
    if (row && !row->ended() && change(session, *row)) update_activity(session, *row);
    return true;
  });
}

Outcome Activity_Store::add_logs(const std::string& host_uuid, const std::vector<Run_Log>& logs) {
  std::vector<Log_Line> read;
  for (const Run_Log& log : logs)
    for (const json_spirit::Value& value : log.lines)
      if (Outcome outcome = read_line(log.job_act_id, value, read); !outcome.ok()) return outcome;
  Outcome outcome;
  const bool stored = database_.write([&](Sql_Session& session) {
    for (const Run_Log& log : logs) {
      const std::optional<Activity_Row> known = find_activity(session, log.job_act_id);
      if (!known || known->host_uuid == host_uuid) continue;
      outcome = Outcome::refuse(Outcome::forbidden, "the run " + log.job_act_id + " belongs to another host");
      return false;
    }
    for (const Log_Line& line : read)
      session.execute("INSERT INTO job_log (id, job_act_id, priority, line, line_time) VALUES (:a, :b, :c, :d, :e)",
                      {session.next_number("job_log"), line.run, line.priority, line.text, line.time});
    return true;
  });
  return stored || !outcome.ok() ? outcome : store_failed();
}

bool Activity_Store::list(const List_Query& query, List_Page& page) {
  return database_.read([&](Sql_Session& session) {
    page.total = count_rows(session, "activities", query);
    for (const Sql_Row& row : select_rows(session, "activities", "document, id", 2, query)) {
      json_spirit::Object record = stored_object(row.text(0));
      add_kept(session, row.text(1), record);
      page.rows.emplace_back(std::move(record));
    }
  });
}

Outcome Activity_Store::get(const std::string& id, json_spirit::Object& record) {
  std::optional<Activity_Row> known;
  if (!database_.read([&](Sql_Session& session) {
        known = find_activity(session, id);
        if (!known) return;
        add_kept(session, id, known->document);
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
