// One run of a log backup: what it waits for, how long, and what it records.

#include <atomic>
#include <chrono>
#include <numeric>
#include <string>
#include <thread>
#include <vector>

#include "platform/clock.h"
#include "platform/file_lock.h"
#include "unit/hana/job/log_backup_fixture.h"

namespace {

using backup_test::Log_Executor;
using backup_test::refused;
using backup_test::Sql_Answer;
using backup_test::table;
using json_spirit::Object;
using Strings = std::vector<std::string>;
using Pauses = std::vector<double>;

constexpr const char* log_uuid = "99999999-9999-4999-8999-999999999999";
constexpr ACE_UINT64 log_id = 1700;
constexpr ACE_UINT64 full_id = 1500;
constexpr const char* processes_of_log = "/usr/sap/HDB/SYS/global/hdb/opt/hdbbackint -f backup -s 1700 -u TN1@HDB";
constexpr const char* restore_lock = "/var/opt/tarvex/dorsal3/agent/lock/restore_HDB_TN1";
constexpr double poll_seconds = 10;
/// Only a broken lock waits that long.
constexpr std::chrono::seconds real_limit{20};

class Log_Run : public backup_test::Log_Backup_Test {
 protected:
  Log_Run() { set_entries({"hana/HDB00/TN1"}); }

  static std::string state_sql(ACE_UINT64 id) {
    return "select STATE_NAME, SYS_END_TIME from SYS_DATABASES.M_BACKUP_CATALOG where BACKUP_ID=" + std::to_string(id);
  }
  static std::string full_sql(const std::string& database) {
    // The newest one, whatever its state.
    return "select c.BACKUP_ID as BACKUP_ID from SYS_DATABASES.M_BACKUP_CATALOG as c join "
           "SYS_DATABASES.M_BACKUP_CATALOG_FILES as f on c.BACKUP_ID = f.BACKUP_ID where "
           "lower(ENTRY_TYPE_NAME)='complete data backup' and lower(DESTINATION_TYPE_NAME)='backint'   and "
           "c.DATABASE_NAME='" +
           database + "' order by c.BACKUP_ID desc limit 1";
  }
  static std::string successful_full_sql(const std::string& database) {
    std::string sql = full_sql(database);
    const std::string blanks = "'backint'   and ";
    return sql.replace(sql.find(blanks), blanks.size(), "'backint'  and STATE_NAME='successful' and ");
  }
  static std::string list_sql(const std::string& database) {
    return "select DATABASE_NAME, DESCRIPTION, ACTIVE_STATUS, OS_USER, OS_GROUP from SYS.M_DATABASES where "
           "DATABASE_NAME='" +
           database + "'";
  }
  static std::string status_sql(const std::string& database) {
    return "select ACTIVE_STATUS from SYS.M_DATABASES where DATABASE_NAME='" + database + "'";
  }
  static Sql_Answer state(const std::string& name) {
    return table("STATE_NAME,SYS_END_TIME", {"\"" + name + "\",\"2023-11-14 22:14:20\""});
  }
  static Sql_Answer runs() { return table("STATE_NAME,SYS_END_TIME", {"\"running\",?"}); }

  static Sql_Answer listed(const std::string& database, const std::string& active) {
    return table("DATABASE_NAME,DESCRIPTION,ACTIVE_STATUS,OS_USER,OS_GROUP",
                 {"\"" + database + "\",\"\",\"" + active + "\",\"\",\"\""});
  }
  void expect_listed(const std::string& database, const std::string& active = "YES") {
    hdbsql_.expect(list_sql(database), listed(database, active));
  }
  void expect_state(ACE_UINT64 id, Sql_Answer answer) { hdbsql_.expect(state_sql(id), std::move(answer)); }
  void expect_full(const std::string& database, ACE_UINT64 id) {
    hdbsql_.expect(full_sql(database), table("BACKUP_ID", {std::to_string(id)}));
  }
  /// backupd knows the full backup on which the log depends, as a set of this pool.
  void know_full_set(const std::string& database) {
    add_full_set(database, full_id, "2023-11-14 20:00:00");
    backupd_.sets[{database, 0}] = backupd_.sets[{database, full_id}];
  }
  void expect_metadata() {
    expect_state(full_id, state("successful"));
    hdbsql_.expect(
        "select TO_VARCHAR(UTC_START_TIME, 'YYYY-MM-DD HH24:MI:SS') as START_TIME, TO_VARCHAR(UTC_END_TIME, "
        "'YYYY-MM-DD HH24:MI:SS') as END_TIME from SYS_DATABASES.M_BACKUP_CATALOG where BACKUP_ID=1700",
        table("START_TIME,END_TIME", {"\"2023-11-14 22:13:20\",\"2023-11-14 22:14:20\""}));
  }

