// The backup set of one database: begun, completed, committed.

#include <limits>
#include <string>
#include <vector>

#include "job/job_mutex.h"
#include "records/backup_set.h"
#include "scrt/uuid.h"
#include "support/scoped_zone.h"
#include "unit/hana/job/executor_fixture.h"

namespace {

using backup_test::Executor;
using backup_test::file_record;
using backup_test::refused;
using backup_test::table;
using json_spirit::Array;
using json_spirit::Object;
using json_spirit::Value;
using sap_hana::HANA_Backup_Set;

constexpr const char* set_uuid = "99999999-9999-4999-8999-999999999999";
constexpr ACE_UINT64 backup_id = 1700;

constexpr const char* time_sql =
    "select TO_VARCHAR(UTC_START_TIME, 'YYYY-MM-DD HH24:MI:SS') as START_TIME, TO_VARCHAR(UTC_END_TIME, 'YYYY-MM-DD "
    "HH24:MI:SS') as END_TIME from SYS_DATABASES.M_BACKUP_CATALOG where BACKUP_ID=1700";
constexpr const char* full_sql =
    "select c.BACKUP_ID as BACKUP_ID from SYS_DATABASES.M_BACKUP_CATALOG as c join "
    "SYS_DATABASES.M_BACKUP_CATALOG_FILES "
    "as f on c.BACKUP_ID = f.BACKUP_ID where lower(ENTRY_TYPE_NAME)='complete data backup' and "
    "lower(DESTINATION_TYPE_NAME)='backint'  and STATE_NAME='successful' and c.DATABASE_NAME='TN1' order by "
    "c.BACKUP_ID "
    "desc limit 1";
constexpr const char* full_state_sql =
    "select STATE_NAME, SYS_END_TIME from SYS_DATABASES.M_BACKUP_CATALOG where BACKUP_ID=1500";

class Set_Metadata : public backup_test::Executor_Test {
 protected:
  Set_Metadata() { add_backint_job(set_uuid, "TN1", backup_id); }

  /// HANA tells when the backup ran: 2023-11-14 22:13:20 to 22:14:20, UTC.
  void expect_times() {
    hdbsql_.expect(time_sql, table("START_TIME,END_TIME", {"\"2023-11-14 22:13:20\",\"2023-11-14 22:14:20\""}));
  }
  /// What backupd holds as the newest set of TN1.
  void set_last(const Value& set) { backupd_.sets[{"TN1", 0}] = set; }
  static HANA_Backup_Set new_set() {
    HANA_Backup_Set set;
    set.uuid = set_uuid;
    set.type = "full";
    set.resource_uuid = backup_test::resource_uuid;
    return set;
  }
  /// Completes a new set and gives why a new lifeline began, "" when none did.
  std::string lifeline_reason(Executor& executor, HANA_Backup_Set& set) {
    EXPECT_TRUE(executor.update_metadata(set, set_uuid));
    std::string reason;
    for (const support::Log_Line& line : log_.lines()) {
      constexpr std::string_view start = "Update lifeline: ";
      if (!line.text.starts_with(start)) continue;
      EXPECT_EQ(line.priority, LM_INFO);
      reason = line.text.substr(start.size());
    }
    return reason;
  }
};

}  // namespace

TEST_F(Set_Metadata, Begins_With_What_Job_And_System_Are) {
  Executor& executor = ready_executor();
  clock_.advance(std::chrono::seconds(5));
  HANA_Backup_Set set;
  executor.init_metadata(set);
  unsigned char binary[uuid_bytes];
  EXPECT_TRUE(uuid_string_to_binary(set.uuid.c_str(), binary)) << set.uuid;
  EXPECT_EQ(set.job_name, "nightly");
  EXPECT_EQ(set.job_id, "job-id");
  EXPECT_EQ(set.job_act_id, job().job_act_id());
  EXPECT_EQ(set.job_uid, "55555555-5555-4555-8555-555555555555");
  EXPECT_EQ(set.host_uuid, backup_test::host_uuid);
  EXPECT_EQ(set.resource_uuid, backup_test::resource_uuid);
  EXPECT_EQ(set.agent, "agent-1");
  EXPECT_EQ(set.type, "full");
  EXPECT_EQ(set.sid, "HDB");
  EXPECT_EQ(set.instance_number, 0);
  EXPECT_EQ(set.instance_name, "HDB00");
  EXPECT_EQ(set.system_version, "2.00.059.00");
  EXPECT_EQ(set.creation_time, 1700000005);
  EXPECT_EQ(set.expiration_id, std::numeric_limits<std::uint64_t>::max());
  EXPECT_EQ(set.sequence_id, std::numeric_limits<std::uint64_t>::max());
  HANA_Backup_Set other;
  executor.init_metadata(other);
  EXPECT_NE(other.uuid, set.uuid);
}

