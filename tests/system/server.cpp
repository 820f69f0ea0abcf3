#include "server.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <sstream>

#include "net/http_transport.h"

namespace system_tests {

namespace fs = std::filesystem;

namespace {

constexpr std::chrono::seconds answer_limit{120};
constexpr std::chrono::seconds run_limit{240};

/// A loopback address for this process alone: what others have connected there never takes the port of a server that
/// is down for a moment.
std::string own_loopback_address() {
  constexpr int bits = 8;
  constexpr int mask = 0xff;
  const int pid = ::getpid();
  std::string address = "127";
  for (int shift = 2 * bits; shift >= 0; shift -= bits) address += "." + std::to_string(pid >> shift & mask);
  return address;
}

}  // namespace

Server::Server(const std::string& root) : product_(root), address_(own_loopback_address()) {}

void Server::start() {
  product_.configure("backupd.toml", "address = \"" + address_ + "\"\nport = " + port_ + "\n");
  const std::string port_file = product_.real("/var/opt/tarvex/dorsal3/backupd/port");
  fs::remove(port_file);
  process_ = std::make_unique<Background_Process>(
      std::vector<std::string>{product_.program("dorsal3-backupd"), "serve"}, product_.real(log_file));
  ASSERT_TRUE(eventually([&] { return !slurp(port_file).empty(); })) << log();
  std::istringstream(slurp(port_file)) >> port_;
  if (fs::exists(product_.real(configuration_directory) + "/operator.key")) return;
  product_.configure("operator.key", make_key({"--role", "operator"}));
  product_.configure("dorsal3.toml", "server = \"" + url() + "\"\nkey_file = \"" +
                                         std::string(configuration_directory) + "/operator.key\"\n");
}

void Server::stop(int signal) {
  process_->signal(signal);
  EXPECT_NE(process_->wait(std::chrono::seconds(stop_limit_seconds)), -1) << "backupd does not end";
  process_.reset();
}

std::string Server::make_key(const std::vector<std::string>& words) const {
  std::vector<std::string> command{product_.program("dorsal3-backupd"), "key", "add"};
  command.insert(command.end(), words.begin(), words.end());
  const Tool_Result key = run_tool(command);
  EXPECT_EQ(key.code, 0) << key.err;
  return key.out;
}

Tool_Result Server::dorsal3(std::vector<std::string> words, const std::string& input) const {
  std::vector<std::string> command{product_.program("dorsal3"), "--config",
                                   std::string(configuration_directory) + "/dorsal3.toml", "--output", "json"};
  command.insert(command.end(), words.begin(), words.end());
  return run_tool(command, input);
}

Tool_Result Server::backup(const std::string& subject, std::vector<std::string> more) const {
  more.insert(more.begin(), {"backup", subject});
  return dorsal3(std::move(more));
}

std::string Server::start_backup(const std::string& subject, std::vector<std::string> more) const {
  more.emplace_back("--detach");
  const Tool_Result started = backup(subject, std::move(more));
  EXPECT_EQ(started.code, 0) << started.out << started.err;
  return text_of(started.json(), "job");
}

json_spirit::Object Server::job(const std::string& id) const {
  json_spirit::Object job;
  (void)json_spirit::object_get(dorsal3({"jobs", id}).json(), "job", job);
  return job;
}

std::string Server::wait_for_end(const std::string& id) const {
  std::string state;
  EXPECT_TRUE(eventually(
      [&] {
        // Not by the command: a process for each look is what most of a run's time would go to.
        json_spirit::Value run;
        if (!json_spirit::load_json(rest("GET", "/jobs/" + id).body, run) || !run.is_object()) return false;
        state = text_of(run.get_obj(), "state_name");
        return state == "completed" || state == "error" || state == "canceled" || state == "skipped";
      },
      run_limit))
      << state;
  return state;
}

std::vector<json_spirit::Object> Server::sets() const {
  std::vector<json_spirit::Object> all;
  json_spirit::Array instances;
  (void)json_spirit::object_get(dorsal3({"info"}).json(), "instances", instances);
  for (const json_spirit::Value& value : instances) {
    json_spirit::Array rows;
    (void)json_spirit::object_get(value.get_obj(), "sets", rows);
    for (const json_spirit::Value& row : rows) all.push_back(row.get_obj());
  }
  return all;
}

Server::Rest_Answer Server::rest(const std::string& method, const std::string& resource,
                                 const std::string& body) const {
  net::Endpoint endpoint;
  net::Net_Error error;
  EXPECT_TRUE(net::parse_endpoint(url(), endpoint));
  const auto connection = net::Http_Transport::current().connect(endpoint, answer_limit, error);
  net::Http_Request request;
  net::Http_Response response;
  request.method = method;
  request.target = "/q5/r/v2" + resource;
  request.body = body;
  std::string key = slurp(product_.real(configuration_directory) + "/operator.key");
  key.erase(key.find_last_not_of('\n') + 1);
  request.headers.set("Authorization", "Bearer " + key);
  if (!body.empty()) request.headers.set("Content-Type", "application/json");
  if (connection == nullptr || !connection->exchange(request, response, answer_limit, error)) return {};
  return {response.status, response.body};
}

std::vector<std::string> Server::alerts() const {
  json_spirit::Value answer;
  json_spirit::Array rows;
  std::vector<std::string> codes;
  if (json_spirit::load_json(rest("GET", "/alerts").body, answer) && answer.is_object())
    (void)json_spirit::object_get(answer.get_obj(), "rows", rows);
  for (const json_spirit::Value& row : rows)
    codes.push_back(text_of(row.get_obj(), "class") + "/" + text_of(row.get_obj(), "code"));
  return codes;
}

std::vector<std::string> Server::pool_files() const { return files_below(product_.real("/srv/pool")); }

std::string text_of(const json_spirit::Object& object, const std::string& key) {
  const json_spirit::Value* value = object.find(key);
  if (value == nullptr) return "";
  return value->is_string() ? value->get_str() : json_spirit::dump_json(*value);
}

}  // namespace system_tests