  bool run() { return run(Object{{"backint_job_uuid", log_uuid}}); }
  bool run(const Object& params) {
    Log_Executor& executor = ready_log_executor();
    clock_.forget_sleeps();
    return executor.execute_backup(&params);
  }
  void expect_failure(const Strings& wanted_alerts, const std::string& line) {
    EXPECT_FALSE(run());
    EXPECT_EQ(alerts(), wanted_alerts);
    expect_error(line);
    EXPECT_TRUE(backupd_.committed.empty());
  }
  [[nodiscard]] double seconds_slept() const {
    const Pauses sleeps = clock_.sleeps();
    return std::accumulate(sleeps.begin(), sleeps.end(), 0.0);
  }
  /// An executor with hdbsql bound, for the waits alone.
  Log_Executor& waiting_executor() {
    Log_Executor& executor = ready_log_executor();
    EXPECT_TRUE(executor.init_hdbsql());
    clock_.forget_sleeps();
    return executor;
  }
};

}  // namespace

TEST_F(Log_Run, Records_The_Set_Of_The_Backup_With_Its_Full) {
  add_backint_job(log_uuid, "TN1", log_id);
  know_full_set("TN1");
  expect_listed("TN1");
  expect_state(log_id, state("successful"));
  Sql_Answer newest_full = table("BACKUP_ID", {std::to_string(full_id)});
  Pauses before_full;
  newest_full.before = [&] { before_full = clock_.sleeps(); };
  hdbsql_.expect(full_sql("TN1"), newest_full);
  expect_state(full_id, state("successful"));
  expect_metadata();
  EXPECT_TRUE(run());
  EXPECT_EQ(before_full, Pauses{1}) << "the catalog gets a second";
  EXPECT_EQ(clock_.sleeps(), Pauses{1});
  EXPECT_EQ(progress(), (std::vector<int>{1, 100}));
  EXPECT_TRUE(alerts().empty());
  expect_info("Start to backup HANA HDB:TN1 log\n");
  expect_info("Backup HANA HDB:TN1 log successful.\n");
  ASSERT_EQ(backupd_.committed.size(), 1U);
  const Object& set = backupd_.committed[0];
  EXPECT_EQ(set.find("type")->get_str(), "log");
  EXPECT_EQ(set.find("database_backup_id")->get_uint64(), log_id);
  EXPECT_EQ(set.find("lifeline")->get_str(), "lifeline-of-TN1");
  EXPECT_EQ(set.find("incarnation")->get_str(), "incarnation-of-TN1");
  EXPECT_EQ(backupd_.removed_jobs, Strings{log_uuid});
}

TEST_F(Log_Run, Of_The_Catalog_Is_Called_By_Its_Type) {
  add_backint_job(log_uuid, "SYSTEMDB", log_id);
  backupd_.files[log_uuid] = json_spirit::Array{backup_test::file_record("log_backup_0_0_0_0", 1000, 400)};
  know_full_set("SYSTEMDB");
  expect_state(log_id, state("successful"));
  expect_full("SYSTEMDB", full_id);
  expect_state(full_id, state("successful"));
  expect_metadata();
  EXPECT_TRUE(run());
  expect_info("Backup HANA HDB:SYSTEMDB catalog successful.\n");
}

TEST_F(Log_Run, Without_The_Uuid_Of_A_Backint_Job_Fails_Without_An_Alert) {
  Log_Executor& executor = ready_log_executor();
  EXPECT_FALSE(executor.execute_backup(nullptr));
  expect_error("Failed to get backint job uuid\n");
  for (const Object& params : {Object(), Object{{"backint_job_uuid", ""}}, Object{{"backint_job_uuid", 5}}}) {
    EXPECT_FALSE(executor.execute_backup(&params));
    expect_error("Failed to get backint job uuid\n");
  }
  EXPECT_TRUE(alerts().empty());
  EXPECT_EQ(progress(), (std::vector<int>{1, 1, 1, 1}));
}

