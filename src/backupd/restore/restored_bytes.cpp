#include "backupd/restore/restored_bytes.h"

#include "backupd/restore/running_restores.h"

namespace backupd {

namespace {

/// HANA names the database that is read or the one that is written: with several restores nobody can tell.
std::string only_run(const std::vector<Running_Restore>& restores) {
  for (const Running_Restore& restore : restores)
    if (restore.job_act_id != restores.front().job_act_id) return {};
  return restores.empty() ? std::string() : restores.front().job_act_id;
}

/// Reports are handled side by side, so an older one may come after a newer one.
void note(Sql_Session& session, const std::string& run, const Restored_Report& report) {
  const auto known =
      session.first("SELECT bytes FROM restored WHERE job_act_id = :a AND call_uuid = :b", {run, report.call}, 1);
  if (!known)
    session.execute("INSERT INTO restored (job_act_id, call_uuid, bytes) VALUES (:a, :b, :c)",
                    {run, report.call, report.bytes});
  else if (known->number(0) < report.bytes)
    session.execute("UPDATE restored SET bytes = :a WHERE job_act_id = :b AND call_uuid = :c",
                    {report.bytes, run, report.call});
}

}  // namespace

Outcome Restored_Bytes::add(const Restored_Report& report, std::string& job_act_id) {
  std::string run;
  const bool stored = database_.write([&](Sql_Session& session) {
    run = only_run(restores_about(session, {report.host_uuid, report.sid, report.database}));
    if (!run.empty()) note(session, run, report);
    return true;
  });
  if (!stored) return Outcome::refuse(Outcome::internal, "what was restored cannot be noted now; see the server's log");
  job_act_id = run;
  return {};
}

std::int64_t restored_bytes_of(Sql_Session& session, const std::string& job_act_id) {
  const auto row = session.first("SELECT coalesce(sum(bytes), 0) FROM restored WHERE job_act_id = :a", {job_act_id}, 1);
  return row ? row->number(0) : 0;
}

}  // namespace backupd
