#include <chrono>
#include <cstdlib>
#include <sstream>
#include <thread>

#include "standin/installed_hana.h"

namespace {

namespace fs = std::filesystem;
using namespace standin_test;

constexpr int timeout_s = 900;
constexpr int most_looks = 3000;

class Log_Backup : public Installed_HANA {
 protected:
  Output configure(const std::string& pairs, const std::string& layer = "'SYSTEM'") {
    return sql("ALTER SYSTEM ALTER CONFIGURATION ('global.ini'," + layer + ") SET " + pairs + " WITH RECONFIGURE",
               home_);
  }
  void switch_on() {
    const Output got = configure(
        "('persistence','log_mode')='normal', ('persistence','enable_auto_log_backup')='yes', "
        "('backup','log_backup_using_backint')='true', ('backup','catalog_backup_using_backint')='true'");
    ASSERT_EQ(got.code, 0) << got.err;
  }
  void full() { ASSERT_EQ(sql("BACKUP DATA FOR TN1 USING BACKINT ('full')").code, 0); }
  void put(const std::string& key) { ASSERT_EQ(sql("UPSERT KV VALUES ('" + key + "','v')", "TN1").code, 0); }
  void later(int seconds) {
    offset_ += seconds;
    ASSERT_EQ(control({"time-offset", std::to_string(offset_)}).code, 0);
  }
  /// "service,first,last,segments,destination" of the log backups with that state, oldest first.
  std::string logs(const std::string& state = "successful", const std::string& service = "%") {
    return value_of(
        "select f.SERVICE_TYPE_NAME, f.FIRST_REDO_LOG_POSITION, f.LAST_REDO_LOG_POSITION, f.LOG_SEGMENT_COUNT, "
        "f.DESTINATION_TYPE_NAME from SYS_DATABASES.M_BACKUP_CATALOG_FILES f join SYS_DATABASES.M_BACKUP_CATALOG c on "
        "c.ENTRY_ID = f.ENTRY_ID where f.SOURCE_TYPE_NAME='volume' and c.ENTRY_TYPE_NAME='log backup' and "
        "c.STATE_NAME='" +
        state + "' and f.SERVICE_TYPE_NAME like '" + service + "' order by f.BACKUP_ID, f.SERVICE_TYPE_NAME");
  }
  std::string wait_for_logs(int wanted, const std::string& state = "successful", const std::string& service = "%") {
    std::string found;
    for (int i = 0; i < most_looks; ++i) {
      found = logs(state, service);
      if (count_of(found, "\n") >= wanted) return found;
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    ADD_FAILURE() << "no " << wanted << " log backups: " << found;
    return found;
  }
  /// A log backup of TN1 that hdbbackint is busy with.
  void run_slowly() {
    switch_on();
    full();
    script("hold");
    later(timeout_s);
    wait_for_logs(1, "running");
  }
  /// The log writer has begun to look after this was called, and has seen everything; twice.
  void let_it_look() {
    constexpr long looks_wanted = 3;  // the first may have begun before
    const long before = looks();
    for (int i = 0; i < most_looks && looks() < before + looks_wanted; ++i)
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_GE(looks(), before + looks_wanted) << "the log writer does not look";
  }
  long looks() {
    const Output got = control({"log-writer", "looks"});
    EXPECT_EQ(got.code, 0) << got.err;
    return std::atol(got.out.c_str());
  }
  static void expect_chain(const std::string& logs, const std::string& service) {
    std::istringstream lines(logs);
    std::string end;
    int count = 0;
    for (std::string line; std::getline(lines, line);) {
      std::istringstream words(line);
      std::string name, first, last;
      std::getline(words, name, ',');
      std::getline(words, first, ',');
      std::getline(words, last, ',');
      if (name != service) continue;
      if (count++ > 0) {
        EXPECT_EQ(first, end) << logs;
      }
      end = last;
    }
    EXPECT_GT(count, 0) << service;
  }
  int offset_ = 0;
  std::string home_ = "SYSTEMDB";  ///< where the system is configured
};

TEST_F(Log_Backup, Is_Not_Written_By_An_Installation_As_It_Is_Delivered) {
  install();
  full();
  put("a");
  later(2 * timeout_s);
  let_it_look();
  EXPECT_EQ(logs(), "");
  EXPECT_FALSE(fs::exists(instance() / "backup/log/DB_TN1/log_backup_3_0_0_1"));
}

TEST_F(Log_Backup, Saves_Each_Services_Log_After_A_While_With_Ids_Of_Their_Own) {
  install();
  switch_on();
  full();
  put("first-key");
  let_it_look();
  EXPECT_EQ(logs(), "");
  later(timeout_s);
  const std::string once = wait_for_logs(2);
  EXPECT_NE(once.find("indexserver,0,1,1,backint\n"), std::string::npos) << once;
  EXPECT_NE(once.find("xsengine,0,1,1,backint\n"), std::string::npos) << once;
  later(timeout_s);
  const std::string twice = wait_for_logs(4);
  expect_chain(twice, "indexserver");
  expect_chain(twice, "xsengine");
  const std::string entries = "select count(*) from SYS_DATABASES.M_BACKUP_CATALOG where ENTRY_TYPE_NAME='log backup'";
  const std::string wanted = "9\n";  // four logs with their catalogs, and the full backup's catalog
  for (int i = 0; i < most_looks && value_of(entries + " and STATE_NAME='successful'") != wanted; ++i) let_it_look();
  EXPECT_EQ(value_of(entries), wanted);
  EXPECT_EQ(value_of("select count(distinct BACKUP_ID) from SYS_DATABASES.M_BACKUP_CATALOG"), "10\n");
  const std::string calls = text_of(root_ / "backint.calls");
  EXPECT_EQ(count_of(calls, "-c 1 -l LOG"), 9) << calls;
  EXPECT_EQ(count_of(calls, "/DB_TN1/log_backup_0_0_0_0\""), 5) << calls;
  EXPECT_NE(calls.find("#PIPE \"/usr/sap/HDB/SYS/global/hdb/backint/DB_TN1/log_backup_3_0_0_1\""), std::string::npos);
  EXPECT_NE(calls.find("#PIPE \"/usr/sap/HDB/SYS/global/hdb/backint/DB_TN1/log_backup_2_0_0_1\""), std::string::npos);
}

TEST_F(Log_Backup, Holds_What_Was_Committed) {
  install({"--tenant", "TN1"});
  switch_on();
  put("before-the-full-one");
  full();
  put("after-the-full-one");
  later(timeout_s);
  EXPECT_EQ(wait_for_logs(1), "indexserver,1,2,1,backint\n");
  const std::string id =
      value_of("select EXTERNAL_BACKUP_ID from SYS_DATABASES.M_BACKUP_CATALOG_FILES where FIRST_REDO_LOG_POSITION = 1");
  const std::string stream = text_of(root_ / "pool" / id.substr(0, id.find('\n')));
  EXPECT_EQ(stream.size() % 4096, 0U);
  EXPECT_NE(stream.find("kind=LOG\nfirst=1\nlast=2\n"), std::string::npos);
  EXPECT_NE(stream.find("after-the-full-one"), std::string::npos);
  EXPECT_EQ(stream.find("before-the-full-one"), std::string::npos);
}

TEST_F(Log_Backup, Comes_At_Once_When_A_Segment_Is_Full) {
  install();
  fault("log_segment_bytes = 300");
  switch_on();
  full();
  for (const char* key : {"a", "b", "c", "d"}) put(key);
  const std::string found = wait_for_logs(1);
  EXPECT_EQ(found.substr(0, found.find(',')), "indexserver");
  EXPECT_EQ(logs("successful", "xsengine"), "");
}

TEST_F(Log_Backup, Waits_For_The_First_Full_Backup_Unless_Told_Otherwise) {
  install({"--tenant", "TN1"});
  switch_on();
  let_it_look();
  put("a");
  later(timeout_s);
  let_it_look();
  EXPECT_EQ(logs(), "");
  fault("log_without_full = yes | database=TN1");
  let_it_look();
  put("b");
  later(timeout_s);
  EXPECT_EQ(wait_for_logs(1), "indexserver,1,2,1,backint\n");
}

TEST_F(Log_Backup, Ends_In_Mode_Overwrite_And_Needs_A_Full_Backup_After_It) {
  install({"--tenant", "TN1"});
  switch_on();
  full();
  ASSERT_EQ(configure("('persistence','log_mode')='overwrite'").code, 0);
  put("a");
  later(timeout_s);
  let_it_look();
  EXPECT_EQ(logs(), "");
  ASSERT_EQ(configure("('persistence','log_mode')='normal'").code, 0);
  let_it_look();
  later(timeout_s);
  let_it_look();
  EXPECT_EQ(logs(), "");
  ASSERT_EQ(sql("BACKUP DATA FOR TN1 USING BACKINT ('again')").code, 0);
  let_it_look();
  later(timeout_s);
  EXPECT_EQ(wait_for_logs(1), "indexserver,1,2,1,backint\n");
}

TEST_F(Log_Backup, Follows_The_Settings_Of_The_Database_And_Shows_Them) {
  install({"--tenant", "TN1", "--tenant", "TN2"});
  switch_on();
  ASSERT_EQ(configure("('persistence','log_backup_timeout_s')='60'", "'DATABASE','TN1'").code, 0);
  EXPECT_NE(configure("('persistence','log_backup_timeout_s')='soon'").err.find("unsupported value 'soon'"),
            std::string::npos);
  full();
  ASSERT_EQ(sql("BACKUP DATA FOR TN2 USING BACKINT ('full')").code, 0);
  let_it_look();
  later(60);
  wait_for_logs(1);
  let_it_look();
  EXPECT_EQ(value_of("select distinct DATABASE_NAME from SYS_DATABASES.M_BACKUP_CATALOG_FILES where "
                     "FIRST_REDO_LOG_POSITION is not null"),
            "TN1\n");
  const std::string config = text_of(root_ / "usr/sap/HDB/SYS/global/hdb/custom/config/global.ini");
  EXPECT_NE(config.find("log_backup_using_backint = true\n"), std::string::npos) << config;
  EXPECT_EQ(value_of("select LAYER_NAME, VALUE from SYS_DATABASES.M_INIFILE_CONTENTS where DATABASE_NAME='TN1' and "
                     "KEY='log_backup_timeout_s'"),
            "DATABASE,60\n");
  ASSERT_EQ(configure("('persistence','enable_auto_log_backup')='no'").code, 0);
  let_it_look();
  const std::string before = logs();
  put("a");
  later(timeout_s);
  let_it_look();
  EXPECT_EQ(logs(), before);
  ASSERT_EQ(configure("('persistence','enable_auto_log_backup')='yes'").code, 0);
  wait_for_logs(count_of(before, "\n") + 2);
  for (const char* tenant : {"TN1", "TN2"})
    EXPECT_NE(text_of(root_ / "backint.calls").find("-u " + std::string(tenant) + "@HDB"), std::string::npos);
}

TEST_F(Log_Backup, Goes_Into_Files_Without_Backint_When_The_Writer_Is_On) {
  install({"--tenant", "TN1"});
  ASSERT_EQ(control({"log-writer", "on"}).code, 0);
  EXPECT_NE(control({"log-writer", "perhaps"}).code, 0);
  full();
  let_it_look();
  later(timeout_s);
  EXPECT_EQ(wait_for_logs(1), "indexserver,0,1,1,file\n");
  const std::string path = value_of(
      "select DESTINATION_PATH from SYS_DATABASES.M_BACKUP_CATALOG_FILES where FIRST_REDO_LOG_POSITION is not null");
  EXPECT_EQ(path.find("/usr/sap/HDB/HDB00/backup/log/DB_TN1/log_backup_3_0_0_1."), 0U) << path;
  EXPECT_GE(fs::file_size(root_.string() + path.substr(0, path.find('\n'))), 4096U);
  ASSERT_EQ(control({"log-writer", "off"}).code, 0);
  switch_on();
  later(timeout_s);
  let_it_look();
  EXPECT_EQ(count_of(logs(), "\n"), 1);
}

TEST_F(Log_Backup, Falls_Back_To_Files_When_Backint_Fails) {
  install({"--tenant", "TN1"});
  switch_on();
  full();
  let_it_look();
  script("exit 1");
  later(timeout_s);
  EXPECT_EQ(wait_for_logs(1), "indexserver,0,1,1,file\n");
  EXPECT_EQ(logs("failed"), "indexserver,0,1,1,backint\n");
  script("");
  later(timeout_s);
  const std::string found = wait_for_logs(2);
  EXPECT_NE(found.find("indexserver,1,2,1,backint\n"), std::string::npos) << found;
  expect_chain(found, "indexserver");
}

TEST_F(Log_Backup, Is_Tried_Again_Through_Backint_When_Told_So) {
  install({"--tenant", "TN1"});
  fault("log_fallback = retry");
  fault("log_retry_ms = 200");
  switch_on();
  full();
  let_it_look();
  script("exit 1");
  later(timeout_s);
  wait_for_logs(2, "failed");
  EXPECT_EQ(logs(), "");
  script("");
  const std::string found = wait_for_logs(1);
  EXPECT_EQ(found, "indexserver,0,1,1,backint\n");
}

TEST_F(Log_Backup, Keeps_Statements_Waiting_While_The_Log_Area_Is_Full) {
  install({"--tenant", "TN1"});
  switch_on();
  ASSERT_EQ(configure("('persistence','enable_auto_log_backup')='no'").code, 0);
  full();
  let_it_look();
  fault("log_area_bytes = 150");
  put("a");
  put("b");
  Output hung;
  std::thread writer([&] { hung = sql("UPSERT KV VALUES ('c','v')", "TN1"); });
  let_it_look();
  EXPECT_EQ(sql("select count(*) as N from KV", "TN1").out, "N\n2\n");
  fault("log_area_full = fail | count=1");
  writer.join();
  EXPECT_EQ(hung.code, 2);
  EXPECT_NE(hung.err.find("the log area is full"), std::string::npos) << hung.err;
  std::thread waiting([&] { hung = sql("UPSERT KV VALUES ('d','v')", "TN1"); });
  let_it_look();
  EXPECT_EQ(sql("select count(*) as N from KV", "TN1").out, "N\n2\n");
  ASSERT_EQ(configure("('persistence','enable_auto_log_backup')='yes'").code, 0);
  waiting.join();
  EXPECT_EQ(hung.code, 0) << hung.err;
  EXPECT_EQ(wait_for_logs(1), "indexserver,0,2,1,backint\n");
}

TEST_F(Log_Backup, Ends_What_Waits_For_The_Log_Area_With_Its_Database) {
  install({"--tenant", "TN1"});
  switch_on();
  ASSERT_EQ(configure("('persistence','enable_auto_log_backup')='no'").code, 0);
  full();
  let_it_look();
  fault("log_area_bytes = 150");
  fault("log_area_full = hang");
  put("a");
  put("b");
  Output hung;
  std::thread writer([&] { hung = sql("UPSERT KV VALUES ('c','v')", "TN1"); });
  const std::string met = root_ / "usr/sap/HDB/HDB00/standin/faults.conf.met";
  for (int i = 0; i < most_looks && text_of(met).find("log_area_full") == std::string::npos; ++i) let_it_look();
  EXPECT_EQ(sql("ALTER SYSTEM STOP DATABASE TN1").code, 0);
  no_faults();
  writer.join();
  EXPECT_NE(hung.err.find("* -10807: Connection down"), std::string::npos) << hung.code << hung.err;
  ASSERT_EQ(sql("ALTER SYSTEM START DATABASE TN1").code, 0);
  EXPECT_EQ(sql("select count(*) as N from KV", "TN1").out, "N\n2\n");
}

TEST_F(Log_Backup, Shares_Its_Id_With_Its_Catalog_When_Told_So) {
  install({"--tenant", "TN1"});
  fault("log_catalog_same_id = yes");
  switch_on();
  full();
  let_it_look();
  later(timeout_s);
  wait_for_logs(1);
  const std::string shared =
      "select count(*) from SYS_DATABASES.M_BACKUP_CATALOG_FILES a join SYS_DATABASES.M_BACKUP_CATALOG_FILES b on "
      "a.BACKUP_ID = b.BACKUP_ID where a.FIRST_REDO_LOG_POSITION is not null and b.SOURCE_TYPE_NAME='catalog'";
  for (int i = 0; i < most_looks && value_of(shared) != "1\n"; ++i) let_it_look();
  EXPECT_EQ(value_of(shared), "1\n");
}

TEST_F(Log_Backup, Has_No_Gap_After_A_Crash) {
  install();
  switch_on();
  full();
  let_it_look();
  for (int i = 0; i < 4; ++i) {
    put("k" + std::to_string(i));
    later(timeout_s);
    std::this_thread::sleep_for(std::chrono::milliseconds(60 + 30 * i));
    ASSERT_EQ(hdb("kill-9").code, 0);
    start();
  }
  later(timeout_s);
  wait_for_logs(1, "successful", "indexserver");
  wait_for_logs(1, "successful", "xsengine");
  // One that a crash has cut does not go on running; a new one may begin at any moment.
  std::string running = logs("running");
  for (int i = 0; i < most_looks && !running.empty(); ++i) {
    let_it_look();
    running = logs("running");
  }
  EXPECT_EQ(running, "");
  expect_chain(logs("successful", "indexserver"), "indexserver");
  expect_chain(logs("successful", "xsengine"), "xsengine");
}

TEST_F(Log_Backup, Writes_The_Same_Log_Again_After_A_Crash) {
  install({"--tenant", "TN1"});
  run_slowly();
  ASSERT_EQ(hdb("kill-9").code, 0);
  script("");
  start();
  EXPECT_EQ(wait_for_logs(1), "indexserver,0,1,1,backint\n");
  EXPECT_EQ(logs("failed"), "indexserver,0,1,1,backint\n");
}

TEST_F(Log_Backup, Is_Given_Up_When_The_Instance_Stops_And_Comes_After_The_Next_Start) {
  install({"--tenant", "TN1"});
  run_slowly();
  ASSERT_EQ(hdb("stop").code, 0);
  script("");
  start();
  EXPECT_EQ(wait_for_logs(1), "indexserver,0,1,1,backint\n");
  EXPECT_EQ(value_of("select MESSAGE from SYS_DATABASES.M_BACKUP_CATALOG where STATE_NAME='failed'"),
            "The database was stopped while the backup was running\n");
}

TEST_F(Log_Backup, Does_Not_Disturb_Data_Backups_Nor_Their_Catalog) {
  install();
  fault("log_segment_bytes = 100");
  switch_on();
  full();
  std::thread writer([&] {
    for (int i = 0; i < 12; ++i) put("k" + std::to_string(i));
  });
  for (int i = 0; i < 3; ++i) full();
  writer.join();
  wait_for_logs(1);
  // However much of it the first one held.
  for (int i = 0; i < 12; ++i) put("after" + std::to_string(i));
  wait_for_logs(2);
  // What still runs is the next log or its catalog backup: no harm done.
  EXPECT_EQ(value_of("select STATE_NAME, MESSAGE from SYS_DATABASES.M_BACKUP_CATALOG where STATE_NAME not in "
                     "('successful', 'running')"),
            "");
  expect_chain(logs(), "indexserver");
}

TEST_F(Log_Backup, Takes_Turns_With_The_Catalog_Backups_Of_Other_Services) {
  install({"--tenant", "TN1", "--services", "indexserver,xsengine,scriptserver"});
  switch_on();
  full();
  script("wait 300");
  later(timeout_s);
  wait_for_logs(3);
  const std::string catalogs =
      "select count(*) from SYS_DATABASES.M_BACKUP_CATALOG_FILES f join SYS_DATABASES.M_BACKUP_CATALOG c on c.ENTRY_ID "
      "= f.ENTRY_ID where f.SOURCE_TYPE_NAME='catalog' and c.STATE_NAME='successful'";
  for (int i = 0; i < most_looks && value_of(catalogs) != "4\n"; ++i) let_it_look();
  EXPECT_EQ(value_of(catalogs), "4\n");
}

TEST_F(Log_Backup, Of_The_System_Database_Holds_Its_Name_Servers_Log) {
  install({"--tenant", "TN1"});
  switch_on();
  ASSERT_EQ(sql("BACKUP DATA USING BACKINT ('full')").code, 0);
  ASSERT_EQ(sql("UPSERT KV VALUES ('system-key','v')").code, 0);
  later(timeout_s);
  EXPECT_EQ(wait_for_logs(1), "nameserver,0,1,1,backint\n");
  EXPECT_NE(text_of(root_ / "backint.calls").find("/backint/SYSTEMDB/log_backup_1_0_0_1\""), std::string::npos);
}

TEST_F(Log_Backup, Of_A_Single_Container_Lies_In_The_Backint_Folder_Itself) {
  install({"--single-container"});
  home_ = "HDB";
  switch_on();
  ASSERT_EQ(sql("BACKUP DATA USING BACKINT ('full')", "HDB").code, 0);
  later(timeout_s);
  const std::string calls = root_ / "backint.calls";
  for (int i = 0; i < most_looks && text_of(calls).find("/backint/log_backup_") == std::string::npos; ++i)
    let_it_look();
  let_it_look();
  EXPECT_NE(text_of(calls).find("_0_0_1\""), std::string::npos) << text_of(calls);
  EXPECT_EQ(text_of(calls).find("/SYSTEMDB/"), std::string::npos) << text_of(calls);
}

}  // namespace