TEST_F(Log_Run, Raises_Alert_2_When_Hdbsql_Cannot_Be_Bound) {
  EXPECT_TRUE(registry_.remove_account("hana", "HDB_HDB00", ""));
  expect_failure({"7/2 0 1 {}"}, "Failed to init hdbsql for HDB HDB00\n");
  expect_error("Failed to get username and password\n");
  expect_error_with("No account is stored");
  EXPECT_TRUE(progress().empty()) << "it has not begun";
}

TEST_F(Log_Run, Raises_Alert_9_For_A_Backint_Job_That_Backupd_Does_Not_Know) {
  expect_failure({"7/9 0 1 {}"}, "Failed to get backint job info\n");
  log_.claim_all();
}

TEST_F(Log_Run, Starts_A_Tenant_That_Is_Not_Active_Under_The_Restore_Lock) {
  add_backint_job(log_uuid, "TN1", log_id);
  know_full_set("TN1");
  expect_listed("TN1", "NO");
  bool locked = false;
  Sql_Answer status = table("ACTIVE_STATUS", {"\"NO\""});
  status.before = [&] {
    locked = root_.exists(restore_lock);
    EXPECT_TRUE(log_.has("Start to backup HANA HDB:TN1 log\n"));
  };
  hdbsql_.expect(status_sql("TN1"), status);
  hdbsql_.expect("ALTER SYSTEM START DATABASE TN1", backup_test::done());
  hdbsql_.expect(status_sql("TN1"), table("ACTIVE_STATUS", {"\"YES\""}));
  bool released = false;
  Sql_Answer successful = state("successful");
  successful.before = [&] { released = !root_.exists(restore_lock); };
  expect_state(log_id, successful);
  expect_full("TN1", full_id);
  expect_state(full_id, state("successful"));
  expect_metadata();
  EXPECT_TRUE(run());
  EXPECT_TRUE(locked);
  EXPECT_TRUE(released);
}

TEST_F(Log_Run, Tries_To_Start_A_Tenant_That_Cannot_Be_Listed) {
  add_backint_job(log_uuid, "TN1", log_id);
  hdbsql_.expect(list_sql("TN1"), refused());
  hdbsql_.expect(status_sql("TN1"), table("ACTIVE_STATUS", {}));
  expect_failure({R"(7/3 0 1 {"database":"TN1"})"}, "Failed to start tenant database TN1\n");
  EXPECT_FALSE(root_.exists(restore_lock));
  log_.claim_all();
}

TEST_F(Log_Run, Starts_A_Tenant_Only_When_A_Restore_Has_Let_Go_Of_It) {
  add_backint_job(log_uuid, "TN1", log_id);
  platform::Wait_Event at_the_lock;
  std::atomic<bool> restored{false};
  Sql_Answer inactive = listed("TN1", "NO");
  inactive.before = [&] { at_the_lock.set(); };
  hdbsql_.expect(list_sql("TN1"), inactive);
  Sql_Answer status = table("ACTIVE_STATUS", {"\"YES\""});
  bool too_early = false;
  status.before = [&] { too_early = !restored; };
  hdbsql_.expect(status_sql("TN1"), status);
  expect_state(log_id, state("failed"));
  platform::File_Lock restore(restore_lock);
  ASSERT_TRUE(restore.acquire());
  std::thread log_backup([&] { EXPECT_FALSE(run()); });
  EXPECT_TRUE(at_the_lock.wait_real(real_limit));
  restored = true;
  restore.release();
  log_backup.join();
  EXPECT_FALSE(too_early);
  expect_error("Job state is error\n");
}

