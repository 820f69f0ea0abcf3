#include <sys/stat.h>

#include <fstream>

#include "standin/recovered_hana.h"

namespace {

namespace fs = std::filesystem;
using namespace standin_test;

/// Recoveries of the system database and of single containers, which the instance runs while it starts.
class Recovery_At_Start : public Recovered_HANA {
 protected:
  [[nodiscard]] fs::path statement_file() const { return instance() / "work/recoverInstance.sql"; }
  void leave(const std::string& statement) {
    ASSERT_EQ(hdb("stop").code, 0);
    std::ofstream(statement_file()) << statement;
  }
  std::string full_of(const std::string& database = "SYSTEMDB") {
    const Output got = sql("BACKUP DATA USING BACKINT ('f')", database);
    EXPECT_EQ(got.code, 0) << got.err;
    const std::string id =
        sql("select max(BACKUP_ID) as ID from M_BACKUP_CATALOG where ENTRY_TYPE_NAME='complete data backup'", database)
            .out;
    return id.substr(3, id.size() - 4);
  }
  static std::string by_id(const std::string& id) {
    return "RECOVER DATA USING BACKUP_ID " + id + " USING CATALOG BACKINT CLEAR LOG;";
  }
};

TEST_F(Recovery_At_Start, Recovers_The_System_Database_And_Leaves_The_Tenants_Down) {
  install_with_catalogs({"--tenant", "TN1", "--tenant", "TN2"});
  fault("logon_after_recovery_ms = 1");
  put("a", "1", "SYSTEMDB");
  put("t", "1");
  const std::string full = full_of();
  put("a", "2", "SYSTEMDB");
  new_calls();
  leave(by_id(full));
  const Output started = hdb("start");
  EXPECT_EQ(started.code, 0) << started.out;
  EXPECT_FALSE(fs::exists(statement_file()));
  EXPECT_TRUE(backup_log("SYSTEMDB").ends_with("RECOVER DATA finished successfully\n")) << backup_log("SYSTEMDB");
  ASSERT_TRUE(becomes([&] { return sql("select 1 from DUMMY").code == 0; }));
  EXPECT_EQ(rows("SYSTEMDB"), "a,1\n");
  EXPECT_EQ(count_of(new_calls(), "-u HDB\n"), 3);
  EXPECT_EQ(status_of("TN1") + status_of("TN2"), "NONO");
  EXPECT_EQ(status_of("SYSTEMDB"), "YES");
  ASSERT_EQ(sql("ALTER SYSTEM START DATABASE TN1").code, 0);
  EXPECT_EQ(rows(), "t,1\n");
}

TEST_F(Recovery_At_Start, Takes_No_Logons_For_A_While) {
  install_with_catalogs();
  leave(by_id(full_of()));
  ASSERT_EQ(hdb("start").code, 0);
  EXPECT_EQ(run({instance() / "exe/sapcontrol", "-nr", "00", "-function", "GetProcessList"}).code, 3);
  const Output refused = sql("select 1 from DUMMY");
  EXPECT_NE(refused.err.find("* -10709: Connection failed"), std::string::npos) << refused.err;
  later(44);
  EXPECT_NE(sql("select 1 from DUMMY").code, 0);
  later(2);
  EXPECT_EQ(sql("select 1 from DUMMY").code, 0);
}

TEST_F(Recovery_At_Start, Brings_The_Instance_Down_When_It_Fails) {
  install_with_catalogs();
  put("a", "1", "SYSTEMDB");
  const std::string full = full_of();
  leave(by_id("4711"));
  const Output refused = hdb("start");
  EXPECT_EQ(refused.code, 1);
  EXPECT_NE(refused.out.find("FAIL: process hdbdaemon HDB Daemon not running"), std::string::npos) << refused.out;
  EXPECT_FALSE(fs::exists(statement_file()));
  EXPECT_EQ(run({instance() / "exe/sapcontrol", "-nr", "00", "-function", "GetProcessList"}).code, 4);
  EXPECT_NE(backup_log("SYSTEMDB").find("RECOVER DATA finished with error: [449] "), std::string::npos);
  // Nothing was changed: it starts as it was.
  ASSERT_EQ(hdb("start").code, 0);
  EXPECT_EQ(rows("SYSTEMDB"), "a,1\n");

  fault("logon_after_recovery_ms = 1");
  script("error f_databackup_1_1");
  leave(by_id(full));
  EXPECT_EQ(hdb("start").code, 1);
  EXPECT_NE(backup_log("SYSTEMDB").find("RECOVER DATA finished with error: [448] "), std::string::npos);
  script("");
  EXPECT_EQ(hdb("start").code, 1);
  EXPECT_NE(text_of(instance() / "standin/server.log").find("its recovery has not been completed"), std::string::npos);
  std::ofstream(statement_file()) << by_id(full);
  EXPECT_EQ(hdb("start").code, 0);
  ASSERT_TRUE(becomes([&] { return sql("select 1 from DUMMY").code == 0; }));
  EXPECT_EQ(rows("SYSTEMDB"), "a,1\n");
}

TEST_F(Recovery_At_Start, Runs_What_A_Statement_Without_Its_End_Says_And_Nothing_Else) {
  install_with_logs();
  fault("logon_after_recovery_ms = 1");
  const std::string full = full_of();
  next_second();
  put("a", "1", "SYSTEMDB");
  const std::string time = now();
  next_second();
  put("a", "2", "SYSTEMDB");
  next_second();
  constexpr int timeout_s = 900;
  later(timeout_s);
  ASSERT_TRUE(becomes([&] { return saved_logs("nameserver") > 0; }));
  ASSERT_TRUE(becomes([&] {
    return value_of("select count(*) from SYS_DATABASES.M_BACKUP_CATALOG where STATE_NAME='running'") == "0\n";
  }));
  leave("RECOVER DATABASE UNTIL TIMESTAMP '" + time + "' CLEAR LOG  USING CATALOG BACKINT USING BACKUP_ID " + full +
        " CHECK ACCESS ALL");
  ASSERT_EQ(hdb("start").code, 0);
  ASSERT_TRUE(becomes([&] { return sql("select 1 from DUMMY").code == 0; }));
  EXPECT_EQ(rows("SYSTEMDB"), "a,1\n");
  for (const char* other : {"DROP TABLE KV", "RECOVER DATA FOR TN1 USING BACKUP_ID 1 CLEAR LOG;", ""}) {
    leave(other);
    EXPECT_EQ(hdb("start").code, 1) << other;
    ASSERT_EQ(hdb("start").code, 0) << other;
  }
}

TEST_F(Recovery_At_Start, Needs_A_Statement_That_Sidadm_May_Read) {
  install_with_catalogs();
  fault("logon_after_recovery_ms = 1");
  const std::string full = full_of();
  leave(by_id(full));
  fs::permissions(statement_file(), fs::perms::none);
  EXPECT_EQ(hdb("start").code, 1);
  EXPECT_TRUE(fs::exists(statement_file()));
  EXPECT_NE(text_of(instance() / "standin/server.log").find("recoverInstance.sql cannot be read"), std::string::npos);
  // Root wrote it for the group.
  const std::string passwd = root_ / "etc/passwd";
  const std::string user =
      "hdbadm:x:" + std::to_string(::getuid() + 1) + ":" + std::to_string(::getgid()) + "::/:/bin/sh\n";
  std::ofstream(passwd) << user;
  fs::permissions(statement_file(), fs::perms::owner_read | fs::perms::owner_write);
  EXPECT_EQ(hdb("start").code, 1);
  fs::permissions(statement_file(), fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read);
  EXPECT_EQ(hdb("start").code, 0);
}

TEST_F(Recovery_At_Start, Leaves_The_Statement_When_Told_So_And_Runs_It_Once) {
  install_with_catalogs();
  fault("logon_after_recovery_ms = 1");
  fault("recover_file = kept");
  leave(by_id(full_of()));
  ASSERT_EQ(hdb("start").code, 0);
  EXPECT_TRUE(fs::exists(statement_file()));
  ASSERT_EQ(hdb("stop").code, 0);
  ASSERT_EQ(hdb("start").code, 0);
  EXPECT_EQ(count_of(backup_log("SYSTEMDB"), "RECOVER DATA started"), 1);
}

TEST_F(Recovery_At_Start, Keeps_The_Instance_Starting_Until_It_Has_Ended) {
  install_with_catalogs();
  fault("logon_after_recovery_ms = 1");
  leave(by_id(full_of()));
  fault("recovery_slow_ms = 600000 | match=data");
  ASSERT_EQ(run({instance() / "exe/sapcontrol", "-nr", "00", "-function", "Start"}).code, 0);
  EXPECT_EQ(run({instance() / "exe/sapcontrol", "-nr", "00", "-function", "WaitforStarted", "0", "1"}).code, 2);
  EXPECT_NE(
      run({instance() / "exe/sapcontrol", "-nr", "00", "-function", "GetProcessList"}).out.find("YELLOW, Starting"),
      std::string::npos);
  only_faults({"logon_after_recovery_ms = 1"});
  EXPECT_EQ(run({instance() / "exe/sapcontrol", "-nr", "00", "-function", "StartWait", "60", "1"}).code, 0);
  EXPECT_NE(backup_log("SYSTEMDB").find("finished successfully"), std::string::npos);
}

TEST_F(Recovery_At_Start, Is_Cut_Off_By_A_Stop) {
  install_with_catalogs();
  const std::string full = full_of();
  leave(by_id(full));
  fault("recovery_slow_ms = 600000 | match=data");
  ASSERT_EQ(run({instance() / "exe/sapcontrol", "-nr", "00", "-function", "Start"}).code, 0);
  ASSERT_TRUE(becomes([&] { return backup_log("SYSTEMDB").find("RECOVER DATA started") != std::string::npos; }));
  ASSERT_EQ(hdb("stop").code, 0);
  EXPECT_NE(backup_log("SYSTEMDB").find("RECOVER DATA finished with error: "), std::string::npos);
}

TEST_F(Recovery_At_Start, Recovers_A_Single_Container) {
  install_with_catalogs({"--single-container", "--services", "indexserver,xsengine"});
  fault("logon_after_recovery_ms = 1");
  put("a", "1", "HDB");
  const std::string full = full_of("HDB");
  put("a", "2", "HDB");
  new_calls();
  leave(by_id(full));
  ASSERT_EQ(hdb("start").code, 0);
  ASSERT_TRUE(becomes([&] { return sql("select 1 from DUMMY", "HDB").code == 0; }));
  EXPECT_EQ(rows("HDB"), "a,1\n");
  const std::string calls = new_calls();
  EXPECT_NE(calls.find("#NULL \"/usr/sap/HDB/SYS/global/hdb/backint/log_backup_0_0_0_0\""), std::string::npos) << calls;
  EXPECT_EQ(count_of(calls, "-u HDB\n"), 5) << calls;
}

}  // namespace
