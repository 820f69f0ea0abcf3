#include <thread>

#include "standin/recovered_hana.h"

namespace {

namespace fs = std::filesystem;
using namespace standin_test;

class Recovery : public Recovered_HANA {
 protected:
  static std::string by_prefix(const std::string& prefix) {
    return "DATA FOR TN1 USING BACKINT ('" + prefix + "') CLEAR LOG;";
  }
  void expect_error(const Output& got, const std::string& text) {
    EXPECT_NE(got.err.find("* " + text), std::string::npos) << got.err;
    const std::string code = text.substr(0, text.find(':'));
    EXPECT_EQ(got.code, std::stoi(code) & 0xff);
    EXPECT_EQ(status_of(), "NO");
    EXPECT_NE(backup_log().find("ERROR   RECOVERY RECOVER DATA finished with error: [" + code + "] "),
              std::string::npos)
        << backup_log();
  }
  static std::string by_id(const std::string& id) {
    return "DATA FOR TN1 USING BACKUP_ID " + id + " USING CATALOG BACKINT CLEAR LOG;";
  }
  /// The content of a data backup: what it writes into its pipes, without the header pages, which tell of the backup.
  std::string content_of(const std::string& id) {
    std::string all;
    const std::string ids = value_of(
        "select EXTERNAL_BACKUP_ID from SYS_DATABASES.M_BACKUP_CATALOG_FILES where DATABASE_NAME='TN1' and BACKUP_ID=" +
        id + " order by DESTINATION_PATH");
    for (std::size_t at = 0, end = 0; (end = ids.find('\n', at)) != std::string::npos; at = end + 1) {
      const std::string stream = text_of(root_ / "pool" / ids.substr(at, end - at));
      EXPECT_GE(stream.size(), 4096U);
      all += stream.substr(4096);
    }
    return all;
  }
};

TEST_F(Recovery, Puts_Rows_Tables_And_Ballast_Back_As_The_Full_Backup_Has_Them) {
  install({"--tenant", "TN1", "--services", "indexserver,xsengine", "--data-mb", "8"});
  ASSERT_EQ(
      sql("ALTER SYSTEM ALTER CONFIGURATION ('global.ini','SYSTEM') SET "
          "('backup','catalog_backup_using_backint')='true', ('backup','parallel_data_backup_backint_channels')='3'")
          .code,
      0);
  put("a", "1");
  ASSERT_EQ(sql("CREATE TABLE GOODS (NAME NVARCHAR(20), AMOUNT INTEGER)", "TN1").code, 0);
  ASSERT_EQ(sql("INSERT INTO GOODS VALUES ('apple', 3)", "TN1").code, 0);
  for (const char* service : {"indexserver", "xsengine"})
    ASSERT_EQ(control({"change", "--database", "TN1", "--service", service, "--mb", "1"}).code, 0);
  const std::string full = backed_up("", "f");
  const std::string saved = content_of(full);
  put("a", "2");
  put("b", "2");
  ASSERT_EQ(sql("DROP TABLE GOODS", "TN1").code, 0);
  ASSERT_EQ(control({"change", "--database", "TN1", "--mb", "2"}).code, 0);
  new_calls();
  const Output got = recover(by_id(full));
  ASSERT_EQ(got.code, 0) << got.err;
  EXPECT_EQ(status_of(), "YES");
  EXPECT_EQ(rows(), "a,1\n");
  EXPECT_EQ(sql("select NAME, AMOUNT from GOODS", "TN1").out, "NAME,AMOUNT\n\"apple\",3\n");
  const std::string calls = new_calls();
  EXPECT_LT(calls.find("#NULL \"/usr/sap/HDB/SYS/global/hdb/backint/DB_TN1/log_backup_0_0_0_0\"\n"),
            calls.find("/f_databackup_0_1\"\n"));
  EXPECT_LT(calls.find("/f_databackup_0_1\"\n"), calls.find("/f_databackup_3_1\"\n"));
  EXPECT_EQ(count_of(calls, "#NULL "), 1) << calls;
  EXPECT_EQ(count_of(calls, "#EBID "), 7) << calls;  // volume 0, and three parts of two services
  EXPECT_EQ(count_of(calls, "-f restore "), 4) << calls;
  EXPECT_EQ(count_of(calls, "-u TN1@HDB\n"), 4) << calls;
  EXPECT_EQ(calls.find(" -s "), std::string::npos) << calls;
  EXPECT_TRUE(content_of(backed_up("", "again")) == saved);
}

TEST_F(Recovery, Puts_Deltas_Of_Several_Streams_On_The_Full_Backup) {
  install_with_catalogs({"--tenant", "TN1", "--services", "indexserver,xsengine", "--data-mb", "12"});
  const auto streams = [&](const char* count) {
    ASSERT_EQ(sql(std::string("ALTER SYSTEM ALTER CONFIGURATION ('global.ini','SYSTEM') SET "
                              "('backup','parallel_data_backup_backint_channels')='") +
                  count + "'")
                  .code,
              0);
  };
  const auto change = [&](const char* service, const char* megabytes) {
    ASSERT_EQ(control({"change", "--database", "TN1", "--service", service, "--mb", megabytes}).code, 0);
  };
  streams("4");
  put("a", "1");
  const std::string full = backed_up("", "f");
  change("indexserver", "2");
  backed_up("INCREMENTAL", "i1");
  streams("2");
  change("indexserver", "1");
  change("xsengine", "2");
  put("a", "2");
  backed_up("DIFFERENTIAL", "d");
  change("indexserver", "1");
  backed_up("INCREMENTAL", "i2");
  next_second();
  const std::string time = now();
  streams("1");
  const std::string wanted = content_of(backed_up("", "same"));
  change("indexserver", "2");
  const Output got = recover("DATABASE FOR TN1 UNTIL TIMESTAMP '" + time +
                             "' CLEAR LOG  USING CATALOG BACKINT USING BACKUP_ID " + full + " CHECK ACCESS ALL");
  ASSERT_EQ(got.code, 0) << got.err;
  EXPECT_EQ(rows(), "a,2\n");
  EXPECT_TRUE(content_of(backed_up("", "again")) == wanted);
  // The next change is none that was there before.
  change("indexserver", "2");
  EXPECT_FALSE(content_of(backed_up("", "changed")) == wanted);
}

TEST_F(Recovery, Tells_Of_Itself_In_Backup_Log) {
  install_with_catalogs();
  const std::string full = backed_up();
  ASSERT_EQ(recover(by_id(full)).code, 0);
  const std::string log = backup_log();
  EXPECT_EQ(count_of(log, "INFO    RECOVERY RECOVER DATA started\n"), 1) << log;
  EXPECT_EQ(count_of(log, "INFO    RECOVERY command: RECOVER " + by_id(full) + "\n"), 1) << log;
  EXPECT_TRUE(log.ends_with("INFO    RECOVERY RECOVER DATA finished successfully\n")) << log;
  EXPECT_NE(log.find("volume: 3, RecoveryPrepared"), std::string::npos) << log;
}

TEST_F(Recovery, Ends_With_A_Started_Tenant_Whose_Start_Is_Refused) {
  install_with_catalogs();
  const std::string full = backed_up();
  ASSERT_EQ(recover(by_id(full)).code, 0);
  EXPECT_NE(sql("ALTER SYSTEM START DATABASE TN1").err.find("database TN1 is already running"), std::string::npos);
  fault("recovery_starts_tenant = no");
  ASSERT_EQ(recover(by_id(full)).code, 0);
  EXPECT_EQ(status_of(), "NO");
  EXPECT_EQ(sql("ALTER SYSTEM START DATABASE TN1").code, 0);
}

TEST_F(Recovery, Is_Refused_Before_Anything_Is_Changed_When_The_Catalog_Lacks_The_Backup) {
  install_with_catalogs();
  const std::string full = backed_up();
  put("a", "1");
  const std::string delta = backed_up("INCREMENTAL");
  put("a", "2");
  new_calls();
  expect_error(recover(by_id("4711")),
               "449: recovery strategy could not be determined: [110090] backup 4711 is not in");
  expect_error(recover(by_id(delta)), "449: recovery strategy could not be determined: [110090] backup " + delta +
                                          " is no complete data backup");
  script("exit 1");
  backup("", "bad");
  script("");
  const std::string failed = value_of("select max(BACKUP_ID) from SYS_DATABASES.M_BACKUP_CATALOG");
  script("notfound log_backup_0_0_0_0");
  expect_error(recover(by_id(full)), "449: recovery strategy could not be determined: [110089] there is no backup cat");
  EXPECT_EQ(new_calls().find("#EBID"), std::string::npos);
  script("notfound _databackup_0_1");
  expect_error(recover(by_id(full)), "449: recovery strategy could not be determined: [110090] there is no complete");
  script("corrupt log_backup_0_0_0_0");
  expect_error(recover(by_id(full)), "449: recovery strategy could not be determined: [110089] the backup catalog");
  script("");
  ASSERT_EQ(sql("ALTER SYSTEM START DATABASE TN1").code, 0);
  EXPECT_EQ(rows(), "a,2\n");
  ASSERT_EQ(recover(by_id(full)).code, 0);
  EXPECT_EQ(rows(), "");
}

TEST_F(Recovery, Leaves_The_Database_Down_When_It_Ends_In_The_Middle) {
  install_with_catalogs();
  put("a", "1");
  const std::string full = backed_up("", "f");
  const std::string wanted = "448: recovery could not be completed: ";
  struct Bad_Day {
    const char *script, *text;
  };
  constexpr Bad_Day days[] = {
      {"error f_databackup_3_1",
       "[110506] Backint reported an error for '/usr/sap/HDB/SYS/global/hdb/backint/DB_TN1/f_"},
      {"notfound f_databackup_3_1",
       "[110096] /usr/sap/HDB/SYS/global/hdb/backint/DB_TN1/f_databackup_3_1 was not found"},
      {"corrupt f_databackup_3_1",
       "[110602] the data of '/usr/sap/HDB/SYS/global/hdb/backint/DB_TN1/f_databackup_3_1'"},
      {"short f_databackup_3_1", "[110204] Not all data could be read: Expected "},
  };
  for (const Bad_Day& day : days) {
    script(day.script);
    expect_error(recover(by_id(full)), wanted + day.text);
    script("");
    const Output start = sql("ALTER SYSTEM START DATABASE TN1");
    EXPECT_NE(start.err.find("its recovery has not been completed"), std::string::npos) << day.script << start.err;
  }
  ASSERT_EQ(recover(by_id(full)).code, 0);
  EXPECT_EQ(rows(), "a,1\n");
}

TEST_F(Recovery, Finds_A_Damaged_Page_Of_The_Tables_By_Its_Checksum) {
  install_with_catalogs({"--tenant", "TN1", "--data-mb", "0"});
  put("a", "1");
  const std::string full = backed_up("", "f");
  script("corrupt f_databackup_3_1");
  expect_error(recover(by_id(full)), "448: recovery could not be completed: [110603] the checksum of ");
}

TEST_F(Recovery, Fails_With_What_Hdbbackint_Printed) {
  install_with_catalogs();
  const std::string full = backed_up("", "f");
  script("restore-exit 3");
  // The catalog is the first thing that it is asked for.
  expect_error(recover(by_id(full)),
               "449: recovery strategy could not be determined: [110089] the backup catalog cannot be read, [110507] "
               "Backint exited with exit code 3 instead of 0. console output: the pool is gone");
  script("");
  fault("kill_hdbbackint_after_bytes = 100000");
  expect_error(recover(by_id(full)),
               "448: recovery could not be completed: [110507] Backint exited with exit code 137");
}

TEST_F(Recovery, Waits_For_A_Silent_Hdbbackint_As_Long_As_Configured) {
  install_with_catalogs();
  const std::string full = backed_up();
  ASSERT_EQ(
      sql("ALTER SYSTEM ALTER CONFIGURATION ('global.ini','SYSTEM') SET ('backup','backint_response_timeout')='1'")
          .code,
      0);
  script("wait 60000");
  expect_error(recover(by_id(full)),
               "449: recovery strategy could not be determined: [110089] the backup catalog cannot be read, [110507] "
               "Backint exited with exit code 137");
}

TEST_F(Recovery, Takes_A_Full_Backup_By_Its_Prefix) {
  install_with_catalogs();
  put("a", "1");
  backup("", "uuid-1");
  put("a", "2");
  backup("INCREMENTAL", "uuid-2");
  put("a", "3");
  expect_error(recover(by_prefix("uuid-2")),
               "449: recovery strategy could not be determined: [110090] there is no complete data backup "
               "/usr/sap/HDB/SYS/global/hdb/backint/DB_TN1/uuid-2_databackup_0_1");
  ASSERT_EQ(sql("ALTER SYSTEM START DATABASE TN1").code, 0);
  EXPECT_EQ(rows(), "a,3\n");
  new_calls();
  ASSERT_EQ(recover(by_prefix("uuid-1")).code, 0);
  EXPECT_EQ(rows(), "a,1\n");
  const std::string calls = new_calls();
  const std::string directory = "#NULL \"/usr/sap/HDB/SYS/global/hdb/backint/DB_TN1/";
  const std::size_t catalog = calls.find(directory + "log_backup_0_0_0_0\"\n");
  const std::size_t topology = calls.find(directory + "uuid-1_databackup_0_1\"\n");
  const std::size_t data = calls.find(directory + "uuid-1_databackup_3_1\"\n");
  EXPECT_LT(catalog, topology);
  EXPECT_LT(topology, data);
  EXPECT_NE(data, std::string::npos) << calls;
  EXPECT_EQ(calls.find("#EBID"), std::string::npos) << calls;
}

TEST_F(Recovery, By_Prefix_Needs_No_Catalog) {
  install_with_catalogs();
  put("a", "1");
  backup("", "uuid-1");
  script("notfound log_backup_0_0_0_0");
  ASSERT_EQ(recover(by_prefix("uuid-1")).code, 0);
  EXPECT_EQ(rows(), "a,1\n");
  EXPECT_EQ(states(), "");
}

TEST_F(Recovery, Ends_The_Sessions_That_The_Stop_Left_Open) {
  install_with_catalogs();
  put("a", "1");
  const std::string full = backed_up();
  fault("hang_statement = 0 | match=DUMMY");
  Output session;
  std::thread worker([&] {
    session = run({instance() / "exe/hdbsql", "-x", "-quiet", "-i", "00", "-d", "TN1", "-u", "SYSTEM", "-p", "manager"},
                  "UPSERT KV VALUES ('early','1')\nselect DUMMY from DUMMY\nUPSERT KV VALUES ('late','1')\n");
  });
  EXPECT_TRUE(becomes([&] { return rows() == "a,1\nearly,1\n"; }));
  ASSERT_EQ(recover(by_id(full)).code, 0);
  no_faults();
  worker.join();
  EXPECT_NE(session.err.find("* -10807: "), std::string::npos) << session.err;
  EXPECT_EQ(rows(), "a,1\n");
}

TEST_F(Recovery, Gives_Up_The_Backups_That_Still_Run) {
  install_with_catalogs();
  put("a", "1");
  const std::string full = backed_up();
  script("wait 60000");
  ASSERT_EQ(sql("BACKUP DATA FOR TN1 USING BACKINT ('slow') ASYNCHRONOUS").code, 0);
  ASSERT_TRUE(becomes([&] { return text_of(root_ / "backint.calls").find("/slow_databackup_") != std::string::npos; }));
  script("");
  ASSERT_EQ(recover(by_id(full)).code, 0);
  EXPECT_EQ(rows(), "a,1\n");
  EXPECT_EQ(states(), "successful\n");
}

TEST_F(Recovery, Of_One_Tenant_Runs_Once_At_A_Time) {
  install_with_catalogs();
  const std::string full = backed_up();
  stop();
  fault("recovery_slow_ms = 600000 | match=data");
  Output first;
  std::thread worker([&] { first = sql("RECOVER " + by_id(full)); });
  ASSERT_TRUE(becomes([&] { return backup_log().find("RECOVER DATA started") != std::string::npos; }));
  EXPECT_NE(sql("RECOVER " + by_id(full)).err.find("another recovery of TN1 is running"), std::string::npos);
  EXPECT_NE(sql("ALTER SYSTEM START DATABASE TN1").err.find("database TN1 is being recovered"), std::string::npos);
  no_faults();
  worker.join();
  EXPECT_EQ(first.code, 0) << first.err;
}

TEST_F(Recovery, Leaves_A_Database_That_Cannot_Be_Started_When_The_Server_Dies) {
  install_with_catalogs();
  put("a", "1");
  const std::string full = backed_up();
  fault("die_server_in_recovery = yes | match=end");
  EXPECT_NE(recover(by_id(full)).code, 0);
  no_faults();
  start();
  EXPECT_NE(sql("ALTER SYSTEM START DATABASE TN1").code, 0);
  ASSERT_EQ(recover(by_id(full)).code, 0);
  EXPECT_EQ(rows(), "a,1\n");
}

TEST_F(Recovery, Fails_At_Each_Stage_When_Told_So) {
  install_with_logs({"--tenant", "TN1"});
  for (const char* stage : {"catalog", "strategy", "check", "topology", "data", "delta", "redo", "end"}) {
    put("a", "1");
    const std::string full = backed_up();
    backed_up("INCREMENTAL");
    next_second();
    fault(std::string("recovery_fails = [1] told so | match=") + stage);
    const bool changed = std::string("data delta redo end").find(stage) != std::string::npos;
    const Output got = recover("DATABASE FOR TN1 UNTIL TIMESTAMP '" + now() +
                               "' CLEAR LOG  USING CATALOG BACKINT USING BACKUP_ID " + full + " CHECK ACCESS ALL");
    expect_error(got,
                 (changed ? "448: recovery could not be completed" : "449: recovery strategy could not be determined") +
                     std::string(": [1] told so"));
    no_faults();
    EXPECT_EQ(sql("ALTER SYSTEM START DATABASE TN1").code == 0, !changed) << stage;
    if (changed) {
      ASSERT_EQ(recover(by_id(full)).code, 0) << stage;
    }
  }
}

}  // namespace
