// A whole data backup, from the job's lock to the last committed set.

#include <sys/stat.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "job/job_mutex.h"
#include "platform/clock.h"
#include "platform/file_lock.h"
#include "unit/hana/job/executor_fixture.h"
#include "unit/job/faults.h"

namespace {

using backup_test::done;
using backup_test::Executor;
using backup_test::refused;
using backup_test::Sql_Answer;
using backup_test::table;
using json_spirit::Object;

class Data_Backup : public backup_test::Executor_Test {
 protected:
  using Strings = std::vector<std::string>;
  using Percentages = std::vector<int>;

  static constexpr const char* tail = " USING BACKINT('<uuid>') TOOLOPTION 'job_uuid=<uuid>;'";
  static constexpr ACE_UINT64 backup_id = 1700;
  /// Only a broken lock waits that long.
  static constexpr std::chrono::seconds real_limit{20};
  static constexpr const char* restore_lock = "/var/opt/tarvex/dorsal3/agent/lock/restore_HDB_TN1";
  static constexpr const char* status_sql = "select ACTIVE_STATUS from SYS.M_DATABASES where DATABASE_NAME='TN1'";

  /// False when that does not come.
  [[nodiscard]] bool somebody_waits_for_the_restore_lock() const {
    const auto end = std::chrono::steady_clock::now() + real_limit;
    while (std::chrono::steady_clock::now() < end) {
      struct stat status {};
      if (::stat(root_.real(restore_lock).c_str(), &status) != 0) return false;
      const std::string inode = ":" + std::to_string(status.st_ino) + " ";
      std::ifstream locks("/proc/locks");
      for (std::string line; std::getline(locks, line);)
        if (line.find("-> FLOCK") != std::string::npos && line.find(inode) != std::string::npos) return true;
      std::this_thread::yield();
    }
    return false;
  }
  static std::string progress_sql(const std::string& database) {
    return "select TO_VARCHAR(UTC_START_TIME, 'YYYY-MM-DD HH24:MI:SS') as START_TIME, BACKUP_SIZE,TRANSFERRED_SIZE "
           "from "
           "SYS_DATABASES.M_BACKUP_PROGRESS where DATABASE_NAME='" +
           database + "'";
  }
  static std::string full_sql(const std::string& database) {
    return "select c.BACKUP_ID as BACKUP_ID from SYS_DATABASES.M_BACKUP_CATALOG as c join "
           "SYS_DATABASES.M_BACKUP_CATALOG_FILES as f on c.BACKUP_ID = f.BACKUP_ID where "
           "lower(ENTRY_TYPE_NAME)='complete data backup' and lower(DESTINATION_TYPE_NAME)='backint'  and "
           "STATE_NAME='successful' and c.DATABASE_NAME='" +
           database + "' order by c.BACKUP_ID desc limit 1";
  }
  static Sql_Answer no_progress() { return table("START_TIME,BACKUP_SIZE,TRANSFERRED_SIZE", {}); }

  /// A tenant that runs already.
  void expect_tenant_start(const std::string& database) {
    hdbsql_.expect("select ACTIVE_STATUS from SYS.M_DATABASES where DATABASE_NAME='" + database + "'",
                   table("ACTIVE_STATUS", {"\"YES\""}));
  }
  void expect_cmd(const std::string& database, const std::string& cmd, Sql_Answer answer = done()) {
    hdbsql_.expect_backup(cmd, std::move(answer), progress_sql(database), {no_progress()});
  }
  void expect_times() {
    hdbsql_.expect(
        "select TO_VARCHAR(UTC_START_TIME, 'YYYY-MM-DD HH24:MI:SS') as START_TIME, TO_VARCHAR(UTC_END_TIME, "
        "'YYYY-MM-DD HH24:MI:SS') as END_TIME from SYS_DATABASES.M_BACKUP_CATALOG where BACKUP_ID=1700",
        table("START_TIME,END_TIME", {"\"2023-11-14 22:13:20\",\"2023-11-14 22:14:20\""}));
  }
  /// A full backup of a tenant that ends well.
  void expect_tenant_backup(const std::string& database) {
    expect_tenant_start(database);
    expect_cmd(database, "BACKUP DATA  FOR " + database + tail);
    expect_times();
  }
  /// backupd tells of no earlier sets: the first backup of each database.
  void claim_first_backups() { EXPECT_GT(log_.claim_containing(" backup sets, null\n"), 0U); }

