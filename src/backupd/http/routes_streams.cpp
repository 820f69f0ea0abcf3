#include "backupd/http/routes.h"
#include "backupd/server_core.h"

namespace backupd {

namespace {

constexpr unsigned status_ok = 200;
constexpr unsigned status_created = 201;
constexpr unsigned stream_roles = role_agent | role_operator;

/// The pool and the path in it. A pool that this server does not serve is none here.
struct Place {
  std::optional<Pool> pool;
  Pool_Storage::Path path;
};

Outcome find_place(Server_Core& core, const Request& request, Place& place) {
  const std::string& uuid = request.parameters.at(0);
  if (!core.pools.find(uuid, place.pool))
    return Outcome::refuse(Outcome::unavailable, "the pools cannot be read now; try again later");
  if (!place.pool || !place.pool->served())
    return Outcome::refuse(Outcome::not_found, "there is no pool " + uuid + " that this server serves");
  place.path.assign(request.parameters.begin() + 1, request.parameters.end());
  return {};
}

Outcome put(Server_Core& core, const Request& request, net::Server_Exchange& exchange) {
  Place place;
  if (Outcome outcome = find_place(core, request, place); !outcome.ok()) return outcome;
  return core.storage.put(*place.pool, place.path,
                          [&exchange](net::Body_Sink& sink) { return exchange.read_body(sink); });
}

void handle_put(Server_Core& core, Request& request, net::Server_Exchange& exchange) {
  const Outcome outcome = put(core, request, exchange);
  respond(exchange, outcome.ok() ? Reply(json_spirit::Object(), status_created) : Reply(outcome));
}

Outcome remove(Server_Core& core, const Request& request) {
  Place place;
  if (Outcome outcome = find_place(core, request, place); !outcome.ok()) return outcome;
  return core.storage.remove(*place.pool, place.path);
}

void handle_delete(Server_Core& core, Request& request, net::Server_Exchange& exchange) {
  const Outcome outcome = remove(core, request);
  respond(exchange, outcome.ok() ? Reply(json_spirit::Object()) : Reply(outcome));
}

Reply list(Server_Core& core, const Place& place) {
  // The pool itself is the empty path, however it is written.
  const bool root = place.path.size() == 1 && place.path.front().empty();
  json_spirit::Array rows;
  if (Outcome outcome = core.storage.list(*place.pool, root ? Pool_Storage::Path() : place.path, rows); !outcome.ok())
    return outcome;
  const auto total = static_cast<std::int64_t>(rows.size());
  return List_Page{total, std::move(rows)};
}

void handle_get(Server_Core& core, Request& request, net::Server_Exchange& exchange) {
  Place place;
  if (Outcome outcome = find_place(core, request, place); !outcome.ok()) return respond(exchange, outcome);
  if (request.query.contains("list")) return respond(exchange, list(core, place));
  std::unique_ptr<net::Body_Source> content;
  if (Outcome outcome = core.storage.open(*place.pool, place.path, content); !outcome.ok())
    return respond(exchange, outcome);
  net::Http_Response head;
  head.status = status_ok;
  head.headers.set("Content-Type", "application/octet-stream");
  exchange.respond(head, *content);
}

void handle_head(Server_Core& core, Request& request, net::Server_Exchange& exchange) {
  Place place;
  std::uint64_t bytes = 0;
  if (Outcome outcome = find_place(core, request, place); !outcome.ok()) return respond(exchange, outcome);
  if (Outcome outcome = core.storage.size(*place.pool, place.path, bytes); !outcome.ok())
    return respond(exchange, outcome);
  net::Http_Response head;
  head.status = status_ok;
  head.headers.set("Content-Type", "application/octet-stream");
  head.headers.set("Content-Length", std::to_string(bytes));
  exchange.respond(head);
}

using Handler = void (*)(Server_Core&, Request&, net::Server_Exchange&);

}  // namespace

void add_stream_routes(Router& router, Server_Core& core) {
  const std::string pattern = "/q5/pools/<pool uuid>/<path...>";
  const auto bound = [&core](Handler handler) {
    return [&core, handler](Request& request, net::Server_Exchange& exchange) { handler(core, request, exchange); };
  };
  router.add({"PUT", pattern, stream_roles, {}, Body::none, {}, bound(handle_put)});
  router.add({"GET", pattern, stream_roles, {"list"}, Body::none, {}, bound(handle_get)});
  router.add({"HEAD", pattern, stream_roles, {}, Body::none, {}, bound(handle_head)});
  router.add({"DELETE", pattern, stream_roles, {}, Body::none, {}, bound(handle_delete)});
}

}  // namespace backupd
