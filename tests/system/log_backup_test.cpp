// Log backups over all processes: HANA begins them, hdbbackint stores them, the agent records them.

#include <filesystem>
#include <fstream>

#include "log_backup_system.h"

using namespace system_tests;

namespace {

class Log_Backups : public Log_Backup_System {
 protected:
  void expect_switches(const char* on_or_off) const {
    const bool on = std::string(on_or_off) == "on";
    EXPECT_EQ(setting("log_mode"), "normal");
    EXPECT_EQ(setting("enable_auto_log_backup"), on ? "yes" : "no");
    EXPECT_EQ(setting("log_backup_using_backint"), on ? "true" : "false");
    EXPECT_EQ(setting("catalog_backup_using_backint"), on ? "true" : "false");
  }
};

using Names = std::vector<std::string>;

/// The first of the rows that the command's answer has below a key.
json_spirit::Object first_row(const Tool_Result& result, const char* key) {
  json_spirit::Array rows;
  (void)json_spirit::object_get(result.json(), key, rows);
  return rows.empty() ? json_spirit::Object() : rows.front().get_obj();
}

}  // namespace

TEST_F(Log_Backups, Are_Stored_And_Recorded_By_Themselves) {
  start_with_log_backup();
  expect_switches("on");
  EXPECT_EQ(configuration_files(), Names{"log_backup_HDB_HDB00"});
  const Names databases{"SYSTEMDB", "TN1"};
  // The full backup's catalogs, then for each round a log and its catalog of each service.
  ASSERT_TRUE(all_recorded(databases, 2)) << agent_log();
  for (std::size_t round = 1; round <= 3; ++round) {
    make_logs(databases);
    const std::size_t services = 3;  // name server; index server and xsengine
    EXPECT_TRUE(all_recorded(databases, 2 + round * 2 * services)) << round << agent_log();
  }
  EXPECT_EQ(saved_by_hana(databases), recorded_sets());
  EXPECT_EQ(waiting_runs(), 0);
  EXPECT_TRUE(alerts().empty());
}

TEST_F(Log_Backups, Are_Switched_On_And_Off_By_The_Command) {
  start_all();
  const Tool_Result before = dorsal3({"log-backup", "status", instance});
  EXPECT_EQ(before.code, 0) << before.out;
  EXPECT_EQ(text_of(first_row(before, "databases"), "file"), "none");
  const Tool_Result enabled = dorsal3({"log-backup", "enable", instance, "--compression", "zstd"});
  ASSERT_EQ(enabled.code, 0) << enabled.out << enabled.err << agent_log();
  expect_switches("on");
  EXPECT_EQ(dorsal3({"check"}).code, 0);
  const Tool_Result on = dorsal3({"log-backup", "status", std::string(instance) + "/TN1"});
  EXPECT_EQ(on.code, 0) << on.out;
  const json_spirit::Object row = first_row(on, "databases");
  EXPECT_EQ(text_of(row, "file") + " " + text_of(row, "settings") + " " + text_of(row, "waiting"), "instance on 0");
  EXPECT_EQ(text_of(row, "definition"), "HDB_HDB00 logs on " + text_of(row, "host") + " to main");
  const Tool_Result disabled = dorsal3({"log-backup", "disable", instance});
  ASSERT_EQ(disabled.code, 0) << disabled.out << disabled.err << agent_log();
  expect_switches("off");
  EXPECT_TRUE(configuration_files().empty());
  EXPECT_EQ(dorsal3({"log-backup", "disable", instance}).code, 6) << "there is none any more";
}

TEST_F(Log_Backups, A_Database_Without_A_File_Is_Left_Only_On_Purpose) {
  start_all({.tenants = {"TN1", "TN2"}});
  const std::string tenant = std::string(instance) + "/TN1";
  const Tool_Result refused = dorsal3({"log-backup", "enable", tenant});
  EXPECT_EQ(refused.code, 2);
  EXPECT_NE(refused.out.find("the logs of SYSTEMDB, TN2 go to Backint too"), std::string::npos) << refused.out;
  EXPECT_TRUE(configuration_files().empty()) << "nothing was changed";
  ASSERT_EQ(dorsal3({"log-backup", "enable", tenant, "--yes"}).code, 0) << agent_log();
  EXPECT_EQ(configuration_files(), Names{"log_backup_HDB_HDB00_TN1"});
  EXPECT_EQ(dorsal3({"log-backup", "status", instance}).code, 1) << "the others' logs fail";
  ASSERT_EQ(dorsal3({"log-backup", "enable", instance}).code, 0) << agent_log();
  EXPECT_EQ(dorsal3({"log-backup", "disable", instance}).code, 2) << "the tenant's keeps the switches on";
  ASSERT_EQ(dorsal3({"log-backup", "disable", tenant}).code, 0) << "the instance's takes its logs";
  expect_switches("on");
  ASSERT_EQ(dorsal3({"log-backup", "disable", instance}).code, 0);
  expect_switches("off");
}

TEST_F(Log_Backups, An_Updated_Definition_Is_Removed_And_Set_Up_Again) {
  start_all();
  ASSERT_EQ(text_of(enable_log_backup("", 1, 1), "state"), "installed");
  ASSERT_EQ(text_of(enable_log_backup("", 1, 3), "state"), "installed");
  EXPECT_EQ(configuration_files(), Names{"log_backup_HDB_HDB00"}) << "no copy was set aside";
  const std::string text = slurp(real("/var/opt/tarvex/dorsal3/agent/hana/log_backup_HDB_HDB00"));
  EXPECT_NE(text.find("\"compression_level\":3"), std::string::npos) << text;
  expect_switches("on");
}