  bool run() { return ready_executor().execute_backup(nullptr); }
  /// Runs one that must fail with these alerts and this line, and no set committed.
  void expect_failure(const Strings& wanted_alerts, const std::string& line) {
    EXPECT_FALSE(run());
    EXPECT_EQ(alerts(), wanted_alerts);
    expect_error(line);
    EXPECT_TRUE(backupd_.committed.empty());
  }
};

/// The statements of a run as a file under tests/data/golden keeps them, one a line.
class Statements_Of_A_Run : public Data_Backup {
 protected:
  void SetUp() override {
    let_backint_store(backup_id);
    for (const char* database : {"SYSTEMDB", "TN1", "HDB"}) {
      add_full_set(database, 1500, "2023-11-14 20:00:00");
      backupd_.sets[{database, 0}] = backupd_.sets[{database, 1500}];
    }
  }

  /// Runs against the answers that fit the statements of the file, and compares what was asked with the file.
  void run_against(const std::string& file) {
    std::ifstream stream(std::string(DORSAL3_TEST_DATA) + "/golden/" + file);
    ASSERT_TRUE(stream) << file;
    std::ostringstream text;
    text << stream.rdbuf();
    expect_lines(text.str());
    EXPECT_TRUE(run());
    std::string asked;
    for (const std::string& statement : hdbsql_.statements()) asked += statement + "\n";
    EXPECT_EQ(asked, text.str());
  }

 private:
  void expect_lines(const std::string& text) {
    std::istringstream lines(text);
    std::string cmd;
    for (std::string line; std::getline(lines, line);) {
      if (line.starts_with("BACKUP DATA"))
        cmd = line;
      else if (line.find("M_BACKUP_PROGRESS") != std::string::npos)
        hdbsql_.expect_backup(cmd, done(), line, {no_progress()});
      else if (line.find("ACTIVE_STATUS") != std::string::npos)
        hdbsql_.expect(line, table("ACTIVE_STATUS", {"\"YES\""}));
      else if (line.find("STATE_NAME, SYS_END_TIME") != std::string::npos)
        hdbsql_.expect(line, table("STATE_NAME,SYS_END_TIME", {"\"successful\",\"2023-11-14 20:10:00\""}));
      else if (line.find("END_TIME") != std::string::npos)
        hdbsql_.expect(line, table("START_TIME,END_TIME", {"\"2023-11-14 22:13:20\",\"2023-11-14 22:14:20\""}));
      else
        hdbsql_.expect(line, table("BACKUP_ID", {"1500"}));
    }
  }
};

}  // namespace

TEST_F(Statements_Of_A_Run, Are_These_For_A_Full_Backup_With_Tenants) {
  set_entries({"hana/HDB00/SYSTEMDB", "hana/HDB00/TN1"});
  run_against("statements_full_tenants.txt");
}

TEST_F(Statements_Of_A_Run, Are_These_For_An_Incremental_Backup_With_Tenants) {
  set_entries({"hana/HDB00/SYSTEMDB", "hana/HDB00/TN1"});
  set_subtype(JOB_DEFINITION_SUBTYPE_INCREMENTAL);
  run_against("statements_incremental_tenants.txt");
}

TEST_F(Statements_Of_A_Run, Are_These_For_A_Differential_Backup_With_Tenants) {
  set_entries({"hana/HDB00/SYSTEMDB", "hana/HDB00/TN1"});
  set_subtype(JOB_DEFINITION_SUBTYPE_CUMULATIVE);
  run_against("statements_differential_tenants.txt");
}

