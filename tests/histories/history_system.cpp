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

constexpr const char* backupd_log =
    "/var/opt/tarvex/dorsal3/backupd/backupd.db-wal";  ///< its database writes here first
constexpr const char* pools[] = {"first", "second"};
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

/// "HDB", then "A01", "A02"
std::string sid_of(unsigned number) {
  constexpr unsigned first_of_two_digits = 10;
  constexpr unsigned of_a_letter = 100;
  if (number == 0) return "HDB";
  const unsigned rest = number % of_a_letter;
  return static_cast<char>('A' + number / of_a_letter) + std::string(rest < first_of_two_digits ? "0" : "") +
         std::to_string(rest);
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

History_System::History_System(Landscape landscape, const char* zone, std::time_t begin)
    : landscape_(landscape),
      begin_(begin),
      zone_(zone),
      clock_(begin,
             [this](support::Standing_Clock::Moment now) {
               const auto since_epoch = std::chrono::floor<std::chrono::milliseconds>(now.time_since_epoch());
               hana_time_ = "=" + std::to_string(since_epoch.count()) + "\n";
               for (const auto& [sid, system] : systems_) system.hana->set_time(hana_time_);
             }),
      host_uuid_(make_uuid()) {
  clock_.move_to(begin_);
  install_product();
  add_pools();
  start_agent();
  if (landscape_ == Landscape::tenants || landscape_ == Landscape::two_systems) (void)add_system();
  if (landscape_ == Landscape::two_systems) (void)add_system();
}

History_System::~History_System() {
  if (agent_) (void)agent_->stop();
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
}

void History_System::add_pools() {
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

History_System::Known_System& History_System::add_system(const Hana_System::Kind& kind) {
  constexpr unsigned instance_numbers = 100;
  const std::string sid = sid_of(installed_);
  Known_System system;
  system.hana =
      std::make_unique<Hana_System>(server_.root.path(), sid, installed_ % instance_numbers, kind, hana_time_);
  ++installed_;
  const Hana_System& hana = *system.hana;
  const Object attributes{{"sid", sid},
                          {"instance_name", hana.instance()},
                          {"instance_number", static_cast<int>(hana.number())},
                          {"version", kind.version},
                          {"multi_container", !kind.single_container}};
  system.resource_uuid =
      text_of(ask("POST", "/resources",
                  {{"name", hana.name()}, {"type", "hana"}, {"host_uuid", host_uuid_}, {"extended_attrs", attributes}}),
              "uuid");
  if (!Instance_Manager::instance()->set_account("hana", hana.name(), "", Hana_System::user,
                                                 secure_string(Hana_System::password)))
    throw std::runtime_error("no account of " + hana.name());
  enable_log_backup(system);
  return systems_[sid] = std::move(system);
}

std::string History_System::entry_of(const Hana_System& hana, const std::string& database) {
  return "hana/" + hana.instance() + "/" + database;
}

/// For all databases. Each writes none before it has a full backup, so only those of histories come.
void History_System::enable_log_backup(const Known_System& system) const {
  const Object definition{{"id", uuid_v5(id_namespace, "logs of " + system.resource_uuid)},
                          {"name", "logs of " + system.hana->name()},
                          {"type", "backup"},
                          {"subtype", "log"},
                          {"module", "hana"},
                          {"host_uuid", host_uuid_},
                          {"source", Object{{"id", system.resource_uuid},
                                            {"name", system.hana->name()},
                                            {"entries", Array{"hana/" + system.hana->instance()}}}},
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

Database History_System::add_tenant(Known_System& system, const std::string& wanted) {
  const std::string tenant = system.hana->add_tenant(wanted);
  system.used.insert(tenant);
  return {system.hana->sid(), tenant};
}

/// The main database of a system of its own.
Database History_System::add_alone(const Hana_System::Kind& kind) {
  Known_System& system = add_system(kind);
  const std::string database = system.hana->main_database();
  system.used.insert(database);
  return {system.hana->sid(), database};
}

Database History_System::add_database() {
  switch (landscape_) {
    case Landscape::single_containers:
      return add_alone({.single_container = true});
    case Landscape::old_systems:
      return add_alone({.version = Hana_System::old_version, .single_container = true});
    case Landscape::system_databases:
      return add_alone({});
    case Landscape::tenants:
    case Landscape::two_systems:
      break;
  }
  return add_tenant(systems_.at(sid_of(0)));
}

Database History_System::add_database_beside(const Database& other) {
  return landscape_ == Landscape::system_databases ? add_tenant(systems_.at(other.sid)) : add_database();
}

Database History_System::add_target_for(const Database& origin) {
  if (landscape_ == Landscape::two_systems)
    return add_tenant(systems_.at(origin.sid == sid_of(0) ? sid_of(1) : sid_of(0)), origin.name);
  return origin.name == hana_of(origin).main_database() ? add_database() : add_tenant(systems_.at(origin.sid));
}

void History_System::retire(const Database& database) {
  Known_System& system = systems_.at(database.sid);
  system.used.erase(database.name);
  const bool serves_many = landscape_ == Landscape::tenants || landscape_ == Landscape::two_systems;
  if (!serves_many && system.used.empty())
    systems_.erase(database.sid);
  else if (database.name != system.hana->main_database())
    system.hana->stop_tenant(database.name);
}

std::size_t History_System::volumes_of(const Database& database) const {
  // A name server and an index server.
  constexpr std::size_t of_single_container = 2;
  return hana_of(database).kind().single_container ? of_single_container : 1;
}

std::string History_System::sql(const std::string& statement, const Database& database) const {
  return hana_of(database).sql(statement, database.name);
}

void History_System::back_up_to_files(const Database& database) const {
  const Hana_System& hana = hana_of(database);
  const std::string of = database.name == hana.main_database() ? "" : " FOR " + database.name;
  (void)hana.sql("BACKUP DATA" + of + " USING FILE ('files_" + std::to_string(now()) + "')", hana.main_database());
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

std::string History_System::back_up(const Database& database, const std::string& kind, const std::string& pool) const {
  const Known_System& system = system_of(database);
  return run({{"id", uuid_v5(id_namespace, label_of(database) + kind)},
              {"name", kind + " of " + label_of(database)},
              {"type", "backup"},
              {"subtype", kind},
              {"module", "hana"},
              {"host_uuid", host_uuid_},
              {"source", Object{{"id", system.resource_uuid},
                                {"name", system.hana->name()},
                                {"entries", Array{entry_of(*system.hana, database.name)}}}},
              {"target", Object{{"pool_uuid", pool_uuid(pool)}}}});
}

std::string History_System::restore(const Database& origin, const Database& into, const std::string& time,
                                    const std::string& set, bool ignore_delta) const {
  const Known_System& from = system_of(origin);
  Object as{{"database", into.name}};
  if (!time.empty()) as["timepoint"] = time;
  Object item{{"original", Object{{"sid", origin.sid}, {"database", origin.name}}}, {"restore_as", as}};
  if (!set.empty()) item["catalog_uuid"] = set;
  const std::string state =
      run({{"id", uuid_v5(id_namespace, label_of(origin) + "restore")},
           {"name", "restore of " + label_of(origin)},
           {"type", "restore"},
           {"subtype", "point-in-time"},
           {"module", "hana"},
           {"host_uuid", host_uuid_},
           {"source", Object{{"id", from.resource_uuid}, {"name", from.hana->name()}, {"entries", Array{item}}}},
           {"options", Object{{"ignore_delta", ignore_delta}}},
           {"target", Object{{"resource_uuid", system_of(into).resource_uuid}}},
           {"max_seconds_retry", 60}});
  const Known_System& system = system_of(into);
  if (state == "completed" && into.name == system.hana->main_database())
    for (const std::string& database : system.used)
      if (database != into.name) system.hana->start_tenant(database);
  return state;
}

Object History_System::plan(const Database& origin, const Database& into, const std::string& time,
                            const std::string& set, bool ignore_delta) const {
  Object wish{{"resource_uuid", system_of(origin).resource_uuid},
              {"database", origin.name},
              {"target", Object{{"resource_uuid", system_of(into).resource_uuid}, {"database", into.name}}},
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

void History_System::lose(const Database& database, const std::string& backup_id) const {
  const fs::path stored = server_.root.real(std::string("/srv/") + pools[0]) / fs::path(host_uuid_) /
                          hana_of(database).landscape_id() / database.name / backup_id;
  if (fs::remove_all(stored) == 0) throw std::runtime_error("no log " + stored.string() + " lies on the pool");
}

Change_Watch History_System::watch() const { return Change_Watch(server_.root.real(backupd_log)); }

std::vector<Object> History_System::sets(const Database& database, std::size_t known) const {
  std::vector<Object> sets;
  for (const json_spirit::Value& row :
       rows_of(ask("GET",
                   "/sets?sort=id&order=asc&limit=1000&resource_uuid=" + system_of(database).resource_uuid +
                       "&database=" + database.name + "&offset=" + std::to_string(known),
                   {})))
    sets.push_back(row.get_obj());
  return sets;
}

void History_System::wait_until_recorded(const Database& database) const {
  const std::string of = "host_uuid=" + host_uuid_ + "&sid=" + database.sid + "&database=" + database.name;
  if (!eventually(
          watch(), [&] { return rows_of(ask("GET", "/backint/ondemand-runs?" + of, {})).empty(); }, run_limit))
    throw std::runtime_error("log backups of " + label_of(database) + " are not recorded");
}

}  // namespace histories
