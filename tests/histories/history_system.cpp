#include "histories/history_system.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "job/job_state.h"
#include "scrt/uuid.h"
#include "system/processes.h"

namespace histories {

namespace {

namespace fs = std::filesystem;
using json_spirit::Array;
using json_spirit::Object;

constexpr const char* instance = "HDB_HDB00";
constexpr const char* instance_directory = "/usr/sap/HDB/HDB00";
constexpr const char* clock_file = "/usr/sap/HDB/HDB00/standin/clock_offset_seconds";
constexpr const char* backupd_log =
    "/var/opt/tarvex/dorsal3/backupd/backupd.db-wal";  ///< its database writes here first
constexpr const char* user = "SYSTEM";
constexpr const char* password = "manager";
constexpr const char* tenant_password = "Secret1";
constexpr const char* pools[] = {"first", "second"};
constexpr const char* version = "2.00.059.00.1632920961";
constexpr const char* id_namespace = "7e0f7a52-70c9-44d7-8a5e-7b6a9f0f2f11";
/// Long enough for a machine that is busy with other things.
constexpr std::chrono::seconds run_limit{180};
constexpr std::chrono::seconds answer_limit{60};
constexpr unsigned not_found = 404;
constexpr unsigned first_error = 400;

void place(const std::string& from, const std::string& to) {
  fs::create_directories(fs::path(to).parent_path());
  std::error_code error;
  fs::create_hard_link(from, to, error);
  if (error) fs::copy_file(from, to);
}

void run_well(const std::vector<std::string>& command) {
  const system_tests::Tool_Result result = system_tests::run_tool(command);
  if (result.code != 0) throw std::runtime_error(command.front() + ": " + result.out + result.err);
}

/// Never half a number: HANA reads it at any moment.
void write_whole(const std::string& path, const std::string& text) {
  std::ofstream(path + ".new") << text;
  fs::rename(path + ".new", path);
}

Array rows_of(const Object& answer) {
  Array rows;
  (void)json_spirit::object_get(answer, "rows", rows);
  return rows;
}

}  // namespace

std::string text_of(const Object& object, const std::string& key) {
  const json_spirit::Value* const value = object.find(key);
  if (value == nullptr) return "";
  return value->is_string() ? value->get_str() : json_spirit::dump_json(*value);
}

std::string utc_text(std::time_t moment) {
  std::tm parts{};
  ::gmtime_r(&moment, &parts);
  char text[sizeof "2026-01-01 00:00:00"];
  (void)std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts);
  return text;
}

std::time_t utc_time(const std::string& text) {
  std::tm parts{};
  return ::strptime(text.c_str(), "%Y-%m-%d %H:%M:%S", &parts) == nullptr ? 0 : ::timegm(&parts);
}

History_System::History_System(const char* zone, std::time_t begin)
    : begin_(begin),
      zone_(zone),
      clock_(begin,
             [this](support::Standing_Clock::Moment now) {
               const auto since_epoch = std::chrono::floor<std::chrono::milliseconds>(now.time_since_epoch());
               write_whole(server_.root.real(clock_file), "=" + std::to_string(since_epoch.count()) + "\n");
             }),
      host_uuid_(make_uuid()) {
  install_hana();
  install_product();
  register_with_backupd();
  start_agent();
  enable_log_backup();
}

History_System::~History_System() {
  if (agent_) (void)agent_->stop();
  (void)system_tests::run_tool({server_.root.real(instance_directory) + "/HDB", "stop"});
}

/// Its time stands still from before the start: what would wait for a time must not.
void History_System::install_hana() {
  const support::Temp_Root& root = server_.root;
  run_well({STANDIN_INSTALL_FILE, "--root", root.path(), "--sid", "HDB", "--nr", "00", "--version", version,
            "--data-mb", "1", "--services", "indexserver"});
  clock_.move_to(begin_);
  for (const char* fault : {"database_change_ms = 0", "stop_ms = 0", "start_ms = 0"})
    run_well({STANDIN_CONTROL_FILE, "--root", root.path(), "--sid", "HDB", "fault", fault});
  run_well({root.real(instance_directory) + "/HDB", "start"});
  (void)sql("ALTER SYSTEM ALTER CONFIGURATION ('global.ini','SYSTEM') SET ('persistence','log_backup_timeout_s') = '" +
                std::to_string(log_timeout) + "' WITH RECONFIGURE",
            "SYSTEMDB");
}