TEST_F(Statements_Of_A_Run, Are_These_For_A_Full_Backup_Without_Tenants) {
  set_multi_container(false);
  set_entries({"hana/HDB00/HDB"});
  run_against("statements_full_single.txt");
}

TEST_F(Statements_Of_A_Run, Are_These_For_An_Incremental_Backup_Without_Tenants) {
  set_multi_container(false);
  set_entries({"hana/HDB00/HDB"});
  set_subtype(JOB_DEFINITION_SUBTYPE_INCREMENTAL);
  run_against("statements_incremental_single.txt");
}

TEST_F(Statements_Of_A_Run, Are_These_For_A_Differential_Backup_Without_Tenants) {
  set_multi_container(false);
  set_entries({"hana/HDB00/HDB"});
  set_subtype(JOB_DEFINITION_SUBTYPE_CUMULATIVE);
  run_against("statements_differential_single.txt");
}

TEST_F(Data_Backup, Backs_Up_System_Database_And_Tenant_And_Commits_A_Set_Of_Each) {
  set_entries({"hana/HDB00/SYSTEMDB", "hana/HDB00/TN1"});
  let_backint_store(backup_id);
  expect_cmd("SYSTEMDB", std::string("BACKUP DATA  ") + tail);
  expect_times();
  expect_tenant_backup("TN1");
  EXPECT_TRUE(run());

  expect_info("Backup database SYSTEMDB in HDB00\n");
  expect_info("Backup database TN1 in HDB00\n");
  EXPECT_EQ(progress(), (Percentages{1, 0, 50, 50, 100, 100}));
  EXPECT_TRUE(alerts().empty());
  ASSERT_EQ(backupd_.committed.size(), 2U);
  ASSERT_EQ(backupd_.jobs.size(), 2U);
  const char* const names[] = {"SYSTEMDB", "TN1"};
  for (std::size_t i = 0; i < 2; ++i) {
    const Object& set = backupd_.committed[i];
    EXPECT_EQ(set.find("database")->get_str(), names[i]);
    EXPECT_EQ(set.find("database_backup_id")->get_uint64(), backup_id);
    const std::string uuid = set.find("uuid")->get_str();
    ASSERT_TRUE(backupd_.jobs.contains(uuid)) << "the record is named after the set";
    EXPECT_EQ(backupd_.removed_jobs[i], uuid);
  }
  const Object& metadata = backupd_.committed[1].find("metadata")->get_obj();
  EXPECT_EQ(json_spirit::dump_json(*metadata.find("databases")), R"([{"name":"TN1","database_backup_id":1700}])");
  EXPECT_EQ(Job_Activity::load(job().activity().size), 2000U);
  EXPECT_EQ(Job_Activity::load(job().activity().set_storage_size), 800U);
  claim_first_backups();
}

TEST_F(Data_Backup, Passes_The_Uuid_Of_The_Set_To_HANA_Twice) {
  set_entries({"hana/HDB00/TN1"});
  let_backint_store(backup_id);
  expect_tenant_backup("TN1");
  EXPECT_TRUE(run());
  const std::string uuid = backupd_.committed.at(0).find("uuid")->get_str();
  bool found = false;
  for (const support::Seen_Call& call : runner_.calls())
    found |= call.input.find("BACKUP DATA  FOR TN1 USING BACKINT('" + uuid + "') TOOLOPTION 'job_uuid=" + uuid +
                             ";'") != std::string::npos;
  EXPECT_TRUE(found);
  claim_first_backups();
}

TEST_F(Data_Backup, Prepares_Backint_And_The_Access_Key) {
  set_entries({"hana/HDB00/TN1"});
  let_backint_store(backup_id);
  expect_tenant_backup("TN1");
  EXPECT_TRUE(run());
  EXPECT_TRUE(root_.exists("/usr/sap/HDB/SYS/global/hdb/opt/hdbbackint"));
  EXPECT_TRUE(root_.exists("/var/opt/tarvex/dorsal3/agent/access_key"));
  claim_first_backups();
}

