#include "backupd/restore/running_restores.h"

#include "backupd/jobs/activity_rows.h"

namespace backupd {

namespace {

std::string text_of(const json_spirit::Object& object, const char* key) {
  std::string text;
  json_spirit::object_get(object, key, text);
  return text;
}

json_spirit::Object member_of(const json_spirit::Object& object, const char* key) {
  json_spirit::Object member;
  json_spirit::object_get(object, key, member);
  return member;
}

/// Adds the entries that are restored into `database`: under their own name unless they say otherwise.
void add_entries(const json_spirit::Object& definition, const std::string& database, const std::string& job_act_id,
                 std::vector<Running_Restore>& found) {
  json_spirit::Array entries;
  json_spirit::object_get(member_of(definition, "source"), "entries", entries);
  for (const json_spirit::Value& value : entries) {
    if (!value.is_object()) continue;
    const json_spirit::Object original = member_of(value.get_obj(), "original");
    const std::string as = text_of(member_of(value.get_obj(), "restore_as"), "database");
    Running_Restore restore{job_act_id, text_of(original, "sid"), text_of(original, "database")};
    if ((as.empty() ? restore.origin_database : as) == database) found.push_back(std::move(restore));
  }
}

/// Whether the system has an instance `sid` on the host.
bool runs_on(Sql_Session& session, const std::string& resource, const Restore_Place& place) {
  for (const Sql_Row& row :
       session.query("SELECT extended_attrs FROM instances WHERE resource_uuid = :a AND host_uuid = :b",
                     {resource, place.host_uuid}, 1))
    if (text_of(stored_object(row.text(0)), "sid") == place.sid) return true;
  return false;
}

}  // namespace

std::vector<Running_Restore> restores_into(Sql_Session& session, const Restore_Place& place) {
  std::vector<Running_Restore> found;
  for (const Sql_Row& row :
       session.query("SELECT a.id, d.document FROM activities AS a JOIN job_definitions AS d ON d.id = a.def_id "
                     "WHERE a.ended = 0 AND a.kind = :a ORDER BY a.seq DESC",
                     {std::string(kind_of_restore)}, 2)) {
    const json_spirit::Object definition = stored_object(row.text(1));
    if (runs_on(session, text_of(member_of(definition, "target"), "resource_uuid"), place))
      add_entries(definition, place.database.empty() ? place.sid : place.database, row.text(0), found);
  }
  return found;
}

bool list_restores_into(Database& database, const Restore_Place& place, List_Page& page) {
  return database.read([&](Sql_Session& session) {
    for (const Running_Restore& restore : restores_into(session, place))
      page.rows.emplace_back(json_spirit::Object{{"job_act_id", restore.job_act_id},
                                                 {"origin_sid", restore.origin_sid},
                                                 {"origin_database", restore.origin_database}});
    page.total = static_cast<std::int64_t>(page.rows.size());
  });
}

}  // namespace backupd