TEST_F(Set_Metadata, Tells_The_Number_Of_The_Instance_And_The_Version_Of_The_System) {
  root_.write("/usr/sap/HDB/HDB07/exe/manifest", "fullversion: 2.00.048.07 Build 1-2\n");
  Object instance = backup_test::instance_record(backup_test::host_uuid);
  instance["extended_attrs"] =
      Object{{"sid", "HDB"}, {"instance_name", "HDB07"}, {"instance_number", 7}, {"multi_container", true}};
  backupd_.resource = Object{{"uuid", backup_test::resource_uuid}, {"instances", Array{instance}}};
  HANA_Backup_Set set;
  ready_executor().init_metadata(set);
  EXPECT_EQ(set.instance_number, 7);
  EXPECT_EQ(set.instance_name, "HDB07");
  EXPECT_EQ(set.system_version, "2.00.059.00") << "not the one that the instance's own manifest tells";
}

TEST_F(Set_Metadata, Names_The_Type_After_The_Kind_Of_The_Backup) {
  Executor& executor = ready_executor();
  const std::pair<Job_Definition_Subtype, const char*> rows[] = {{JOB_DEFINITION_SUBTYPE_FULL, "full"},
                                                                 {JOB_DEFINITION_SUBTYPE_INCREMENTAL, "incremental"},
                                                                 {JOB_DEFINITION_SUBTYPE_CUMULATIVE, "differential"},
                                                                 {JOB_DEFINITION_SUBTYPE_ONDEMAND, "log"}};
  for (const auto& [kind, type] : rows) {
    executor.job_type_ = kind;
    HANA_Backup_Set set;
    executor.init_metadata(set);
    EXPECT_EQ(set.type, type);
  }
}

TEST_F(Set_Metadata, Begins_Without_A_Version_When_The_Instance_Cannot_Be_Listed) {
  Executor& executor = ready_executor();
  executor.instance_name_ = "HDB77";
  HANA_Backup_Set set;
  executor.init_metadata(set);
  EXPECT_EQ(set.system_version, "");
  EXPECT_EQ(set.instance_name, "HDB77");
  expect_error_with("HDB77");
}