TEST_F(Log_Run, Needs_No_Lock_For_An_Active_Tenant_Nor_That_Of_Another_One) {
  platform::File_Lock active(restore_lock);
  ASSERT_TRUE(active.acquire());
  add_backint_job(log_uuid, "TN1", log_id);
  expect_listed("TN1");
  expect_state(log_id, state("failed"));
  expect_failure({"7/11 0 1 {}"}, "Job state is error\n");
  EXPECT_TRUE(active.held());
  active.release();

  platform::File_Lock other("/var/opt/tarvex/dorsal3/agent/lock/restore_HDB_TN2");
  ASSERT_TRUE(other.acquire());
  expect_listed("TN1", "NO");
  hdbsql_.expect(status_sql("TN1"), table("ACTIVE_STATUS", {"\"YES\""}));
  expect_state(log_id, state("failed"));
  EXPECT_FALSE(run());
  expect_error("Job state is error\n");
}

TEST_F(Log_Run, Fails_Silently_Where_The_Restore_Lock_Cannot_Be_Had) {
  add_backint_job(log_uuid, "TN1", log_id);
  root_.write("/var/opt/tarvex/dorsal3/agent/lock", "a file where the directory should be");
  expect_listed("TN1", "NO");
  EXPECT_FALSE(run());
  EXPECT_TRUE(alerts().empty());
}

TEST_F(Log_Run, Starts_No_Tenant_In_A_System_Without_Tenants) {
  set_multi_container(false);
  add_backint_job(log_uuid, "HDB", log_id);
  hdbsql_.expect("select STATE_NAME, SYS_END_TIME from SYS.M_BACKUP_CATALOG where BACKUP_ID=1700", state("failed"));
  expect_failure({"7/11 0 1 {}"}, "Job state is error\n");
}

TEST_F(Log_Run, Raises_Alert_11_For_A_Backup_That_Did_Not_End_Well) {
  add_backint_job(log_uuid, "SYSTEMDB", log_id);
  expect_state(log_id, state("Canceled"));
  expect_failure({"7/11 0 1 {}"}, "Job state is error\n");
}

TEST_F(Log_Run, Raises_Alert_10_Without_Any_Full_Backup) {
  add_backint_job(log_uuid, "SYSTEMDB", log_id);
  expect_state(log_id, state("successful"));
  hdbsql_.expect(full_sql("SYSTEMDB"), table("BACKUP_ID", {}));
  expect_failure({"7/10 0 1 {}"}, "Failed to get last full backup id\n");
}

TEST_F(Log_Run, Raises_Alert_11_For_A_Full_Backup_That_Failed) {
  add_backint_job(log_uuid, "SYSTEMDB", log_id);
  expect_state(log_id, state("successful"));
  expect_full("SYSTEMDB", full_id);
  expect_state(full_id, state("failed"));
  expect_failure({"7/11 0 1 {}"}, "Failed to wait full backup job(1500) exit, current job is 1700\n");
}

TEST_F(Log_Run, Raises_Alert_12_For_A_Full_Backup_Whose_Set_Does_Not_Come) {
  add_backint_job(log_uuid, "SYSTEMDB", log_id);
  expect_state(log_id, state("successful"));
  expect_full("SYSTEMDB", full_id);
  expect_state(full_id, state("successful"));
  expect_failure({"7/12 0 1 {}"}, "Failed to wait full backup job(1500) catalog complete, current job is 1700\n");
  EXPECT_EQ(seconds_slept(), 1 + 600);
  EXPECT_EQ(log_.claim_containing("Failed to get SYSTEMDB backup sets, null\n"), 60U) << "one for each request";
}

TEST_F(Log_Run, Goes_Straight_To_The_Set_When_It_Is_The_Full_Backup_Itself_Or_Older) {
  for (const ACE_UINT64 newest : {log_id, log_id + 1}) {
    SCOPED_TRACE(newest);
    add_backint_job(log_uuid, "SYSTEMDB", log_id);
    expect_state(log_id, state("successful"));
    expect_full("SYSTEMDB", newest);
    backupd_.sets[{"SYSTEMDB", 0}] = Object{{"uuid", "x"}, {"start_time", "2023-11-14 20:00:00"}, {"lifeline", "life"}};
    expect_state(newest, state("successful"));
    hdbsql_.expect(
        "select TO_VARCHAR(UTC_START_TIME, 'YYYY-MM-DD HH24:MI:SS') as START_TIME, TO_VARCHAR(UTC_END_TIME, "
        "'YYYY-MM-DD HH24:MI:SS') as END_TIME from SYS_DATABASES.M_BACKUP_CATALOG where BACKUP_ID=1700",
        table("START_TIME,END_TIME", {"\"2023-11-14 22:13:20\",\"2023-11-14 22:14:20\""}));
    EXPECT_TRUE(run());
    EXPECT_EQ(clock_.sleeps(), Pauses{1});
    log_.claim_all();
  }
}

