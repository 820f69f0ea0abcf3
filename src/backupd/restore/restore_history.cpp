#include "backupd/restore/restore_history.h"

#include <algorithm>

#include "backupd/restore/restore_selection.h"
#include "backupd/store/list_query.h"

namespace backupd {

namespace {

constexpr const char* data_types[] = {type_full, type_incremental, type_differential};
constexpr const char* log_types[] = {"log", "catalog"};
/// Sets of each type that are looked at for the last log of every service before a full backup.
constexpr std::int64_t most_before = 64;

std::string text_of(const json_spirit::Object& object, const char* key) {
  std::string text;
  json_spirit::object_get(object, key, text);
  return text;
}

Outcome unknown_database(Sql_Session& session, const Restore_Wish& wish) {
  std::string known;
  for (const Sql_Row& row :
       session.query("SELECT DISTINCT database_name FROM sets WHERE resource_uuid = :a ORDER BY database_name",
                     {wish.resource_uuid}, 1))
    known += (known.empty() ? "" : ", ") + row.text(0);
  return Outcome::refuse(Outcome::not_found,
                         "there is no backup of a database " + wish.database + " of this system; " +
                             (known.empty() ? "none of it is backed up" : "there are of: " + known));
}

Outcome store_failed() {
  return Outcome::refuse(Outcome::internal, "the backup sets cannot be read now; see the server's log");
}

}  // namespace

Outcome Restore_History::load(Database& database, const Restore_Wish& wish) {
  question.database = wish.database;
  question.ignore_delta = wish.ignore_delta;
  question.ancient = wish.ancient;
  question.copy = wish.copy;
  question.now = wish.now;
  Outcome outcome;
  const bool read = database.read([&](Sql_Session& session) {
    if (outcome = find_wanted(session, wish); !outcome.ok()) return;
    choose(session, wish);
    read_data(session, wish);
    if (!full_ || !catalog_) return;
    read_logs_before(session, wish);
    read_logs(session, wish);
  });
  return read ? outcome : store_failed();
}

Outcome Restore_History::find_wanted(Sql_Session& session, const Restore_Wish& wish) {
  question.time = wish.time;
  if (wish.set.empty()) {
    const bool known = session
                           .first("SELECT id FROM sets WHERE resource_uuid = :a AND database_name = :b LIMIT 1",
                                  {wish.resource_uuid, wish.database}, 1)
                           .has_value();
    return known ? Outcome() : unknown_database(session, wish);
  }
  const auto row = session.first("SELECT document FROM sets WHERE uuid = :a", {wish.set}, 1);
  if (!row) return Outcome::refuse(Outcome::not_found, "there is no backup set " + wish.set + "; list the sets");
  const json_spirit::Object document = stored_object(row->text(0));
  if (text_of(document, "resource_uuid") != wish.resource_uuid || text_of(document, "database") != wish.database)
    return Outcome::refuse(Outcome::invalid, "the backup set " + wish.set + " is one of " +
                                                 text_of(document, "database") +
                                                 " of another database or system; name what it holds");
  wanted_ = Plan_Set::read(document);
  question.wanted = &*wanted_;
  question.time = wanted_->last_time;
  return {};
}

void Restore_History::choose(Sql_Session& session, const Restore_Wish& wish) {
  // As the module asks: a set leaves the lifeline open.
  Restore_Point point{wish.resource_uuid, wanted_ ? std::string() : wish.lifeline, wish.database, question.time, 0};
  if (wanted_ && wanted_->is_full())
    full_ = wanted_;
  else if (const auto full = select_full(session, point))
    full_ = Plan_Set::read(*full);
  if (full_) {
    question.full = &*full_;
    point.lifeline = full_->lifeline;
    point.database_backup_id = full_->backup_id;
    point.time = std::max(full_->last_time, question.time);
    if (const auto catalog = select_catalog(session, point)) catalog_ = Plan_Set::read(*catalog);
    if (catalog_) question.catalog = &*catalog_;
  }
  const auto newest = session.first(
      "SELECT document FROM sets WHERE resource_uuid = :a AND database_name = :b AND type = 'catalog' "
      "ORDER BY start_time DESC, id DESC LIMIT 1",
      {wish.resource_uuid, wish.database}, 1);
  if (newest) newest_catalog_ = Plan_Set::read(stored_object(newest->text(0)));
  if (newest_catalog_) question.newest_catalog = &*newest_catalog_;
}

void Restore_History::read_data(Sql_Session& session, const Restore_Wish& wish) {
  for (const char* type : data_types)
    for (const Sql_Row& row :
         session.query("SELECT document FROM sets WHERE resource_uuid = :a AND database_name = :b AND type = :c "
                       "ORDER BY start_time, id",
                       {wish.resource_uuid, wish.database, std::string(type)}, 1))
      question.data.push_back(Plan_Set::read(stored_object(row.text(0))));
  std::stable_sort(question.data.begin(), question.data.end(),
                   [](const Plan_Set& a, const Plan_Set& b) { return a.backup_id < b.backup_id; });
}

void Restore_History::read_logs(Sql_Session& session, const Restore_Wish& wish) {
  for (const char* type : log_types)
    for (const Sql_Row& row : session.query("SELECT document FROM sets WHERE resource_uuid = :a AND lifeline = :b AND "
                                            "database_name = :c AND type = :d "
                                            "AND start_time >= :e AND database_backup_id <= :f ORDER BY start_time, id",
                                            {wish.resource_uuid, full_->lifeline, wish.database, std::string(type),
                                             full_->first_time, catalog_->backup_id},
                                            1))
      question.logs.push_back(Plan_Set::read(stored_object(row.text(0))));
}

/// They tell whether the logs behind the full backup join it.
void Restore_History::read_logs_before(Sql_Session& session, const Restore_Wish& wish) {
  for (const char* type : log_types)
    for (const Sql_Row& row : session.query("SELECT document FROM sets WHERE resource_uuid = :a AND lifeline = :b AND "
                                            "database_name = :c AND type = :d AND start_time < :e AND "
                                            "database_backup_id < :f ORDER BY start_time DESC, id DESC LIMIT :g",
                                            {wish.resource_uuid, full_->lifeline, wish.database, std::string(type),
                                             full_->first_time, full_->backup_id, most_before},
                                            1))
      question.logs.push_back(Plan_Set::read(stored_object(row.text(0))));
}

}  // namespace backupd
