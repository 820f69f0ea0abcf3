#include "system_fixture.h"

#include <signal.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "net/http_transport.h"
#include "scrt/uuid.h"

namespace system_tests {

namespace fs = std::filesystem;

namespace {

constexpr const char* install = "/opt/tarvex/dorsal3";
constexpr const char* etc = "/etc/opt/tarvex/dorsal3";
constexpr const char* hana_directory = "/usr/sap/HDB/HDB00";
constexpr const char* agent_log_file = "/log/agent.log";
constexpr std::chrono::seconds stop_limit{90};

std::string slurp(const std::string& path) {
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), {}};
}

void place(const std::string& from, const std::string& to) {
  std::error_code error;
  fs::create_hard_link(from, to, error);
  if (error) fs::copy_file(from, to);
}

}  // namespace

System_Fixture::System_Fixture() : host_uuid_(make_uuid()) {
  std::string pattern = (fs::temp_directory_path() / "dorsal3-system.XXXXXX").string();
  if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no temporary folder");
  root_ = pattern;
  install_product();
}

System_Fixture::~System_Fixture() {
  agent_.reset();
  backupd_.reset();
  std::error_code error;
  fs::remove_all(root_, error);
}

void System_Fixture::TearDown() {
  if (agent_) (void)stop_agent();
  if (fs::exists(real(hana_directory) + "/HDB")) stop_hana();
  if (backupd_) stop_backupd(SIGTERM);
  std::vector<std::string> left;
  (void)eventually([&] { return (left = processes_below(root_)).empty(); }, std::chrono::seconds(5));
  EXPECT_TRUE(left.empty()) << "left behind: " << left.front();
  if (HasFailure() || std::getenv("DORSAL3_TEST_LOGS") != nullptr)
    std::cerr << "--- agent\n" << agent_log() << "--- backupd\n" << slurp(real("/log/backupd.log"));
}

std::string System_Fixture::program(const std::string& name) const { return real(install) + "/bin/" + name; }

void System_Fixture::install_product() const {
  for (const char* folder : {"/opt/tarvex/dorsal3/bin", "/opt/tarvex/dorsal3/lib/modules", "/log", "/srv/pool"})
    fs::create_directories(real(folder));
  for (const char* file : {AGENT_FILE, BACKUPD_FILE, COMMAND_FILE, BACKINT_FILE})
    place(file, program(fs::path(file).filename()));
  place(LIBRARY_FILE, real(install) + "/lib/libdorsal3.so");
  place(MODULE_FILE, real(install) + "/lib/modules/hana.so");
}

void System_Fixture::write(const std::string& documented, const std::string& text) const {
  fs::create_directories(fs::path(real(documented)).parent_path());
  std::ofstream(real(documented)) << text;
  ::chmod(real(documented).c_str(), 0600);
}

void System_Fixture::start_backupd() {
  write(std::string(etc) + "/backupd.toml", "address = \"127.0.0.1\"\nport = " + port_ + "\n");
  const std::string port_file = real("/var/opt/tarvex/dorsal3/backupd/port");
  fs::remove(port_file);
  backupd_ = std::make_unique<Background_Process>(std::vector<std::string>{program("dorsal3-backupd"), "serve"},
                                                  real("/log/backupd.log"));
  ASSERT_TRUE(eventually([&] { return !slurp(port_file).empty(); })) << slurp(real("/log/backupd.log"));
  std::istringstream(slurp(port_file)) >> port_;  // it keeps its port when it is started again
  if (fs::exists(real(etc) + "/agent.key")) return;
  make_key("agent.key", {"--role", "agent", "--host", host_uuid_});
  make_key("operator.key", {"--role", "operator"});
  write(std::string(etc) + "/dorsal3.toml",
        "server = \"http://127.0.0.1:" + port_ + "\"\nkey_file = \"/etc/opt/tarvex/dorsal3/operator.key\"\n");
}

