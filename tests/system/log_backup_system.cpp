#include "log_backup_system.h"

#include <algorithm>
#include <filesystem>
#include <sstream>

#include "scrt/uuid.h"

namespace system_tests {

namespace fs = std::filesystem;

namespace {

constexpr const char* configuration_folder = "/var/opt/tarvex/dorsal3/agent/hana";
constexpr const char* definition_namespace = "0d0c1a4e-16f3-4f0a-8d5c-2f9f0a5b7e21";
constexpr const char* global_ini = "/usr/sap/HDB/SYS/global/hdb/custom/config/global.ini";

json_spirit::Array rows_of(const std::string& body) {
  json_spirit::Value answer;
  json_spirit::Array rows;
  if (json_spirit::load_json(body, answer) && answer.is_object())
    (void)json_spirit::object_get(answer.get_obj(), "rows", rows);
  return rows;
}

std::string first_uuid(const std::string& body) {
  const json_spirit::Array rows = rows_of(body);
  return rows.empty() ? "" : text_of(rows.front().get_obj(), "uuid");
}

json_spirit::Object setup_in(const std::string& body) {
  json_spirit::Value answer;
  json_spirit::Object setup;
  if (json_spirit::load_json(body, answer) && answer.is_object())
    (void)json_spirit::object_get(answer.get_obj(), "setup", setup);
  return setup;
}

}  // namespace

void Log_Backup_System::start_with_log_backup(const Hana& hana, const std::vector<std::string>& databases) {
  start_all(hana);
  ASSERT_EQ(host_
                .sql("ALTER SYSTEM ALTER CONFIGURATION ('global.ini','SYSTEM') SET "
                     "('persistence','log_backup_timeout_s') = '" +
                     std::to_string(log_timeout_s) + "' WITH RECONFIGURE")
                .code,
            0);
  const std::vector<std::string> wanted = databases.empty() ? std::vector<std::string>{""} : databases;
  for (const std::string& database : wanted) {
    const json_spirit::Object setup = enable_log_backup(database);
    ASSERT_EQ(text_of(setup, "state"), "installed") << text_of(setup, "message") << agent_log();
  }
  std::vector<std::string> all = hana.tenants;
  all.insert(all.begin(), "SYSTEMDB");
  for (const std::string& database : all) {
    const Tool_Result full = backup(std::string(instance) + "/" + database);
    ASSERT_EQ(full.code, 0) << full.out << full.err << agent_log();
  }
}

std::string Log_Backup_System::definition_id(const std::string& database, int number) {
  return uuid_v5(definition_namespace, database + " " + std::to_string(number));
}

json_spirit::Object Log_Backup_System::enable_log_backup(const std::string& database, int number, int level) {
  const json_spirit::Object definition{
      {"id", definition_id(database, number)},
      {"name", "logs " + database + std::to_string(number)},
      {"type", "backup"},
      {"subtype", "log"},
      {"module", "hana"},
      {"host_uuid", host_uuid()},
      {"source",
       json_spirit::Object{{"id", first_uuid(rest("GET", "/resources").body)},
                           {"name", instance},
                           {"entries", json_spirit::Array{"hana/HDB00" + (database.empty() ? "" : "/" + database)}}}},
      {"options", json_spirit::Object{{"compression", "zstd"}, {"compression_level", level}}},
      {"target", json_spirit::Object{{"pool_uuid", first_uuid(rest("GET", "/pools").body)}}},
      {"max_seconds_retry", 60},
      {"resumption_buffer_size", 1 << 20}};
  const Rest_Answer stored = rest("POST", "/job-definitions", json_spirit::dump_json(definition));
  EXPECT_TRUE(stored.status == 200 || stored.status == 201) << stored.body;
  return setup_in(stored.body);
}

System_Fixture::Rest_Answer Log_Backup_System::disable_log_backup(const std::string& database, int number, bool force) {
  return rest("DELETE", "/job-definitions/" + definition_id(database, number) + (force ? "?force=1" : ""));
}

json_spirit::Object Log_Backup_System::setup_of(const std::string& database, int number) const {
  return setup_in(rest("GET", "/job-definitions/" + definition_id(database, number)).body);
}

void Log_Backup_System::commit(const std::string& database, const std::string& key) const {
  const Tool_Result done = host_.hana_tool("hdbsql", {"-xCja", "-i", "00", "-d", database, "-u", "SYSTEM", "-p",
                                                      password, "UPSERT KV VALUES ('" + key + "','v')"});
  ASSERT_EQ(done.code, 0) << done.err;
}

void Log_Backup_System::make_logs(const std::vector<std::string>& databases) {
  offset_s_ += log_timeout_s;
  for (const std::string& database : databases) commit(database, "at-" + std::to_string(offset_s_));
  ASSERT_EQ(control({"time-offset", std::to_string(offset_s_)}).code, 0);
}

std::string Log_Backup_System::setting(const std::string& key) const {
  std::istringstream lines(slurp(real(global_ini)));
  std::string value;
  for (std::string line; std::getline(lines, line);)
    if (line.starts_with(key) && line.find('=') != std::string::npos)
      value = line.substr(line.find_first_not_of(" =", line.find('=')));
  return value;
}

std::vector<std::string> Log_Backup_System::configuration_files() const {
  std::vector<std::string> names;
  if (!fs::exists(real(configuration_folder))) return names;
  for (const auto& entry : fs::directory_iterator(real(configuration_folder)))
    if (const std::string name = entry.path().filename(); name.starts_with("log_backup")) names.push_back(name);
  std::sort(names.begin(), names.end());
  return names;
}

std::vector<std::string> Log_Backup_System::saved_by_hana(const std::vector<std::string>& databases) const {
  std::vector<std::string> saved;
  for (const std::string& database : databases) {
    const Tool_Result listed = host_.sql(
        "select f.BACKUP_ID, f.EXTERNAL_BACKUP_ID from SYS_DATABASES.M_BACKUP_CATALOG_FILES f join "
        "SYS_DATABASES.M_BACKUP_CATALOG c on c.ENTRY_ID = f.ENTRY_ID and c.DATABASE_NAME = f.DATABASE_NAME where "
        "c.ENTRY_TYPE_NAME='log backup' and c.STATE_NAME='successful' and f.DESTINATION_TYPE_NAME='backint' and "
        "f.DATABASE_NAME='" +
        database + "'");
    EXPECT_EQ(listed.code, 0) << listed.err;
    std::istringstream lines(listed.out);
    for (std::string line; std::getline(lines, line);) {
      line.erase(std::remove(line.begin(), line.end(), '"'), line.end());
      const std::size_t comma = line.find(',');
      saved.push_back(database + " " + line.substr(0, comma) + " " + line.substr(comma + 1));
    }
  }
  std::sort(saved.begin(), saved.end());
  return saved;
}

std::vector<std::string> Log_Backup_System::recorded_sets() const {
  std::vector<std::string> recorded;
  for (const char* type : {"log", "catalog"})
    for (const json_spirit::Value& value : rows_of(rest("GET", std::string("/sets?limit=10000&type=") + type).body)) {
      const json_spirit::Object& set = value.get_obj();
      json_spirit::Array files;
      (void)json_spirit::object_get(set, "files", files);
      for (const json_spirit::Value& file : files)
        recorded.push_back(text_of(set, "database") + " " + text_of(set, "database_backup_id") + " " +
                           text_of(file.get_obj(), "extern_backup_id"));
    }
  std::sort(recorded.begin(), recorded.end());
  return recorded;
}

long Log_Backup_System::waiting_runs() const {
  json_spirit::Value answer;
  long total = -1;
  if (json_spirit::load_json(rest("GET", "/backint/ondemand-runs?limit=1").body, answer) && answer.is_object())
    (void)json_spirit::object_get(answer.get_obj(), "total", total);
  return total;
}

bool Log_Backup_System::all_recorded(const std::vector<std::string>& databases, std::size_t count,
                                     std::chrono::seconds limit) const {
  return eventually(
      [&] {
        const std::vector<std::string> saved = saved_by_hana(databases);
        return saved.size() >= count && saved == recorded_sets() && waiting_runs() == 0;
      },
      limit);
}

}  // namespace system_tests
