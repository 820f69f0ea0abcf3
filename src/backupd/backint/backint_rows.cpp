#include "backupd/backint/backint_rows.h"

#include "backupd/backint/backint_check.h"
#include "platform/clock.h"

namespace backupd {

namespace {

/// The directory that the object lies in.
std::string dataset_of(const std::string& storage_path) {
  const std::size_t slash = storage_path.rfind('/');
  return slash == std::string::npos ? std::string() : storage_path.substr(0, slash);
}

}  // namespace

bool Backint_Owner::ondemand() const { return job_act_id.empty() && is_ondemand_type(type); }

std::optional<Backint_Owner> find_owner(Sql_Session& session, const std::string& job_uuid) {
  const auto row = session.first(
      "SELECT host_uuid, sid, database_name, taken, job_act_id, document FROM backint_jobs WHERE uuid = :a", {job_uuid},
      6);
  if (!row) return std::nullopt;
  Backint_Owner owner{row->text(0), row->text(1), row->text(2), row->number(3) != 0, row->text(4), {}};
  json_spirit::object_get(stored_object(row->text(5)), "type", owner.type);
  return owner;
}

Outcome insert_job(Sql_Session& session, sap_hana::Backint_Backup_Job_Info& job) {
  if (find_owner(session, job.uuid))
    return Outcome::refuse(Outcome::conflict,
                           "a Backint job record " + job.uuid + " is stored already; make a new uuid for a new backup");
  if (!session.first("SELECT uuid FROM pools WHERE uuid = :a", {job.pool_uuid}, 1))
    return Outcome::refuse(Outcome::invalid, "the pool " + job.pool_uuid + " is not registered; register it first");
  const std::int64_t id = session.next_number("backint_job");
  job.id = static_cast<std::uint64_t>(id);
  session.execute(
      "INSERT INTO backint_jobs (id, uuid, host_uuid, job_act_id, sid, database_name, database_backup_id, "
      "landscape_id, pool_uuid, taken, touched, document) "
      "VALUES (:a, :b, :c, :d, :e, :f, :g, :h, :i, :j, :k, :l)",
      {id, job.uuid, job.host_uuid, job.job_act_id, job.sid, job.database,
       static_cast<std::int64_t>(job.database_backup_id), job.landscape_id, job.pool_uuid, std::int64_t{0},
       std::int64_t{platform::Clock::current().wall_seconds()}, json_spirit::dump_json(job.to_json())});
  return {};
}

std::optional<json_spirit::Object> find_open_job(Sql_Session& session, const sap_hana::Backint_Backup_Job_Info& job) {
  for (const Sql_Row& row :
       session.query("SELECT document FROM backint_jobs WHERE host_uuid = :a AND database_name = :b AND "
                     "database_backup_id = :c AND sid = :d AND job_act_id = '' AND taken = 0 ORDER BY id",
                     {job.host_uuid, job.database, static_cast<std::int64_t>(job.database_backup_id), job.sid}, 1)) {
    json_spirit::Object record = stored_object(row.text(0));
    std::string type;
    if (json_spirit::object_get(record, "type", type) && type == job.type) return record;
  }
  return std::nullopt;
}

json_spirit::Object file_record(const Sql_Row& row) {
  json_spirit::Object record = stored_object(row.text(1));
  record["id"] = row.number(0);
  record["host_uuid"] = row.text(2);
  record["sid"] = row.text(3);
  record["database"] = row.text(4);
  return record;
}

void insert_file(Sql_Session& session, const Backint_Owner& owner, sap_hana::Backup_File_Info& file) {
  const std::int64_t id = session.next_number("backint_file");
  file.id = static_cast<std::uint64_t>(id);
  session.execute(
      "INSERT INTO backint_files (id, job_uuid, filename, origin_path, extern_backup_id, host_uuid, sid, "
      "database_name, pool_uuid, dataset, set_id, document) "
      "VALUES (:a, :b, :c, :d, :e, :f, :g, :h, :i, :j, :k, :l)",
      {id, file.info_uuid, file.filename, file.origin_path, file.extern_backup_id, owner.host_uuid, owner.sid,
       owner.database, file.pool_uuid, dataset_of(file.storage_path), std::int64_t{0},
       json_spirit::dump_json(file.to_json())});
}

}  // namespace backupd