TEST_F(Set_Metadata, Takes_Names_Files_Sizes_And_Times_Over) {
  const support::Scoped_Zone zone("Asia/Tokyo");
  backupd_.files[set_uuid].push_back(file_record("databackup_3_1", 5000, 1600));
  expect_times();
  HANA_Backup_Set set = new_set();
  Executor& executor = ready_executor();
  clock_.advance(std::chrono::seconds(500));
  ASSERT_TRUE(executor.update_metadata(set, set_uuid));

  EXPECT_EQ(set.database, "TN1");
  EXPECT_EQ(set.source_name, "TN1");
  EXPECT_EQ(set.database_backup_id, backup_id);
  std::string minor_id;
  ASSERT_TRUE(compute_minor_resource_id(backup_test::resource_uuid, "TN1", minor_id));
  EXPECT_EQ(set.minor_resource_id, minor_id);
  ASSERT_EQ(set.files().size(), 2U);
  const HANA_Backup_Set::Backup_File& file = set.files()[1];
  EXPECT_EQ(file.extern_backup_id, "ebid-of-databackup_3_1");
  EXPECT_EQ(file.origin_path, "/pipes/databackup_3_1");
  EXPECT_EQ(file.filename, "databackup_3_1");
  EXPECT_EQ(file.size, 5000U);
  EXPECT_EQ(file.source_type, "PIPE");
  EXPECT_EQ(file.storage_path, "dataset/databackup_3_1");
  EXPECT_EQ(file.storage_size, 1600U);
  ASSERT_EQ(set.pieces().size(), 2U);
  EXPECT_EQ(set.pieces()[1].path, "dataset/databackup_3_1");
  EXPECT_EQ(set.pieces()[1].size, 5000U);
  ASSERT_EQ(set.storages().size(), 1U);
  EXPECT_EQ(set.storages()[0].pool_uuid, backup_test::pool_uuid);
  EXPECT_EQ(set.storages()[0].size, 2000U);
  EXPECT_EQ(set.total_size, 6000U);
  EXPECT_EQ(set.total_storage_size, 2000U);
  EXPECT_EQ(set.type, "full");
  EXPECT_EQ(set.begin_time, 1700000001) << "one second after HANA's start";
  EXPECT_EQ(set.end_time, 1700000060);
  EXPECT_EQ(set.update_time, 1700000500);
  EXPECT_EQ(backupd_.removed_jobs, std::vector<std::string>{set_uuid});
  expect_error("Failed to get TN1 backup sets, null\n");
}

TEST_F(Set_Metadata, Adds_The_Sizes_To_The_Statistics_Of_The_Job) {
  backupd_.files[set_uuid].push_back(file_record("databackup_3_1", 5000, 1600));
  Executor& executor = ready_executor();
  Job_Activity& activity = job().activity();
  activity.size = 10;
  activity.set_size = 20;
  activity.set_storage_size = 30;
  activity.processed_size = 40;
  expect_times();
  HANA_Backup_Set set = new_set();
  ASSERT_TRUE(executor.update_metadata(set, set_uuid));
  EXPECT_EQ(activity.size, 6010U);
  EXPECT_EQ(activity.set_size, 6020U);
  EXPECT_EQ(activity.set_storage_size, 2030U);
  EXPECT_EQ(activity.processed_size, 40U);
  log_.claim_all();
}

TEST_F(Set_Metadata, Types_A_Set_With_The_Catalog_Backup_As_Catalog) {
  backupd_.files[set_uuid].push_back(file_record("log_backup_0_0_0_0", 10, 10));
  backupd_.files[set_uuid].push_back(file_record("databackup_3_1", 10, 10));
  expect_times();
  HANA_Backup_Set set = new_set();
  ASSERT_TRUE(ready_executor().update_metadata(set, set_uuid));
  EXPECT_EQ(set.type, "catalog");
  EXPECT_EQ(set.files().size(), 3U);
  log_.claim_all();
}

TEST_F(Set_Metadata, Is_Dated_By_The_Update_When_HANA_Tells_No_Times) {
  hdbsql_.expect(time_sql, table("START_TIME,END_TIME", {"\"2023-11-14 22:13:20\",?"}));
  HANA_Backup_Set set = new_set();
  Executor& executor = ready_executor();
  clock_.advance(std::chrono::seconds(77));
  ASSERT_TRUE(executor.update_metadata(set, set_uuid));
  EXPECT_EQ(set.begin_time, 1700000077);
  EXPECT_EQ(set.end_time, 1700000077);
  EXPECT_EQ(set.update_time, 1700000077);
  expect_error("Failed to update job time by database\n");
  log_.claim_all();
}

TEST_F(Set_Metadata, Waits_For_The_First_File_Record_With_Pauses_That_Double) {
  const Array files = backupd_.files[set_uuid];
  backupd_.files[set_uuid].clear();
  clock_.at(std::chrono::seconds(31), [this, files] { backupd_.files[set_uuid] = files; });
  expect_times();
  HANA_Backup_Set set = new_set();
  ASSERT_TRUE(ready_executor().update_metadata(set, set_uuid));
  EXPECT_EQ(clock_.sleeps(), (std::vector<double>{1, 2, 4, 8, 16}));
  EXPECT_EQ(set.files().size(), 1U);
  log_.claim_all();
}

