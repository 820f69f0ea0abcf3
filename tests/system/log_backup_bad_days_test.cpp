// Log backups on bad days: no room on the pool, a file that is no good, definitions that come and go under HANA's
// hands.

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "log_backup_system.h"
#include "log_backup_trail.h"

using namespace system_tests;
namespace fs = std::filesystem;

namespace {

constexpr const char* configuration_file = "/var/opt/tarvex/dorsal3/agent/hana/log_backup_HDB_HDB00_TN1";
constexpr const char* agents_log = "/var/opt/tarvex/dorsal3/agent/hdbbackint.log";
constexpr unsigned status_done = 200;
constexpr unsigned status_stored = 201;
constexpr unsigned status_later = 202;

using Names = std::vector<std::string>;

class Log_Backup_Bad_Days : public Log_Backup_System {
 protected:
  Log_Backup_Bad_Days() : trail_(host_, server_) {}

  /// HANA tries again through Backint and writes nothing into files.
  void start(const Names& databases = {"TN1"}) {
    start_with_log_backup({}, databases);
    fault("log_fallback = retry");
    fault("log_retry_ms = 300");
  }
  /// The system database, which has no log backup here, fails on and on.
  [[nodiscard]] std::size_t count_failed() const {
    const std::vector<Log_Backup> all = trail_.listed();
    return static_cast<std::size_t>(std::count_if(
        all.begin(), all.end(), [](const Log_Backup& one) { return one.database == "TN1" && one.state == "failed"; }));
  }
  /// Makes logs and waits until HANA has taken one for not saved, for the reason given.
  void expect_refused(const std::string& reason) {
    const std::size_t before = count_failed();
    const std::size_t from = slurp(real(agents_log)).size();
    make_logs({"TN1"});
    EXPECT_TRUE(eventually([&] { return count_failed() > before; }));
    EXPECT_NE(slurp(real(agents_log)).find(reason, from), std::string::npos) << slurp(real(agents_log));
  }
  /// Each service's log, and the catalog behind it: `count` more than there were.
  void expect_recorded(const Names& databases, std::size_t count) {
    EXPECT_TRUE(all_recorded(databases, count)) << agent_log();
    trail_.expect_recorded_once();
    trail_.expect_readable();
  }
  [[nodiscard]] std::size_t saved(const Names& databases) const { return saved_by_hana(databases).size(); }
  /// The definitions whose sets are new since `known` sets were there.
  [[nodiscard]] Names definitions_since(std::size_t known, const std::string& database) const {
    json_spirit::Value answer;
    json_spirit::Array rows;
    Names found;
    if (json_spirit::load_json(rest("GET", "/sets?limit=10000&database=" + database).body, answer))
      (void)json_spirit::object_get(answer.get_obj(), "rows", rows);
    for (std::size_t i = known; i < rows.size(); ++i) found.push_back(text_of(rows[i].get_obj(), "job_id"));
    std::sort(found.begin(), found.end());
    found.erase(std::unique(found.begin(), found.end()), found.end());
    return found;
  }
  [[nodiscard]] std::size_t sets_of(const std::string& database) const {
    json_spirit::Value answer;
    json_spirit::Array rows;
    if (json_spirit::load_json(rest("GET", "/sets?limit=10000&database=" + database).body, answer))
      (void)json_spirit::object_get(answer.get_obj(), "rows", rows);
    return rows.size();
  }
  /// Gives the definition another pool.
  void retarget(const std::string& database, const std::string& pool_uuid) {
    json_spirit::Value stored;
    ASSERT_TRUE(json_spirit::load_json(rest("GET", "/job-definitions/" + definition_id(database)).body, stored));
    json_spirit::Object changed;
    for (const char* key : {"id", "name", "type", "subtype", "module", "host_uuid", "source", "options"})
      changed[key] = *stored.get_obj().find(key);
    changed["target"] = json_spirit::Object{{"pool_uuid", pool_uuid}};
    const Rest_Answer answer = rest("POST", "/job-definitions", json_spirit::dump_json(changed));
    ASSERT_EQ(answer.status, status_stored) << answer.body;
    ASSERT_EQ(text_of(setup_of(database), "state"), "installed") << answer.body;
  }

  Log_Backup_Trail trail_;
};

/// Two services of a tenant, each with the catalog behind its log.
constexpr std::size_t backups_a_round = 4;
constexpr std::size_t backups_of_system_database = 2;

}  // namespace

