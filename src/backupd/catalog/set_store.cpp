#include "backupd/catalog/set_store.h"

#include <optional>
#include <set>

#include "backupd/catalog/set_sizes.h"
#include "backupd/log_backup/ondemand_records.h"
#include "backupd/log_backup/ondemand_rows.h"

namespace backupd {

namespace {

Outcome store_failed() {
  return Outcome::refuse(Outcome::internal, "the backup sets cannot be read or written now; see the server's log");
}

/// The records of the set's objects: their ids, and the set that holds them so far (0: none, -1: several).
struct Objects {
  std::vector<std::int64_t> file_ids;
  std::int64_t holder = 0;
};

constexpr std::int64_t several_holders = -1;

Outcome find_objects(Sql_Session& session, const Backup_Set_Record& set, Objects& objects) {
  bool first = true;
  for (const Backup_Set_Record::File& file : set.files) {
    // Only external id and name together are unique; of two records the newest is meant.
    const auto row = session.first(
        "SELECT id, set_id FROM backint_files WHERE extern_backup_id = :a AND filename = :b "
        "AND database_name = :c ORDER BY id DESC LIMIT 1",
        {file.extern_backup_id, file.filename, set.database}, 2);
    if (!row)
      return Outcome::refuse(Outcome::invalid, "the set names the object " + file.filename + " (" +
                                                   file.extern_backup_id + ") of " + set.database +
                                                   ", but no such object was recorded; record it "
                                                   "with its Backint job first");
    objects.file_ids.push_back(row->number(0));
    const std::int64_t holder = row->number(1);
    if (first)
      objects.holder = holder;
    else if (objects.holder != holder)
      objects.holder = several_holders;
    first = false;
  }
  return {};
}

std::int64_t objects_of_set(Sql_Session& session, std::int64_t set_id) {
  const auto row = session.first("SELECT count(*) FROM backint_files WHERE set_id = :a", {set_id}, 1);
  return row ? row->number(0) : 0;
}

std::optional<json_spirit::Object> stored_set(Sql_Session& session, const char* column, const Sql_Value& value) {
  const auto row = session.first(std::string("SELECT document FROM sets WHERE ") + column + " = :a", {value}, 1);
  if (!row) return std::nullopt;
  return stored_object(row->text(0));
}

void insert_set(Sql_Session& session, const Backup_Set_Record& set, const Objects& objects,
                json_spirit::Object& stored) {
  const std::int64_t id = session.next_number("set");
  stored = set.document;
  stored["id"] = id;
  session.execute(
      "INSERT INTO sets (id, uuid, module, type, resource_uuid, database_name, database_backup_id, job_id, "
      "job_act_id, lifeline, start_time, source_size, total_size, requested_type, lift_reason, document) "
      "VALUES (:a, :b, :c, :d, :e, :f, :g, :h, :i, :j, :k, :l, :m, :n, :o, :p)",
      {id, set.uuid, set.module, set.type, set.resource_uuid, set.database, set.database_backup_id, set.job_id,
       set.job_act_id, set.lifeline, set.start_time, set.source_size, set.total_size, set.requested_type,
       set.lift_reason, json_spirit::dump_json(stored)});
  count_set(session, set.lifeline, set.type, set.database_backup_id, {set.source_size, set.total_size});
  std::set<std::string> jobs;
  for (const std::int64_t file : objects.file_ids) {
    if (const auto job = session.first("SELECT job_uuid FROM backint_files WHERE id = :a", {file}, 1))
      jobs.insert(job->text(0));
    session.execute("UPDATE backint_files SET set_id = :a WHERE id = :b", {id, file});
  }
  for (const std::string& job : jobs) {
    session.execute("UPDATE backint_jobs SET taken = 1 WHERE uuid = :a", {job});
    remove_ondemand_run(session, job);
    hand_on_leftovers(session, job);
  }
}

Outcome held_elsewhere(const Backup_Set_Record& set) {
  return Outcome::refuse(
      Outcome::conflict,
      "objects of the set " + set.uuid + " belong to another backup set already; a set is committed once, whole");
}

}  // namespace

Outcome Set_Store::commit(const Backup_Set_Record& set, json_spirit::Object& stored) {
  Outcome outcome;
  const bool committed = database_.write([&](Sql_Session& session) {
    Objects objects;
    if (outcome = find_objects(session, set, objects); !outcome.ok()) return false;
    if (objects.holder != 0) {
      const auto known = stored_set(session, "id", objects.holder);
      const bool same = known && objects_of_set(session, objects.holder) == static_cast<std::int64_t>(set.files.size());
      outcome = same ? Outcome{Outcome::already_done, {}} : held_elsewhere(set);
      if (same) stored = *known;
      return same;
    }
    if (stored_set(session, "uuid", set.uuid)) {
      outcome = Outcome::refuse(
          Outcome::conflict,
          "a backup set " + set.uuid + " with other objects is stored already; make a new uuid for a new set");
      return false;
    }
    insert_set(session, set, objects, stored);
    return true;
  });
  return committed || !outcome.ok() ? outcome : store_failed();
}

Outcome Set_Store::get(const std::string& uuid, json_spirit::Object& record) {
  std::optional<json_spirit::Object> found;
  if (!database_.read([&](Sql_Session& session) { found = stored_set(session, "uuid", uuid); })) return store_failed();
  if (!found) return Outcome::refuse(Outcome::not_found, "there is no backup set " + uuid + "; list the sets");
  record = std::move(*found);
  return {};
}

bool Set_Store::list(const List_Query& query, List_Page& page) {
  if (!select(query, page)) return false;
  return database_.read([&](Sql_Session& session) { page.total = count_rows(session, "sets", query); });
}

bool Set_Store::select(const List_Query& query, List_Page& page) {
  const bool read = database_.read([&](Sql_Session& session) {
    for (const Sql_Row& row : select_rows(session, "sets", "document", 1, query))
      page.rows.emplace_back(stored_object(row.text(0)));
  });
  page.total = static_cast<std::int64_t>(page.rows.size());
  return read;
}

}  // namespace backupd
