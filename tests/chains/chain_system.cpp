#include "chains/chain_system.h"

#include <ace/Thread_Manager.h>
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "scrt/uuid.h"
#include "system/processes.h"

namespace chains {

namespace {

namespace fs = std::filesystem;
using json_spirit::Array;
using json_spirit::Object;

constexpr const char* instance = "HDB_HDB00";
constexpr const char* instance_directory = "/usr/sap/HDB/HDB00";
constexpr const char* clock_offset_file = "/usr/sap/HDB/HDB00/standin/clock_offset_seconds";
constexpr const char* user = "SYSTEM";
constexpr const char* password = "manager";
constexpr const char* pools[] = {"first", "second"};
constexpr const char* version = "2.00.059.00.1632920961";
constexpr std::chrono::seconds run_limit{120};
constexpr unsigned created = 201;

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

Kind kind_of(const std::string& entry_type) {
  if (entry_type == "incremental data backup") return Kind::incremental;
  return entry_type == "differential data backup" ? Kind::differential : Kind::full;
}

/// "2026-03-04 00:00:01", with or without a fraction.
std::time_t utc(const std::string& text) {
  std::tm parts{};
  return ::strptime(text.c_str(), "%Y-%m-%d %H:%M:%S", &parts) == nullptr ? 0 : ::timegm(&parts);
}

}  // namespace

const char* name_of(Kind kind) {
  constexpr const char* names[] = {"full", "differential", "incremental"};
  return names[static_cast<int>(kind)];
}

std::string text_of(const Object& object, const std::string& key) {
  const json_spirit::Value* const value = object.find(key);
  if (value == nullptr) return "";
  return value->is_string() ? value->get_str() : json_spirit::dump_json(*value);
}

Chain_System::Chain_System()
    : clock_([this](std::chrono::seconds shift) {
        write_whole(server_.root.real(clock_offset_file), std::to_string(shift.count()) + "\n");
      }),
      host_uuid_(make_uuid()) {
  install_hana();
  install_product();
  register_with_backupd();
}

Chain_System::~Chain_System() {
  ACE_Thread_Manager::instance()->wait();
  modules_.unload();
  registry_scope_.reset();
  (void)system_tests::run_tool({server_.root.real(instance_directory) + "/HDB", "stop"});
}

void Chain_System::install_hana() {
  const support::Temp_Root& root = server_.root;
  run_well({STANDIN_INSTALL_FILE, "--root", root.path(), "--sid", "HDB", "--nr", "00", "--version", version,
            "--data-mb", "1", "--tenant", "TN1", "--tenant", "TN2"});
  run_well({root.real(instance_directory) + "/HDB", "start"});
}

void Chain_System::install_product() {
  const support::Temp_Root& root = server_.root;
  place(BACKINT_FILE, root.real("/opt/tarvex/dorsal3/bin/hdbbackint"));
  place(MODULE_FILE, root.real("/opt/tarvex/dorsal3/lib/modules/hana.so"));
  server_.start();
  operator_key_ = server_.make_key("operator");
  root.write("/etc/opt/tarvex/dorsal3/agent.key", server_.make_key("agent", host_uuid_) + "\n", 0600);
  const std::string port = std::to_string(std::stoi(root.read("/var/opt/tarvex/dorsal3/backupd/port")));
  root.write("/etc/opt/tarvex/dorsal3/agent.toml",
             "server_url = \"http://127.0.0.1:" + port + "\"\nhost_uuid = \"" + host_uuid_ + "\"\n", 0600);
  if (!registry_.open() || !registry_.set_account("hana", instance, "", user, secure_string(password)))
    throw std::runtime_error("no registry");
  registry_scope_ = std::make_unique<Scoped_Instance_Manager>(registry_);
  if (!modules_.load({"hana"})) throw std::runtime_error("no module");
}

void Chain_System::register_with_backupd() {
  const Object attributes{
      {"sid", "HDB"}, {"instance_name", "HDB00"}, {"instance_number", 0}, {"multi_container", true}};
  resource_uuid_ =
      text_of(post("/resources",
                   {{"name", instance}, {"type", "hana"}, {"host_uuid", host_uuid_}, {"extended_attrs", attributes}}),
              "uuid");
  for (const char* pool : pools) {
    server_.root.make_directory(std::string("/srv/") + pool);
    post("/pools", {{"uuid", pool_uuid(pool)}, {"name", pool}, {"url", std::string("file:///srv/") + pool}});
  }
}

Object Chain_System::post(const std::string& resource, const Object& body) const {
  net::Http_Response response;
  json_spirit::Value answer;
  if (!server_.ask("POST", "/q5/r/v2" + resource, operator_key_, json_spirit::dump_json(body), response) ||
      response.status != created || !json_spirit::load_json(response.body, answer))
    throw std::runtime_error(resource + ": " + response.body);
  return answer.get_obj();
}

std::string Chain_System::pool_uuid(const std::string& name) const {
  return uuid_v5("7e0f7a52-70c9-44d7-8a5e-7b6a9f0f2f10", name);
}

Object Chain_System::definition(Kind kind, const std::string& pool) const {
  Array entries;
  for (const char* database : databases) entries.emplace_back(std::string("hana/HDB00/") + database);
  return {{"id", uuid_v5(resource_uuid_, name_of(kind))},
          {"name", name_of(kind)},
          {"type", "backup"},
          {"subtype", name_of(kind)},
          {"module", "hana"},
          {"host_uuid", host_uuid_},
          {"source", Object{{"id", resource_uuid_}, {"name", instance}, {"entries", entries}}},
          {"target", Object{{"pool_uuid", pool_uuid(pool)}, {"location", "file:///srv/" + pool}}}};
}

Job_Definition_Ptr Chain_System::read_definition(Kind kind, const std::string& pool) const {
  const agentd::Module* const module = modules_.find("hana");
  std::string error;
  const Job_Definition_Ptr read = read_job_definition(
      definition(kind, pool),
      [module](Job_Definition_Type type, Job_Definition_Subtype) { return module->parsers(type); }, error);
  if (read.null()) throw std::runtime_error(error);
  return read;
}

Job_State Chain_System::run(Kind kind, const std::string& pool) {
  const Job_Ptr job = modules_.find("hana")->job_creator()->create(read_definition(kind, pool));
  if (job.get() == nullptr || !job->open_activity(make_uuid()) || job->start(nullptr) != 0)
    throw std::runtime_error("the job does not start");
  if (!clock_.wait_for(job->completed(), run_limit)) ADD_FAILURE() << "the run does not end";
  (void)remove_job_activity(job->job_act_id());
  return job->state();
}

std::string Chain_System::sql(const std::string& statement, const std::string& database) const {
  const system_tests::Tool_Result result =
      system_tests::run_tool({server_.root.real(instance_directory) + "/exe/hdbsql", "-i", "00", "-d", database, "-u",
                              user, "-p", password, "-xCja", statement});
  if (result.code != 0) throw std::runtime_error(statement + ": " + result.err);
  return result.out;
}

void Chain_System::control(const std::vector<std::string>& words) const {
  std::vector<std::string> command{STANDIN_CONTROL_FILE, "--root", server_.root.path(), "--sid", "HDB"};
  command.insert(command.end(), words.begin(), words.end());
  run_well(command);
}

std::vector<Catalog_Entry> Chain_System::catalog() const {
  std::istringstream lines(
      sql("select c.DATABASE_NAME, c.BACKUP_ID, ENTRY_TYPE_NAME, STATE_NAME, UTC_START_TIME, UTC_END_TIME, "
          "DESTINATION from SYS_DATABASES.M_BACKUP_CATALOG c left join (select DATABASE_NAME, BACKUP_ID, "
          "max(DESTINATION_TYPE_NAME) as DESTINATION from SYS_DATABASES.M_BACKUP_CATALOG_FILES group by DATABASE_NAME, "
          "BACKUP_ID) f on f.DATABASE_NAME = c.DATABASE_NAME and f.BACKUP_ID = c.BACKUP_ID where ENTRY_TYPE_NAME like "
          "'%data backup' order by c.BACKUP_ID"));
  std::vector<Catalog_Entry> entries;
  for (std::string line; std::getline(lines, line);) {
    std::vector<std::string> cells(1);
    for (const char c : line) {
      if (c == ',') cells.emplace_back();
      if (c != ',' && c != '"') cells.back() += c;
    }
    constexpr std::size_t columns = 7;
    if (cells.size() != columns) throw std::runtime_error("the catalog's line is not understood: " + line);
    entries.push_back({cells[0], std::stoull(cells[1]), kind_of(cells[2]),
                       cells[6] == "file" ? Destination::files : Destination::backint, cells[3] == "successful",
                       utc(cells[4]), utc(cells[5])});
  }
  return entries;
}

std::vector<Object> Chain_System::sets(std::size_t known) const {
  net::Http_Response response;
  json_spirit::Value answer;
  Array rows;
  if (!server_.ask("GET", "/q5/r/v2/sets?sort=id&order=asc&limit=10000&offset=" + std::to_string(known), operator_key_,
                   "", response) ||
      !json_spirit::load_json(response.body, answer) || !json_spirit::object_get(answer.get_obj(), "rows", rows))
    throw std::runtime_error("the sets cannot be read: " + response.body);
  std::vector<Object> sets;
  for (const json_spirit::Value& row : rows) sets.push_back(row.get_obj());
  return sets;
}

}  // namespace chains
