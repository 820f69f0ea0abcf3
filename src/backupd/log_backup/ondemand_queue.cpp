#include "backupd/log_backup/ondemand_queue.h"

#include <algorithm>

#include "backupd/jobs/run_chain.h"
#include "platform/clock.h"
#include "platform/log.h"
#include "scrt/uuid.h"

namespace backupd {

namespace {

constexpr std::int64_t seconds_per_minute = 60;
constexpr std::int64_t longest_pause_minutes = ondemand_longest_pause_seconds / seconds_per_minute;
/// 2 to this power is above the longest pause.
constexpr std::int64_t largest_doubling = 6;
/// Only a wake ends this.
constexpr std::chrono::hours nothing_due{1};
constexpr std::chrono::minutes look_again{1};

constexpr char job_option[] = "backint_job_uuid";

std::int64_t pause_minutes(std::int64_t tries) {
  return std::min(longest_pause_minutes, std::int64_t{1} << std::clamp<std::int64_t>(tries - 1, 0, largest_doubling));
}

std::int64_t now() { return platform::Clock::current().wall_seconds(); }

}  // namespace

std::chrono::seconds Ondemand_Queue::work(const Is_Connected& is_connected) {
  Load load;
  if (!settle_ended(load)) return look_again;
  // Ends: each round but the last takes an entry out of those that may be begun.
  while (!begin_due(is_connected, load)) continue;
  return until_next();
}

bool Ondemand_Queue::begin_due(const Is_Connected& is_connected, Load& load) {
  std::vector<Ondemand_Entry> due;
  if (!database_.read([&](Sql_Session& session) { due = ondemand_runs_due(session, now()); })) return true;
  bool all = true;
  for (const Ondemand_Entry& entry : due) {
    const std::string& host = entry.database.host_uuid;
    if (load.busy.contains(entry.database) || !is_connected(host) || load.runs[host] >= runs_at_once) continue;
    const Begun begun = begin(entry);
    all = all && begun != Begun::lets_next_pass;
    if (begun != Begun::yes) continue;
    load.busy.insert(entry.database);
    ++load.runs[host];
  }
  return all;
}

bool Ondemand_Queue::settle_ended(Load& load) {
  std::vector<Ondemand_Entry> entries;
  if (!database_.read([&](Sql_Session& session) { entries = ondemand_runs_under_way(session); })) return false;
  for (const Ondemand_Entry& entry : entries) {
    if (entry.run_ended) {
      put_off(entry);
      continue;
    }
    ++load.runs[entry.database.host_uuid];
    load.busy.insert(entry.database);
  }
  return true;
}

void Ondemand_Queue::put_off(const Ondemand_Entry& entry) {
  const std::int64_t pause = pause_minutes(entry.tries + 1);
  const std::int64_t present = now();
  bool changed = false;
  bool given_up = false;
  const bool stored = database_.write([&](Sql_Session& session) {
    changed = put_off_ondemand_run(session, entry, present, present + pause * seconds_per_minute);
    given_up = changed && give_up_ondemand_run(session, entry, present);
    return true;
  });
  // Neither happens again before the next look.
  if (!stored || !changed) return;
  if (given_up) {
    D3_WARNING(
        "A backup of %C was tried %q times in vain and is given up, the Backint job is %C; its objects stay on the "
        "pool. When the cause is mended: dorsal3 log-backup retry\n",
        entry.database.text().c_str(), entry.tries + 1, entry.job_uuid.c_str());
    return;
  }
  D3_WARNING("The run %C has not recorded a backup of %C, the Backint job is %C; it is tried again in %q minutes\n",
             entry.run.c_str(), entry.database.text().c_str(), entry.job_uuid.c_str(), pause);
}

Ondemand_Queue::Begun Ondemand_Queue::begin(const Ondemand_Entry& entry) {
  bool begun = false;
  bool without_definition = false;
  const bool stored = database_.write([&](Sql_Session& session) {
    const auto row = session.first("SELECT run_id, hold FROM ondemand_runs WHERE id = :a", {entry.id}, 2);
    if (!row || !row->text(0).empty() || row->number(1) != Ondemand_Entry::free) return false;
    std::string definition_id = entry.definition_id;
    auto definition = session.first("SELECT name FROM job_definitions WHERE id = :a", {definition_id}, 1);
    if (!definition) {
      definition_id = find_log_definition(session, entry.database);
      definition = session.first("SELECT name FROM job_definitions WHERE id = :a", {definition_id}, 1);
    }
    if (!definition) {
      hold_without_definition(session, entry);
      without_definition = true;
      return true;
    }
    Activity_Row run = new_activity(make_uuid(), definition_id, definition->text(0), entry.database.host_uuid);
    Run_Chain chain;
    chain.options = {{job_option, entry.job_uuid}};
    chain.keep_in(run.document);
    insert_activity(session, run);
    session.execute("UPDATE ondemand_runs SET run_id = :a, def_id = :b WHERE id = :c",
                    {run.id, definition_id, entry.id});
    begun = true;
    return true;
  });
  if (!stored || !without_definition) return stored && begun ? Begun::yes : Begun::no;
  D3_WARNING(
      "A backup of %C waits to be recorded, the Backint job is %C: its definition %C was removed, and no other one "
      "backs up the logs of the database\n",
      entry.database.text().c_str(), entry.job_uuid.c_str(), entry.definition_id.c_str());
  return Begun::lets_next_pass;
}

std::chrono::seconds Ondemand_Queue::until_next() {
  std::int64_t due = 0;
  const std::int64_t present = now();
  if (!database_.read([&](Sql_Session& session) { due = next_ondemand_due(session, present); })) return look_again;
  if (due == 0) return nothing_due;
  return std::min<std::chrono::seconds>(nothing_due, std::chrono::seconds(due - present));
}

}  // namespace backupd
