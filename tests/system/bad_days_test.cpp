// Bad days: each ends with a clear message, the alert and the state that belong to it, and nothing left behind.

#include <signal.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "system_fixture.h"

using namespace system_tests;
namespace fs = std::filesystem;

namespace {

constexpr const char* hdbbackint_log = "/var/opt/tarvex/dorsal3/agent/hdbbackint.log";
constexpr const char* link_path = "/usr/sap/HDB/SYS/global/hdb/opt/hdbbackint";

class Bad_Days : public System_Fixture {
 protected:
  static void replace(const std::string& path, const std::string& text) {
    std::ofstream(path + ".next") << text;
    fs::rename(path + ".next", path);
  }
  /// A backup that fails with these alerts and this text in the agent's log.
  void expect_failure(const std::vector<std::string>& wanted_alerts, const std::string& log_text,
                      const std::string& database = "TN1") {
    const Tool_Result result = backup(std::string(instance) + "/" + database);
    EXPECT_EQ(result.code, 1) << result.out << result.err;
    EXPECT_EQ(text_of(result.json(), "state"), "error") << result.out;
    EXPECT_TRUE(eventually([&] { return alerts() == wanted_alerts; })) << ::testing::PrintToString(alerts());
    EXPECT_NE(agent_log().find(log_text), std::string::npos);
    EXPECT_TRUE(sets().empty());
    EXPECT_TRUE(eventually([&] { return pool_files().empty(); })) << ::testing::PrintToString(pool_files());
  }
};

}  // namespace

TEST_F(Bad_Days, Backupd_Is_Down_When_The_Operator_Comes) {
  start_all();
  stop_backupd(SIGTERM);
  const Tool_Result result = backup(instance);
  EXPECT_EQ(result.code, 4);
  EXPECT_NE(result.out.find("cannot reach backupd"), std::string::npos) << result.out;
  start_backupd();
}

TEST_F(Bad_Days, Backupd_Is_Down_When_The_Agent_Starts) {
  start_all();
  (void)stop_agent();
  stop_backupd(SIGKILL);
  start_agent();
  EXPECT_TRUE(agent_says("Failed to connect to backupd"));
  start_backupd();
  EXPECT_TRUE(eventually([&] { return dorsal3({"check"}).code == 0; }));
}

TEST_F(Bad_Days, Backupd_Goes_Away_In_The_Middle_And_Comes_Back) {
  start_all({.data_mb = 20});
  fault(held_backup);
  const std::string run = start_backup(std::string(instance) + "/TN1");
  ASSERT_TRUE(program_runs("hdbbackint"));
  stop_backupd(SIGKILL);
  no_faults();
  start_backupd();
  EXPECT_EQ(wait_for_end(run), "completed") << json_spirit::dump_json(job(run));
  ASSERT_EQ(sets().size(), 1U);
  EXPECT_EQ(dorsal3({"verify", text_of(sets().front(), "uuid")}).code, 0);
}

TEST_F(Bad_Days, Backupd_Is_Away_At_The_Commit_And_Comes_Back) {
  start_all();
  fault(held_backup);
  const std::string run = start_backup(std::string(instance) + "/TN1");
  ASSERT_TRUE(program_runs("hdbbackint"));
  host_.only_faults("hang_statement = 0 | match=M_BACKUP_CATALOG");
  // All objects are stored; the metadata are still being asked for.
  ASSERT_TRUE(eventually([&] { return pool_files().size() >= 3 && pids_below(root(), "hdbbackint").empty(); }));
  stop_backupd(SIGKILL);
  no_faults();
  start_backupd();
  EXPECT_EQ(wait_for_end(run), "completed") << json_spirit::dump_json(job(run));
  EXPECT_EQ(sets().size(), 1U);
}