void System_Fixture::stop_backupd(int signal) {
  backupd_->signal(signal);
  EXPECT_NE(backupd_->wait(stop_limit), -1) << "backupd does not end";
  backupd_.reset();
}

void System_Fixture::make_key(const std::string& name, const std::vector<std::string>& words) const {
  std::vector<std::string> command{program("dorsal3-backupd"), "key", "add"};
  command.insert(command.end(), words.begin(), words.end());
  const Tool_Result key = run_tool(command);
  ASSERT_EQ(key.code, 0) << key.err;
  write(std::string(etc) + "/" + name, key.out);
}

void System_Fixture::start_agent(unsigned stop_limit_seconds) {
  write(std::string(etc) + "/agent.toml", "server_url = \"http://127.0.0.1:" + port_ + "\"\nhost_uuid = \"" +
                                              host_uuid_ +
                                              "\"\naccess_key_file = \"/etc/opt/tarvex/dorsal3/agent.key\"\n"
                                              "modules = [\"hana\"]\nstop_limit_seconds = " +
                                              std::to_string(stop_limit_seconds) + "\n");
  const std::size_t from = agent_log().size();
  agent_ =
      std::make_unique<Background_Process>(std::vector<std::string>{program("dorsal3-agent")}, real(agent_log_file));
  if (backupd_) {
    ASSERT_TRUE(agent_says("Backupd has accepted this agent", from)) << agent_log();
  }
}

int System_Fixture::stop_agent() {
  agent_->signal(SIGTERM);
  const int code = agent_->wait(stop_limit);
  EXPECT_NE(code, -1) << "the agent does not end";
  agent_.reset();
  return code;
}

void System_Fixture::install_hana(const Hana& hana) {
  std::vector<std::string> command{STANDIN_INSTALL_FILE,
                                   "--root",
                                   root_,
                                   "--sid",
                                   "HDB",
                                   "--nr",
                                   "00",
                                   "--version",
                                   hana.version,
                                   "--data-mb",
                                   std::to_string(hana.data_mb),
                                   "--services",
                                   "indexserver,xsengine"};
  if (hana.single_container) command.emplace_back("--single-container");
  if (!hana.single_container)
    for (const std::string& tenant : hana.tenants) command.insert(command.end(), {"--tenant", tenant});
  const Tool_Result installed = run_tool(command);
  ASSERT_EQ(installed.code, 0) << installed.err;
}

void System_Fixture::start_hana() const {
  ASSERT_EQ(run_tool({real(hana_directory) + "/HDB", "start"}).code, 0) << "the stand-in does not start";
}

void System_Fixture::stop_hana() const { (void)run_tool({real(hana_directory) + "/HDB", "stop"}); }

Tool_Result System_Fixture::control(std::vector<std::string> words) const {
  std::vector<std::string> command{STANDIN_CONTROL_FILE, "--root", root_, "--sid", "HDB"};
  command.insert(command.end(), words.begin(), words.end());
  return run_tool(command);
}

void System_Fixture::fault(const std::string& line) const { ASSERT_EQ(control({"fault", line}).code, 0) << line; }

void System_Fixture::no_faults() const { ASSERT_EQ(control({"no-faults"}).code, 0); }

void System_Fixture::start_all(const Hana& hana) {
  start_backupd();
  install_hana(hana);
  start_hana();
  start_agent();
  ASSERT_EQ(dorsal3({"discover"}).code, 0);
  ASSERT_EQ(dorsal3({"logon", instance, "--user", "SYSTEM"}, std::string(password) + "\n").code, 0);
  ASSERT_EQ(dorsal3({"pools", "--add", "main", "--directory", "/srv/pool"}).code, 0);
}

Tool_Result System_Fixture::dorsal3(std::vector<std::string> words, const std::string& input) const {
  std::vector<std::string> command{program("dorsal3"), "--config", std::string(etc) + "/dorsal3.toml", "--output",
                                   "json"};
  command.insert(command.end(), words.begin(), words.end());
  return run_tool(command, input);
}

