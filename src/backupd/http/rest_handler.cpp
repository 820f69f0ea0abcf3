#include "backupd/http/rest_handler.h"

#include <algorithm>

#include "platform/log.h"
#include "platform/secure_string.h"

namespace backupd {

namespace {

constexpr unsigned status_unauthorized = 401;
constexpr unsigned status_forbidden = 403;
constexpr unsigned status_not_found = 404;
constexpr unsigned status_method_not_allowed = 405;
constexpr unsigned status_unavailable = 503;
constexpr std::size_t quoted_limit = 200;

Reply error_reply(unsigned status, const char* code, std::string message) {
  return {json_spirit::Object{{"error", json_spirit::Object{{"code", code}, {"message", std::move(message)}}}}, status};
}

void respond_with(net::Server_Exchange& exchange, const Reply& reply, const char* header, const std::string& value) {
  net::Http_Response response;
  response.status = reply.status;
  response.headers.set("Content-Type", "application/json");
  if (header != nullptr) response.headers.set(header, value);
  if (exchange.method() != "HEAD") response.body = json_spirit::dump_json(reply.body);
  exchange.respond(response);
}

/// Within the headers, which wipe it: no copy of the key is made.
std::string_view bearer_of(const net::Http_Headers& headers) {
  constexpr std::string_view scheme = "Bearer ";
  const std::string* field = headers.find("Authorization");
  if (field == nullptr || !field->starts_with(scheme)) return {};
  return std::string_view(*field).substr(scheme.size());
}

void refuse_method(net::Server_Exchange& exchange, const std::vector<std::string>& allowed) {
  std::string list;
  for (const std::string& method : allowed) list += (list.empty() ? "" : ", ") + method;
  respond_with(exchange,
               error_reply(status_method_not_allowed, "method_not_allowed",
                           "the method " + platform::cut_for_log(exchange.method(), quoted_limit) +
                               " is not known here; use one of: " + list),
               "Allow", list);
}

Outcome check_query(const Route& route, const Request& request) {
  for (const auto& [key, value] : request.query)
    if (std::find(route.query_keys.begin(), route.query_keys.end(), key) == route.query_keys.end())
      return Outcome::refuse(Outcome::bad_request, "the parameter \"" + platform::cut_for_log(key, quoted_limit) +
                                                       "\" is not known here; correct or remove it");
  return {};
}

/// A request may pass a password on to an agent: neither its text nor a plain string of it outlives the reading.
struct Wiped_Text {
  std::string text;
  Wiped_Text() = default;
  ~Wiped_Text() { platform::wipe_memory(text.data(), text.size()); }
  Wiped_Text(const Wiped_Text&) = delete;
  Wiped_Text& operator=(const Wiped_Text&) = delete;
};
constexpr const char* secret_keys[] = {"password", nullptr};

Outcome read_json_body(net::Server_Exchange& exchange, json_spirit::Object& body) {
  Wiped_Text read;
  const std::string& text = read.text;
  if (!exchange.read_body(read.text))
    return Outcome::refuse(Outcome::too_large,
                           "the request's body could not be read whole; it may hold at most 16 MiB");
  if (text.empty()) return {};
  json_spirit::Value value;
  std::string error;
  if (!json_spirit::load_json(text, value, &error, {}, secret_keys))
    return Outcome::refuse(Outcome::bad_request,
                           "the request's body is not JSON: " + platform::cut_for_log(error, quoted_limit));
  if (!value.is_object()) return Outcome::refuse(Outcome::bad_request, "the request's body must be a JSON object");
  body = std::move(value.get_obj());
  return {};
}

}  // namespace

void respond(net::Server_Exchange& exchange, const Reply& reply) { respond_with(exchange, reply, nullptr, {}); }

Rest_Handler::Rest_Handler(Router& router, Key_Store& keys, Serve_Agent serve_agent)
    : router_(router), keys_(keys), serve_agent_(std::move(serve_agent)) {}

Outcome Rest_Handler::authenticate(const net::Http_Headers& headers, Identity& identity, bool& known) {
  known = false;
  const std::string_view key = bearer_of(headers);
  if (key.empty()) return {};
  bool failed = false;
  const std::optional<Identity> found = keys_.find(key, failed);
  if (failed) return Outcome::refuse(Outcome::unavailable, "the keys cannot be read now; try again later");
  known = found.has_value();
  if (found) identity = *found;
  return {};
}

void Rest_Handler::handle(net::Server_Exchange& exchange) {
  Request request;
  bool known = false;
  if (Outcome outcome = authenticate(exchange.headers(), request.identity, known); !outcome.ok())
    return respond(exchange, outcome);
  if (!known)
    return respond_with(
        exchange,
        error_reply(status_unauthorized, "unauthorized",
                    "the request shows no good key; send \"Authorization: Bearer <key>\" with a key that "
                    "dorsal3-backupd key add has made"),
        "WWW-Authenticate", "Bearer");
  Target target;
  if (!target.parse(exchange.target()))
    return respond(exchange, Outcome::refuse(Outcome::bad_request, "the request's target cannot be read"));
  std::vector<std::string> allowed;
  const Route* route = router_.find(exchange.method(), target.segments, request.parameters, allowed);
  if (route == nullptr && !allowed.empty()) return refuse_method(exchange, allowed);
  if (route == nullptr)
    return respond(exchange, error_reply(status_not_found, "not_found", "there is nothing at this path"));
  request.query = std::move(target.query);
  run(*route, request, exchange);
}

void Rest_Handler::run(const Route& route, Request& request, net::Server_Exchange& exchange) {
  if ((route.roles & request.identity.role) == 0)
    return respond(exchange, error_reply(status_forbidden, "forbidden",
                                         std::string("a key for the role ") + role_name(request.identity.role) +
                                             " may not do this; use a key of another role"));
  if (Outcome outcome = check_query(route, request); !outcome.ok()) return respond(exchange, outcome);
  if (route.stream) return route.stream(request, exchange);
  if (route.body == Body::json)
    if (Outcome outcome = read_json_body(exchange, request.body); !outcome.ok()) return respond(exchange, outcome);
  respond(exchange, route.json(request));
}

net::Http_Handler::Serve Rest_Handler::accept_web_socket(const std::string& target, const net::Http_Headers& headers,
                                                         unsigned& status) {
  Identity identity;
  bool known = false;
  if (!authenticate(headers, identity, known).ok()) {
    status = status_unavailable;
    return nullptr;
  }
  if (target != "/q5/rpc") {
    status = known ? status_not_found : status_unauthorized;
    return nullptr;
  }
  if (!known || identity.role != role_agent) {
    status = known ? status_forbidden : status_unauthorized;
    return nullptr;
  }
  return [this, identity](net::Web_Socket& socket) { serve_agent_(socket, identity); };
}

}  // namespace backupd
