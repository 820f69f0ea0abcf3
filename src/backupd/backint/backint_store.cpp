#include "backupd/backint/backint_store.h"

#include "backupd/backint/backint_rows.h"
#include "backupd/log_backup/ondemand_records.h"
#include "platform/log.h"

namespace backupd {

namespace {

Outcome store_failed() {
  return Outcome::refuse(Outcome::internal, "the Backint records cannot be read or written now; see the server's log");
}

Outcome no_such_job(const std::string& uuid) {
  return Outcome::refuse(Outcome::not_found,
                         "there is no Backint job record " + uuid + "; its job may have ended without a backup set");
}

/// The record as it is stored when the same object was recorded before.
std::optional<json_spirit::Object> find_same(Sql_Session& session, const sap_hana::Backup_File_Info& file) {
  const auto row =
      session.first(std::string("SELECT ") + file_columns +
                        " FROM backint_files WHERE job_uuid = :a AND filename = :b AND extern_backup_id = :c",
                    {file.info_uuid, file.filename, file.extern_backup_id}, file_column_count);
  if (!row) return std::nullopt;
  return file_record(*row);
}

Outcome compare(const json_spirit::Object& stored, const sap_hana::Backup_File_Info& file) {
  sap_hana::Backup_File_Info known;
  json_spirit::Object record = stored;
  for (const char* added : {"host_uuid", "sid", "database"}) record.erase(added);
  if (known.from_json(record) && known.size == file.size && known.storage_path == file.storage_path &&
      known.checksum == file.checksum)
    return {Outcome::already_done, {}};
  return Outcome::refuse(Outcome::conflict, "another object is recorded as " + file.filename +
                                                " with the external backup id " + file.extern_backup_id +
                                                "; give the new object an id of its own");
}

/// Stores one object, or finds it stored. What comes for an on-demand record that its set has taken goes to the
/// record's successor: `record_uuid` tells whose it is then.
Outcome store_file(Sql_Session& session, const Backint_Owner& owner, sap_hana::Backup_File_Info& file,
                   std::string& record_uuid, json_spirit::Object& stored, bool& is_new) {
  std::optional<json_spirit::Object> same = find_same(session, file);
  if (!same && owner.ondemand()) same = find_in_sibling(session, file.info_uuid, file);
  if (same) {
    stored = *same;
    json_spirit::object_get(stored, "info_uuid", record_uuid);
    return compare(*same, file);
  }
  if (owner.taken) {
    const auto successor = owner.ondemand() ? successor_of(session, file.info_uuid) : std::nullopt;
    if (!successor)
      return Outcome::refuse(Outcome::conflict, "the Backint job record " + file.info_uuid +
                                                    " was taken by its finished backup; nothing can be added to it");
    file.info_uuid = *successor;
  }
  record_uuid = file.info_uuid;
  insert_file(session, owner, file);
  touch_job(session, record_uuid);
  stored = file.to_json();
  is_new = true;
  return {};
}

}  // namespace

Outcome Backint_Store::add_job(sap_hana::Backint_Backup_Job_Info& job) {
  Outcome outcome;
  const bool stored = database_.write([&](Sql_Session& session) {
    outcome = insert_job(session, job);
    return outcome.ok();
  });
  return stored || !outcome.ok() ? outcome : store_failed();
}

Outcome Backint_Store::add_ondemand_job(sap_hana::Backint_Backup_Job_Info job, json_spirit::Object& stored) {
  Outcome outcome;
  std::optional<json_spirit::Object> record;
  const bool done = database_.write([&](Sql_Session& session) {
    record = find_open_job(session, job);
    if (record) {
      outcome.kind = Outcome::already_done;
      return true;
    }
    outcome = insert_job(session, job);
    if (outcome.ok()) record = job.to_json();
    return outcome.ok();
  });
  if (!done) return outcome.ok() ? store_failed() : outcome;
  stored = std::move(*record);
  return outcome;
}

Outcome Backint_Store::get_job(const std::string& uuid, json_spirit::Object& record) {
  std::optional<Sql_Row> row;
  if (!database_.read([&](Sql_Session& session) {
        row = session.first("SELECT document, taken FROM backint_jobs WHERE uuid = :a", {uuid}, 2);
      }))
    return store_failed();
  if (!row) return no_such_job(uuid);
  record = stored_object(row->text(0));
  if (row->number(1) != 0) record["taken"] = true;
  return {};
}

Outcome Backint_Store::set_backup_id(const std::string& uuid, std::int64_t database_backup_id) {
  if (database_backup_id <= 0) return Outcome::refuse(Outcome::invalid, "\"database_backup_id\" must be above 0");
  Outcome outcome;
  const bool stored = database_.write([&](Sql_Session& session) {
    const auto row = session.first("SELECT database_backup_id, document FROM backint_jobs WHERE uuid = :a", {uuid}, 2);
    if (!row) {
      outcome = no_such_job(uuid);
      return false;
    }
    const std::int64_t known = row->number(0);
    if (known == database_backup_id) {
      outcome.kind = Outcome::already_done;
      return true;
    }
    if (known != 0) {
      outcome = Outcome::refuse(Outcome::conflict, "the Backint job record " + uuid + " belongs to the backup " +
                                                       std::to_string(known) + ", not to " +
                                                       std::to_string(database_backup_id));
      return false;
    }
    json_spirit::Object record = stored_object(row->text(1));
    record["database_backup_id"] = database_backup_id;
    session.execute("UPDATE backint_jobs SET database_backup_id = :a, document = :b WHERE uuid = :c",
                    {database_backup_id, json_spirit::dump_json(record), uuid});
    return true;
  });
  return stored || !outcome.ok() ? outcome : store_failed();
}

Outcome Backint_Store::take_job(const std::string& uuid) {
  std::int64_t changed = 0;
  if (!database_.write([&](Sql_Session& session) {
        changed = session.execute("UPDATE backint_jobs SET taken = 1 WHERE uuid = :a", {uuid});
        return true;
      }))
    return store_failed();
  return changed == 0 ? no_such_job(uuid) : Outcome();
}

bool Backint_Store::list_jobs(List_Query query, List_Page& page) {
  query.where("taken", std::int64_t{0});
  return database_.read([&](Sql_Session& session) {
    page.total = count_rows(session, "backint_jobs", query);
    for (const Sql_Row& row : select_rows(session, "backint_jobs", "document", 1, query))
      page.rows.emplace_back(stored_object(row.text(0)));
  });
}

Outcome Backint_Store::add_files(const std::string& job_uuid, std::vector<sap_hana::Backup_File_Info> files, bool last,
                                 json_spirit::Array& stored) {
  Outcome outcome;
  json_spirit::Array rows;
  std::size_t added = 0;
  const bool committed = database_.write([&](Sql_Session& session) {
    const std::optional<Backint_Owner> owner = find_owner(session, job_uuid);
    if (!owner) {
      outcome = no_such_job(job_uuid);
      return false;
    }
    std::string record_uuid = job_uuid;
    for (sap_hana::Backup_File_Info& file : files) {
      json_spirit::Object record;
      bool is_new = false;
      if (outcome = store_file(session, *owner, file, record_uuid, record, is_new); !outcome.ok()) return false;
      rows.emplace_back(std::move(record));
      added += is_new ? 1 : 0;
    }
    if (last && !owner->ondemand()) {
      outcome = Outcome::refuse(
          Outcome::invalid, "\"last\" is for a backup that HANA began by itself; " + job_uuid + " belongs to a run");
      return false;
    }
    // The set that has taken a record has what it was owed, or its run is about to commit it.
    if (const auto kept = last ? find_owner(session, record_uuid) : std::nullopt; kept && !kept->taken)
      add_ondemand_run(session, record_uuid);
    return true;
  });
  if (!committed) return outcome.ok() ? store_failed() : outcome;
  stored = std::move(rows);
  return {added == 0 && !files.empty() ? Outcome::already_done : Outcome::done, {}};
}

Outcome Backint_Store::list_job_files(const std::string& job_uuid, json_spirit::Array& rows) {
  bool known = false;
  if (!database_.read([&](Sql_Session& session) {
        known = find_owner(session, job_uuid).has_value();
        for (const Sql_Row& row :
             session.query("SELECT document, id FROM backint_files WHERE job_uuid = :a ORDER BY id", {job_uuid}, 2)) {
          json_spirit::Object record = stored_object(row.text(0));
          record["id"] = row.number(1);
          rows.emplace_back(std::move(record));
        }
      }))
    return store_failed();
  return known ? Outcome() : no_such_job(job_uuid);
}

bool Backint_Store::list_files(const File_Filter& filter, List_Query query, List_Page& page) {
  query.where_given("host_uuid", filter.host_uuid);
  query.where_given("sid", filter.sid);
  query.where_given("database_name", filter.database);
  query.where_given("origin_path", filter.origin_path);
  query.where_given("extern_backup_id", filter.extern_backup_id);
  return database_.read([&](Sql_Session& session) {
    page.total = count_rows(session, "backint_files", query);
    for (const Sql_Row& row : select_rows(session, "backint_files", file_columns, file_column_count, query))
      page.rows.emplace_back(file_record(row));
  });
}

Outcome Backint_Store::remove_file(std::int64_t id, bool force) {
  Outcome outcome;
  const bool removed = database_.write([&](Sql_Session& session) {
    const auto row = session.first("SELECT set_id FROM backint_files WHERE id = :a", {id}, 1);
    if (!row) {
      outcome = Outcome::refuse(Outcome::not_found, "there is no file record " + std::to_string(id));
      return false;
    }
    if (row->number(0) != 0 && !force) {
      outcome =
          Outcome::refuse(Outcome::conflict, "the file record " + std::to_string(id) + " belongs to the kept set " +
                                                 row->text(0) + "; remove it with force=1 if the set may go");
      return false;
    }
    session.execute("DELETE FROM backint_files WHERE id = :a", {id});
    return true;
  });
  return removed || !outcome.ok() ? outcome : store_failed();
}

bool Backint_Store::list_owed_runs(const List_Query& query, List_Page& page) {
  return list_ondemand_runs(database_, query, Given_Up::shown, page);
}

bool Backint_Store::drop_owed_runs(const Ondemand_Database& owner, List_Page& page) {
  const bool dropped = database_.write([&](Sql_Session& session) {
    page.rows = drop_given_up_runs(session, owner);
    return true;
  });
  page.total = static_cast<std::int64_t>(page.rows.size());
  if (dropped && page.total != 0)
    D3_INFO("%q backups of %C that were given up are dropped from the queue; their objects stay on the pool\n",
            page.total, owner.text().c_str());
  return dropped;
}

bool Backint_Store::drain_owed_runs(const Ondemand_Database& owner, bool retry, List_Page& page) {
  if (!database_.write([&](Sql_Session& session) {
        if (retry) retry_given_up_runs(session, owner);
        drain_ondemand_runs(session, owner);
        return true;
      }))
    return false;
  List_Query query;
  query.limit = list_largest_limit;
  query.where("host_uuid", owner.host_uuid);
  query.where("sid", owner.sid);
  query.where("database_name", owner.name);
  return list_ondemand_runs(database_, query, Given_Up::left_out, page);
}

}  // namespace backupd