TEST_F(Set_Metadata, Fails_After_Ten_Looks_Without_A_File_And_Removes_The_Record) {
  backupd_.files[set_uuid].clear();
  HANA_Backup_Set set = new_set();
  EXPECT_FALSE(ready_executor().update_metadata(set, set_uuid));
  EXPECT_EQ(clock_.sleeps(), (std::vector<double>{1, 2, 4, 8, 16, 32, 64, 128, 256, 512}));
  EXPECT_EQ(backupd_.removed_jobs, std::vector<std::string>{set_uuid});
  expect_error("Backup files is empty\n");
}

TEST_F(Set_Metadata, Fails_At_Once_When_The_Files_Cannot_Be_Read_And_Leaves_The_Record) {
  Executor& executor = ready_executor();
  backupd_.intercept = [](const std::string&, const std::string& target) -> std::optional<net::Http_Response> {
    if (target.find("/files") == std::string::npos) return std::nullopt;
    return backup_test::error_answer(403);
  };
  HANA_Backup_Set set = new_set();
  EXPECT_FALSE(executor.update_metadata(set, set_uuid));
  expect_error("Failed to get backup files\n");
  expect_error_with("Failed to read the Backint files");
  EXPECT_TRUE(backupd_.removed_jobs.empty());
  EXPECT_TRUE(clock_.sleeps().empty());
}

TEST_F(Set_Metadata, Asks_For_The_Files_Five_Times_More_While_Backupd_Is_Not_Ready) {
  expect_times();
  Executor& executor = ready_executor();
  unsigned refusals = 5;
  backupd_.intercept = [&refusals](const std::string&, const std::string& target) -> std::optional<net::Http_Response> {
    if (target.find("/files") == std::string::npos || refusals == 0) return std::nullopt;
    --refusals;
    return backup_test::error_answer(503);
  };
  HANA_Backup_Set set = new_set();
  ASSERT_TRUE(executor.update_metadata(set, set_uuid));
  EXPECT_EQ(clock_.sleeps(), (std::vector<double>{1, 2, 4, 8, 16}));
  EXPECT_EQ(set.files().size(), 1U);
  log_.claim_all();
}

TEST_F(Set_Metadata, Goes_On_When_The_Job_Record_Can_Be_Neither_Read_Nor_Removed) {
  backupd_.jobs.clear();
  hdbsql_.expect(
      "select TO_VARCHAR(UTC_START_TIME, 'YYYY-MM-DD HH24:MI:SS') as START_TIME, TO_VARCHAR(UTC_END_TIME, 'YYYY-MM-DD "
      "HH24:MI:SS') as END_TIME from SYS_DATABASES.M_BACKUP_CATALOG where BACKUP_ID=0",
      table("START_TIME,END_TIME", {}));
  HANA_Backup_Set set = new_set();
  EXPECT_TRUE(ready_executor().update_metadata(set, set_uuid));
  EXPECT_EQ(set.database, "") << "what a failed read leaves is empty";
  EXPECT_EQ(set.database_backup_id, 0U);
  EXPECT_EQ(set.files().size(), 1U);
  expect_error_with("Failed to read the Backint job");
  expect_error_with("Failed to remove the Backint job");
  expect_error("Failed to get  backup sets, null\n");
  expect_error("Failed to update job time by database\n");
}

TEST_F(Set_Metadata, Begins_A_Lifeline_And_An_Incarnation_With_The_First_Backup) {
  expect_times();
  HANA_Backup_Set set = new_set();
  EXPECT_EQ(lifeline_reason(ready_executor(), set), "failed to get last backup job info\n");
  unsigned char binary[uuid_bytes];
  EXPECT_TRUE(uuid_string_to_binary(set.lifeline.c_str(), binary)) << set.lifeline;
  EXPECT_EQ(set.incarnation, set_uuid);
  expect_error("Failed to get TN1 backup sets, null\n");
}

