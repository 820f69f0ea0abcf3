#include "unit/hana/job/small_backupd.h"

#include <cstdlib>
#include <string_view>

#include "net/http_string.h"

namespace backup_test {

namespace {

using json_spirit::Array;
using json_spirit::Object;
using json_spirit::Value;

constexpr std::string_view api = "/q5/r/v2";
constexpr unsigned status_ok = 200;
constexpr unsigned status_created = 201;
constexpr unsigned status_not_found = 404;
constexpr unsigned status_conflict = 409;

Value rows_of(Array rows) {
  const auto total = rows.size();
  return Object{{"total", total}, {"rows", std::move(rows)}};
}

/// The value of a query key, decoded; empty without one.
std::string query_value(std::string_view query, std::string_view key) {
  while (!query.empty()) {
    const std::size_t end = query.find('&');
    const std::string_view pair = query.substr(0, end);
    query.remove_prefix(end == std::string_view::npos ? query.size() : end + 1);
    if (pair.starts_with(key) && pair.substr(key.size()).starts_with('='))
      return http_decode_string(pair.substr(key.size() + 1), true);
  }
  return {};
}

}  // namespace

net::Http_Response json_answer(unsigned status, const Value& body) {
  net::Http_Response response;
  response.status = status;
  response.headers.set("Content-Type", "application/json");
  response.body = json_spirit::dump_json(body);
  return response;
}

net::Http_Response error_answer(unsigned status) {
  return json_answer(status, Object{{"error", Object{{"code", "scripted"}, {"message", "the test wants it"}}}});
}

void Small_Backupd::handle(net::Server_Exchange& exchange) {
  std::string text;
  Value body;
  if (!exchange.read_body(text) || (!text.empty() && !json_spirit::load_json(text, body))) {
    exchange.respond(error_answer(400));
    return;
  }
  std::optional<net::Http_Response> response;
  {
    const std::lock_guard guard(mutex_);
    requests_.push_back(exchange.method() + " " + exchange.target());
  }
  if (intercept) response = intercept(exchange.method(), exchange.target());
  exchange.respond(response ? *response : answer(exchange.method(), exchange.target(), body));
}

net::Http_Handler::Serve Small_Backupd::accept_web_socket(const std::string&, const net::Http_Headers&,
                                                          unsigned& status) {
  status = status_not_found;
  return {};
}

std::vector<std::string> Small_Backupd::requests() const {
  const std::lock_guard guard(mutex_);
  return requests_;
}

std::size_t Small_Backupd::count_of(const std::string& request_start) const {
  std::size_t count = 0;
  for (const std::string& request : requests())
    if (request.starts_with(request_start)) ++count;
  return count;
}

net::Http_Response Small_Backupd::answer(const std::string& method, const std::string& target, const Value& body) {
  const std::size_t mark = target.find('?');
  const std::string path = target.substr(0, mark);
  const std::string query = mark == std::string::npos ? std::string() : target.substr(mark + 1);
  const std::string route = path.starts_with(api) ? path.substr(api.size()) : path;
  const std::lock_guard guard(mutex_);
  if (route == "/server") return json_answer(status_ok, Object{{"product", "backupd"}, {"version", "1.0.0"}});
  if (route == "/resources") return find_resource(query);
  if (route == "/pools") return json_answer(status_ok, rows_of(pools));
  if (route == "/sets/restore/sets") return find_set(query);
  if (route == "/sets" && method == "POST") {
    committed.push_back(body.get_obj());
    return json_answer(status_created, body);
  }
  constexpr std::string_view views_route = "/catalog/hana/";
  if (route.starts_with(views_route)) return answer_view(route.substr(views_route.size()), body);
  constexpr std::string_view jobs_route = "/backint/jobs";
  if (!route.starts_with(jobs_route)) return error_answer(status_not_found);
  const std::string rest = route.substr(jobs_route.size());
  return answer_job(method, rest.empty() ? rest : rest.substr(1), body);
}

net::Http_Response Small_Backupd::answer_job(const std::string& method, const std::string& uuid, const Value& body) {
  if (method == "POST" && uuid.empty()) {
    const Object& job = body.get_obj();
    const std::string id = job.find("uuid")->get_str();
    if (!jobs.emplace(id, job).second) return error_answer(status_conflict);
    if (on_job) on_job(job);
    return json_answer(status_created, jobs[id]);
  }
  constexpr std::string_view files_end = "/files";
  if (method == "GET" && uuid.ends_with(files_end))
    return json_answer(status_ok, rows_of(files[uuid.substr(0, uuid.size() - files_end.size())]));
  const auto job = jobs.find(uuid);
  if (job == jobs.end()) return error_answer(status_not_found);
  if (method == "DELETE") removed_jobs.push_back(uuid);
  return json_answer(status_ok, job->second);
}

net::Http_Response Small_Backupd::answer_view(const std::string& view, const Value& body) {
  const Object params = json_spirit::object_require<Object>(body.get_obj(), "params");
  views.push_back(view + " " + json_spirit::dump_json(params));
  const Value reply = on_view ? on_view(view, params) : Value();
  return reply.is_null() ? error_answer(status_not_found) : json_answer(status_ok, reply);
}

net::Http_Response Small_Backupd::find_resource(const std::string& query) const {
  const auto found = resources.find(query_value(query, "uuid"));
  const Value& record = found == resources.end() ? resource : found->second;
  return json_answer(status_ok, rows_of(record.is_null() ? Array() : Array{record}));
}

net::Http_Response Small_Backupd::find_set(const std::string& query) const {
  const std::string id = query_value(query, "database_backup_id");
  const auto found =
      sets.find({query_value(query, "database"), id.empty() ? 0 : std::strtoull(id.c_str(), nullptr, 10)});
  return json_answer(status_ok, rows_of(found == sets.end() ? Array() : Array{found->second}));
}

}  // namespace backup_test