TEST_F(Bad_Days, A_Wrong_Password_Is_Not_Stored) {
  start_backupd();
  install_hana({});
  start_hana();
  start_agent();
  ASSERT_EQ(dorsal3({"discover"}).code, 0);
  const Tool_Result logon = dorsal3({"logon", instance, "--user", "SYSTEM"}, "wrong-password\n");
  EXPECT_EQ(logon.code, 1);
  EXPECT_NE(logon.out.find("refused user"), std::string::npos) << logon.out;
  ASSERT_EQ(dorsal3({"pools", "--add", "main", "--directory", "/srv/pool"}).code, 0);
  expect_failure({"7/2"}, "Failed to get username and password");
  EXPECT_EQ(agent_log().find("wrong-password"), std::string::npos) << "the password is in the log";
}

TEST_F(Bad_Days, The_Account_Is_Refused_Later) {
  start_all();
  fault("refuse_logon = 10");
  expect_failure({"7/3"}, "Failed to start tenant database 'TN1' in 'HDB00'");
}

TEST_F(Bad_Days, The_Instance_Is_Stopped) {
  start_all();
  stop_hana();
  EXPECT_EQ(dorsal3({"check"}).code, 1);
  const Tool_Result result = backup(std::string(instance) + "/TN1");
  EXPECT_EQ(result.code, 1) << result.out;
  EXPECT_EQ(text_of(result.json(), "state"), "skipped") << "a host whose instance is down is not the active one";
  EXPECT_NE(result.out.find("Nothing was backed up"), std::string::npos) << result.out;
  EXPECT_TRUE(alerts().empty());
  EXPECT_TRUE(sets().empty());
}

TEST_F(Bad_Days, An_Unknown_Instance_Is_Refused_At_Once) {
  start_all();
  EXPECT_EQ(backup("QAS_HDB00").code, 6);
}

TEST_F(Bad_Days, An_Unknown_Database_Fails_With_Its_Name) {
  start_all();
  const Tool_Result result = backup(std::string(instance) + "/NOPE");
  EXPECT_EQ(result.code, 1) << result.out;
  EXPECT_TRUE(eventually([&] { return alerts() == std::vector<std::string>{"7/3"}; }))
      << ::testing::PrintToString(alerts());
}

TEST_F(Bad_Days, A_System_That_Does_Not_Tell_Of_Its_Tenants_Has_None_Taken_For_Another) {
  start_all({.tenants = {"TN1", "TN2"}});
  const std::string path = real("/usr/sap/HDB/SYS/global/hdb/custom/config/global.ini");
  const std::string whole = slurp(path);
  std::string without = whole;
  const std::size_t mode = without.find("mode = multidb");
  ASSERT_NE(mode, std::string::npos) << whole;
  without.erase(mode, without.find('\n', mode) - mode);
  replace(path, without);
  // HANA is asked as a system without tenants is, and backs up the one that answers there: the first tenant.
  expect_failure({"7/8"}, "Failed to execute backup", "TN2");
  EXPECT_NE(slurp(real(hdbbackint_log)).find("is for database TN2, but HANA backs up TN1"), std::string::npos);
  EXPECT_TRUE(
      eventually([this] { return rest("GET", "/backint/jobs").body.find("\"total\":0") != std::string::npos; }));
  replace(path, whole);
  EXPECT_EQ(backup(std::string(instance) + "/TN2").code, 0);
}

TEST_F(Bad_Days, Database_Names_That_Are_No_Plain_Identifiers_Are_Refused) {
  start_all();
  for (const char* name : {"tn1", "T N", "T'1", "T\"1", "T.1", "T;DROP", "TÜ", ".."}) {
    const Tool_Result result = backup(std::string(instance) + "/" + name);
    EXPECT_EQ(result.code, 1) << name << result.out;
    EXPECT_NE(result.out.find("names no database that can be backed up"), std::string::npos) << name << result.out;
  }
  EXPECT_TRUE(sets().empty());
}

TEST_F(Bad_Days, The_Backint_Link_Leads_Elsewhere) {
  start_all();
  fs::create_directories(fs::path(real(link_path)).parent_path());
  fs::create_symlink("/usr/bin/true", real(link_path));
  expect_failure({"7/1"}, "is exists, linking to /usr/bin/true");
  EXPECT_EQ(fs::read_symlink(real(link_path)), "/usr/bin/true") << "it was changed";
}