TEST_F(Data_Backup, Goes_On_When_The_Access_Key_Cannot_Be_Written) {
  root_.make_directory("/var/opt/tarvex/dorsal3/agent/access_key/in_the_way");
  set_entries({"hana/HDB00/TN1"});
  let_backint_store(backup_id);
  expect_tenant_backup("TN1");
  EXPECT_TRUE(run());
  expect_error_with("access key file");
  claim_first_backups();
}

TEST_F(Data_Backup, Divides_The_Progress_Among_Three_Databases) {
  set_entries({"hana/HDB00/A", "hana/HDB00/B", "hana/HDB00/C"});
  let_backint_store(backup_id);
  for (const char* database : {"A", "B", "C"}) expect_tenant_backup(database);
  EXPECT_TRUE(run());
  EXPECT_EQ(progress(), (Percentages{1, 0, 33, 33, 66, 66, 100, 100}));
  claim_first_backups();
}

TEST_F(Data_Backup, Skips_An_Entry_Without_A_Database_But_Counts_It_In_The_Progress) {
  set_entries({"hana/HDB00/A", "hana/HDB00", "hana/HDB00/B"});
  let_backint_store(backup_id);
  for (const char* database : {"A", "B"}) expect_tenant_backup(database);
  EXPECT_TRUE(run());
  EXPECT_EQ(progress(), (Percentages{1, 0, 33, 33, 66, 100}));
  EXPECT_EQ(backupd_.committed.size(), 2U);
  claim_first_backups();
}

TEST_F(Data_Backup, Ends_Well_When_No_Entry_Names_A_Database) {
  set_entries({"hana/HDB00"});
  EXPECT_TRUE(run());
  EXPECT_EQ(progress(), (Percentages{1, 100}));
}

TEST_F(Data_Backup, Decides_The_Kind_Of_Each_Database_Afresh) {
  set_subtype(JOB_DEFINITION_SUBTYPE_INCREMENTAL);
  set_entries({"hana/HDB00/A", "hana/HDB00/B"});
  let_backint_store(backup_id);
  hdbsql_.expect(full_sql("A"), table("BACKUP_ID", {}));
  expect_tenant_backup("A");
  add_full_set("B", 1500, "2023-11-14 20:00:00");
  hdbsql_.expect(full_sql("B"), table("BACKUP_ID", {"1500"}));
  expect_tenant_start("B");
  expect_cmd("B", std::string("BACKUP DATA INCREMENTAL  FOR B") + tail);
  expect_times();
  EXPECT_TRUE(run());
  expect_info("Failed to get full backup, set job type to full\n");
  ASSERT_EQ(backupd_.committed.size(), 2U);
  EXPECT_EQ(backupd_.committed[0].find("type")->get_str(), "full");
  EXPECT_EQ(backupd_.committed[1].find("type")->get_str(), "incremental");
  EXPECT_EQ(backupd_.jobs.at(backupd_.committed[0].find("uuid")->get_str()).find("type")->get_str(), "full");
  ASSERT_TRUE(backupd_.committed[0].contains("lift_reason"));
  EXPECT_EQ(backupd_.committed[0].find("requested_type")->get_str(), "incremental");
  EXPECT_EQ(backupd_.committed[0].find("lift_reason")->get_str(), "no full backup");
  EXPECT_FALSE(backupd_.committed[1].contains("lift_reason"));
  claim_first_backups();
}

TEST_F(Data_Backup, Starts_A_Stopped_Tenant_First) {
  set_entries({"hana/HDB00/TN1"});
  let_backint_store(backup_id);
  const std::string status = "select ACTIVE_STATUS from SYS.M_DATABASES where DATABASE_NAME='TN1'";
  hdbsql_.expect(status, table("ACTIVE_STATUS", {"\"NO\""}));
  hdbsql_.expect("ALTER SYSTEM START DATABASE TN1", done());
  hdbsql_.expect(status, table("ACTIVE_STATUS", {"\"YES\""}));
  expect_cmd("TN1", std::string("BACKUP DATA  FOR TN1") + tail);
  expect_times();
  EXPECT_TRUE(run());
  claim_first_backups();
}