TEST_F(Log_Run, Raises_Alert_45_When_The_Set_Cannot_Be_Completed) {
  add_backint_job(log_uuid, "SYSTEMDB", log_id);
  backupd_.files.clear();
  expect_state(log_id, state("successful"));
  expect_full("SYSTEMDB", log_id);
  expect_failure({"7/45 17592186044416 1 {}"}, "Failed to update and save metadata\n");
  expect_error("Backup files is empty\n");
}

TEST_F(Log_Run, Raises_Alert_45_When_The_Set_Cannot_Be_Committed) {
  add_backint_job(log_uuid, "SYSTEMDB", log_id);
  know_full_set("SYSTEMDB");
  backupd_.intercept = [](const std::string& method, const std::string&) -> std::optional<net::Http_Response> {
    if (method != "POST") return std::nullopt;
    return backup_test::error_answer(422);
  };
  expect_state(log_id, state("successful"));
  expect_full("SYSTEMDB", full_id);
  expect_state(full_id, state("successful"));
  expect_metadata();
  expect_failure({"7/45 17592186044416 1 {}"}, "Failed to update and save metadata\n");
  log_.claim_all();
}

TEST_F(Log_Run, Waits_For_The_Backup_In_Steps_Of_Ten_Seconds) {
  Log_Executor& executor = waiting_executor();
  expect_state(log_id, runs());
  expect_state(log_id, state("prepared"));
  expect_state(log_id, state("SUCCESSFUL"));
  EXPECT_TRUE(executor.wait_backint_job(log_id));
  EXPECT_EQ(clock_.sleeps(), (Pauses{poll_seconds, poll_seconds}));
  EXPECT_EQ(runner_.listings(), 0U) << "no look at the processes in the first 600 seconds";
}

TEST_F(Log_Run, Knows_A_Backup_That_Failed_In_Any_Letters) {
  Log_Executor& executor = waiting_executor();
  for (const char* name : {"failed", "FAILED", "Failed", "canceled", "CANCELED"}) {
    expect_state(log_id, state(name));
    EXPECT_FALSE(executor.wait_backint_job(log_id)) << name;
  }
  EXPECT_TRUE(clock_.sleeps().empty());
}

TEST_F(Log_Run, Ends_The_Wait_When_The_State_Cannot_Be_Read) {
  Log_Executor& executor = waiting_executor();
  hdbsql_.expect(state_sql(log_id), table("STATE_NAME,SYS_END_TIME", {}), 10);
  EXPECT_FALSE(executor.wait_backint_job(log_id));
  expect_error("Failed to get job state\n");
}

TEST_F(Log_Run, Ends_The_Wait_When_The_State_Can_No_Longer_Be_Read) {
  Log_Executor& executor = waiting_executor();
  expect_state(log_id, runs());
  hdbsql_.expect(state_sql(log_id), table("STATE_NAME,SYS_END_TIME", {}), 10);
  EXPECT_FALSE(executor.wait_backint_job(log_id));
  expect_error("Failed to get job state\n");
}

TEST_F(Log_Run, Gives_A_Backup_Up_That_Has_Had_No_Process_After_600_Seconds) {
  Log_Executor& executor = waiting_executor();
  hdbsql_.expect_on_and_on(state_sql(log_id), runs());
  runner_.let_run({{10, "hdbadm", "/usr/sap/HDB/SYS/global/hdb/opt/hdbbackint -f backup -s 99"}});
  EXPECT_FALSE(executor.wait_backint_job(log_id));
  expect_error("Hdbbackint progress does not exist, state = running, database_backup_id = 1700\n");
  EXPECT_EQ(seconds_slept(), 610) << "the first look after more than 600 seconds, and nothing was seen for longer";
  EXPECT_EQ(runner_.listings(), 1U);
}

