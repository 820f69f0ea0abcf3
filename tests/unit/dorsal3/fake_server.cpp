#include "fake_server.h"

void Fake_Server::answer(const std::string& request, const std::string& body, unsigned status) {
  const std::lock_guard lock(mutex_);
  answers_[request].push_back({status, body});
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