TEST_F(Data_Backup, Asks_For_No_Progress_On_A_Version_Without_The_View) {
  struct Row {
    const char* version;
    bool ancient;
  };
  const Row rows[] = {{"1.00.62.380697", true}, {"1.00.99", true},      {"1.00", true},   {"1.00.100", false},
                      {"1.00.122.05", false},   {"2.00.040.00", false}, {"2.0.40", false}};
  set_entries({"hana/HDB00/TN1"});
  let_backint_store(backup_id);
  for (const Row& row : rows) {
    SCOPED_TRACE(row.version);
    set_version(row.version);
    expect_tenant_start("TN1");
    const std::string cmd = std::string("BACKUP DATA  FOR TN1") + tail;
    if (row.ancient)
      hdbsql_.expect_backup(cmd, done(), "none", {});
    else
      expect_cmd("TN1", cmd);
    expect_times();
    Executor& executor = ready_executor();
    EXPECT_TRUE(executor.execute_backup(nullptr));
    EXPECT_EQ(executor.ancient_version_, row.ancient);
  }
  claim_first_backups();
}

TEST_F(Data_Backup, Holds_The_Lock_Of_The_Resource_For_The_Whole_Run) {
  set_entries({"hana/HDB00/SYSTEMDB", "hana/HDB00/TN1"});
  let_backint_store(backup_id);
  expect_cmd("SYSTEMDB", std::string("BACKUP DATA  ") + tail);
  expect_times();
  expect_tenant_backup("TN1");
  Executor& executor = ready_executor();
  const std::shared_ptr<Job_Mutex> mutex = Job_Mutex::get(backup_test::resource_uuid);
  // The first thing a run asks of backupd is to store a Backint record, the last is to commit a set.
  std::atomic<int> looks = 0;
  std::atomic<int> found_free = 0;
  backupd_.intercept = [&](const std::string&, const std::string&) -> std::optional<net::Http_Response> {
    ++looks;
    EXPECT_EQ(mutex->holder(), job().job_act_id());
    if (mutex->tryacquire() == 0) {
      ++found_free;
      EXPECT_EQ(mutex->release(), 0);
    }
    return std::nullopt;
  };
  EXPECT_TRUE(executor.execute_backup(nullptr));
  EXPECT_GT(looks.load(), 0);
  EXPECT_EQ(found_free.load(), 0);
  EXPECT_EQ(mutex->tryacquire(), 0) << "given back at the end";
  EXPECT_EQ(mutex->release(), 0);
  claim_first_backups();
}

TEST_F(Data_Backup, Does_Nothing_While_Another_Run_Holds_The_Lock_Of_The_Resource) {
  set_entries({"hana/HDB00"});
  Executor& executor = ready_executor();
  const std::shared_ptr<Job_Mutex> mutex = Job_Mutex::get(backup_test::resource_uuid);
  ASSERT_EQ(mutex->acquire(), 0);
  std::atomic<bool> ended = false;
  std::thread runner([&] {
    EXPECT_TRUE(executor.execute_backup(nullptr));
    ended = true;
  });
  // A run that does not wait ends.
  while (mutex->waiting() == 0 && !ended) std::this_thread::yield();
  EXPECT_FALSE(ended);
  EXPECT_TRUE(progress().empty());
  ASSERT_EQ(mutex->release(), 0);
  runner.join();
  EXPECT_EQ(progress(), (Percentages{1, 100}));
}

TEST_F(Data_Backup, Fails_Silently_When_The_Lock_Cannot_Be_Taken) {
  set_entries({"hana/HDB00/TN1"});
  Executor& executor = ready_executor();
  const std::shared_ptr<Job_Mutex> mutex = Job_Mutex::get(backup_test::resource_uuid);
  ASSERT_EQ(mutex->acquire(), 0);
  EXPECT_FALSE(executor.execute_backup(nullptr));
  ASSERT_EQ(mutex->release(), 0);
  EXPECT_EQ(log_.dump(), "");
  EXPECT_TRUE(alerts().empty());
}

