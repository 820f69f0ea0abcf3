#include "unit/dorsal3/fake_server.h"

#include <algorithm>
#include <sstream>

void Fake_Server::answer(const std::string& request, const std::string& body, unsigned status) {
  const std::lock_guard lock(mutex_);
  answers_[request].push_back({status, body});
}

void Fake_Server::keep_sets(std::vector<json_spirit::Object> sets) {
  const std::lock_guard lock(mutex_);
  sets_ = std::move(sets);
  lists_sets_ = true;
}

std::string Fake_Server::list_sets(const std::string& query) const {
  std::map<std::string, std::string> given;
  std::istringstream pairs(query);
  for (std::string pair; std::getline(pairs, pair, '&');)
    given[pair.substr(0, pair.find('='))] = pair.substr(pair.find('=') + 1);
  std::vector<json_spirit::Object> found;
  for (const auto& set : sets_) {
    const auto fits = [&](const char* member) {
      const json_spirit::Value* value = set.find(member);
      return !given.contains(member) || (value != nullptr && value->get_str() == given[member]);
    };
    if (fits("type") && fits("database") && fits("resource_uuid") && fits("uuid")) found.push_back(set);
  }
  if (given["order"] == "desc") std::reverse(found.begin(), found.end());
  json_spirit::Array rows;
  const std::size_t limit = given["limit"].empty() ? 1000 : std::stoul(given["limit"]);
  for (std::size_t i = given["offset"].empty() ? 0 : std::stoul(given["offset"]); i < found.size(); ++i)
    if (rows.size() < limit) rows.emplace_back(found[i]);
  return json_spirit::dump_json(json_spirit::Object{{"total", found.size()}, {"rows", rows}});
}

void Fake_Server::forget(const std::string& request) {
  const std::lock_guard lock(mutex_);
  answers_.erase(request);
}

std::vector<std::string> Fake_Server::bodies(const std::string& request) const {
  const std::lock_guard lock(mutex_);
  const auto found = bodies_.find(request);
  return found == bodies_.end() ? std::vector<std::string>() : found->second;
}

void Fake_Server::handle(net::Server_Exchange& exchange) {
  constexpr std::string_view prefix = "/q5/r/v2";
  constexpr std::string_view sets_request = "GET /sets?";
  std::string body;
  (void)exchange.read_body(body);
  net::Http_Response response;
  const std::string* key_field = exchange.headers().find("Authorization");
  std::string target = exchange.target();
  if (target.starts_with(prefix)) target.erase(0, prefix.size());
  const std::string request = exchange.method() + " " + target;

  const std::lock_guard lock(mutex_);
  bodies_[request].push_back(body);
  auto& answers = answers_[request];
  if (key_field == nullptr || *key_field != std::string("Bearer ") + key) {
    response.status = 401;
    response.body = R"({"error":{"code":"unauthorized","message":"the key is not known"}})";
  } else if (answers.empty() && lists_sets_ && request.starts_with(sets_request)) {
    response.status = 200;
    response.body = list_sets(request.substr(sets_request.size()));
  } else if (answers.empty()) {
    response.status = 404;
    response.body = R"({"error":{"code":"not_found","message":"there is nothing at )" + target + R"("}})";
  } else {
    response.status = answers.front().status;
    response.body = answers.front().body;
    if (answers.size() > 1) answers.pop_front();
  }
  exchange.respond(response);
}

net::Http_Handler::Serve Fake_Server::accept_web_socket(const std::string&, const net::Http_Headers&,
                                                        unsigned& status) {
  status = 404;
  return {};
}