TEST_F(Log_Run, Waits_As_Long_As_The_Process_Runs_And_180_Seconds_More) {
  Log_Executor& executor = waiting_executor();
  hdbsql_.expect_on_and_on(state_sql(log_id), runs());
  runner_.let_run({{10, "hdbadm", processes_of_log}});
  constexpr std::chrono::seconds process_ends{5005};
  clock_.at(process_ends, [this] { runner_.let_run({}); });
  EXPECT_FALSE(executor.wait_backint_job(log_id));
  expect_error("Hdbbackint progress does not exist, state = running, database_backup_id = 1700\n");
  EXPECT_EQ(seconds_slept(), 5000 + 190) << "last seen at 5000 seconds, given up after more than 180 without it";
}

TEST_F(Log_Run, Takes_Processes_That_Cannot_Be_Listed_As_None) {
  Log_Executor& executor = waiting_executor();
  hdbsql_.expect_on_and_on(state_sql(log_id), runs());
  runner_.fail_to_list(true);
  EXPECT_FALSE(executor.wait_backint_job(log_id));
  expect_error_with("Hdbbackint progress does not exist");
  expect_error_with("Failed to list the processes of this host");
}

TEST_F(Log_Run, Takes_An_Id_That_Begins_With_Its_Own_For_Its_Own_Process) {
  Log_Executor& executor = waiting_executor();
  hdbsql_.expect_on_and_on(state_sql(log_id), runs());
  runner_.let_run({{10, "hdbadm", "hdbbackint -f backup -s17003"}});
  clock_.at(std::chrono::seconds(1005), [this] { runner_.let_run({}); });
  EXPECT_FALSE(executor.wait_backint_job(log_id));
  expect_error_with("Hdbbackint progress does not exist");
  EXPECT_EQ(seconds_slept(), 1000 + 190);
}

TEST_F(Log_Run, Of_A_Stopped_Instance_Waits_Until_No_Hdbbackint_Runs_Whatever_The_State) {
  set_running(false);
  Log_Executor& executor = waiting_executor();
  runner_.let_run({{10, "hdbadm", "hdbbackint -f restore -s 99"}});
  constexpr std::chrono::seconds process_ends{7205};
  clock_.at(process_ends, [this] { runner_.let_run({}); });
  EXPECT_TRUE(executor.wait_backint_job(log_id));
  EXPECT_EQ(seconds_slept(), 7210);
  EXPECT_TRUE(hdbsql_.statements().empty());
}

TEST_F(Log_Run, Of_An_Instance_In_No_Clear_State_Waits_For_Processes_Too) {
  set_half_started();
  Log_Executor& executor = waiting_executor();
  runner_.let_run({{10, "hdbadm", "hdbbackint -f restore"}});
  clock_.at(std::chrono::seconds(15), [this] { runner_.let_run({}); });
  EXPECT_TRUE(executor.wait_backint_job(log_id));
  EXPECT_EQ(clock_.sleeps(), (Pauses{poll_seconds, poll_seconds}));
  EXPECT_TRUE(hdbsql_.statements().empty());
}

TEST_F(Log_Run, Of_A_Stopped_Instance_Takes_Processes_That_Cannot_Be_Listed_As_None) {
  set_running(false);
  Log_Executor& executor = waiting_executor();
  runner_.fail_to_list(true);
  EXPECT_TRUE(executor.wait_backint_job(log_id));
  EXPECT_TRUE(clock_.sleeps().empty());
  expect_error_with("Failed to list the processes of this host");
}

TEST_F(Log_Run, Of_An_Instance_That_Cannot_Be_Asked_Fails) {
  Log_Executor& executor = waiting_executor();
  runner_.clear_rules();
  runner_.on([](const support::Seen_Call&, support::Scripted_Child& child) {
    child.start_error = ENOENT;
    return true;
  });
  EXPECT_FALSE(executor.wait_backint_job(log_id));
  expect_error("Failed to get instance state\n");
  log_.claim_all();
}

TEST_F(Log_Run, Takes_The_Set_Of_The_Full_Backup_As_Soon_As_It_Is_There) {
  Log_Executor& executor = waiting_executor();
  clock_.at(std::chrono::seconds(25), [this] { add_full_set("TN1", full_id, "2023-11-14 20:00:00"); });
  EXPECT_TRUE(executor.wait_catalog_complete("TN1", full_id));
  EXPECT_EQ(clock_.sleeps(), (Pauses{poll_seconds, poll_seconds, poll_seconds}));
  log_.claim_all();
}
