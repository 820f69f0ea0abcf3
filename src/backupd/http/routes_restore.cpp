#include "backupd/http/routes.h"
#include "backupd/server_core.h"

namespace backupd {

namespace {

Reply post_plan(Server_Core& core, const Request& request) {
  json_spirit::Object plan;
  if (Outcome outcome = core.restore_planning.plan(request.body, plan); !outcome.ok()) return outcome;
  return json_spirit::Value(plan);
}

}  // namespace

void add_restore_routes(Router& router, Server_Core& core) {
  router.add({"POST",
              std::string(rest_prefix) + "/restore/plan",
              reader_roles,
              {},
              Body::json,
              [&core](Request& request) { return post_plan(core, request); },
              {}});
}

}  // namespace backupd
