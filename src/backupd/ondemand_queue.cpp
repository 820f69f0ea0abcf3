#include "backupd/ondemand_queue.h"

#include <algorithm>
#include <map>
#include <set>

#include "backupd/list_query.h"
#include "backupd/run_chain.h"
#include "platform/clock.h"
#include "platform/log.h"
#include "scrt/uuid.h"

namespace backupd {

namespace {

constexpr std::int64_t seconds_per_minute = 60;
constexpr std::int64_t longest_pause_minutes = 60;
/// 2 to this power is above the longest pause.
constexpr std::int64_t largest_doubling = 6;
/// Only a wake ends this.
constexpr std::chrono::hours nothing_due{1};
constexpr std::chrono::minutes look_again{1};

constexpr char job_option[] = "backint_job_uuid";
constexpr char definition_key[] = "job_definition_uuid";

std::int64_t pause_minutes(std::int64_t tries) {
  return std::min(longest_pause_minutes, std::int64_t{1} << std::clamp<std::int64_t>(tries - 1, 0, largest_doubling));
}

std::int64_t now() { return platform::Clock::current().wall_seconds(); }

}  // namespace

struct Ondemand_Queue::Entry {
  std::int64_t id = 0;
  std::string job_uuid;
  std::string def_id;
  std::string host_uuid;
  std::string database;  ///< with its system: what is kept in order
  std::int64_t tries = 0;
  std::int64_t due = 0;  ///< POSIX seconds
  std::string run;       ///< the run that was begun for it, "" when none is under way
  bool run_ended = false;
};

std::chrono::seconds Ondemand_Queue::work(const Is_Connected& is_connected) {
  std::vector<Entry> entries;
  if (!read(entries)) return look_again;
  std::map<std::string, std::size_t> running;
  for (const Entry& entry : entries) running[entry.host_uuid] += !entry.run.empty() && !entry.run_ended ? 1 : 0;
  std::chrono::seconds next = nothing_due;
  std::set<std::pair<std::string, std::string>> busy;
  for (Entry& entry : entries) {
    if (entry.run_ended) put_off(entry);
    const std::pair<std::string, std::string> database{entry.host_uuid, entry.database};
    if (busy.contains(database)) continue;
    const std::int64_t left = entry.due - now();
    // A date that was set back must not make a pause longer.
    const std::int64_t wait = left > longest_pause_minutes * seconds_per_minute ? 0 : left;
    if (!entry.run.empty()) {
      busy.insert(database);
    } else if (wait > 0) {
      next = std::min(next, std::chrono::seconds(wait));
      if (entry.tries < tries_in_order) busy.insert(database);
    } else if (is_connected(entry.host_uuid) && running[entry.host_uuid] < runs_at_once && begin(entry)) {
      busy.insert(database);
      ++running[entry.host_uuid];
    } else {
      // Its agent comes, a run ends, or the entry is gone meanwhile: each wakes the starter.
      busy.insert(database);
    }
  }
  return next;
}

bool Ondemand_Queue::read(std::vector<Entry>& entries) {
  return database_.read([&](Sql_Session& session) {
    for (const Sql_Row& row : session.query("SELECT q.id, q.job_uuid, q.def_id, q.host_uuid, q.sid, q.database_name, "
                                            "q.tries, q.due, q.run_id, a.ended FROM ondemand_runs q LEFT JOIN "
                                            "activities a ON a.id = q.run_id ORDER BY q.id",
                                            {}, 10))
      entries.push_back({row.number(0), row.text(1), row.text(2), row.text(3), row.text(5) + "@" + row.text(4),
                         row.number(6), row.number(7), row.text(8),
                         !row.text(8).empty() && (row.is_null(9) || row.number(9) != 0)});
  });
}

void Ondemand_Queue::put_off(Entry& entry) {
  const std::int64_t tries = entry.tries + 1;
  const std::int64_t due = now() + pause_minutes(tries) * seconds_per_minute;
  std::int64_t changed = 0;
  const bool stored = database_.write([&](Sql_Session& session) {
    changed =
        session.execute("UPDATE ondemand_runs SET tries = :a, due = :b, run_id = '' WHERE id = :c AND run_id = :d",
                        {tries, due, entry.id, entry.run});
    return true;
  });
  // Neither happens again before the next look.
  if (!stored || changed == 0) return;
  D3_WARNING("The run %C has not recorded a backup of %C, the Backint job is %C; it is tried again in %q minutes\n",
             entry.run.c_str(), entry.database.c_str(), entry.job_uuid.c_str(), pause_minutes(tries));
  entry.tries = tries;
  entry.due = due;
  entry.run.clear();
}

bool Ondemand_Queue::begin(const Entry& entry) {
  bool begun = false;
  const bool stored = database_.write([&](Sql_Session& session) {
    const auto row = session.first("SELECT run_id FROM ondemand_runs WHERE id = :a", {entry.id}, 1);
    if (!row || !row->text(0).empty()) return false;
    const auto definition = session.first("SELECT name FROM job_definitions WHERE id = :a", {entry.def_id}, 1);
    Activity_Row run =
        new_activity(make_uuid(), entry.def_id, definition ? definition->text(0) : std::string(), entry.host_uuid);
    Run_Chain chain;
    chain.options = {{job_option, entry.job_uuid}};
    chain.keep_in(run.document);
    insert_activity(session, run);
    session.execute("UPDATE ondemand_runs SET run_id = :a WHERE id = :b", {run.id, entry.id});
    begun = true;
    return true;
  });
  return stored && begun;
}

void add_ondemand_run(Sql_Session& session, const std::string& job_uuid) {
  const auto job =
      session.first("SELECT host_uuid, sid, database_name, document FROM backint_jobs WHERE uuid = :a", {job_uuid}, 4);
  if (!job || session.first("SELECT id FROM ondemand_runs WHERE job_uuid = :a", {job_uuid}, 1)) return;
  json_spirit::Object attributes;
  std::string definition;
  json_spirit::object_get(stored_object(job->text(3)), "extended_attrs", attributes);
  json_spirit::object_get(attributes, definition_key, definition);
  session.execute(
      "INSERT INTO ondemand_runs (id, job_uuid, def_id, host_uuid, sid, database_name, tries, due, run_id) "
      "VALUES (:a, :b, :c, :d, :e, :f, :g, :h, :i)",
      {session.next_number("ondemand_run"), job_uuid, definition, job->text(0), job->text(1), job->text(2),
       std::int64_t{0}, std::int64_t{0}, std::string()});
}

void remove_ondemand_run(Sql_Session& session, std::int64_t file_id) {
  session.execute("DELETE FROM ondemand_runs WHERE job_uuid = (SELECT job_uuid FROM backint_files WHERE id = :a)",
                  {file_id});
}

}  // namespace backupd