TEST_F(Log_Backup_Bad_Days, Full_Pool_Leaves_The_Logs_With_HANA_Until_There_Is_Room) {
  constexpr std::uintmax_t limit_bytes = 1U << 20;
  start();
  ASSERT_TRUE(all_recorded({"TN1"}, 1));
  const std::size_t before = saved({"TN1"});
  fs::create_directories(real("/srv/small"));
  std::ofstream(real("/srv/small/somebodys")).close();
  fs::resize_file(real("/srv/small/somebodys"), limit_bytes);
  const Rest_Answer pool =
      rest("POST", "/pools",
           json_spirit::dump_json(json_spirit::Object{
               {"name", "small"}, {"directory", "/srv/small"}, {"max_bytes", static_cast<std::int64_t>(limit_bytes)}}));
  json_spirit::Value stored;
  ASSERT_TRUE(json_spirit::load_json(pool.body, stored)) << pool.body;
  retarget("TN1", text_of(stored.get_obj(), "uuid"));

  expect_refused("full");
  EXPECT_EQ(saved({"TN1"}), before);
  EXPECT_EQ(waiting_runs(), 0) << "nothing is owed to what was not stored";

  stop_backupd(SIGTERM);
  fs::remove(real("/srv/small/somebodys"));
  start_backupd();
  expect_recorded({"TN1"}, before + backups_a_round);
  EXPECT_TRUE(eventually([&] {
    const Names files = files_below(real("/srv/small"));
    return std::none_of(files.begin(), files.end(),
                        [](const std::string& file) { return fs::path(file).filename().string().starts_with("."); });
  })) << ::testing::PrintToString(files_below(real("/srv/small")));
}

TEST_F(Log_Backup_Bad_Days, File_That_Is_No_Good_Stops_Log_Backups_Until_It_Is_Set_Up_Again) {
  start();
  ASSERT_TRUE(all_recorded({"TN1"}, 1));
  const std::string good = slurp(real(configuration_file));
  const struct {
    std::string content;
    const char* reason;
  } bad_files[] = {{"", "is empty"},
                   {good.substr(0, good.size() / 2), "is not one whole JSON object"},
                   {R"({"job_definition_uuid":"somebody else's"})", "is not one of ours"}};
  for (const auto& bad : bad_files) {
    SCOPED_TRACE(bad.reason);
    const std::size_t before = saved({"TN1"});
    std::ofstream(real(configuration_file)) << bad.content;
    expect_refused(std::string(configuration_file) + " " + bad.reason);
    EXPECT_EQ(saved({"TN1"}), before) << "nothing goes elsewhere";
    const Rest_Answer again = rest("POST", "/job-definitions/" + definition_id("TN1") + "/setup");
    EXPECT_EQ(again.status, status_done) << again.body;
    EXPECT_EQ(text_of(setup_of("TN1"), "state"), "installed") << again.body << agent_log();
    expect_recorded({"TN1"}, before + backups_a_round);
  }
}

TEST_F(Log_Backup_Bad_Days, Last_Of_Two_Definitions_Of_A_Database_Has_Its_Logs) {
  start();
  ASSERT_TRUE(all_recorded({"TN1"}, 1));
  const std::size_t before = saved({"TN1"});
  std::size_t known = sets_of("TN1");
  EXPECT_EQ(text_of(enable_log_backup("TN1", 2), "state"), "installed");
  make_logs({"TN1"});
  expect_recorded({"TN1"}, before + backups_a_round);
  EXPECT_EQ(definitions_since(known, "TN1"), Names{definition_id("TN1", 2)});

  // The file of the database comes before that of its instance.
  EXPECT_EQ(text_of(enable_log_backup("", 3), "state"), "installed");
  const Names both{"TN1", "SYSTEMDB"};
  known = sets_of("TN1");
  make_logs(both);
  expect_recorded(both, before + 2 * backups_a_round + backups_of_system_database);
  EXPECT_EQ(definitions_since(known, "TN1"), Names{definition_id("TN1", 2)});

  const Rest_Answer removed = disable_log_backup("TN1", 1);
  EXPECT_TRUE(removed.status == status_done || removed.status == status_later) << removed.body;
  EXPECT_EQ(setting("log_backup_using_backint"), "true");
  known = sets_of("TN1");
  make_logs(both);
  expect_recorded(both, before + 3 * backups_a_round + 2 * backups_of_system_database);
  EXPECT_EQ(definitions_since(known, "TN1"), Names{definition_id("TN1", 2)});
}

TEST_F(Log_Backup_Bad_Days, Definition_That_Goes_While_A_Log_Is_Stored_Still_Has_It_Recorded) {
  start();
  ASSERT_TRUE(all_recorded({"TN1"}, 1));
  const std::size_t before = saved({"TN1"});
  fault("stream_bytes_per_second = 3000");
  make_logs({"TN1"});
  // Its record is there: it has read the configuration, which goes now.
  ASSERT_TRUE(
      eventually([&] { return rest("GET", "/backint/jobs").body.find(R"("type":"log")") != std::string::npos; }));
  const Rest_Answer removed = disable_log_backup("TN1");
  EXPECT_TRUE(removed.status == status_done || removed.status == status_later) << removed.body;
  EXPECT_TRUE(configuration_files().empty());
  EXPECT_TRUE(eventually([&] { return saved({"TN1"}) > before; })) << "what was begun is stored";
  EXPECT_TRUE(eventually([&] { return waiting_runs() == 0 && trail_.not_recorded().empty(); }))
      << trail_.not_recorded().size() << agent_log();
  trail_.expect_recorded_once();
  trail_.expect_readable();
  EXPECT_EQ(setting("log_backup_using_backint"), "false");
}
