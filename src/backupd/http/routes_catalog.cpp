#include "backupd/http/body_reader.h"
#include "backupd/http/routes.h"
#include "backupd/server_core.h"
#include "scrt/numbers.h"

namespace backupd {

namespace {

const std::vector<std::pair<std::string, std::string>> set_sorts = {{"id", "id"}, {"start_time", "start_time"}};

void filter_sets(const Request& request, List_Query& query) {
  query.where_given("resource_uuid", request.parameter("resource_uuid"));
  query.where_given("database_name", request.parameter("database"));
  query.where_given("uuid", request.parameter("uuid"));
  query.where_given("type", request.parameter("type"));
  query.where_given("job_id", request.parameter("job_id"));
  query.where_given("module", request.parameter("module"));
}

Reply get_sets(Server_Core& core, const Request& request) {
  List_Query query;
  List_Page page;
  if (Outcome outcome = read_list_query(request, set_sorts, query); !outcome.ok()) return outcome;
  filter_sets(request, query);
  if (!core.sets.list(query, page)) return store_unavailable();
  return page;
}

Reply get_restore_sets(Server_Core& core, const Request& request) {
  List_Query query;
  List_Page page;
  if (Outcome outcome = read_list_query(request, set_sorts, query); !outcome.ok()) return outcome;
  filter_sets(request, query);
  const std::string backup_id = request.parameter("database_backup_id");
  std::uint64_t number = 0;
  if (!backup_id.empty()) {
    if (!parse_uint64(backup_id, number) ||
        number > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()))
      return Outcome::refuse(Outcome::bad_request, "the parameter \"database_backup_id\" is not a number");
    query.where("database_backup_id", static_cast<std::int64_t>(number));
  }
  if (!core.sets.select(query, page)) return store_unavailable();
  return page;
}

Reply post_set(Server_Core& core, const Request& request) {
  Backup_Set_Record set;
  json_spirit::Object stored;
  if (Outcome outcome = set.read(request.body); !outcome.ok()) return outcome;
  const Outcome outcome = core.sets.commit(set, stored);
  return stored_reply(outcome, stored);
}

Reply post_view(Server_Core& core, const Request& request) {
  json_spirit::Object params;
  json_spirit::Object result;
  Body_Reader reader(request.body, "the view's request");
  reader.object("params", params, Need::required);
  if (Outcome outcome = reader.finish(); !outcome.ok()) return outcome;
  if (Outcome outcome = core.views.ask(request.parameters.at(0), request.parameters.at(1), params, result);
      !outcome.ok())
    return outcome;
  return json_spirit::Value(result);
}

Reply get_alerts(Server_Core& core, const Request& request) {
  List_Query query;
  List_Page page;
  if (Outcome outcome = read_list_query(request, {{"id", "id"}}, query); !outcome.ok()) return outcome;
  query.where_given("job_act_id", request.parameter("job_act_id"));
  query.where_given("job_id", request.parameter("job_id"));
  if (!core.alerts.list(query, page)) return store_unavailable();
  return page;
}

Reply post_alert(Server_Core& core, const Request& request) {
  json_spirit::Object stored;
  const Outcome outcome = core.alerts.add(request.body, stored);
  return stored_reply(outcome, stored);
}

}  // namespace

void add_catalog_routes(Router& router, Server_Core& core) {
  const std::string prefix = rest_prefix;
  router.add({"GET",
              prefix + "/sets",
              all_roles,
              with_list_keys({"uuid", "resource_uuid", "database", "type", "job_id", "module"}),
              Body::none,
              [&core](Request& request) { return get_sets(core, request); },
              {}});
  router.add({"GET",
              prefix + "/sets/restore/sets",
              all_roles,
              with_list_keys({"resource_uuid", "database", "module", "database_backup_id", "type"}),
              Body::none,
              [&core](Request& request) { return get_restore_sets(core, request); },
              {}});
  router.add({"POST",
              prefix + "/sets",
              role_agent,
              {},
              Body::json,
              [&core](Request& request) { return post_set(core, request); },
              {}});
  router.add({"POST",
              prefix + "/catalog/<module>/<view>",
              all_roles,
              {},
              Body::json,
              [&core](Request& request) { return post_view(core, request); },
              {}});
  router.add({"GET",
              prefix + "/alerts",
              reader_roles,
              with_list_keys({"job_act_id", "job_id"}),
              Body::none,
              [&core](Request& request) { return get_alerts(core, request); },
              {}});
  router.add({"POST",
              prefix + "/alerts",
              role_agent,
              {},
              Body::json,
              [&core](Request& request) { return post_alert(core, request); },
              {}});
}

}  // namespace backupd
