#include "backupd/log_backup/ondemand_records.h"

#include "backupd/backint/backint_rows.h"
#include "backupd/log_backup/ondemand_rows.h"
#include "platform/clock.h"
#include "scrt/uuid.h"

namespace backupd {

namespace {

constexpr char uuid_key[] = "info_uuid";

std::int64_t now() { return platform::Clock::current().wall_seconds(); }

std::optional<sap_hana::Backint_Backup_Job_Info> read_job(Sql_Session& session, const std::string& job_uuid) {
  const auto row = session.first("SELECT document FROM backint_jobs WHERE uuid = :a", {job_uuid}, 1);
  sap_hana::Backint_Backup_Job_Info job;
  if (!row || !job.from_json(stored_object(row->text(0)))) return std::nullopt;
  return job;
}

bool has_files(Sql_Session& session, const std::string& job_uuid) {
  return session.first("SELECT id FROM backint_files WHERE job_uuid = :a LIMIT 1", {job_uuid}, 1).has_value();
}

}  // namespace

std::optional<std::string> successor_of(Sql_Session& session, const std::string& job_uuid) {
  auto job = read_job(session, job_uuid);
  if (!job) return std::nullopt;
  std::string uuid;
  if (const auto open = find_open_job(session, *job)) {
    json_spirit::object_get(*open, "uuid", uuid);
    return uuid;
  }
  job->uuid = make_uuid();
  if (!insert_job(session, *job).ok()) return std::nullopt;
  return job->uuid;
}

std::optional<json_spirit::Object> find_in_sibling(Sql_Session& session, const std::string& job_uuid,
                                                   const sap_hana::Backup_File_Info& file) {
  const auto job = read_job(session, job_uuid);
  if (!job) return std::nullopt;
  const auto row = session.first(
      std::string("SELECT ") + file_columns +
          " FROM backint_files WHERE extern_backup_id = :a AND filename = :b AND host_uuid = :c AND sid = :d AND "
          "database_name = :e",
      {file.extern_backup_id, file.filename, job->host_uuid, job->sid, job->database}, file_column_count);
  if (!row) return std::nullopt;
  return file_record(*row);
}

void hand_on_leftovers(Sql_Session& session, const std::string& job_uuid) {
  const auto owner = find_owner(session, job_uuid);
  if (!owner || !owner->ondemand()) return;
  const Sql_Rows left =
      session.query("SELECT id, document FROM backint_files WHERE job_uuid = :a AND set_id = 0", {job_uuid}, 2);
  if (left.empty()) return;
  const auto successor = successor_of(session, job_uuid);
  if (!successor) return;
  for (const Sql_Row& row : left) {
    json_spirit::Object document = stored_object(row.text(1));
    document[uuid_key] = *successor;
    session.execute("UPDATE backint_files SET job_uuid = :a, document = :b WHERE id = :c",
                    {*successor, json_spirit::dump_json(document), row.number(0)});
  }
  add_ondemand_run(session, *successor);
}

void touch_job(Sql_Session& session, const std::string& job_uuid) {
  session.execute("UPDATE backint_jobs SET touched = :a WHERE uuid = :b", {now(), job_uuid});
}

Abandoned find_abandoned(Sql_Session& session) {
  Abandoned found;
  // From before the time was noted.
  session.execute("UPDATE backint_jobs SET touched = :a WHERE taken = 0 AND job_act_id = '' AND touched = 0", {now()});
  for (const Sql_Row& row :
       session.query("SELECT j.uuid, j.touched FROM backint_jobs j LEFT JOIN ondemand_runs q ON q.job_uuid = j.uuid "
                     "WHERE j.taken = 0 AND j.job_act_id = '' AND j.touched < :a AND q.id IS NULL",
                     {now() - abandoned_seconds}, 2)) {
    const std::string uuid = row.text(0);
    const auto owner = find_owner(session, uuid);
    if (!owner || !owner->ondemand()) continue;
    if (has_files(session, uuid)) {
      add_ondemand_run(session, uuid);
      ++found.queued;
    } else if (row.number(1) < now() - empty_seconds) {
      found.empty.push_back(uuid);
    }
  }
  return found;
}

}  // namespace backupd
