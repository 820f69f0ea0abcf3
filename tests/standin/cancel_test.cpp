#include <chrono>
#include <thread>

#include "standin/installed_hana.h"

namespace {

using namespace standin_test;

constexpr int refused = 447 & 0xff;
constexpr const char* canceled_text = "Backup was canceled by user";

class Backup_Cancel : public Installed_HANA {
 protected:
  void TearDown() override {
    if (worker_.joinable()) {
      (void)hdb("kill-9");
      worker_.join();
    }
    Installed_HANA::TearDown();
  }
  /// Begins a backup of the tenant; its id.
  std::string begin(const std::string& statement = "BACKUP DATA FOR TN1 USING BACKINT ('x')") {
    fault(slow_);
    worker_ = std::thread([this, statement] { done_ = sql(statement); });
    return running_backup();
  }
  /// What the backup's statement answered.
  Output end() {
    worker_.join();
    return done_;
  }
  Output cancel(const std::string& id) { return sql("BACKUP CANCEL FOR TN1 " + id); }
  std::string entry(const std::string& id) {
    return value_of(
        "select STATE_NAME, case when SYS_END_TIME is null then 'open' else 'ended' end from "
        "SYS_DATABASES.M_BACKUP_CATALOG where BACKUP_ID=" +
        id);
  }

  void wait_until_all_is_written() {
    // Sizes are 0 until all are known, and nothing is transferred before.
    const std::string all =
        "select min(TRANSFERRED_SIZE) > 0 and sum(BACKUP_SIZE) = sum(TRANSFERRED_SIZE) from "
        "SYS_DATABASES.M_BACKUP_PROGRESS";
    for (int i = 0; i < most_looks && value_of(all) != "1\n"; ++i)
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_EQ(value_of(all), "1\n");
  }

