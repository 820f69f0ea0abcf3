#include "restore_system.h"

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "scrt/uuid.h"
#include "support/changing_zone.h"

namespace system_tests {

namespace fs = std::filesystem;

namespace {

constexpr const char* staging_folder = "/var/opt/tarvex/dorsal3/agent/hana/catalog";
constexpr const char* clock_offset_file = "/usr/sap/HDB/HDB00/standin/clock_offset_seconds";
constexpr const char* second_directory = "/usr/sap/QAS/HDB01";
constexpr const char* definition_namespace = "6a0c1a4e-16f3-4f0a-8d5c-2f9f0a5b7e22";

json_spirit::Object object_in(const std::string& body) {
  json_spirit::Value value;
  return json_spirit::load_json(body, value) && value.is_object() ? value.get_obj() : json_spirit::Object();
}

std::string utc(std::time_t seconds) {
  std::tm parts{};
  ::gmtime_r(&seconds, &parts);
  char text[sizeof "2026-01-01 00:00:00"];
  (void)std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts);
  return text;
}

std::string without_quotes(std::string text) {
  text.erase(std::remove(text.begin(), text.end(), '"'), text.end());
  return text;
}

void wait_for_next_second() {
  const std::time_t now = std::time(nullptr);
  while (std::time(nullptr) == now) pause_20_ms();
}

bool summer_at(std::time_t when) {
  std::tm parts{};
  ::localtime_r(&when, &parts);
  return parts.tm_isdst > 0;
}

}  // namespace

void Restore_System::SetUp() {
  Log_Backup_System::SetUp();
  const std::optional<support::Clocks> change = support::wanted_change_of_clocks();
  if (!change) return;
  // While a test has its commits made; HANA's restores come later, as its tests move its time by hours.
  constexpr std::time_t soon = 5;
  const std::time_t when = std::time(nullptr) + soon;
  zone_.emplace(support::zone_whose_clocks_change(when, *change).c_str());
  ASSERT_EQ(summer_at(when - 1), *change == support::Clocks::go_back);
  ASSERT_EQ(summer_at(when), *change == support::Clocks::go_forward);
}

void Restore_System::TearDown() {
  if (fs::exists(real(second_directory))) (void)run_tool({real(second_directory) + "/HDB", "stop"});
  Log_Backup_System::TearDown();
}

void Restore_System::start_second_system() {
  const Tool_Result installed =
      run_tool({STANDIN_INSTALL_FILE, "--root", root(), "--sid", "QAS", "--nr", "01", "--version",
                "2.00.059.00.1632920961", "--data-mb", "1", "--services", "indexserver,xsengine", "--tenant", "QA1"});
  ASSERT_EQ(installed.code, 0) << installed.err;
  ASSERT_EQ(run_tool({real(second_directory) + "/HDB", "start"}).code, 0);
  ASSERT_EQ(dorsal3({"discover"}).code, 0);
  ASSERT_EQ(dorsal3({"logon", second_instance, "--user", "SYSTEM"}, std::string(password) + "\n").code, 0);
}

std::string Restore_System::resource_of(const std::string& name) const {
  json_spirit::Array rows;
  (void)json_spirit::object_get(object_in(rest("GET", "/resources").body), "rows", rows);
  for (const json_spirit::Value& row : rows)
    if (text_of(row.get_obj(), "name") == name) return text_of(row.get_obj(), "uuid");
  ADD_FAILURE() << "no system " << name;
  return {};
}

std::string Restore_System::start_restore(const std::vector<Entry>& entries, bool ignore_delta,
                                          const std::string& into) {
  json_spirit::Array items;
  for (const Entry& entry : entries) {
    json_spirit::Object item{{"original", json_spirit::Object{{"sid", "HDB"}, {"database", entry.database}}}};
    if (!entry.set.empty()) item["catalog_uuid"] = entry.set;
    json_spirit::Object as{{"database", entry.restore_as.empty() ? entry.database : entry.restore_as}};
    if (!entry.timepoint.empty()) as["timepoint"] = entry.timepoint;
    item["restore_as"] = as;
    items.emplace_back(item);
  }
  const std::string id = uuid_v5(definition_namespace, std::to_string(++restores_));
  const json_spirit::Object definition{
      {"id", id},
      {"name", "restore " + std::to_string(restores_)},
      {"type", "restore"},
      {"subtype", "point-in-time"},
      {"module", "hana"},
      {"host_uuid", host_uuid()},
      {"source", json_spirit::Object{{"id", resource_of(instance)}, {"name", instance}, {"entries", items}}},
      {"options", json_spirit::Object{{"ignore_delta", ignore_delta}}},
      {"target", json_spirit::Object{{"resource_uuid", resource_of(into)}}},
      {"max_seconds_retry", 60}};
  const Rest_Answer stored = rest("POST", "/job-definitions", json_spirit::dump_json(definition));
  EXPECT_TRUE(stored.status == 200 || stored.status == 201) << stored.body;
  const Rest_Answer started = rest("POST", "/job-definitions/" + id + "/start", "{}");
  EXPECT_EQ(started.status, 202U) << started.body;
  return text_of(object_in(started.body), "job_act_id");
}