TEST_F(Set_Metadata, Decides_The_Lifeline_By_The_Newest_Set_And_The_Last_Restore) {
  struct Row {
    const char* name;
    Object last;
    const char* restored;
    const char* reason;
  };
  const char* const before = "2023-11-14T21:00:00+00:00 RECOVER DATA started\n";
  const char* const same = "2023-11-15T07:00:00+09:00 RECOVER DATA started\n";
  const char* const after = "2023-11-14T22:00:01+00:00 RECOVER DATA started\n";
  const Object good{{"start_time", "2023-11-14 22:00:00"}, {"lifeline", "life"}};
  const Row rows[] = {
      {"never restored", good, "", ""},
      {"restored before", good, before, ""},
      {"restored in the same second", good, same, ""},
      {"restored after", good, after, "restore time is 1699999201, backup time is 1699999200\n"},
      {"no start time", {{"lifeline", "life"}}, "", "failed to get start time from last backup job info\n"},
      {"start time of another type",
       {{"start_time", 5}, {"lifeline", "life"}},
       "",
       "failed to get start time from last backup job info\n"},
      {"no start time and no lifeline", {{"x", 1}}, "", "failed to get start time from last backup job info\n"},
      {"no lifeline",
       {{"start_time", "2023-11-14 22:00:00"}},
       after,
       "failed to get lifeline from last backup job info\n"},
      {"a start that is no time",
       {{"start_time", "soon"}, {"lifeline", "life"}},
       after,
       "failed to transform posix time\n"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    const support::Scoped_Zone zone("Asia/Tokyo");
    set_last(row.last);
    write_backup_log(row.restored, "TN1");
    add_backint_job(set_uuid, "TN1", backup_id);
    expect_times();
    HANA_Backup_Set set = new_set();
    Executor& executor = ready_executor();
    ASSERT_TRUE(executor.update_metadata(set, set_uuid));
    if (*row.reason == '\0') {
      EXPECT_EQ(set.lifeline, "life");
      EXPECT_FALSE(log_.has_containing("Update lifeline"));
    } else {
      EXPECT_NE(set.lifeline, "life");
      EXPECT_FALSE(set.lifeline.empty());
      expect_info(std::string("Update lifeline: ") + row.reason);
    }
    EXPECT_EQ(set.incarnation, set_uuid) << "a full backup begins an incarnation";
  }
}

TEST_F(Set_Metadata, Tolerates_A_Restore_Time_That_Cannot_Be_Read) {
  set_last(Object{{"start_time", "2023-11-14 22:00:00"}, {"lifeline", "life"}});
  write_backup_log("2030-01-01T00:00:00+00:00 RECOVER DATA started\n", "TN1");
  root_.write("/usr/sap/HDB/HDB00/otherhost/trace/DB_TN1/backup.log", "RECOVER DATA started\n");
  expect_times();
  HANA_Backup_Set set = new_set();
  ASSERT_TRUE(ready_executor().update_metadata(set, set_uuid));
  EXPECT_EQ(set.lifeline, "life") << "0 counts, not what was found before the failure";
  expect_error("Failed to handle time string 'RECOVER DATA started'\n");
  expect_error("Failed to get latest restore info\n");
}

TEST_F(Set_Metadata, Carries_The_Incarnation_Of_The_Full_Backup_It_Is_Based_On) {
  set_last(Object{{"start_time", "2023-11-14 22:00:00"}, {"lifeline", "life"}});
  add_full_set("TN1", 1500, "2023-11-14 20:00:00");
  Executor& executor = ready_executor();
  for (const Job_Definition_Subtype kind :
       {JOB_DEFINITION_SUBTYPE_INCREMENTAL, JOB_DEFINITION_SUBTYPE_CUMULATIVE, JOB_DEFINITION_SUBTYPE_ONDEMAND}) {
    SCOPED_TRACE(kind);
    executor.job_type_ = kind;
    executor.last_full_backup_id_ = 1500;
    hdbsql_.expect(full_state_sql, table("STATE_NAME,SYS_END_TIME", {"\"successful\",\"2023-11-14 20:10:00\""}));
    expect_times();
    HANA_Backup_Set set = new_set();
    ASSERT_TRUE(executor.update_metadata(set, set_uuid));
    EXPECT_EQ(set.lifeline, "life");
    EXPECT_EQ(set.incarnation, "incarnation-of-TN1");
  }
}

TEST_F(Set_Metadata, Looks_The_Full_Backup_Up_Again_When_The_One_Known_Is_Not_Good) {
  struct Row {
    const char* name;
    ACE_UINT64 known;
    backup_test::Sql_Answer state;
  };
  const Row rows[] = {
      {"none known", 0, {}},
      {"failed", 1500, table("STATE_NAME,SYS_END_TIME", {"\"failed\",\"2023-11-14 20:10:00\""})},
      {"still running", 1500, table("STATE_NAME,SYS_END_TIME", {"\"successful\",?"})},
      {"without a state", 1500, table("STATE_NAME", {"\"successful\""})},
  };
  set_last(Object{{"start_time", "2023-11-14 22:00:00"}, {"lifeline", "life"}});
  add_full_set("TN1", 1600, "2023-11-14 20:00:00");
  Executor& executor = ready_executor();
  executor.job_type_ = JOB_DEFINITION_SUBTYPE_INCREMENTAL;
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    executor.last_full_backup_id_ = row.known;
    if (row.known != 0) hdbsql_.expect(full_state_sql, row.state);
    hdbsql_.expect(full_sql, table("BACKUP_ID", {"1600"}));
    expect_times();
    HANA_Backup_Set set = new_set();
    ASSERT_TRUE(executor.update_metadata(set, set_uuid));
    EXPECT_EQ(set.incarnation, "incarnation-of-TN1");
    EXPECT_EQ(executor.last_full_backup_id_, 1600U);
  }
}