TEST_F(Data_Backup, Gives_The_Lock_Back_After_A_Failure) {
  EXPECT_FALSE(run());
  log_.claim_all();
  const std::shared_ptr<Job_Mutex> mutex = Job_Mutex::get(backup_test::resource_uuid);
  EXPECT_EQ(mutex->tryacquire(), 0);
  EXPECT_EQ(mutex->release(), 0);
}

TEST_F(Data_Backup, Raises_Alert_1_When_Backint_Cannot_Be_Prepared) {
  set_entries({"hana/HDB00/TN1"});
  root_.write("/usr/sap/HDB/SYS/global/hdb/opt/hdbbackint", "another vendor's");
  expect_failure({"7/1 0 1 {}"}, "Failed to prepare backint\n");
  expect_error_with("is exist");
  EXPECT_TRUE(progress().empty());
}

TEST_F(Data_Backup, Raises_Alert_5_For_An_Entry_Of_Another_Kind) {
  set_entries({"hana/HDB00/TN1", "oracle/ORCL"});
  expect_failure({"7/5 0 1 {}"}, "Failed to collect backup source\n");
  expect_error("Failed to collect oracle/ORCL for HANA\n");
}

TEST_F(Data_Backup, Raises_Alert_5_When_Nothing_Is_To_Be_Backed_Up) {
  expect_failure({"7/5 0 1 {}"}, "Failed to collect backup source\n");
}

TEST_F(Data_Backup, Raises_Alert_2_When_Hdbsql_Cannot_Be_Bound) {
  set_entries({"hana/HDB00/TN1"});
  Executor& executor = ready_executor();
  ASSERT_TRUE(registry_.remove_account("hana", "HDB_HDB00", ""));
  EXPECT_FALSE(executor.execute_backup(nullptr));
  EXPECT_EQ(alerts(), Strings{"7/2 0 1 {}"});
  expect_error("Failed to get username and password\n");
  expect_error("Failed to init hdbsql for HDB HDB00\n");
  expect_error_with("No account is stored");
  EXPECT_TRUE(progress().empty());
}

TEST_F(Data_Backup, Looks_For_Backint_Then_Source_Then_The_Account) {
  constexpr const char* backint = "/usr/sap/HDB/SYS/global/hdb/opt/hdbbackint";
  root_.write(backint, "another vendor's");
  Executor& executor = ready_executor();
  ASSERT_TRUE(registry_.remove_account("hana", "HDB_HDB00", ""));
  EXPECT_FALSE(executor.execute_backup(nullptr));
  EXPECT_EQ(alerts(), Strings{"7/1 0 1 {}"});
  expect_error("Failed to prepare backint\n");
  expect_error_with("is exist");

  ASSERT_TRUE(std::filesystem::remove(root_.real(backint)));
  EXPECT_FALSE(executor.execute_backup(nullptr));
  EXPECT_EQ(alerts(), (Strings{"7/1 0 1 {}", "7/5 0 1 {}"}));
  expect_error("Failed to collect backup source\n");
}

TEST_F(Data_Backup, Raises_Alert_7_When_The_Backint_Record_Cannot_Be_Stored) {
  set_entries({"hana/HDB00/TN1"});
  backupd_.intercept = [](const std::string& method, const std::string&) -> std::optional<net::Http_Response> {
    if (method != "POST") return std::nullopt;
    return backup_test::error_answer(409);
  };
  expect_failure({"7/7 0 1 {}"}, "Failed to generate backint configure\n");
  expect_error_with("Failed to store the Backint job");
  EXPECT_TRUE(hdbsql_.statements().empty());
}

TEST_F(Data_Backup, Raises_Alert_3_With_The_Name_When_A_Tenant_Cannot_Be_Started) {
  set_entries({"hana/HDB00/TN1"});
  hdbsql_.expect("select ACTIVE_STATUS from SYS.M_DATABASES where DATABASE_NAME='TN1'", table("ACTIVE_STATUS", {}));
  expect_failure({R"(7/3 0 1 {"database":"TN1"})"}, "Failed to start tenant database 'TN1' in 'HDB00'\n");
  expect_error_with("has no database 'TN1'");
}

