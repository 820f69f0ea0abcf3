#include <chrono>
#include <filesystem>
#include <thread>

#include "standin/installed_hana.h"

namespace {

using namespace standin_test;
using HANA_Faults = Installed_HANA;

constexpr const char* slow = "stream_bytes_per_second = 50000";
constexpr int most_looks = 5000;

TEST_F(HANA_Faults, Refuse_Logons_As_Told) {
  install();
  fault("refuse_logon = 10 | count=1");
  fault("lock_account = yes | count=1 | match=SYSTEM");
  fault("nobody_listens = yes | database=TN1");
  EXPECT_EQ(sql("\\s").code, 10);
  EXPECT_EQ(sql("\\s").code, 416 & 0xff);
  EXPECT_EQ(sql("\\s").code, 0);
  EXPECT_EQ(sql("\\s", "TN1").code, -10709 & 0xff);
  ASSERT_EQ(control({"no-faults"}).code, 0);
  EXPECT_EQ(sql("\\s", "TN1").code, 0);
  ASSERT_EQ(control({"fault", "refuse_logon = 10 | count=1"}).code, 0);
  EXPECT_EQ(sql("\\s").code, 10);
}

TEST_F(HANA_Faults, Fail_Chosen_Statements) {
  install();
  fault("fail_statement = 447: no luck | match=dummy | skip=1 | count=1");
  EXPECT_EQ(sql("select 1 as A from DUMMY").code, 0);
  const Output failed = sql("select 1 as A from DUMMY");
  EXPECT_EQ(failed.code, 447 & 0xff);
  EXPECT_EQ(failed.err, "* 447: no luck SQLSTATE: HY000\n");
  EXPECT_EQ(sql("select 1 as A from DUMMY").code, 0);
  fault("error_exit_zero = yes");
  const Output hidden = hdbsql({"selct 1"});
  EXPECT_EQ(hidden.code, 0);
  EXPECT_EQ(hidden.err.find("* 257: "), 0U);
}

TEST_F(HANA_Faults, Print_Garbage_And_Kill_The_Tool) {
  install();
  fault("garbage = %&/( | count=1");
  const Output got = hdbsql({"select 1 as A from DUMMY"});
  EXPECT_EQ(got.code, 0);
  EXPECT_EQ(got.out, "%&/(\n");
  fault("die_hdbsql = 15 | count=1");
  EXPECT_EQ(hdbsql({"select 1 as A from DUMMY"}).code, 128 + 15);
  EXPECT_EQ(hdbsql({"select 1 as A from DUMMY"}).code, 0);
}

TEST_F(HANA_Faults, Slow_Statements_Down_Or_Let_Them_Hang) {
  install();
  const auto begin = std::chrono::steady_clock::now();
  fault("slow_statement = 300 | count=1");
  EXPECT_EQ(sql("select 1 as A from DUMMY").code, 0);
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(300));
  fault("hang_statement = 0 | match=DUMMY");
  Output hung;
  std::thread worker([&] { hung = hdbsql({"select 1 as A from DUMMY"}); });
  EXPECT_TRUE(meets("hang_statement = 0 | match=DUMMY"));
  EXPECT_EQ(sql("\\s").code, 0);
  EXPECT_EQ(hdb("stop").code, 0);
  worker.join();
  EXPECT_NE(hung.out + hung.err, "");
}

TEST_F(HANA_Faults, Are_Told_Once_They_Have_Applied) {
  install();
  ASSERT_EQ(control({"no-faults"}).code, 0);
  fault("slow_statement = 1 | skip=1 | match=DUMMY");
  EXPECT_EQ(sql("select 1 as A from DUMMY").code, 0);
  EXPECT_EQ(met(), "") << "skipped";
  EXPECT_EQ(sql("select 1 as A from DUMMY").code, 0);
  EXPECT_EQ(sql("select 1 as A from DUMMY").code, 0);
  EXPECT_EQ(met(), "slow_statement = 1 | skip=1 | match=DUMMY\n");
  EXPECT_EQ(control({"no-faults"}).code, 0);
  EXPECT_EQ(met(), "");
}

TEST_F(HANA_Faults, Kill_The_Server_In_A_Statement) {
  install();
  fault("die_server = yes | match=DUMMY | count=1");
  const Output got = hdbsql({"select 1 as A from DUMMY"});
  EXPECT_EQ(got.code, -10807 & 0xff);
  EXPECT_EQ(got.err.find("* -10807: Connection down"), 0U);
  EXPECT_EQ(run({instance() / "exe/sapcontrol", "-nr", "00", "-function", "GetProcessList"}).code, 4);
}

TEST_F(HANA_Faults, Kill_The_Server_In_A_Backup) {
  install();
  fault("die_server_after_bytes = 100000");
  EXPECT_EQ(sql("BACKUP DATA FOR TN1 USING BACKINT ('x')").code, -10807 & 0xff);
  ASSERT_EQ(control({"no-faults"}).code, 0);
  start();
  EXPECT_EQ(states(), "failed\n");
  EXPECT_EQ(value_of("select count(*) from SYS_DATABASES.M_BACKUP_PROGRESS"), "0\n");
  for (const auto& entry : std::filesystem::directory_iterator(instance() / "standin/data"))
    EXPECT_EQ(entry.path().string().find(".savepoint."), std::string::npos) << entry.path();
  EXPECT_EQ(sql("BACKUP DATA FOR TN1 USING BACKINT ('y')").code, 0);
}

