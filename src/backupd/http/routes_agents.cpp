#include "backupd/http/body_reader.h"
#include "backupd/http/routes.h"
#include "backupd/server_core.h"

namespace backupd {

namespace {

Reply post_verify(Server_Core& core, const Request& request) {
  std::string set;
  json_spirit::Object result;
  Body_Reader reader(request.body, "the request to verify");
  reader.text("set", set, Need::required);
  if (Outcome outcome = reader.finish(); !outcome.ok()) return outcome;
  if (Outcome outcome = core.requests.verify(set, result); !outcome.ok()) return outcome;
  return json_spirit::Value(result);
}

Reply post_discover(Server_Core& core, const Request& request) {
  std::string host_uuid;
  json_spirit::Object result;
  Body_Reader reader(request.body, "the request to discover");
  reader.uuid("host_uuid", host_uuid);
  if (Outcome outcome = reader.finish(); !outcome.ok()) return outcome;
  if (Outcome outcome = core.requests.discover(host_uuid, result); !outcome.ok()) return outcome;
  return json_spirit::Value(result);
}

Reply post_call(Server_Core& core, const Request& request) {
  std::string method;
  std::int64_t timeout = 0;
  json_spirit::Value result;
  Body_Reader reader(request.body, "the call to an agent");
  reader.text("method", method, Need::required);
  reader.number("timeout", timeout);
  reader.allow("params");
  if (Outcome outcome = reader.finish(); !outcome.ok()) return outcome;
  const json_spirit::Value* params = request.body.find("params");
  if (Outcome outcome = core.requests.call(request.identity, request.parameters.at(0), method,
                                           params == nullptr ? json_spirit::Value() : *params, timeout, result);
      !outcome.ok())
    return outcome;
  return result;
}

Reply get_audit(Server_Core& core, const Request& request) {
  List_Query query;
  List_Page page;
  if (Outcome outcome = read_list_query(request, {{"id", "id"}}, query); !outcome.ok()) return outcome;
  query.where_given("host_uuid", request.parameter("host_uuid"));
  if (!core.audit.list(query, page)) return store_unavailable();
  return page;
}

Reply post_sweep(Server_Core& core, const Request& request) {
  Sweep_Result result;
  Body_Reader reader(request.body, "the sweep");
  if (Outcome outcome = reader.finish(); !outcome.ok()) return outcome;
  if (Outcome outcome = core.sweeper.sweep_all(core.activities, result); !outcome.ok()) return outcome;
  core.starter.wake();  // it may have found a backup that a run is owed to
  json_spirit::Object body{{"jobs", result.jobs}, {"files", result.files}, {"datasets", result.datasets}};
  if (!result.skipped.empty()) body["skipped"] = json_spirit::Array(result.skipped.begin(), result.skipped.end());
  return json_spirit::Value(body);
}

}  // namespace

void add_agent_routes(Router& router, Server_Core& core) {
  const std::string prefix = rest_prefix;
  router.add({"POST",
              prefix + "/verify",
              role_operator,
              {},
              Body::json,
              [&core](Request& request) { return post_verify(core, request); },
              {}});
  router.add({"POST",
              prefix + "/discover",
              role_operator,
              {},
              Body::json,
              [&core](Request& request) { return post_discover(core, request); },
              {}});
  router.add({"POST",
              prefix + "/agents/<host uuid>/call",
              reader_roles,
              {},
              Body::json,
              [&core](Request& request) { return post_call(core, request); },
              {}});
  router.add({"GET",
              prefix + "/audit",
              reader_roles,
              with_list_keys({"host_uuid"}),
              Body::none,
              [&core](Request& request) { return get_audit(core, request); },
              {}});
  router.add({"POST",
              prefix + "/retention/sweep",
              role_operator,
              {},
              Body::json,
              [&core](Request& request) { return post_sweep(core, request); },
              {}});
}

}  // namespace backupd