TEST_F(Set_Metadata, Begins_An_Incarnation_When_The_Full_Backup_Tells_None) {
  // The newest set is not the full backup: its incarnation is not taken for want of another.
  set_last(Object{{"start_time", "2023-11-14 22:00:00"}, {"lifeline", "life"}, {"incarnation", "of the newest set"}});
  Executor& executor = ready_executor();
  executor.job_type_ = JOB_DEFINITION_SUBTYPE_INCREMENTAL;
  {
    SCOPED_TRACE("HANA has no full backup");
    executor.last_full_backup_id_ = 0;
    hdbsql_.expect(full_sql, table("BACKUP_ID", {}));
    expect_times();
    HANA_Backup_Set set = new_set();
    ASSERT_TRUE(executor.update_metadata(set, set_uuid));
    EXPECT_EQ(set.incarnation, set_uuid);
  }
  {
    SCOPED_TRACE("backupd does not know it");
    hdbsql_.expect(full_sql, table("BACKUP_ID", {"1600"}));
    expect_times();
    HANA_Backup_Set set = new_set();
    ASSERT_TRUE(executor.update_metadata(set, set_uuid));
    EXPECT_EQ(set.incarnation, set_uuid);
    expect_error("Failed to get TN1 backup sets, null\n");
  }
  {
    SCOPED_TRACE("its set has no incarnation");
    executor.last_full_backup_id_ = 0;
    backupd_.sets[{"TN1", 1600}] = Object{{"uuid", "x"}};
    hdbsql_.expect(full_sql, table("BACKUP_ID", {"1600"}));
    expect_times();
    HANA_Backup_Set set = new_set();
    ASSERT_TRUE(executor.update_metadata(set, set_uuid));
    EXPECT_EQ(set.incarnation, set_uuid);
  }
}

TEST_F(Set_Metadata, Begins_An_Incarnation_With_A_New_Lifeline_Even_For_An_Incremental_Backup) {
  set_last(Object{{"start_time", "2023-11-14 22:00:00"}, {"lifeline", "life"}});
  write_backup_log("2023-11-14T22:00:01+00:00 RECOVER DATA started\n", "TN1");
  Executor& executor = ready_executor();
  executor.job_type_ = JOB_DEFINITION_SUBTYPE_INCREMENTAL;
  executor.last_full_backup_id_ = 1500;
  executor.incarnation_ = "of the database before";
  expect_times();
  HANA_Backup_Set set = new_set();
  ASSERT_TRUE(executor.update_metadata(set, set_uuid));
  EXPECT_EQ(set.incarnation, set_uuid);
  EXPECT_EQ(executor.incarnation_, set_uuid);
}