void History_System::install_product() {
  const support::Temp_Root& root = server_.root;
  place(BACKINT_FILE, root.real("/opt/tarvex/dorsal3/bin/hdbbackint"));
  place(MODULE_FILE, root.real("/opt/tarvex/dorsal3/lib/modules/hana.so"));
  server_.start();
  net::Endpoint endpoint;
  if (!net::parse_endpoint(server_.url(), endpoint)) throw std::runtime_error("no server");
  backupd_ = std::make_unique<HTTP_Session>(endpoint, secure_string(server_.make_key("operator")));
  root.write("/etc/opt/tarvex/dorsal3/agent.key", server_.make_key("agent", host_uuid_) + "\n", 0600);
  root.write("/etc/opt/tarvex/dorsal3/agent.toml",
             "server_url = \"" + server_.url() + "\"\nhost_uuid = \"" + host_uuid_ +
                 "\"\naccess_key_file = \"/etc/opt/tarvex/dorsal3/agent.key\"\nmodules = [\"hana\"]\n",
             0600);
  Instance_Manager registry;
  if (!registry.open() || !registry.set_account("hana", instance, "", user, secure_string(password)))
    throw std::runtime_error("no registry");
}

void History_System::register_with_backupd() {
  const Object attributes{
      {"sid", "HDB"}, {"instance_name", "HDB00"}, {"instance_number", 0}, {"multi_container", true}};
  resource_uuid_ =
      text_of(ask("POST", "/resources",
                  {{"name", instance}, {"type", "hana"}, {"host_uuid", host_uuid_}, {"extended_attrs", attributes}}),
              "uuid");
  for (const char* pool : pools) {
    server_.root.make_directory(std::string("/srv/") + pool);
    (void)ask("POST", "/pools",
              {{"uuid", pool_uuid(pool)}, {"name", pool}, {"url", std::string("file:///srv/") + pool}});
  }
}

void History_System::start_agent() {
  Agent_Configuration configuration;
  std::string error;
  if (!Agent_Configuration::load(configuration, error)) throw std::runtime_error(error);
  agent_ = std::make_unique<agentd::Daemon>(configuration);
  if (!agent_->start()) throw std::runtime_error("the agent does not start");
  const bool connected = system_tests::eventually([&] {
    const Array agents = rows_of(ask("GET", "/hosts", {}));
    return std::any_of(agents.begin(), agents.end(),
                       [](const json_spirit::Value& row) { return text_of(row.get_obj(), "connected") == "true"; });
  });
  if (!connected) throw std::runtime_error("the agent does not connect");
}

/// For all databases. The system database writes none before it has a full backup, so only the tenants' come.
void History_System::enable_log_backup() const {
  const Object definition{
      {"id", uuid_v5(id_namespace, "logs")},
      {"name", "logs"},
      {"type", "backup"},
      {"subtype", "log"},
      {"module", "hana"},
      {"host_uuid", host_uuid_},
      {"source", Object{{"id", resource_uuid_}, {"name", instance}, {"entries", Array{"hana/HDB00"}}}},
      {"options", Object{{"compression", "zstd"}, {"compression_level", 1}}},
      {"target", Object{{"pool_uuid", pool_uuid(pools[0])}}},
      {"max_seconds_retry", 60},
      {"resumption_buffer_size", 1 << 20}};
  Object setup;
  (void)json_spirit::object_get(ask("POST", "/job-definitions", definition), "setup", setup);
  if (text_of(setup, "state") != "installed") throw std::runtime_error("log backup: " + text_of(setup, "message"));
}

Object History_System::ask(const std::string& method, const std::string& resource, const Object& body,
                           unsigned* status) const {
  net::Http_Request request;
  request.method = method;
  request.target = "/q5/r/v2" + resource;
  if (method != "GET") request.body = json_spirit::dump_json(body);
  net::Http_Response response;
  net::Net_Error error;
  json_spirit::Value answer;
  const bool answered = backupd_->exchange(request, response, answer_limit, error);
  if (status != nullptr) *status = response.status;
  if (!answered || (status == nullptr && response.status >= first_error) ||
      !json_spirit::load_json(response.body, answer) || !answer.is_object())
    throw std::runtime_error(method + " " + resource + ": " + response.body);
  return answer.get_obj();
}

std::string History_System::pool_uuid(const std::string& name) const { return uuid_v5(id_namespace, "pool " + name); }

std::string History_System::add_tenant() {
  const std::string tenant = "T" + std::to_string(++tenants_);
  (void)sql("CREATE DATABASE " + tenant + " SYSTEM USER PASSWORD " + tenant_password, "SYSTEMDB");
  return tenant;
}

void History_System::retire(const std::string& tenant) const {
  (void)sql("ALTER SYSTEM STOP DATABASE " + tenant, "SYSTEMDB");
}

