#include "agentd/restore/recovery_log.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "agentd/pools/pool_listing.h"
#include "support/log_capture.h"
#include "support/scoped_zone.h"
#include "support/temp_root.h"

using namespace agentd;

namespace {

constexpr char two_recoveries[] =
    "2026-11-20T09:00:00+01:00  P0000001      16a65edcba3 INFO    RECOVERY RECOVER DATA started\n"
    "2026-11-20T09:00:00+01:00  P0000001      16a65edcba3 INFO    RECOVERY command: RECOVER DATA FOR TN1 CLEAR LOG;\n"
    "2026-11-20T09:00:09+01:00  P0000001      16a65edcba3 INFO    RECOVERY RECOVER DATA finished successfully\n"
    "2026-11-20T09:30:00+01:00  P0000001      16a65edcba4 INFO    BACKUP   SAVE DATA started\n"
    "2026-11-20T10:00:00+01:00  P0000001      16a65edcba5 INFO    RECOVERY RECOVER DATA started\n"
    "2026-11-20T10:00:00+01:00  P0000001      16a65edcba5 INFO    RECOVERY command: RECOVER DATABASE FOR TN1 UNTIL "
    "TIMESTAMP '2026-11-20 08:15:00' CLEAR LOG\n"
    "2026-11-20T10:00:09+01:00  P0000001      16a65edcba5 INFO    RECOVERY RECOVER DATA finished successfully, reached "
    "timestamp 2026-11-20T09:14:58+01:00, reached log position 38272960\n";

std::optional<Logged_Recovery> last_in(const std::string& text) {
  std::istringstream log(text);
  return last_recovery(log);
}

TEST(Recovery_Log, Tells_The_Last_Recovery_In_UTC_Whatever_The_Zone) {
  for (const char* zone : {"UTC", "Asia/Kolkata", "America/New_York"}) {
    const support::Scoped_Zone scope(zone);
    const auto recovery = last_in(two_recoveries);
    ASSERT_TRUE(recovery);
    EXPECT_EQ(recovery->started, "2026-11-20 09:00:00");
    EXPECT_EQ(recovery->id, "16a65edcba5");
    EXPECT_EQ(recovery->ended, "2026-11-20 09:00:09");
    EXPECT_EQ(recovery->reached_time, "2026-11-20 08:14:58");
    EXPECT_EQ(recovery->command, "RECOVER DATABASE FOR TN1 UNTIL TIMESTAMP '2026-11-20 08:15:00' CLEAR LOG");
    EXPECT_TRUE(recovery->successful);
  }
}

TEST(Recovery_Log, Tells_A_Recovery_That_Failed_Or_Goes_On) {
  const std::string begun = "2026-11-20T09:00:00+00:00  P1  16a INFO    RECOVERY RECOVER DATA started\n";
  auto recovery = last_in(begun);
  ASSERT_TRUE(recovery);
  EXPECT_EQ(recovery->ended, "");
  recovery =
      last_in(begun + "2026-11-20T09:00:05+00:00  P1  16a ERROR   RECOVERY RECOVER DATA finished with error: [448] x");
  ASSERT_TRUE(recovery);
  EXPECT_EQ(recovery->ended, "2026-11-20 09:00:05");
  EXPECT_FALSE(recovery->successful);
  EXPECT_EQ(recovery->message, "RECOVER DATA finished with error: [448] x");
  EXPECT_EQ(recovery->reached_time, "");
}

TEST(Recovery_Log, Passes_Over_What_Is_No_Line_Of_A_Recovery) {
  for (const char* text : {"", "\n\n", "RECOVERY RECOVER DATA started\n", " RECOVERY ",
                           "2026-11-20T09:00:00+00:00  P1  16a INFO    BACKUP   SAVE DATA started\n"})
    EXPECT_FALSE(last_in(text)) << text;
}

class Recovery_Request : public ::testing::Test {
 protected:
  static json_spirit::Object ask(const char* name, const char* database) {
    const JSON_RPC_Answer answer = tell_last_recovery({{"name", name}, {"database", database}});
    EXPECT_TRUE(answer.ok) << answer.message;
    return answer.ok ? answer.result.get_obj() : json_spirit::Object();
  }
  static std::string text(const json_spirit::Object& object, const char* key) {
    std::string value;
    json_spirit::object_get(object, key, value);
    return value;
  }

