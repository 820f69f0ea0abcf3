#include <ace/Log_Msg.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "backupd/server_core.h"
#include "fuzz/rest_requests.h"
#include "fuzz/small_host.h"

// Bodies of requests to backupd, by every handler that reads one. An input is a line with role, method and path, and
// the body behind it. Whatever the body is, the answer is JSON, a refusal says why, no request makes the server fail,
// and what was accepted can be listed.

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t max_size);

namespace {

using fuzz::require;

constexpr unsigned status_refused = 400;
constexpr unsigned status_internal = 500;
constexpr std::size_t most_bytes = 64U << 10;

class Body_Exchange : public net::Server_Exchange {
 public:
  Body_Exchange(std::string method, std::string target, const secure_string& key, std::string_view body)
      : method_(std::move(method)), target_(std::move(target)), body_(body) {
    headers_.set_bearer(key);
  }

  const std::string& method() const override { return method_; }
  const std::string& target() const override { return target_; }
  const net::Http_Headers& headers() const override { return headers_; }
  std::string peer_address() const override { return "127.0.0.1"; }
  bool read_body(std::string& body, std::size_t) override {
    // On the heap and no byte longer: reading past its end shows.
    body = std::string(body_);
    body.shrink_to_fit();
    return true;
  }
  bool read_body(net::Body_Sink& sink) override { return sink.write(body_.data(), body_.size()); }
  void respond(const net::Http_Response& response) override {
    require(!answer);
    answer = response;
  }
  void respond(const net::Http_Response&, net::Body_Source&) override { std::abort(); }

  std::optional<net::Http_Response> answer;

 private:
  std::string method_;
  std::string target_;
  std::string_view body_;
  net::Http_Headers headers_;
};

/// A server that holds what fuzz::make_stock has it store, in memory where TMPDIR is.
class Stocked_Server {
 public:
  Stocked_Server() {
    files_.write(kept, "");
    std::filesystem::remove(files_.path() + kept);
    std::string error;
    {
      backupd::Database database;
      require(database.open(kept, error, 1));
      backupd::Server_Core core(database, options());
      require(core.keys.add(backupd::role_agent, fuzz::host_uuid, agent_key_).ok());
      require(core.keys.add(backupd::role_operator, "", operator_key_).ok());
    }
    renew(kept);
    fuzz::make_stock([this](const fuzz::Rest_Request& request) {
      const net::Http_Response answer = ask(request);
      if (answer.status < status_refused) return;
      std::cerr << "the stock is refused: " << request.method << ' ' << request.path << ": " << answer.body
                << std::endl;
      std::abort();
    });
    fuzz::name_resource(*database_);
    close();
    std::filesystem::rename(files_.path() + used, files_.path() + kept);
    renew(kept);
  }

  /// One request; the answer is checked.
  net::Http_Response ask(const fuzz::Rest_Request& request) {
    Body_Exchange exchange(request.method, request.path, request.role == "agent" ? agent_key_ : operator_key_,
                           request.body);
    core_->handler().handle(exchange);
    require(exchange.answer.has_value());
    json_spirit::Value value;
    require(json_spirit::load_json(exchange.answer->body, value));
    if (exchange.answer->status >= status_refused) {
      json_spirit::Object error;
      std::string message;
      require(value.is_object() && json_spirit::object_get(value.get_obj(), "error", error) &&
              json_spirit::object_get(error, "message", message) && !message.empty());
    }
    require(exchange.answer->status != status_internal);
    return *exchange.answer;
  }

  /// Back to the stock.
  void renew() { renew(kept); }
  [[nodiscard]] const backupd::Router& router() const { return core_->router(); }

 private:
  static constexpr const char* kept = "/var/stock.db";
  static constexpr const char* used = "/var/used.db";

  static backupd::Server_Core::Options options() { return {"http://backupd.test:9443", fuzz::host_uuid, "1.0.0"}; }

  void close() {
    core_.reset();
    database_.reset();
  }

  void renew(const char* from) {
    close();
    std::filesystem::copy_file(files_.path() + from, files_.path() + used,
                               std::filesystem::copy_options::overwrite_existing);
    database_ = std::make_unique<backupd::Database>();
    std::string error;
    require(database_->open(used, error, 1));
    core_ = std::make_unique<backupd::Server_Core>(*database_, options());
  }

  fuzz::Small_Host files_;
  secure_string agent_key_;
  secure_string operator_key_;
  std::unique_ptr<backupd::Database> database_;
  std::unique_ptr<backupd::Server_Core> core_;
};

Stocked_Server& server() {
  static Stocked_Server one;
  return one;
}

/// The lines for all routes that read a body.
const std::vector<std::string>& request_lines() {
  static const std::vector<std::string> lines = [] {
    std::vector<std::string> made;
    for (const backupd::Route& route : server().router().routes()) {
      if (route.body != backupd::Body::json) continue;
      for (const std::string& path : fuzz::paths_of(route.pattern))
        for (const auto& [role, name] :
             {std::pair(backupd::role_agent, "agent "), {backupd::role_operator, "operator "}})
          if ((route.roles & role) != 0) made.push_back(name + route.method + " " + path);
    }
    require(!made.empty());
    return made;
  }();
  return lines;
}

std::optional<fuzz::Rest_Request> request_of(std::string_view input) {
  const std::size_t end = input.find('\n');
  if (end == std::string_view::npos) return std::nullopt;
  const std::string line(input.substr(0, end));
  const auto& lines = request_lines();
  if (std::find(lines.begin(), lines.end(), line) == lines.end()) return std::nullopt;
  return fuzz::request_of(line, std::string(input.substr(end + 1)));
}

}  // namespace

/// The line stays as it is or becomes another route's; what is tried is the body.
extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t max_size,
                                               unsigned int seed) {
  constexpr unsigned another_route_each = 64;
  std::minstd_rand random(seed);
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  const auto request = request_of(input);
  std::string line(request ? input.substr(0, input.find('\n')) : std::string_view());
  if (!request || random() % another_route_each == 0) line = request_lines()[random() % request_lines().size()];
  line += '\n';
  std::string body = request ? request->body : std::string();
  if (max_size <= line.size()) return size;
  const std::size_t old_size = std::min(body.size(), max_size - line.size());
  body.resize(max_size - line.size());
  body.resize(LLVMFuzzerMutate(reinterpret_cast<std::uint8_t*>(body.data()), old_size, body.size()));
  std::copy(line.begin(), line.end(), data);
  std::copy(body.begin(), body.end(), data + line.size());
  return line.size() + body.size();
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size > most_bytes) return 0;
  const auto request = request_of({reinterpret_cast<const char*>(data), size});
  if (!request) return 0;
  if (server().ask(*request).status >= status_refused) return 0;
  static_cast<void>(server().ask(*request));
  for (const char* list : fuzz::lists) require(server().ask({"operator", "GET", list, ""}).status < status_refused);
  server().renew();
  return 0;
}
