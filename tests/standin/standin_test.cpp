#include <thread>

#include "standin/installed_hana.h"

namespace {

namespace fs = std::filesystem;
using namespace standin_test;
using Stand_In = Installed_HANA;

TEST_F(Stand_In, Prints_Header_Quotes_And_Null) {
  install();
  const Output got =
      sql("select DATABASE_NAME, ACTIVE_STATUS, FALLBACK_SNAPSHOT_CREATE_TIME as T from SYS.M_DATABASES");
  EXPECT_EQ(got.code, 0) << got.err;
  EXPECT_EQ(got.out, "DATABASE_NAME,ACTIVE_STATUS,T\n\"SYSTEMDB\",\"YES\",?\n\"TN1\",\"YES\",?\n");
}

TEST_F(Stand_In, Refuses_Wrong_Password_And_The_Statement_After_It) {
  install();
  const Output got = sql("\\s", "SYSTEMDB", "wrong");
  EXPECT_EQ(got.code, 10);
  EXPECT_EQ(got.err, "* 10: authentication failed SQLSTATE: 28000\n* -10821: Session not connected\n");
  EXPECT_EQ(got.out, "");
}

TEST_F(Stand_In, Ends_With_The_Low_Byte_Of_The_Error) {
  install();
  EXPECT_EQ(sql("selct 1").code, 1);
  EXPECT_EQ(sql("select * from SYS.M_NOTHING").code, 259 & 0xff);
  EXPECT_EQ(sql("BACKUP DATA INCREMENTAL USING BACKINT ('x')").code, 447 & 0xff);
}

TEST_F(Stand_In, Tells_Its_State_By_Exit_Code) {
  install();
  const std::vector<std::string> list{instance() / "exe/sapcontrol", "-nr", "00", "-function", "GetProcessList"};
  EXPECT_EQ(run(list).code, 3);
  fault("stop_ms = 600000");
  EXPECT_EQ(run({instance() / "exe/sapcontrol", "-nr", "00", "-function", "Stop"}).code, 0);
  const Output stopping = run(list);
  EXPECT_EQ(stopping.code, 0);
  EXPECT_NE(stopping.out.find("YELLOW, Stopping"), std::string::npos);
  no_faults();
  EXPECT_EQ(run({instance() / "exe/sapcontrol", "-nr", "00", "-function", "WaitforStopped", "20", "1"}).code, 0);
  EXPECT_EQ(run(list).code, 4);
  EXPECT_EQ(sql("\\s").code, -10709 & 0xff);
}

TEST_F(Stand_In, Backs_Up_A_Chain_Over_Pipes_With_Checksums) {
  install();
  ASSERT_EQ(sql("UPSERT KV VALUES ('k','one')", "TN1").code, 0);
  ASSERT_EQ(sql("BACKUP DATA  FOR TN1 USING BACKINT('f') TOOLOPTION 'job_uuid=f;'").code, 0);
  ASSERT_EQ(sql("UPSERT KV VALUES ('k','two')", "TN1").code, 0);
  const Output delta = sql("BACKUP DATA INCREMENTAL FOR TN1 USING BACKINT('i') TOOLOPTION 'job_uuid=i;'");
  ASSERT_EQ(delta.code, 0) << delta.err;
  const std::string calls = text_of(root_ / "backint.calls");
  EXPECT_NE(calls.find("-u TN1@HDB"), std::string::npos);
  EXPECT_NE(calls.find("-c 3 -l COMPLETE"), std::string::npos);
  EXPECT_NE(calls.find("-c 3 -l INCREMENTAL"), std::string::npos);
  EXPECT_NE(calls.find("#TOOLOPTION \"job_uuid=f;\"\n"), std::string::npos);
  EXPECT_NE(calls.find("/usr/sap/HDB/SYS/global/hdb/backint/DB_TN1/f_databackup_0_1"), std::string::npos);
  const Output types =
      sql("select ENTRY_TYPE_NAME, STATE_NAME from SYS_DATABASES.M_BACKUP_CATALOG where DATABASE_NAME='TN1' "
          "and ENTRY_TYPE_NAME <> 'log backup' order by BACKUP_ID");
  EXPECT_EQ(types.out,
            "ENTRY_TYPE_NAME,STATE_NAME\n\"complete data backup\",\"successful\"\n\"incremental data backup\","
            "\"successful\"\n");
  const Output sizes =
      sql("select count(*) as N from SYS_DATABASES.M_BACKUP_PROGRESS where BACKUP_SIZE = TRANSFERRED_SIZE "
          "and BACKUP_SIZE > 0 and DATABASE_NAME='TN1'");
  EXPECT_EQ(sizes.out, "N\n2\n");
}

TEST_F(Stand_In, Fails_A_Backup_When_Backint_Does) {
  install();
  script("exit 1");
  const Output got = sql("BACKUP DATA FOR TN1 USING BACKINT ('x')");
  EXPECT_EQ(got.code, 447 & 0xff);
  EXPECT_NE(got.err.find("[110507] Backint exited with exit code 1 instead of 0. console output: the pool is full"),
            std::string::npos)
      << got.err;
  script("wrong-size");
  EXPECT_NE(sql("BACKUP DATA FOR TN1 USING BACKINT ('x')").err.find("[110203]"), std::string::npos);
  fs::remove(backint_link());
  EXPECT_NE(sql("BACKUP DATA FOR TN1 USING BACKINT ('x')").err.find("No such file or directory (2)"),
            std::string::npos);
}

TEST_F(Stand_In, Cancels_A_Running_Backup_While_Others_Ask) {
  install();
  fault("stream_bytes_per_second = 65536");
  Output backup;
  std::thread worker([&] { backup = sql("BACKUP DATA FOR TN1 USING BACKINT ('x')"); });
  const std::string id = running_backup();
  const Output canceled = sql("BACKUP CANCEL FOR TN1 " + id);
  worker.join();
  EXPECT_EQ(canceled.code, 0) << canceled.err;
  EXPECT_NE(backup.err.find("* 447: backup could not be completed: Backup was canceled by user"), std::string::npos);
  EXPECT_EQ(sql("select STATE_NAME from SYS_DATABASES.M_BACKUP_CATALOG").out, "STATE_NAME\n\"canceled\"\n");
}

TEST_F(Stand_In, Stops_And_Starts_A_Tenant) {
  install();
  const std::string ask = "select ACTIVE_STATUS from SYS.M_DATABASES where DATABASE_NAME='TN1'";
  EXPECT_EQ(sql("ALTER SYSTEM STOP DATABASE TN1").code, 0);
  EXPECT_EQ(sql(ask).out, "ACTIVE_STATUS\n\"NO\"\n");
  EXPECT_NE(text_of(root_ / "usr/sap/HDB/SYS/global/hdb/mdc/databases.lst").find("TN1::::::"), std::string::npos);
  EXPECT_NE(sql("\\s", "TN1").code, 0);
  EXPECT_EQ(sql("ALTER SYSTEM START DATABASE TN1").code, 0);
  EXPECT_NE(sql("ALTER SYSTEM START DATABASE TN1").err.find("already running"), std::string::npos);
}

TEST_F(Stand_In, Has_No_Tenant_Views_In_A_Single_Container) {
  install({"--single-container", "--version", "1.00.62.380697"});
  const auto ask = [&](const std::string& text) {
    return run({instance() / "exe/hdbsql", "-xaj", "-i00", "-u", "system", "-pmanager", text});
  };
  EXPECT_EQ(ask("select * from SYS_DATABASES.M_BACKUP_CATALOG").code, 362 & 0xff);
  EXPECT_EQ(ask("select * from SYS.M_BACKUP_PROGRESS").code, 259 & 0xff);
  EXPECT_EQ(ask("select VERSION from SYS.M_DATABASE").out, "\"1.00.62.380697\"\n");
  EXPECT_EQ(ask("BACKUP DATA INCREMENTAL USING BACKINT ('x')").code, 1);
  EXPECT_EQ(ask("BACKUP DATA USING BACKINT ('x')").code, 0);
}

TEST_F(Stand_In, Writes_Configuration_And_Obeys_Faults) {
  install();
  EXPECT_EQ(sql("ALTER SYSTEM ALTER CONFIGURATION ('global.ini','SYSTEM') SET "
                "('backup','catalog_backup_using_backint') = 'true' "
                "WITH RECONFIGURE")
                .code,
            0);
  EXPECT_EQ(sql("BACKUP DATA USING BACKINT ('x')").code, 0);
  EXPECT_NE(text_of(root_ / "backint.calls").find("/backint/SYSTEMDB/log_backup_0_0_0_0"), std::string::npos);
  fault("fail_statement = 7: feature not supported | match=DUMMY | count=1");
  EXPECT_EQ(sql("select * from DUMMY").code, 7);
  EXPECT_EQ(sql("select * from DUMMY").out, "DUMMY\n\"X\"\n");
  fault("die_hdbsql = 9 | match=DUMMY");
  EXPECT_EQ(sql("select * from DUMMY").code, 128 + 9);
}

}  // namespace