TEST_F(Log_Backups, Of_Two_Definitions_For_One_Database_The_Later_Takes_Its_Logs) {
  start_all();
  ASSERT_EQ(text_of(enable_log_backup("TN1", 1), "state"), "installed");
  ASSERT_EQ(text_of(enable_log_backup("TN1", 2), "state"), "installed");
  const Names files = configuration_files();
  ASSERT_EQ(files.size(), 2U) << "the first one's file was set aside";
  EXPECT_NE(slurp(real("/var/opt/tarvex/dorsal3/agent/hana/log_backup_HDB_HDB00_TN1")).find(definition_id("TN1", 2)),
            std::string::npos);
  // The first one's removal leaves the second one's file and the switches.
  EXPECT_EQ(disable_log_backup("TN1", 1).status, 200U);
  EXPECT_EQ(configuration_files(), files);
  expect_switches("on");
  EXPECT_EQ(disable_log_backup("TN1", 2).status, 200U);
  EXPECT_EQ(configuration_files().size(), 1U) << "the copy stays";
  expect_switches("off");
  // The copy counts as installed: the agent tells that nothing takes the logs.
  const json_spirit::Object setup = enable_log_backup("TN1", 1);
  EXPECT_EQ(text_of(setup, "state"), "failed");
  EXPECT_NE(text_of(setup, "message").find("because of the copy"), std::string::npos) << text_of(setup, "message");
  const Tool_Result status = dorsal3({"log-backup", "status", instance});
  EXPECT_NE(status.out.find("was set aside when another log backup took its place"), std::string::npos) << status.out;
}

TEST_F(Log_Backups, A_Removal_While_One_Runs_Loses_Nothing) {
  start_with_log_backup({.tenants = {}});
  const Names databases{"SYSTEMDB"};
  ASSERT_TRUE(all_recorded(databases, 1)) << agent_log();
  fault("stream_bytes_per_second = 2000");
  make_logs(databases);
  // Its record is there: it has read the configuration, which goes now.
  ASSERT_TRUE(
      eventually([&] { return rest("GET", "/backint/jobs").body.find(R"("type":"log")") != std::string::npos; }));
  EXPECT_EQ(disable_log_backup().status, 200U);
  expect_switches("off");
  no_faults();
  EXPECT_TRUE(all_recorded(databases, 2)) << agent_log();
  EXPECT_EQ(text_of(setup_of(), "state"), "removed") << "the definition was kept for its runs";
}

TEST_F(Log_Backups, A_Setup_That_Fails_Tells_Why) {
  start_all();
  const std::string link = real("/usr/sap/HDB/SYS/global/hdb/opt/hdbbackint");
  std::filesystem::remove(link);
  std::filesystem::create_directories(link);
  const Tool_Result failed = dorsal3({"log-backup", "enable", instance});
  EXPECT_EQ(failed.code, 1) << failed.out;
  const json_spirit::Object row = first_row(failed, "hosts");
  EXPECT_EQ(text_of(row, "state"), "failed");
  EXPECT_NE(text_of(row, "message").find("Failed to backup HANA log, failed to prepare backint"), std::string::npos);
  EXPECT_TRUE(eventually([&] { return alerts() == Names{"7/1"}; }));
  std::filesystem::remove(link);
  EXPECT_EQ(dorsal3({"log-backup", "enable", instance}).code, 0) << "the same once more tries again";
}

TEST_F(Log_Backups, A_Setup_That_Broke_Off_Does_Not_Pass_For_Done_When_It_Is_Tried_Again) {
  start_all();
  const std::string groups = slurp(real("/etc/group"));
  std::ofstream(real("/etc/group")) << "root:x:0:\n";
  for (const char* attempt : {"first", "second"}) {
    SCOPED_TRACE(attempt);
    const json_spirit::Object setup = enable_log_backup();
    EXPECT_EQ(text_of(setup, "state"), "failed");
    EXPECT_NE(text_of(setup, "message").find("there is no such group"), std::string::npos) << text_of(setup, "message");
    EXPECT_EQ(configuration_files(), Names{"log_backup_HDB_HDB00"}) << "written, but HANA cannot read it";
  }
  std::ofstream(real("/etc/group")) << groups;
  EXPECT_EQ(text_of(enable_log_backup(), "state"), "installed");
  expect_switches("on");
  EXPECT_EQ(configuration_files(), Names{"log_backup_HDB_HDB00"}) << "no copy is left beside it";
}

TEST_F(Log_Backups, A_Definition_Is_Set_Up_And_Removed_When_Its_Agent_Is_Back) {
  start_all();
  ASSERT_EQ(stop_agent(), 0);
  EXPECT_EQ(text_of(enable_log_backup(), "state"), "pending");
  start_agent();
  EXPECT_TRUE(eventually([&] { return text_of(setup_of(), "state") == "installed"; })) << agent_log();
  expect_switches("on");
  ASSERT_EQ(stop_agent(), 0);
  EXPECT_EQ(disable_log_backup().status, 202U);
  start_agent();
  EXPECT_TRUE(eventually([&] { return text_of(setup_of(), "state") == "removed"; })) << agent_log();
  expect_switches("off");
  EXPECT_TRUE(configuration_files().empty());
}