TEST_F(Data_Backup, Chooses_The_Kind_And_Starts_A_Tenant_When_A_Restore_Has_Let_Go_Of_It) {
  set_subtype(JOB_DEFINITION_SUBTYPE_INCREMENTAL);
  set_entries({"hana/HDB00/TN1"});
  platform::File_Lock restore(restore_lock);
  ASSERT_TRUE(restore.acquire());
  std::atomic<bool> restored{false};
  bool too_early = false;
  Sql_Answer no_full = table("BACKUP_ID", {});
  no_full.before = [&] { too_early = !restored; };
  hdbsql_.expect(full_sql("TN1"), no_full);
  hdbsql_.expect(status_sql, table("ACTIVE_STATUS", {"\"NO\""}));
  bool locked = false;
  Sql_Answer start = refused();
  start.before = [&] { locked = root_.exists(restore_lock); };
  hdbsql_.expect("ALTER SYSTEM START DATABASE TN1", start);
  std::thread backup(
      [&] { expect_failure({R"(7/3 0 1 {"database":"TN1"})"}, "Failed to start tenant database 'TN1' in 'HDB00'\n"); });
  EXPECT_TRUE(somebody_waits_for_the_restore_lock());
  restored = true;
  restore.release();
  backup.join();
  EXPECT_FALSE(too_early);
  EXPECT_TRUE(locked);
  EXPECT_FALSE(root_.exists(restore_lock)) << "let go before the backup begins";
  log_.claim_all();
}

TEST_F(Data_Backup, Raises_Alert_3_When_The_Lock_Of_A_Tenant_Cannot_Be_Had) {
  set_entries({"hana/HDB00/TN1"});
  root_.write("/var/opt/tarvex/dorsal3/agent/lock", "a file where the directory should be");
  expect_failure({R"(7/3 0 1 {"database":"TN1"})"}, "Failed to start tenant database 'TN1' in 'HDB00'\n");
  expect_error_with("Failed to lock database 'TN1' against restores of it: ");
}

TEST_F(Data_Backup, Holds_No_Lock_Of_A_Tenant_While_It_Is_Backed_Up) {
  set_entries({"hana/HDB00/TN1"});
  let_backint_store(backup_id);
  expect_tenant_start("TN1");
  bool locked = true;
  Sql_Answer answer = refused();
  answer.before = [&] { locked = root_.exists(restore_lock); };
  expect_cmd("TN1", std::string("BACKUP DATA  FOR TN1") + tail, answer);
  expect_failure({"7/8 0 1 {}"}, "Failed to execute backup\n");
  EXPECT_FALSE(locked);
  log_.claim_all();
}

TEST_F(Data_Backup, Fails_For_A_Definition_Of_No_Kind) {
  set_subtype(JOB_DEFINITION_SUBTYPE_NONE);
  set_entries({"hana/HDB00/SYSTEMDB"});
  expect_failure({}, "Failed to generate backup cmd\n");
  EXPECT_TRUE(hdbsql_.statements().empty());
}

TEST_F(Data_Backup, Raises_Alert_8_When_The_Statement_Fails_And_Leaves_Later_Databases_Alone) {
  set_entries({"hana/HDB00/A", "hana/HDB00/B", "hana/HDB00/C"});
  let_backint_store(backup_id);
  expect_tenant_backup("A");
  expect_tenant_start("B");
  expect_cmd("B", std::string("BACKUP DATA  FOR B") + tail, refused("* 447: backup could not be completed"));
  EXPECT_FALSE(run());
  EXPECT_EQ(alerts(), Strings{"7/8 0 1 {}"});
  expect_error("Failed to execute backup\n");
  expect_error_with("backup could not be completed");
  ASSERT_EQ(backupd_.committed.size(), 1U) << "the databases before stay backed up";
  EXPECT_EQ(backupd_.committed[0].find("database")->get_str(), "A");
  EXPECT_EQ(progress(), (Percentages{1, 0, 33, 33, 66}));
  claim_first_backups();
}