std::string Restore_System::restore(const std::vector<Entry>& entries, bool ignore_delta, const std::string& into) {
  return wait_for_end(start_restore(entries, ignore_delta, into));
}

Tool_Result Restore_System::sql_of(const std::string& database, const std::string& statement) const {
  return host_.hana_tool("hdbsql", {"-xCja", "-i", "00", "-d", database, "-u", "SYSTEM", "-p", password, statement});
}

void Restore_System::put(const std::string& database, const std::string& key, const std::string& value) const {
  const Tool_Result done = sql_of(database, "UPSERT KV VALUES ('" + key + "','" + value + "')");
  ASSERT_EQ(done.code, 0) << done.err;
}

std::string Restore_System::rows(const std::string& database) const {
  const Tool_Result got = sql_of(database, "select K, V from KV order by K");
  EXPECT_EQ(got.code, 0) << got.err;
  return without_quotes(got.out);
}

std::string Restore_System::second_rows(const std::string& database) const {
  const Tool_Result got = run_tool({real(second_directory) + "/exe/hdbsql", "-xCja", "-i", "01", "-d", database, "-u",
                                    "SYSTEM", "-p", password, "select K, V from KV order by K"});
  EXPECT_EQ(got.code, 0) << got.err;
  return without_quotes(got.out);
}

std::string Restore_System::moment() {
  // A data backup's recorded begin is a second after HANA's: two seconds on, no backup made before begins at the
  // moment.
  wait_for_next_second();
  wait_for_next_second();
  const std::string offset = slurp(real(clock_offset_file));
  const std::string now = utc(std::time(nullptr) + (offset.empty() ? 0 : std::stol(offset)));
  wait_for_next_second();
  return now;
}

void Restore_System::start_with_a_past() {
  start_with_log_backup();
  put("TN1", "a", "1");
  wanted_ = moment();
  put("TN1", "a", "2");
  save_logs({"TN1"});
}

std::vector<std::string> Restore_System::databases() const {
  const Tool_Result listed = host_.sql("select DATABASE_NAME from SYS.M_DATABASES");
  EXPECT_EQ(listed.code, 0) << listed.err;
  std::istringstream lines(without_quotes(listed.out));
  std::vector<std::string> names;
  for (std::string line; std::getline(lines, line);) names.push_back(line);
  return names;
}

void Restore_System::save_logs(const std::vector<std::string>& changed) {
  const std::vector<std::string> all = databases();
  std::size_t services = 0;
  // A name server; an index server and an xsengine. HANA closes the segments of those that nobody changed too.
  for (const std::string& database : all) services += database == "SYSTEMDB" ? 1 : 2;
  const std::size_t wanted = saved_by_hana(all).size() + 2 * services;
  make_logs(changed);
  ASSERT_TRUE(all_recorded(all, wanted)) << agent_log();
}

int Restore_System::damage(const std::string& database, const std::string& mark) const {
  int damaged = 0;
  for (const std::string& file : pool_files()) {
    const fs::path path(file);
    if (file.find("/" + database + "/") == std::string::npos ||
        path.filename().string().find(mark) == std::string::npos)
      continue;
    std::string content = slurp(file);
    content[content.size() / 2] = static_cast<char>(content[content.size() / 2] ^ 1);
    std::ofstream(file, std::ios::binary) << content;
    ++damaged;
  }
  return damaged;
}

json_spirit::Object Restore_System::newest_set(const std::string& database, const std::string& type) const {
  json_spirit::Array found;
  (void)json_spirit::object_get(
      object_in(rest("GET", "/sets?sort=id&order=desc&limit=1&database=" + database + "&type=" + type).body), "rows",
      found);
  EXPECT_FALSE(found.empty()) << database << " " << type;
  return found.empty() ? json_spirit::Object() : found.front().get_obj();
}

std::vector<std::string> Restore_System::staged_files() const {
  std::vector<std::string> names;
  if (!fs::exists(real(staging_folder))) return names;
  for (const auto& entry : fs::directory_iterator(real(staging_folder))) names.push_back(entry.path().filename());
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace system_tests