std::string History_System::sql(const std::string& statement, const std::string& database) const {
  const system_tests::Tool_Result result = system_tests::run_tool(
      {server_.root.real(instance_directory) + "/exe/hdbsql", "-xCja", "-i", "00", "-d", database, "-u", user, "-p",
       database == "SYSTEMDB" ? password : tenant_password, statement});
  if (result.code != 0) throw std::runtime_error(database + ": " + statement + ": " + result.out + result.err);
  std::string text = result.out;
  std::erase(text, '"');
  return text;
}

std::string History_System::run(const Object& definition) const {
  (void)ask("POST", "/job-definitions", definition);
  const std::string id =
      text_of(ask("POST", "/job-definitions/" + text_of(definition, "id") + "/start", {}), "job_act_id");
  std::string state;
  (void)eventually(
      watch(),
      [&] {
        const Object job = ask("GET", "/jobs/" + id, {});
        state = text_of(job, "state_name");
        return is_finished(static_cast<Job_State>(std::stoi(text_of(job, "state"))));
      },
      run_limit);
  return state;
}

std::string History_System::back_up(const std::string& tenant, const std::string& kind, const std::string& pool) const {
  return run(
      {{"id", uuid_v5(id_namespace, tenant + kind)},
       {"name", kind + " of " + tenant},
       {"type", "backup"},
       {"subtype", kind},
       {"module", "hana"},
       {"host_uuid", host_uuid_},
       {"source", Object{{"id", resource_uuid_}, {"name", instance}, {"entries", Array{"hana/HDB00/" + tenant}}}},
       {"target", Object{{"pool_uuid", pool_uuid(pool)}}}});
}

std::string History_System::restore(const std::string& tenant, const std::string& into, const std::string& time,
                                    const std::string& set, bool ignore_delta) const {
  Object as{{"database", into}};
  if (!time.empty()) as["timepoint"] = time;
  Object item{{"original", Object{{"sid", "HDB"}, {"database", tenant}}}, {"restore_as", as}};
  if (!set.empty()) item["catalog_uuid"] = set;
  return run({{"id", uuid_v5(id_namespace, tenant + "restore")},
              {"name", "restore of " + tenant},
              {"type", "restore"},
              {"subtype", "point-in-time"},
              {"module", "hana"},
              {"host_uuid", host_uuid_},
              {"source", Object{{"id", resource_uuid_}, {"name", instance}, {"entries", Array{item}}}},
              {"options", Object{{"ignore_delta", ignore_delta}}},
              {"target", Object{{"resource_uuid", resource_uuid_}}},
              {"max_seconds_retry", 60}});
}

Object History_System::plan(const std::string& tenant, const std::string& into, const std::string& time,
                            const std::string& set, bool ignore_delta) const {
  Object wish{{"resource_uuid", resource_uuid_},
              {"database", tenant},
              {"target", Object{{"database", into}}},
              {"ignore_delta", ignore_delta}};
  if (time.empty())
    wish["set"] = set;
  else
    wish["time"] = time;
  unsigned status = 0;
  Object plan = ask("POST", "/restore/plan", wish, &status);
  if (status == not_found) return {};
  if (status >= first_error) throw std::runtime_error("plan: " + json_spirit::dump_json(plan));
  return plan;
}

void History_System::lose(const std::string& tenant, const std::string& backup_id) const {
  const fs::path pool = server_.root.real(std::string("/srv/") + pools[0]);
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(pool)) {
    const fs::path& path = entry.path();
    if (path.filename() != backup_id || path.parent_path().filename() != tenant) continue;
    fs::remove_all(path);
    return;
  }
  throw std::runtime_error("no log " + backup_id + " of " + tenant + " lies on the pool");
}

Change_Watch History_System::watch() const { return Change_Watch(server_.root.real(backupd_log)); }

std::vector<Object> History_System::sets(const std::string& tenant, std::size_t known) const {
  std::vector<Object> sets;
  for (const json_spirit::Value& row : rows_of(ask(
           "GET", "/sets?sort=id&order=asc&limit=1000&database=" + tenant + "&offset=" + std::to_string(known), {})))
    sets.push_back(row.get_obj());
  return sets;
}

void History_System::wait_until_recorded(const std::string& tenant) const {
  const std::string of = "host_uuid=" + host_uuid_ + "&sid=HDB&database=" + tenant;
  if (!eventually(
          watch(), [&] { return rows_of(ask("GET", "/backint/ondemand-runs?" + of, {})).empty(); }, run_limit))
    throw std::runtime_error("log backups of " + tenant + " are not recorded");
}

}  // namespace histories