TEST_F(HANA_Faults, Kill_Hdbbackint_In_A_Backup) {
  install();
  fault("kill_hdbbackint_after_bytes = 100000 | count=1");
  const Output got = sql("BACKUP DATA FOR TN1 USING BACKINT ('x')");
  EXPECT_EQ(got.code, 447 & 0xff);
  EXPECT_NE(
      got.err.find("[110507] Backint exited with exit code 137 instead of 0. console output: No additional Information "
                   "was received"),
      std::string::npos)
      << got.err;
  EXPECT_EQ(states(), "failed\n");
  EXPECT_EQ(sql("BACKUP DATA FOR TN1 USING BACKINT ('y')").code, 0);
}

TEST_F(HANA_Faults, Hide_Progress_And_Entries_For_A_While) {
  install();
  fault(slow);
  fault("progress_hidden_ms = 100000");
  fault("progress_zero_ms = 100000");
  Output backup;
  std::thread worker([&] { backup = sql("BACKUP DATA FOR TN1 USING BACKINT ('x')"); });
  const std::string id = running_backup();
  const std::string rows = "select count(*), sum(BACKUP_SIZE) from SYS_DATABASES.M_BACKUP_PROGRESS";
  EXPECT_EQ(value_of(rows), "0,?\n");
  only_faults({slow, "progress_zero_ms = 100000 | count=1"});
  EXPECT_EQ(value_of(rows), "2,0\n");
  // The sizes are known when the services have opened their streams.
  for (int i = 0; i < most_looks && value_of(rows) == "2,0\n"; ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  EXPECT_NE(value_of(rows), "2,0\n");
  no_faults();
  worker.join();
  EXPECT_EQ(backup.code, 0) << backup.err;
  fault("catalog_late_ms = 100000");
  EXPECT_EQ(sql("BACKUP DATA FOR TN1 USING BACKINT ('y')").code, 0);
  EXPECT_EQ(states(), "successful\n");
}

TEST_F(HANA_Faults, Write_Ends_Late_And_Let_The_Catalog_Backup_Share_An_Id) {
  install();
  fault("catalog_end_late_ms = 600000");
  fault("catalog_same_id = yes");
  ASSERT_EQ(sql("BACKUP DATA FOR TN1 USING BACKINT ('x') ASYNCHRONOUS").code, 0);
  const std::string open =
      "select count(*) from SYS_DATABASES.M_BACKUP_PROGRESS p join SYS_DATABASES.M_BACKUP_CATALOG c on "
      "c.BACKUP_ID = p.BACKUP_ID where c.STATE_NAME='running' and p.BACKUP_SIZE > 0 and p.BACKUP_SIZE = "
      "p.TRANSFERRED_SIZE";
  for (int i = 0; i < most_looks && value_of(open) == "0\n"; ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  EXPECT_NE(value_of(open), "0\n");
  EXPECT_EQ(states(), "running\n");
  only_faults({"catalog_same_id = yes"});
  const std::string ended =
      "select count(*) from SYS_DATABASES.M_BACKUP_CATALOG where ENTRY_TYPE_NAME='log backup' and "
      "STATE_NAME='successful'";
  for (int i = 0; i < most_looks && value_of(ended) == "0\n"; ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  EXPECT_EQ(
      value_of(
          "select count(*) from SYS_DATABASES.M_BACKUP_CATALOG where ENTRY_TYPE_NAME='log backup' and BACKUP_ID in "
          "(select BACKUP_ID from SYS_DATABASES.M_BACKUP_CATALOG where ENTRY_TYPE_NAME='complete data backup' and "
          "STATE_NAME='successful')"),
      "1\n");
}

TEST_F(HANA_Faults, Let_Go_Of_The_Pipes_Without_A_Signal) {
  install();
  fault(slow);
  fault("cancel_signal = none");
  fault("cancel_pending_ms = 1");
  Output backup;
  std::thread worker([&] { backup = sql("BACKUP DATA FOR TN1 USING BACKINT ('x')"); });
  const std::string id = running_backup();
  for (int i = 0; i < most_looks && !std::filesystem::exists(root_ / "pool"); ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  EXPECT_EQ(sql("BACKUP CANCEL FOR TN1 " + id).code, 0);
  worker.join();
  EXPECT_NE(backup.err.find("Backup was canceled by user"), std::string::npos) << backup.err;
  std::string log;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(instance()))
    if (entry.path().filename() == "backint.log") log += text_of(entry.path());
  EXPECT_EQ(count_of(log, "backint terminated:"), 2) << log;
  EXPECT_EQ(count_of(log, "exit code: 0"), 2) << log;
}

TEST_F(HANA_Faults, Answer_To_States_That_Are_There_Already) {
  install();
  fault("already_there = ok | count=1");
  fault("already_there = error | count=1 | skip=0");
  EXPECT_EQ(sql("ALTER SYSTEM START DATABASE TN1").code, 0);
  EXPECT_NE(sql("ALTER SYSTEM START DATABASE TN1").err.find("cannot be changed"), std::string::npos);
  EXPECT_NE(sql("ALTER SYSTEM START DATABASE TN1").err.find("is already running"), std::string::npos);
  fault("database_change_fails = yes | count=1");
  EXPECT_EQ(sql("ALTER SYSTEM STOP DATABASE TN1").code, 2);
  EXPECT_EQ(value_of("select ACTIVE_STATUS from SYS.M_DATABASES where DATABASE_NAME='TN1'"), "YES\n");
}

}  // namespace
