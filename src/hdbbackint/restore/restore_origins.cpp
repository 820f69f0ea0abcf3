#include "hdbbackint/restore/restore_origins.h"

#include <iterator>

#include "agent/backupd_client/json_http_session.h"
#include "hana/common/hana_paths.h"
#include "scrt/http_query_string_builder.h"
#include "scrt/path_t.h"

namespace hdbbackint {

namespace {

constexpr const char* restores_path = "/q5/r/v2/backint/restores";
constexpr int most_retries = 1'000'000;  // the time decides
constexpr unsigned status_not_found = 404;

}  // namespace

bool find_restore_origins(const Call& call, const User_Id& target, std::vector<User_Id>& origins, std::string& error) {
  const JSON_HTTP_Session requests(call.session, most_retries, default_seconds_retry);
  std::string path = std::string(restores_path) + "?";
  HTTP_Query_String_Builder_T<std::back_insert_iterator<std::string>> query(std::back_inserter(path));
  query("host_uuid", call.configuration.host_uuid);
  query("sid", target.sid);
  query("database", target.database);
  json_spirit::Value reply;
  JSON_HTTP_Failure failure;
  if (!requests.get(path, reply, &failure)) {
    error = "cannot ask backupd what is being restored: " + failure.message;
    return failure.status == status_not_found;  // one that is older than this program
  }
  json_spirit::Array rows;
  if (reply.is_object()) (void)json_spirit::object_get(reply.get_obj(), "rows", rows);
  for (const json_spirit::Value& row : rows) {
    User_Id origin;
    if (row.is_object() && json_spirit::object_get(row.get_obj(), "origin_sid", origin.sid) &&
        json_spirit::object_get(row.get_obj(), "origin_database", origin.database))
      origins.push_back(std::move(origin));
  }
  return true;
}

std::vector<std::string> object_paths(const User_Id& owner, const std::string& name) {
  std::vector<std::string> paths;
  std::string directory;
  const bool alone = owner.database.empty() || owner.database == owner.sid;
  if (!alone && sap_hana::database_pipe_path(owner.sid, owner.database, true, directory))
    paths.push_back(scrt::join_path(directory, name));
  if (alone && sap_hana::database_pipe_path(owner.sid, owner.sid, false, directory))
    paths.push_back(scrt::join_path(directory, name));
  return paths;
}

}  // namespace hdbbackint