TEST_F(Data_Backup, Fails_Without_A_Thread_For_Its_Statement) {
  set_entries({"hana/HDB00/SYSTEMDB"});
  Executor& executor = ready_executor();
  {
    const faults::No_Threads no_threads;
    EXPECT_FALSE(executor.execute_backup(nullptr));
  }
  EXPECT_EQ(alerts(), Strings{"7/8 0 1 {}"});
  expect_error("Failed to execute backup\n");
  expect_error_with("The thread of the backup statement cannot be made: ");
  EXPECT_TRUE(hdbsql_.statements().empty());
}

TEST_F(Data_Backup, Fails_When_Hdbsql_Was_Killed) {
  set_entries({"hana/HDB00/TN1"});
  expect_tenant_start("TN1");
  Sql_Answer killed;
  killed.signal = 9;
  expect_cmd("TN1", std::string("BACKUP DATA  FOR TN1") + tail, killed);
  expect_failure({"7/8 0 1 {}"}, "Failed to execute backup\n");
  expect_error_with("signal 9");
}

TEST_F(Data_Backup, Raises_Alert_13_When_The_Set_Cannot_Be_Completed) {
  set_entries({"hana/HDB00/TN1"});
  expect_tenant_start("TN1");
  expect_cmd("TN1", std::string("BACKUP DATA  FOR TN1") + tail);
  expect_failure({"7/13 17592186044416 1 {}"}, "Failed to update metadata\n");
  expect_error("Backup files is empty\n");
}

TEST_F(Data_Backup, Raises_Alert_45_When_The_Set_Cannot_Be_Committed) {
  set_entries({"hana/HDB00/TN1"});
  let_backint_store(backup_id);
  expect_tenant_backup("TN1");
  backupd_.intercept = [](const std::string&, const std::string& target) -> std::optional<net::Http_Response> {
    if (!target.ends_with("/sets")) return std::nullopt;
    return backup_test::error_answer(422);
  };
  expect_failure({"7/45 17592186044416 1 {}"}, "Failed to save catalog\n");
  expect_error("Failed to write HANA catalog to backupd\n");
  log_.claim_all();
}

TEST_F(Data_Backup, Survives_A_Backupd_That_Restarts_Before_The_Commit) {
  set_entries({"hana/HDB00/TN1"});
  let_backint_store(backup_id);
  expect_tenant_backup("TN1");
  unsigned refusals = 2;
  backupd_.intercept = [&refusals](const std::string&, const std::string& target) -> std::optional<net::Http_Response> {
    if (!target.ends_with("/sets") || refusals == 0) return std::nullopt;
    --refusals;
    return backup_test::error_answer(503);
  };
  EXPECT_TRUE(run());
  EXPECT_EQ(backupd_.committed.size(), 1U);
  log_.claim_all();
}

TEST_F(Data_Backup, Ends_As_Canceled_When_A_User_Cancelled_It_In_HANA) {
  runner_.on([](const support::Seen_Call& call, support::Scripted_Child& child) {
    if (call.program.ends_with("/hdbnsutil")) child.standard_output = "mode: none\n";
    if (call.program.ends_with("/sapcontrol")) child.code = 3;  // every process runs
    return call.program.ends_with("/hdbnsutil") || call.program.ends_with("/sapcontrol");
  });
  set_entries({"hana/HDB00/TN1"});
  expect_tenant_start("TN1");
  expect_cmd("TN1", std::string("BACKUP DATA  FOR TN1") + tail, refused("* 447: Backup was canceled by user"));
  Executor& executor = new_executor();
  job().state(JOB_STATE_STARTING);
  EXPECT_FALSE(executor.execute(nullptr));
  EXPECT_EQ(job().state(), JOB_STATE_CANCELED);
  EXPECT_EQ(alerts(), Strings{"7/8 0 1 {}"});
  expect_error("Failed to execute backup\n");
  expect_error("Failed to backup HANA database\n");
  expect_error_with("canceled by user");
}
