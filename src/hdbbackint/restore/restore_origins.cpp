#include "hdbbackint/restore/restore_origins.h"

#include <iterator>

#include "agent/backupd_client/json_http_session.h"
#include "hana/common/hana_paths.h"
#include "hdbbackint/restore/staged_catalog.h"
#include "scrt/http_query_string_builder.h"
#include "scrt/path_t.h"

namespace hdbbackint {

namespace {

constexpr const char* restores_path = "/q5/r/v2/backint/restores";
constexpr int most_retries = 1'000'000;  // the time decides
constexpr unsigned status_not_found = 404;

bool same_database(const User_Id& left, const User_Id& right) {
  return left.sid == right.sid && database_of(left) == database_of(right);
}

Running_Restore with_hosts(Running_Restore restore, const json_spirit::Object& row) {
  json_spirit::Array hosts;
  (void)json_spirit::object_get(row, "origin_hosts", hosts);
  for (const json_spirit::Value& host : hosts)
    if (host.is_string()) restore.origin_hosts.push_back(host.get_str());
  return restore;
}

}  // namespace

bool find_running_restores(const Call& call, const User_Id& database, std::vector<Running_Restore>& restores,
                           std::string& error) {
  const JSON_HTTP_Session requests(call.session, most_retries, default_seconds_retry);
  std::string path = std::string(restores_path) + "?";
  HTTP_Query_String_Builder_T<std::back_insert_iterator<std::string>> query(std::back_inserter(path));
  query("host_uuid", call.configuration.host_uuid);
  query("sid", database.sid);
  query("database", database_of(database));
  json_spirit::Value reply;
  JSON_HTTP_Failure failure;
  if (!requests.get(path, reply, &failure)) {
    error = "cannot ask backupd which restores go on: " + failure.message;
    return failure.status == status_not_found;  // one that is older than this program
  }
  json_spirit::Array rows;
  if (reply.is_object()) (void)json_spirit::object_get(reply.get_obj(), "rows", rows);
  for (const json_spirit::Value& row : rows) {
    if (!row.is_object()) continue;
    Running_Restore restore;
    const auto take = [&](const char* key, std::string& text) {
      return json_spirit::object_get(row.get_obj(), key, text);
    };
    if (take("job_act_id", restore.run) && take("origin_sid", restore.origin.sid) &&
        take("origin_database", restore.origin.database) && take("target_sid", restore.target.sid) &&
        take("target_database", restore.target.database))
      restores.push_back(with_hosts(std::move(restore), row.get_obj()));
  }
  return true;
}

User_Id restored_origin(const std::vector<Running_Restore>& restores, const User_Id& named, const User_Id& user) {
  User_Id found;
  bool several = false;
  bool is_read = false;
  for (const Running_Restore& restore : restores) {
    if (same_database(restore.origin, named) && same_database(restore.target, user) && !same_database(named, user))
      return restore.origin;
    is_read = is_read || same_database(restore.origin, named);
    if (!same_database(restore.target, named) || same_database(restore.origin, named)) continue;
    if (!same_database(user, named) && !same_database(user, restore.origin)) continue;
    several = several || (!found.sid.empty() && !same_database(found, restore.origin));
    found = restore.origin;
  }
  return is_read || several ? User_Id() : found;
}

std::vector<std::string> hosts_of_namesake(const std::vector<Running_Restore>& restores, const User_Id& named,
                                           const User_Id& user) {
  if (!same_database(named, user)) return {};
  for (const Running_Restore& restore : restores)
    if (same_database(restore.origin, named) && same_database(restore.target, named)) return restore.origin_hosts;
  return {};
}

std::string object_path(const User_Id& owner, const std::string& name) {
  const bool alone = database_of(owner) == owner.sid;
  std::string directory;
  if (!sap_hana::database_pipe_path(owner.sid, alone ? std::string() : owner.database, !alone, directory)) return {};
  return scrt::join_path(directory, name);
}

}  // namespace hdbbackint
