#include "dorsal3/server/server_client.h"

#include <iterator>

#include "scrt/http_encode.h"

namespace dorsal3 {

namespace {

constexpr const char* api_prefix = "/q5/r/v2";
constexpr std::chrono::seconds connect_timeout{15};

bool is_success(unsigned status) { return status >= 200 && status < 300; }

Exit_Code exit_code_of(unsigned status) {
  switch (status) {
    case 401:
    case 403:
      return exit_refused;
    case 404:
      return exit_not_found;
    case 409:
      return exit_busy;
    case 502:
    case 503:
    case 504:
      return exit_unreachable;
    default:
      return exit_failed;
  }
}

/// Takes the server's own words where it has some.
Failure failure_of(const net::Http_Response& response) {
  Failure failure{exit_code_of(response.status), "http_" + std::to_string(response.status),
                  "the server answered with status " + std::to_string(response.status)};
  json_spirit::Value body;
  if (!json_spirit::load_json(response.body, body) || !body.is_object()) return failure;
  json_spirit::Object error;
  if (!json_spirit::object_get(body.get_obj(), "error", error)) return failure;
  (void)json_spirit::object_get(error, "code", failure.code);
  (void)json_spirit::object_get(error, "message", failure.message);
  return failure;
}

}  // namespace

std::string query_pair(const char* key, const std::string& value) {
  return std::string(key) + "=" + path_segment(value);
}

std::string path_segment(const std::string& text) {
  std::string encoded;
  (void)http_encode_string_i(text.c_str(), http_encode_slash, std::back_inserter(encoded));
  return encoded;
}

bool Server_Client::get(const std::string& path, json_spirit::Object& answer, Failure& failure) {
  net::Http_Request ask;
  ask.target = api_prefix + path;
  return request(ask, answer, failure, default_timeout);
}

bool Server_Client::post(const std::string& path, const json_spirit::Object& body, json_spirit::Object& answer,
                         Failure& failure, std::chrono::seconds timeout) {
  json_spirit::Value value;
  return post_for_value(path, body, value, failure, timeout) && take_object(value, answer, failure);
}

bool Server_Client::post_for_value(const std::string& path, const json_spirit::Object& body, json_spirit::Value& answer,
                                   Failure& failure, std::chrono::seconds timeout) {
  net::Http_Request ask;
  ask.method = "POST";
  ask.target = api_prefix + path;
  ask.body = json_spirit::dump_json(body);
  ask.headers.set("Content-Type", "application/json");
  const bool ok = request(ask, answer, failure, timeout);
  platform::wipe_memory(ask.body.data(), ask.body.size());  // a logon's password may stand in it
  return ok;
}

bool Server_Client::remove(const std::string& path, json_spirit::Object& answer, Failure& failure) {
  net::Http_Request ask;
  ask.method = "DELETE";
  ask.target = api_prefix + path;
  json_spirit::Value value;
  return request(ask, value, failure, agent_timeout) && take_object(value, answer, failure);
}

bool Server_Client::get_rows(const std::string& path, std::vector<json_spirit::Object>& rows, Failure& failure) {
  std::uint64_t total = 0;
  return get_page(path, rows, total, failure);
}

bool Server_Client::get_page(const std::string& path, std::vector<json_spirit::Object>& rows, std::uint64_t& total,
                             Failure& failure) {
  json_spirit::Object answer;
  if (!get(path, answer, failure)) return false;
  json_spirit::Array list;
  if (!json_spirit::object_get(answer, "rows", list)) {
    failure = {exit_protocol, "protocol", "the server's answer to " + path + " has no rows; is it a dorsal3-backupd?"};
    return false;
  }
  rows.clear();
  for (const json_spirit::Value& row : list)
    if (row.is_object()) rows.push_back(row.get_obj());
  unsigned long counted = 0;
  total = json_spirit::object_get(answer, "total", counted) ? counted : rows.size();
  return true;
}

bool Server_Client::request(net::Http_Request& ask, json_spirit::Object& answer, Failure& failure,
                            std::chrono::seconds timeout) {
  json_spirit::Value value;
  return request(ask, value, failure, timeout) && take_object(value, answer, failure);
}

bool Server_Client::request(net::Http_Request& ask, json_spirit::Value& answer, Failure& failure,
                            std::chrono::seconds timeout) {
  ask.headers.set_bearer(configuration_.key);
  ask.headers.set("Accept", "application/json");
  net::Http_Response response;
  if (!send(ask, response, failure, timeout)) return false;
  if (!is_success(response.status)) {
    failure = failure_of(response);
    return false;
  }
  std::string error;
  if (json_spirit::load_json(response.body, answer, &error)) return true;
  failure = {exit_protocol, "protocol", "the answer of " + configuration_.server_url + " is no JSON: " + error};
  return false;
}

bool Server_Client::take_object(json_spirit::Value& value, json_spirit::Object& answer, Failure& failure) const {
  if (!value.is_object()) {
    failure = {exit_protocol, "protocol", "the answer of " + configuration_.server_url + " is no JSON object"};
    return false;
  }
  answer = std::move(value.get_obj());
  return true;
}

/// A kept connection may have been closed by the server meanwhile: a GET is then asked once more on a new one.
bool Server_Client::send(const net::Http_Request& ask, net::Http_Response& response, Failure& failure,
                         std::chrono::seconds timeout) {
  const bool kept = connection_ != nullptr;
  net::Net_Error error;
  if (connection_ == nullptr)
    connection_ = net::Http_Transport::current().connect(configuration_.endpoint, connect_timeout, error);
  if (connection_ != nullptr && connection_->exchange(ask, response, timeout, error)) return true;
  connection_.reset();
  if (kept && ask.method == "GET") return send(ask, response, failure, timeout);
  failure = {exit_unreachable, "unreachable",
             "cannot reach backupd at " + configuration_.server_url + ": " + error.text +
                 "; check that dorsal3-backupd runs there and that the address is right"};
  return false;
}

}  // namespace dorsal3
