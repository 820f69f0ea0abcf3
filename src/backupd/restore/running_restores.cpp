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

/// Adds the entries that concern `database` of the system `sid`, which are restored into the system `target_sid`: under
/// their own name unless they say otherwise.
void add_entries(const json_spirit::Object& definition, const Restore_Place& place, Running_Restore restore,
                 std::vector<Running_Restore>& found) {
  const std::string& database = place.database.empty() ? place.sid : place.database;
  json_spirit::Array entries;
  json_spirit::object_get(member_of(definition, "source"), "entries", entries);
  for (const json_spirit::Value& value : entries) {
    if (!value.is_object()) continue;
    const json_spirit::Object original = member_of(value.get_obj(), "original");
    const std::string as = text_of(member_of(value.get_obj(), "restore_as"), "database");
    restore.origin_sid = text_of(original, "sid");
    restore.origin_database = text_of(original, "database");
    restore.target_database = as.empty() ? restore.origin_database : as;
    if ((restore.origin_sid == place.sid && restore.origin_database == database) ||
        (restore.target_sid == place.sid && restore.target_database == database))
      found.push_back(restore);
  }
}

/// The SID of the system's instance on the host; empty when it has none there.
std::string sid_on(Sql_Session& session, const std::string& resource, const std::string& host_uuid) {
  const auto row = session.first("SELECT extended_attrs FROM instances WHERE resource_uuid = :a AND host_uuid = :b",
                                 {resource, host_uuid}, 1);
  return row ? text_of(stored_object(row->text(0)), "sid") : std::string();
}

json_spirit::Object row_of(const Running_Restore& restore) {
  json_spirit::Object row{{"job_act_id", restore.job_act_id},
                          {"origin_sid", restore.origin_sid},
                          {"origin_database", restore.origin_database},
                          {"target_sid", restore.target_sid},
                          {"target_database", restore.target_database}};
  if (!restore.origin_hosts.empty())
    row["origin_hosts"] = json_spirit::Array(restore.origin_hosts.begin(), restore.origin_hosts.end());
  return row;
}

/// Its name does not tell one system from its copy.
std::vector<std::string> hosts_of_other_system(Sql_Session& session, const json_spirit::Object& definition) {
  const std::string origin = text_of(member_of(definition, "source"), "id");
  std::vector<std::string> hosts;
  if (origin == text_of(member_of(definition, "target"), "resource_uuid")) return hosts;
  for (const Sql_Row& row :
       session.query("SELECT host_uuid FROM instances WHERE resource_uuid = :a ORDER BY seq", {origin}, 1))
    hosts.push_back(row.text(0));
  return hosts;
}

}  // namespace

std::vector<Running_Restore> restores_about(Sql_Session& session, const Restore_Place& place) {
  std::vector<Running_Restore> found;
  for (const Sql_Row& row : session.query(
           "SELECT a.id, a.host_uuid, d.document FROM activities AS a JOIN job_definitions AS d ON d.id = a.def_id "
           "WHERE a.ended = 0 AND a.kind = :a ORDER BY a.seq DESC",
           {std::string(kind_of_restore)}, 3)) {
    const json_spirit::Object definition = stored_object(row.text(2));
    Running_Restore restore;
    restore.job_act_id = row.text(0);
    restore.run_host_uuid = row.text(1);
    restore.target_sid = sid_on(session, text_of(member_of(definition, "target"), "resource_uuid"), place.host_uuid);
    restore.origin_hosts = hosts_of_other_system(session, definition);
    if (!restore.target_sid.empty()) add_entries(definition, place, std::move(restore), found);
  }
  return found;
}

bool Running_Restores::list(const Restore_Place& place, List_Page& page) const {
  return database_.read([&](Sql_Session& session) {
    for (const Running_Restore& restore : restores_about(session, place))
      if (agents_.is_connected(restore.run_host_uuid)) page.rows.emplace_back(row_of(restore));
    page.total = static_cast<std::int64_t>(page.rows.size());
  });
}

}  // namespace backupd