TEST_F(Bad_Days, A_File_Lies_In_The_Place_Of_The_Link) {
  start_all();
  fs::create_directories(fs::path(real(link_path)).parent_path());
  std::ofstream(real(link_path)) << "somebody's own";
  expect_failure({"7/1"}, "is exist");
}

TEST_F(Bad_Days, The_Pool_Is_Full) {
  start_all({.data_mb = 8});
  const Tool_Result added = run_tool({real("/opt/tarvex/dorsal3/bin/dorsal3-backupd"), "pool", "add", "small",
                                      "--directory", "/srv/small", "--max-bytes", "100000"});
  ASSERT_EQ(added.code, 0) << added.err;
  const Tool_Result result = backup(std::string(instance) + "/TN1", {"--pool", "small"});
  EXPECT_EQ(result.code, 1) << result.out;
  EXPECT_TRUE(eventually([&] { return alerts() == std::vector<std::string>{"7/8"}; }))
      << ::testing::PrintToString(alerts());
  EXPECT_TRUE(sets().empty());
}

TEST_F(Bad_Days, Hdbsql_Is_Missing) {
  start_all();
  const std::string tool = real("/usr/sap/HDB/HDB00/exe/hdbsql");
  fs::rename(tool, tool + ".away");
  expect_failure({"7/3"}, "Failed to start tenant database 'TN1' in 'HDB00'");
}

TEST_F(Bad_Days, Hdbsql_Is_Killed) {
  start_all();
  fault("die_hdbsql = 9 | match=BACKUP DATA");
  const Tool_Result result = backup(std::string(instance) + "/TN1");
  EXPECT_EQ(result.code, 1) << result.out;
  EXPECT_TRUE(eventually([&] { return alerts() == std::vector<std::string>{"7/8"}; }))
      << ::testing::PrintToString(alerts());
  EXPECT_TRUE(agent_says("was killed by signal 9"));
}

TEST_F(Bad_Days, Hdbsql_Prints_Garbage) {
  start_all();
  fault("garbage = \x01\x02 no table at all");
  const Tool_Result result = backup(std::string(instance) + "/TN1");
  EXPECT_EQ(result.code, 1) << result.out;
  EXPECT_TRUE(eventually([&] { return alerts() == std::vector<std::string>{"7/3"}; }))
      << ::testing::PrintToString(alerts());
  EXPECT_TRUE(sets().empty());
}

TEST_F(Bad_Days, Sigterm_Lets_A_Running_Backup_End) {
  start_all({.data_mb = 12});
  fault(held_backup);
  const std::string run = start_backup(std::string(instance) + "/TN1");
  ASSERT_TRUE(program_runs("hdbbackint"));
  const std::size_t from = agent_log().size();
  host_.signal_agent(SIGTERM);
  ASSERT_TRUE(agent_says("The agent stops, it waits up to", from));
  no_faults();
  EXPECT_EQ(host_.end_of_agent(), 0);
  start_agent();
  EXPECT_EQ(wait_for_end(run), "completed");
  EXPECT_EQ(sets().size(), 1U);
}

TEST_F(Bad_Days, Sigterm_Past_The_Limit_Is_Reported_As_Failed_Once) {
  start_all({.data_mb = 40});
  (void)stop_agent();
  start_agent(1);
  fault(held_backup);
  const std::string run = start_backup(std::string(instance) + "/TN1");
  ASSERT_TRUE(program_runs("hdbbackint"));
  EXPECT_EQ(stop_agent(), 3);
  const std::size_t before = agent_log().size();
  start_agent();
  EXPECT_EQ(wait_for_end(run), "error");
  EXPECT_NE(text_of(job(run), "message").find("The agent ended while this job ran"), std::string::npos);
  (void)stop_agent();
  const std::size_t second = agent_log().size();
  start_agent();
  EXPECT_NE(agent_log().find("was cut off", before), std::string::npos);
  EXPECT_EQ(agent_log().find("was cut off", second), std::string::npos) << "it was told again";
  EXPECT_TRUE(sets().empty());
}