  static constexpr int most_looks = 5000;
  /// So slow that a cancel comes in time.
  static constexpr const char* slow_ = "stream_bytes_per_second = 50000";
  /// Pending until the faults are taken away.
  static constexpr const char* held_ = "cancel_pending_ms = 600000";
  std::thread worker_;
  Output done_;
};

TEST_F(Backup_Cancel, Is_Pending_Without_An_End_Time_And_Then_Canceled) {
  install({"--tenant", "TN1", "--data-mb", "16"});
  fault(held_);
  const std::string id = begin();
  EXPECT_EQ(cancel(id).code, 0);
  EXPECT_EQ(entry(id), "cancel pending,open\n");
  EXPECT_EQ(value_of("select distinct STATE_NAME from SYS_DATABASES.M_BACKUP_PROGRESS"), "cancel pending\n");
  no_faults();
  const Output backup = end();
  EXPECT_EQ(backup.code, refused);
  EXPECT_NE(backup.err.find(canceled_text), std::string::npos) << backup.err;
  EXPECT_EQ(entry(id), "canceled,ended\n");
}

TEST_F(Backup_Cancel, Finds_The_Backup_By_Its_Destinations_While_It_Runs) {
  install({"--tenant", "TN1", "--data-mb", "16"});
  const std::string id = begin();
  const std::string files =
      "select distinct DESTINATION_TYPE_NAME, BACKUP_SIZE from SYS_DATABASES.M_BACKUP_CATALOG_FILES "
      "where EXTERNAL_BACKUP_ID is null and BACKUP_ID=" +
      id;
  // The entry comes first, its destinations follow within the same moment.
  std::string named;
  for (int tries = 500; named.empty() && tries > 0; --tries) named = value_of(files);
  EXPECT_EQ(named, "backint,0\n");
  EXPECT_EQ(cancel(id).code, 0);
  EXPECT_EQ(end().code, refused);
}

TEST_F(Backup_Cancel, Shows_An_End_Time_While_It_Is_Pending_When_Told_So) {
  install({"--tenant", "TN1", "--data-mb", "16"});
  fault(held_);
  fault("cancel_pending_end = yes");
  const std::string id = begin();
  EXPECT_EQ(cancel(id).code, 0);
  EXPECT_EQ(entry(id), "cancel pending,ended\n");
  no_faults();
  EXPECT_EQ(end().code, refused);
  EXPECT_EQ(entry(id), "canceled,ended\n");
}

TEST_F(Backup_Cancel, Fails_The_Backup_With_Words_Of_Its_Own) {
  install({"--tenant", "TN1", "--data-mb", "16"});
  fault("cancel = failed");
  const std::string id = begin();
  EXPECT_EQ(cancel(id).code, 0);
  const Output backup = end();
  EXPECT_EQ(backup.code, refused);
  EXPECT_EQ(backup.err.find(canceled_text), std::string::npos) << backup.err;
  EXPECT_NE(backup.err.find("[110203] Not all data could be written"), std::string::npos) << backup.err;
  EXPECT_EQ(entry(id), "failed,ended\n");
}

TEST_F(Backup_Cancel, Is_Taken_But_The_Backup_Ends_Well) {
  install({"--tenant", "TN1", "--data-mb", "2"});
  fault("cancel = successful");
  const std::string id = begin();
  EXPECT_EQ(cancel(id).code, 0);
  EXPECT_EQ(entry(id), "cancel pending,open\n");
  ASSERT_EQ(control({"no-faults"}).code, 0);
  EXPECT_EQ(end().code, 0);
  EXPECT_EQ(entry(id), "successful,ended\n");
}

TEST_F(Backup_Cancel, Comes_Too_Late_For_A_Backup_That_Has_Just_Ended) {
  install({"--tenant", "TN1", "--data-mb", "16"});
  fault("cancel = late");
  const std::string id = begin();
  const Output late = cancel(id);
  EXPECT_EQ(late.code, refused);
  EXPECT_EQ(late.err, "* 447: backup could not be canceled: backup " + id + " is not running SQLSTATE: HY000\n");
  EXPECT_EQ(end().code, 0);
  EXPECT_EQ(entry(id), "successful,ended\n");
}

TEST_F(Backup_Cancel, Never_Ends_Until_The_Instance_Stops) {
  install({"--tenant", "TN1", "--data-mb", "1"});
  fault("cancel = never");
  const std::string id = begin();
  EXPECT_EQ(cancel(id).code, 0);
  ASSERT_EQ(control({"no-faults"}).code, 0);  // all data are there soon
  wait_until_all_is_written();
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  EXPECT_EQ(entry(id), "cancel pending,open\n");
  EXPECT_NE(sql("BACKUP DATA FOR TN1 USING BACKINT ('y')").err.find("another data backup"), std::string::npos);
  EXPECT_EQ(cancel(id).code, 0) << "a second request is taken";
  EXPECT_EQ(hdb("stop").code, 0);
  EXPECT_NE(end().code, 0);
  start();
  EXPECT_EQ(entry(id), "canceled,ended\n");
}

TEST_F(Backup_Cancel, Is_Taken_Again_Or_Refused_As_Told) {
  install({"--tenant", "TN1", "--data-mb", "16"});
  fault(held_);
  const std::string id = begin();
  EXPECT_EQ(cancel(id).code, 0);
  EXPECT_EQ(cancel(id).code, 0);
  fault("cancel_again = refuse");
  EXPECT_EQ(cancel(id).err,
            "* 447: backup could not be canceled: backup " + id + " is already being canceled SQLSTATE: HY000\n");
  no_faults();
  EXPECT_EQ(end().code, refused);
}

TEST_F(Backup_Cancel, Waits_Out_Its_Time_Although_The_Data_Are_There) {
  install({"--tenant", "TN1", "--data-mb", "1"});
  fault(held_);
  const std::string id = begin();
  EXPECT_EQ(cancel(id).code, 0);
  only_faults({held_});
  wait_until_all_is_written();
  EXPECT_EQ(entry(id), "cancel pending,open\n");
  no_faults();
  EXPECT_EQ(end().code, refused);
  EXPECT_EQ(entry(id), "canceled,ended\n");
}

TEST_F(Backup_Cancel, Names_What_It_Does_Not_Find) {
  install({"--tenant", "TN1", "--data-mb", "16"});
  const auto text = [](const std::string& why) {
    return "* 447: backup could not be canceled: " + why + " SQLSTATE: HY000\n";
  };
  EXPECT_EQ(cancel("42").err, text("there is no data backup 42 of database TN1"));
  const std::string id = begin();
  const std::string catalog_row = "there is no data backup " + id + " of database ";
  EXPECT_EQ(sql("BACKUP CANCEL FOR NONE " + id).err, text("[332] invalid database name: NONE"));
  EXPECT_EQ(sql("BACKUP CANCEL FOR SYSTEMDB " + id).err, text(catalog_row + "SYSTEMDB"));
  EXPECT_EQ(sql("BACKUP CANCEL " + id).err, text(catalog_row + "SYSTEMDB"));
  EXPECT_EQ(sql("BACKUP CANCEL FOR TN1").err.find("* 257: sql syntax error"), 0U);
  EXPECT_EQ(sql("BACKUP CANCEL FOR TN1 " + id + " now").err.find("* 257: sql syntax error"), 0U);
  EXPECT_EQ(entry(id), "running,open\n");
  EXPECT_EQ(sql("BACKUP CANCEL " + id, "TN1").code, 0) << "in the tenant itself without FOR";
  EXPECT_EQ(end().code, refused);
  EXPECT_EQ(cancel(id).err, text("backup " + id + " is not running"));
  ASSERT_EQ(hdb("restart").code, 0);
  EXPECT_EQ(cancel(id).err, text("backup " + id + " is not running, its state is canceled"));
}

TEST_F(Backup_Cancel, Needs_The_Privilege) {
  install({"--tenant", "TN1", "--data-mb", "16"});
  const std::string file = write("password", "Secret1\n");
  ASSERT_EQ(control({"user", "SYSTEMDB", "READER", file, "CATALOG READ"}).code, 0);
  const std::string id = begin();
  EXPECT_EQ(sql("BACKUP CANCEL FOR TN1 " + id, "SYSTEMDB", "Secret1", "READER").code, 258 & 0xff);
  EXPECT_EQ(entry(id), "running,open\n");
  EXPECT_EQ(cancel(id).code, 0);
  EXPECT_EQ(end().code, refused);
}

TEST_F(Backup_Cancel, Has_No_For_In_A_Single_Container) {
  install({"--single-container", "--data-mb", "16"});
  fault(slow_);
  const auto ask = [&](const std::string& text) {
    return run({instance() / "exe/hdbsql", "-xaj", "-i00", "-u", "system", "-pmanager", text});
  };
  Output backup;
  std::thread worker([&] { backup = ask("BACKUP DATA USING BACKINT ('x')"); });
  std::string id;
  for (int i = 0; i < most_looks && id.empty(); ++i) {
    id = ask("select BACKUP_ID from SYS.M_BACKUP_CATALOG where SYS_END_TIME is null").out;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  id = id.substr(0, id.find('\n'));
  EXPECT_EQ(ask("BACKUP CANCEL FOR HDB " + id).code, 7);
  EXPECT_EQ(ask("BACKUP CANCEL " + id).code, 0);
  worker.join();
  EXPECT_NE(backup.err.find(canceled_text), std::string::npos) << backup.err;
}

TEST_F(Backup_Cancel, Of_A_Dead_Server_Leaves_A_Failed_Backup) {
  install({"--tenant", "TN1", "--data-mb", "16"});
  fault("cancel = never");
  fault("cancel_pending_end = yes");
  const std::string id = begin();
  EXPECT_EQ(cancel(id).code, 0);
  EXPECT_EQ(hdb("kill-9").code, 0);
  EXPECT_NE(end().code, 0);
  ASSERT_EQ(control({"no-faults"}).code, 0);
  start();
  EXPECT_EQ(entry(id), "failed,ended\n");
}

}  // namespace
