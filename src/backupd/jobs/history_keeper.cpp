#include "backupd/jobs/history_keeper.h"

#include <string>

#include "backupd/jobs/activity_rows.h"
#include "platform/clock.h"

namespace backupd {

namespace {

/// Of one transaction: others wait for it some ten milliseconds.
constexpr std::int64_t runs_of_a_batch = 500;
constexpr std::int64_t seconds_of_a_day = 24 * 60 * 60;

std::string old_runs(bool of_logs) {
  return std::string("SELECT id FROM activities AS a WHERE ended = 1 AND ended_at < :a AND kind ") +
         (of_logs ? "=" : "<>") +
         " :b AND NOT EXISTS (SELECT 1 FROM backint_jobs AS j WHERE j.job_act_id = a.id AND j.taken = 0) "
         "AND NOT EXISTS (SELECT 1 FROM ondemand_runs AS q WHERE q.run_id = a.id) ORDER BY ended_at LIMIT " +
         std::to_string(runs_of_a_batch);
}

void remove_run(Sql_Session& session, const std::string& id) {
  session.execute("DELETE FROM job_log WHERE job_act_id = :a", {id});
  session.execute("DELETE FROM restored WHERE job_act_id = :a", {id});
  session.execute("DELETE FROM activities WHERE id = :a", {id});
}

}  // namespace

bool History_Keeper::remove_old(std::int64_t& removed) {
  if (limits_.days_of_runs == 0 && limits_.days_of_log_runs == 0) return true;
  return date_undated() && remove_kind(true, limits_.days_of_log_runs, removed) &&
         remove_kind(false, limits_.days_of_runs, removed);
}

/// Runs that ended before their ends were kept count from now.
bool History_Keeper::date_undated() {
  return database_.write([](Sql_Session& session) {
    session.execute("UPDATE activities SET ended_at = :a WHERE ended = 1 AND ended_at = 0",
                    {std::int64_t{platform::Clock::current().wall_seconds()}});
    return true;
  });
}

bool History_Keeper::remove_kind(bool of_logs, unsigned days, std::int64_t& removed) {
  if (days == 0) return true;
  const std::int64_t before = platform::Clock::current().wall_seconds() - days * seconds_of_a_day;
  for (std::int64_t batch = runs_of_a_batch; batch == runs_of_a_batch && removed < most_at_once; removed += batch) {
    batch = 0;
    const bool stored = database_.write([&](Sql_Session& session) {
      for (const Sql_Row& row : session.query(old_runs(of_logs), {before, std::string(kind_of_log_backup)}, 1)) {
        remove_run(session, row.text(0));
        ++batch;
      }
      return true;
    });
    if (!stored) return false;
  }
  return true;
}

}  // namespace backupd