Tool_Result System_Fixture::backup(const std::string& subject, std::vector<std::string> more) const {
  more.insert(more.begin(), {"backup", subject});
  return dorsal3(std::move(more));
}

std::string System_Fixture::start_backup(const std::string& subject, std::vector<std::string> more) const {
  more.emplace_back("--detach");
  const Tool_Result started = backup(subject, std::move(more));
  EXPECT_EQ(started.code, 0) << started.out << started.err;
  return text_of(started.json(), "job");
}

json_spirit::Object System_Fixture::job(const std::string& id) const {
  json_spirit::Object job;
  (void)json_spirit::object_get(dorsal3({"jobs", id}).json(), "job", job);
  return job;
}

std::string System_Fixture::wait_for_end(const std::string& id) const {
  std::string state;
  EXPECT_TRUE(eventually(
      [&] {
        state = text_of(job(id), "state_name");
        return state == "completed" || state == "error" || state == "canceled" || state == "skipped";
      },
      std::chrono::seconds(90)))
      << state;
  return state;
}

std::vector<json_spirit::Object> System_Fixture::sets() const {
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

System_Fixture::Rest_Answer System_Fixture::rest(const std::string& method, const std::string& resource,
                                                 const std::string& body) const {
  net::Endpoint endpoint;
  net::Net_Error error;
  EXPECT_TRUE(net::parse_endpoint("http://127.0.0.1:" + port_, endpoint));
  const auto connection = net::Http_Transport::current().connect(endpoint, std::chrono::seconds(10), error);
  net::Http_Request request;
  net::Http_Response response;
  request.method = method;
  request.target = "/q5/r/v2" + resource;
  request.body = body;
  std::string key = slurp(real(etc) + "/operator.key");
  key.erase(key.find_last_not_of('\n') + 1);
  request.headers.set("Authorization", "Bearer " + key);
  if (!body.empty()) request.headers.set("Content-Type", "application/json");
  if (connection == nullptr || !connection->exchange(request, response, std::chrono::seconds(10), error)) return {};
  return {response.status, response.body};
}

std::vector<std::string> System_Fixture::alerts() const {
  json_spirit::Value answer;
  json_spirit::Array rows;
  std::vector<std::string> codes;
  if (json_spirit::load_json(rest("GET", "/alerts").body, answer) && answer.is_object())
    (void)json_spirit::object_get(answer.get_obj(), "rows", rows);
  for (const json_spirit::Value& row : rows) {
    long alert_class = 0;
    long code = 0;
    (void)json_spirit::object_get(row.get_obj(), "class", alert_class);
    (void)json_spirit::object_get(row.get_obj(), "code", code);
    codes.push_back(std::to_string(alert_class) + "/" + std::to_string(code));
  }
  return codes;
}

std::vector<std::string> System_Fixture::pool_files() const {
  std::vector<std::string> files;
  for (const auto& entry : fs::recursive_directory_iterator(real("/srv/pool")))
    if (entry.is_regular_file()) files.push_back(entry.path().string());
  return files;
}

std::string System_Fixture::text_of(const json_spirit::Object& object, const std::string& key) {
  const json_spirit::Value* value = object.find(key);
  if (value == nullptr) return "";
  return value->is_string() ? value->get_str() : json_spirit::dump_json(*value);
}

std::string System_Fixture::agent_log() const { return slurp(real(agent_log_file)); }

bool System_Fixture::agent_says(const std::string& text, std::size_t from) const {
  return eventually([&] { return agent_log().find(text, from) != std::string::npos; });
}

bool System_Fixture::program_runs(const std::string& name) const {
  return eventually([&] {
    for (const std::string& line : processes_below(root_))
      if (line.find("/" + name + " ") != std::string::npos) return true;
    return false;
  });
}

}  // namespace system_tests