  support::Log_Capture log_;
  support::Temp_Root root_;
};

TEST_F(Recovery_Request, Reads_The_Log_Of_The_Tenant_Or_Of_The_System) {
  root_.write("/usr/sap/HDB/HDB00/hana01/trace/DB_TN1/backup.log", two_recoveries);
  root_.write("/usr/sap/HDB/HDB00/hana01/trace/backup.log",
              "2026-11-20T07:00:00+00:00  P1  16a INFO    RECOVERY RECOVER DATA started\n");
  root_.write("/usr/sap/HDB/HDB00/hana02/trace/backup.log",
              "2026-11-20T07:30:00+00:00  P1  16a INFO    RECOVERY RECOVER DATA started\n");
  EXPECT_EQ(text(ask("HDB_HDB00", "TN1"), "reached_time"), "2026-11-20 08:14:58");
  EXPECT_EQ(text(ask("HDB_HDB00", "SYSTEMDB"), "started"), "2026-11-20 07:30:00");
  EXPECT_EQ(json_spirit::dump_json(ask("HDB_HDB00", "TN2")), R"({"found":false})");
}

TEST_F(Recovery_Request, Reads_A_Log_That_Has_Grown_For_Years) {
  const std::string path = "/usr/sap/HDB/HDB00/hana01/trace/DB_TN1/backup.log";
  root_.write(path, two_recoveries);
  {
    std::ofstream log(root_.real(path), std::ios::app);
    const std::string line = "2026-11-20T11:00:00+01:00  P1  16a INFO    BACKUP   " + std::string(1 << 20, 'x') + "\n";
    for (int i = 0; i < 65; ++i) log << line;
  }
  EXPECT_EQ(text(ask("HDB_HDB00", "TN1"), "reached_time"), "2026-11-20 08:14:58");
}

TEST_F(Recovery_Request, Tells_That_A_Log_Cannot_Be_Read) {
  const std::string path = "/usr/sap/HDB/HDB00/hana01/trace/DB_TN1/backup.log";
  root_.make_directory("/usr/sap/HDB/HDB00/hana01/trace/DB_TN1");
  // A regular file whose first page nobody can read.
  std::filesystem::create_symlink("/proc/self/mem", root_.real(path));
  const JSON_RPC_Answer answer = tell_last_recovery({{"name", "HDB_HDB00"}, {"database", "TN1"}});
  EXPECT_FALSE(answer.ok);
  EXPECT_EQ(answer.message, "HANA's log '" + path + "' cannot be read; see the agent's log");
  EXPECT_EQ(log_.claim_containing("Failed to read HANA's log '" + path + "': "), 1U) << log_.dump();
}

TEST_F(Recovery_Request, Leaves_The_Instance_By_No_Name) {
  for (const char* name : {"HDB", "", "HDB_../x", "HDB_HDB00/.."})
    EXPECT_FALSE(tell_last_recovery({{"name", name}, {"database", "TN1"}}).ok) << name;
  EXPECT_FALSE(tell_last_recovery({{"name", "HDB_HDB00"}, {"database", "../../x"}}).ok);
}

TEST_F(Recovery_Request, Lists_Directories_Of_A_Pool) {
  root_.write("/pool/a/b/object", "1234567");
  root_.make_directory("/pool/a/b/below");
  const JSON_RPC_Answer answer =
      list_pool({{"url", "file:///pool"}, {"directories", json_spirit::Array{"a/b", "a/none"}}});
  ASSERT_TRUE(answer.ok) << answer.message;
  EXPECT_EQ(json_spirit::dump_json(answer.result),
            R"({"directories":[{"path":"a/b","entries":[{"name":"below","directory":true,"size":0},)"
            R"({"name":"object","directory":false,"size":7}]},{"path":"a/none","entries":[]}]})");
  EXPECT_FALSE(list_pool({{"url", "file:///nowhere"}, {"directories", json_spirit::Array{"a"}}}).ok);
  EXPECT_FALSE(list_pool({{"url", "file:///pool"}}).ok);
  EXPECT_FALSE(list_pool({{"url", "file:///pool"}, {"directories", json_spirit::Array{5}}}).ok);
}

}  // namespace
