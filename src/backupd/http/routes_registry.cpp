#include "backupd/http/routes.h"
#include "backupd/server_core.h"
#include "platform/clock.h"
#include "scrt/time_text.h"

namespace backupd {

namespace {

constexpr unsigned status_created = 201;

Reply get_server(Server_Core& core) {
  return json_spirit::Value(
      json_spirit::Object{{"product", "Dorsal3"},
                          {"version", core.options.version},
                          {"time", posix_time_to_utc_text(platform::Clock::current().wall_seconds())}});
}

Reply get_hosts(Server_Core& core, const Request& request) {
  List_Query query;
  List_Page page;
  if (Outcome outcome =
          read_list_query(request, {{"name", "name"}, {"uuid", "uuid"}, {"last_seen", "last_seen"}}, query);
      !outcome.ok())
    return outcome;
  if (!core.resources.list_hosts(query, page)) return store_unavailable();
  for (json_spirit::Value& row : page.rows) {
    std::string uuid;
    json_spirit::object_get(row.get_obj(), "uuid", uuid);
    row.get_obj()["connected"] = core.agents.is_connected(uuid);
  }
  return page;
}

Reply get_resources(Server_Core& core, const Request& request) {
  List_Query query;
  List_Page page;
  if (Outcome outcome = read_list_query(request, {{"name", "name"}, {"uuid", "uuid"}}, query); !outcome.ok())
    return outcome;
  if (!core.resources.list(request.parameter("uuid"), request.parameter("name"), query, page))
    return store_unavailable();
  return page;
}

Reply post_resource(Server_Core& core, const Request& request) {
  Instance_Registration instance;
  json_spirit::Object resource;
  const Identity& who = request.identity;
  if (Outcome outcome = instance.read(request.body, who.host_uuid, Instance_Registration::Origin::request);
      !outcome.ok())
    return outcome;
  if (who.role == role_agent && instance.host_uuid != who.host_uuid)
    return Outcome::refuse(Outcome::forbidden,
                           "an agent registers the instances of its own host, which is " + who.host_uuid);
  const Outcome outcome = core.resources.add(instance, resource);
  if (!outcome.ok()) return outcome;
  return {resource, status_created};
}

Reply get_pools(Server_Core& core, const Request& request) {
  List_Query query;
  List_Page page;
  if (Outcome outcome = read_list_query(request, {{"name", "name"}, {"uuid", "uuid"}}, query); !outcome.ok())
    return outcome;
  if (!core.pools.list(request.parameter("uuid"), request.parameter("name"), query, page)) return store_unavailable();
  return page;
}

Reply post_pool(Server_Core& core, const Request& request) {
  Pool pool;
  if (Outcome outcome = pool.read(request.body); !outcome.ok()) return outcome;
  const Outcome outcome = core.pools.add(pool);
  return stored_reply(outcome, core.pools.to_json(pool));
}

}  // namespace

Reply store_unavailable() {
  return Outcome::refuse(Outcome::internal, "the server's database cannot be read now; see the server's log");
}

Reply stored_reply(const Outcome& outcome, json_spirit::Value record) {
  if (!outcome.ok()) return outcome;
  return {std::move(record), outcome.kind == Outcome::already_done ? 200 : status_created};
}

void add_registry_routes(Router& router, Server_Core& core) {
  const std::string prefix = rest_prefix;
  router.add(
      {"GET", prefix + "/server", all_roles, {}, Body::none, [&core](Request&) { return get_server(core); }, {}});
  router.add({"GET",
              prefix + "/hosts",
              reader_roles,
              list_keys,
              Body::none,
              [&core](Request& request) { return get_hosts(core, request); },
              {}});
  router.add({"GET",
              prefix + "/resources",
              all_roles,
              with_list_keys({"uuid", "name"}),
              Body::none,
              [&core](Request& request) { return get_resources(core, request); },
              {}});
  router.add({"POST",
              prefix + "/resources",
              role_agent | role_operator,
              {},
              Body::json,
              [&core](Request& request) { return post_resource(core, request); },
              {}});
  router.add({"GET",
              prefix + "/pools",
              all_roles,
              with_list_keys({"uuid", "name"}),
              Body::none,
              [&core](Request& request) { return get_pools(core, request); },
              {}});
  router.add({"POST",
              prefix + "/pools",
              role_operator,
              {},
              Body::json,
              [&core](Request& request) { return post_pool(core, request); },
              {}});
}

}  // namespace backupd
