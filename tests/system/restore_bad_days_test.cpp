// What may go wrong before a restore changes anything, and what stands in its way.

#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "restore_system.h"

using namespace system_tests;

namespace {

namespace fs = std::filesystem;

class Restore_Bad_Days : public Restore_System {
 protected:
  static constexpr const char* state = "/var/opt/tarvex/dorsal3/agent";
  static constexpr const char* staging_folder = "/var/opt/tarvex/dorsal3/agent/hana/catalog";

  std::string restore_wanted() { return restore({{.database = "TN1", .timepoint = wanted_}}); }
  void expect_untouched() const { EXPECT_TRUE(rows("TN1").starts_with("a,2\n")); }
  void expect_restored() {
    EXPECT_EQ(restore_wanted(), "completed") << agent_log();
    EXPECT_EQ(rows("TN1"), "a,1\n");
  }
};

}  // namespace

TEST_F(Restore_Bad_Days, A_Tenant_That_Does_Not_Stop_Goes_On_As_It_Was) {
  start_with_a_past();
  fault("fail_statement = 2:general error: not now | match=STOP DATABASE");
  const std::size_t from = agent_log().size();
  EXPECT_EQ(restore_wanted(), "error");
  EXPECT_EQ(alerts(), std::vector<std::string>{"7/4"});
  const std::string log = agent_log().substr(from);
  std::size_t retries = 0;
  for (std::size_t at = log.find("retry..."); at != std::string::npos; at = log.find("retry...", at + 1)) ++retries;
  EXPECT_EQ(retries, 3U) << log;
  EXPECT_TRUE(staged_files().empty());
  expect_untouched();
  no_faults();
  expect_restored();
}

TEST_F(Restore_Bad_Days, A_Lost_Account_Is_Told_Before_Anything_Changes) {
  start_with_a_past();
  fault("refuse_logon = 10");
  EXPECT_EQ(restore_wanted(), "error");
  EXPECT_EQ(alerts().back(), "7/15") << "HANA knows the account no more";
  no_faults();
  expect_untouched();
  (void)stop_agent();
  for (const char* file : {"accounts", "accounts.key"}) fs::remove(real(std::string(state) + "/" + file));
  start_agent();
  EXPECT_EQ(restore_wanted(), "error");
  EXPECT_EQ(alerts().back(), "7/2") << "the host knows it no more";
  expect_untouched();
  ASSERT_EQ(dorsal3({"logon", instance, "--user", "SYSTEM"}, std::string(password) + "\n").code, 0);
  expect_restored();
}

TEST_F(Restore_Bad_Days, Files_Of_A_Former_Restore_Do_Not_Decide_This_One) {
  start_with_a_past();
  fs::create_directories(real(staging_folder));
  for (const char* name : {"/catalog_HDB_TN1_HDB_TN1.json", "/catalog_HDB_TN1_HDB_TN9.json", "/restore_HDB_TN9.json"})
    std::ofstream(real(staging_folder) + name) << R"({"extern_backup_id":"one of last year"})";
  expect_restored();
  EXPECT_TRUE(staged_files().empty());
}

TEST_F(Restore_Bad_Days, A_Closed_Mask_Keeps_Nothing_From_HANA) {
  const mode_t before = ::umask(077);
  start_with_a_past();
  ::umask(before);
  expect_restored();
  fault("logon_after_recovery_ms = 500");
  put("SYSTEMDB", "s", "1");
  ASSERT_EQ(backup(std::string(instance) + "/SYSTEMDB").code, 0);
  const std::string set = text_of(newest_set("SYSTEMDB", "full"), "uuid");
  put("SYSTEMDB", "s", "2");
  EXPECT_EQ(restore({{.database = "SYSTEMDB", .set = set}}), "completed") << agent_log();
  EXPECT_EQ(rows("SYSTEMDB"), "s,1\n");
  struct stat status {};
  ASSERT_EQ(::stat(real(staging_folder).c_str(), &status), 0);
  constexpr mode_t permissions = 07777;
  constexpr mode_t open_to_hana = 0755;
  EXPECT_EQ(status.st_mode & permissions, open_to_hana);
}