TEST_F(Set_Metadata, Lets_No_Other_Run_Of_The_Database_Between_The_Lifeline_And_The_Commit) {
  const std::string lock_name = std::string(backup_test::resource_uuid) + "/TN1";
  std::vector<std::string> locked_requests;
  backupd_.intercept = [&](const std::string& method, const std::string& target) {
    if (const auto lock = Job_Mutex::get(lock_name); lock->tryacquire() == 0)
      (void)lock->release();
    else
      locked_requests.push_back(method + " " + target.substr(0, target.find('?')));
    return std::optional<net::Http_Response>();
  };
  Executor& executor = ready_executor();
  HANA_Backup_Set set = new_set();
  expect_times();
  ASSERT_TRUE(executor.update_metadata(set, set_uuid));
  EXPECT_NE(Job_Mutex::get(lock_name)->tryacquire(), 0) << "the set is not committed yet";
  EXPECT_TRUE(executor.save_metadata(set));
  EXPECT_EQ(locked_requests, (std::vector<std::string>{"GET /q5/r/v2/sets/restore/sets", "POST /q5/r/v2/sets"}));
  EXPECT_EQ(Job_Mutex::count(), 0U);
  log_.claim_all();
}

TEST_F(Set_Metadata, Lets_The_Next_Run_In_After_A_Commit_That_Failed) {
  Executor& executor = ready_executor();
  HANA_Backup_Set set = new_set();
  expect_times();
  ASSERT_TRUE(executor.update_metadata(set, set_uuid));
  backupd_.intercept = [](const std::string&, const std::string&) { return backup_test::error_answer(422); };
  EXPECT_FALSE(executor.save_metadata(set));
  EXPECT_EQ(Job_Mutex::count(), 0U);
  log_.claim_all();
}

TEST_F(Set_Metadata, Commits_The_Set_With_Its_Catalog_Metadata) {
  Executor& executor = ready_executor();
  HANA_Backup_Set set = new_set();
  set.database = "TN1";
  EXPECT_TRUE(executor.save_metadata(set));
  ASSERT_EQ(backupd_.committed.size(), 1U);
  EXPECT_EQ(json_spirit::dump_json(backupd_.committed[0]), json_spirit::dump_json(set.to_record()));
}

TEST_F(Set_Metadata, Reports_A_Commit_That_Failed) {
  Executor& executor = ready_executor();
  backupd_.intercept = [](const std::string&, const std::string&) { return backup_test::error_answer(422); };
  HANA_Backup_Set set = new_set();
  EXPECT_FALSE(executor.save_metadata(set));
  expect_error("Failed to write HANA catalog to backupd\n");
  log_.claim_all();
}

TEST_F(Set_Metadata, Tries_A_Commit_As_Long_As_The_Definition_Says) {
  struct Row {
    const char* name;
    std::size_t seconds;
    std::vector<double> pauses;
  };
  const Row rows[] = {
      {"not at all", 0, {}}, {"a while", 5, {1, 2}}, {"longer than the attempts take", 600, {1, 2, 4, 8, 16}}};
  Executor& executor = ready_executor();
  backupd_.intercept = [](const std::string&, const std::string&) { return backup_test::error_answer(503); };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    definition_->max_seconds_retry(row.seconds);
    const std::size_t before = clock_.sleeps().size();
    HANA_Backup_Set set = new_set();
    EXPECT_FALSE(executor.save_metadata(set));
    const std::vector<double> sleeps = clock_.sleeps();
    EXPECT_EQ(std::vector<double>(sleeps.begin() + static_cast<std::ptrdiff_t>(before), sleeps.end()), row.pauses);
    expect_error("Failed to write HANA catalog to backupd\n");
    expect_error_with("503");
  }
}

TEST_F(Set_Metadata, Takes_A_Retry_Time_Beyond_The_Range_Of_A_Number_As_The_Longest) {
  definition_->max_seconds_retry(std::numeric_limits<std::size_t>::max());
  HANA_Backup_Set set = new_set();
  EXPECT_TRUE(ready_executor().save_metadata(set));
}
