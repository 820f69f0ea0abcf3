// The BACKUP DATA statement, its kind, and the record that the Backint agent reads.

#include <string>
#include <vector>

#include "records/rate_limits.h"
#include "unit/hana/job/executor_fixture.h"

namespace {

using backup_test::Executor;
using backup_test::table;
using json_spirit::dump_json;
using json_spirit::Object;

constexpr const char* job_uuid = "88888888-8888-4888-8888-888888888888";

class Backup_Command : public backup_test::Executor_Test {};

class Backint_Record : public backup_test::Executor_Test {};

class Backup_Kind : public backup_test::Executor_Test {
 protected:
  Backup_Kind() { set_subtype(JOB_DEFINITION_SUBTYPE_INCREMENTAL); }

  static constexpr const char* full_sql =
      "select c.BACKUP_ID as BACKUP_ID from SYS_DATABASES.M_BACKUP_CATALOG as c join "
      "SYS_DATABASES.M_BACKUP_CATALOG_FILES as f on c.BACKUP_ID = f.BACKUP_ID where "
      "lower(ENTRY_TYPE_NAME)='complete data backup' and lower(DESTINATION_TYPE_NAME)='backint'  and "
      "STATE_NAME='successful' and c.DATABASE_NAME='TN1' order by c.BACKUP_ID desc limit 1";

  /// The kind that TN1 gets.
  Job_Definition_Subtype choose(Executor& executor) {
    EXPECT_TRUE(executor.update_job_type({"HDB00", "TN1", false}));
    return executor.job_type_;
  }
  void expect_full_backup() { hdbsql_.expect(full_sql, table("BACKUP_ID", {"1500"})); }
  Object full_set(const std::string& start = "2023-11-14 22:00:00") {
    add_full_set("TN1", 1500, start);
    return backupd_.sets[{"TN1", 1500}].get_obj();
  }
  void set_full(const Object& set) { backupd_.sets[{"TN1", 1500}] = set; }
};

}  // namespace

TEST_F(Backup_Command, Is_Worded_With_The_Blanks_Of_Its_Form) {
  struct Row {
    const char* name;
    bool multi_container;
    Job_Definition_Subtype kind;
    const char* database;
    const char* sql;
  };
  const Row rows[] = {
      {"full, tenant", true, JOB_DEFINITION_SUBTYPE_FULL, "DB1",
       "BACKUP DATA  FOR DB1 USING BACKINT('u-1') TOOLOPTION 'job_uuid=u-1;'"},
      {"full, system database", true, JOB_DEFINITION_SUBTYPE_FULL, "",
       "BACKUP DATA   USING BACKINT('u-1') TOOLOPTION 'job_uuid=u-1;'"},
      {"incremental, tenant", true, JOB_DEFINITION_SUBTYPE_INCREMENTAL, "DB1",
       "BACKUP DATA INCREMENTAL  FOR DB1 USING BACKINT('u-1') TOOLOPTION 'job_uuid=u-1;'"},
      {"incremental, system database", true, JOB_DEFINITION_SUBTYPE_INCREMENTAL, "",
       "BACKUP DATA INCREMENTAL   USING BACKINT('u-1') TOOLOPTION 'job_uuid=u-1;'"},
      {"differential, tenant", true, JOB_DEFINITION_SUBTYPE_CUMULATIVE, "DB1",
       "BACKUP DATA DIFFERENTIAL  FOR DB1 USING BACKINT('u-1') TOOLOPTION 'job_uuid=u-1;'"},
      {"full, no tenants", false, JOB_DEFINITION_SUBTYPE_FULL, "HDB",
       "BACKUP DATA   USING BACKINT('u-1') TOOLOPTION 'job_uuid=u-1;'"},
      {"differential, no tenants", false, JOB_DEFINITION_SUBTYPE_CUMULATIVE, "",
       "BACKUP DATA DIFFERENTIAL   USING BACKINT('u-1') TOOLOPTION 'job_uuid=u-1;'"},
      {"another kind has no word", true, JOB_DEFINITION_SUBTYPE_ONDEMAND, "DB1",
       "BACKUP DATA  FOR DB1 USING BACKINT('u-1') TOOLOPTION 'job_uuid=u-1;'"},
  };
  Executor& executor = new_executor();
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    executor.mdc_ = row.multi_container;
    std::string cmd;
    EXPECT_TRUE(executor.generate_backup_cmd(row.kind, row.database, "u-1", cmd));
    EXPECT_EQ(cmd, row.sql);
  }
}

TEST_F(Backup_Command, Does_Not_Exist_For_No_Kind) {
  std::string cmd = "before";
  EXPECT_FALSE(new_executor().generate_backup_cmd(JOB_DEFINITION_SUBTYPE_NONE, "DB1", "u-1", cmd));
  EXPECT_EQ(cmd, "before");
}

TEST_F(Backup_Command, Tells_How_The_Statement_Ended) {
  Executor& executor = ready_executor();
  bool ok = false;
  hdbsql_.expect("BACKUP DATA", backup_test::done());
  EXPECT_TRUE(executor.execute_backup_cmd("BACKUP DATA", ok));
  EXPECT_TRUE(ok);
  hdbsql_.expect("BACKUP DATA", backup_test::refused("* 447: backup could not be completed"));
  EXPECT_FALSE(executor.execute_backup_cmd("BACKUP DATA", ok));
  EXPECT_FALSE(ok);
  EXPECT_EQ(job().state(), JOB_STATE_NONE) << "a failure is no cancellation";
  expect_error_with("backup could not be completed");
}

TEST_F(Backup_Command, Tells_The_Job_Why_HANA_Refused) {
  Executor& executor = ready_executor();
  bool ok = true;
  hdbsql_.expect("BACKUP DATA", backup_test::refused("* 447: backup could not be completed"));
  EXPECT_FALSE(executor.execute_backup_cmd("BACKUP DATA", ok));
  EXPECT_NE(job().message().find("backup could not be completed"), std::string::npos) << job().message();
  expect_error_with("backup could not be completed");
}

TEST_F(Backup_Command, Marks_The_Job_When_A_User_Cancelled_The_Backup_In_HANA) {
  Executor& executor = ready_executor();
  bool ok = true;
  hdbsql_.expect("BACKUP DATA", backup_test::refused("* 447: backup could not be completed, [110507] Backup was "
                                                     "canceled by user SQLSTATE: HY000"));
  EXPECT_FALSE(executor.execute_backup_cmd("BACKUP DATA", ok));
  EXPECT_FALSE(ok);
  EXPECT_EQ(job().state(), JOB_STATE_CANCELING);
  log_.claim_all();
}

TEST_F(Backup_Command, Does_Not_Mark_The_Job_When_A_Backup_That_Speaks_Of_A_Cancellation_Succeeds) {
  Executor& executor = ready_executor();
  bool ok = false;
  hdbsql_.expect("BACKUP DATA", table("Backup was canceled by user", {}));
  EXPECT_TRUE(executor.execute_backup_cmd("BACKUP DATA", ok));
  EXPECT_EQ(job().state(), JOB_STATE_NONE);
}

TEST_F(Backint_Record, Holds_What_The_Backint_Agent_Needs) {
  Rate_Limits limits;
  limits.destination = {{0, 3600, 1000}};
  definition_->rate_limits(limits);
  set_subtype(JOB_DEFINITION_SUBTYPE_INCREMENTAL);
  ASSERT_TRUE(ready_executor().generate_backint_conf(job_uuid, "TN1"));
  ASSERT_EQ(backupd_.jobs.size(), 1U);
  EXPECT_EQ(dump_json(backupd_.jobs.begin()->second),
            R"({"database_backup_id":0,"uuid":"88888888-8888-4888-8888-888888888888",)"
            R"("host_uuid":"33333333-3333-4333-8333-333333333333","job_act_id":")" +
                job().job_act_id() +
                R"(","type":"incremental","location":"file:///pool","database":"TN1","compression":"zstd",)"
                R"("compression_level":3,"sid":"HDB","pool_uuid":"22222222-2222-4222-8222-222222222222",)"
                R"("landscape_id":"5b91d2e8-e104-e541-9749-6ae7b2ebcfe9","extended_attrs":{"io_ctl":)"
                R"({"max_seconds_retry":600,"resumption_buffer_size":1048576,"dest_rate_limits":)"
                R"("[{\"start_time\":0,\"end_time\":3600,\"max_bytes_per_second\":1000}]","src_rate_limits":"[]"}}})");
}

TEST_F(Backint_Record, Names_No_Compression_For_A_Method_Without_A_Name) {
  Executor& executor = ready_executor();
  executor.compression_ = COMPR_MAX;
  ASSERT_TRUE(executor.generate_backint_conf(job_uuid, "TN1"));
  EXPECT_EQ(backupd_.jobs.begin()->second.find("compression")->get_str(), "");
}

TEST_F(Backint_Record, Is_Not_Stored_Without_A_Uuid) {
  EXPECT_FALSE(ready_executor().generate_backint_conf("", "TN1"));
  expect_error("Uuid is empty\n");
  EXPECT_TRUE(backupd_.jobs.empty());
}

TEST_F(Backint_Record, Is_Not_Stored_Without_A_Landscape_Id) {
  root_.write("/usr/sap/HDB/SYS/global/hdb/custom/config/nameserver.ini", "[landscape]\n");
  EXPECT_FALSE(ready_executor().generate_backint_conf(job_uuid, "TN1"));
  expect_error("Failed to get landscape ID\n");
  expect_error_with("landscape id of HANA system HDB");
  EXPECT_TRUE(backupd_.jobs.empty());
}

TEST_F(Backint_Record, Is_Refused_Where_One_Stands_Already) {
  Executor& executor = ready_executor();
  ASSERT_TRUE(executor.generate_backint_conf(job_uuid, "TN1"));
  EXPECT_FALSE(executor.generate_backint_conf(job_uuid, "TN2"));
  expect_error_with("Failed to store the Backint job");
}

TEST_F(Backup_Kind, Is_Kept_For_A_Full_Backup_Without_Any_Question) {
  Executor& executor = ready_executor();
  const std::size_t before = backupd_.requests().size();
  for (const Job_Definition_Subtype kind : {JOB_DEFINITION_SUBTYPE_FULL, JOB_DEFINITION_SUBTYPE_ONDEMAND}) {
    executor.job_type_ = kind;
    EXPECT_EQ(choose(executor), kind);
  }
  EXPECT_EQ(backupd_.requests().size(), before);
  EXPECT_TRUE(hdbsql_.statements().empty());
}

TEST_F(Backup_Kind, Is_Kept_When_The_Last_Full_Backup_Is_A_Safe_Base) {
  full_set();
  write_backup_log("2023-11-14T21:59:59+00:00 RECOVER DATA started\n", "TN1");
  Executor& executor = ready_executor();
  for (const Job_Definition_Subtype kind : {JOB_DEFINITION_SUBTYPE_INCREMENTAL, JOB_DEFINITION_SUBTYPE_CUMULATIVE}) {
    executor.job_type_ = kind;
    expect_full_backup();
    executor.lift_reason_ = "of the database before";
    EXPECT_EQ(choose(executor), kind);
    EXPECT_EQ(executor.last_full_backup_id_, 1500U);
    EXPECT_STREQ(executor.lift_reason_, "");
  }
}

TEST_F(Backup_Kind, Is_Kept_When_The_Database_Was_Restored_In_The_Second_Of_The_Full_Backup) {
  full_set();
  write_backup_log("2023-11-14T22:00:00+00:00 RECOVER DATA started\n", "TN1");
  expect_full_backup();
  EXPECT_EQ(choose(ready_executor()), JOB_DEFINITION_SUBTYPE_INCREMENTAL);
}

TEST_F(Backup_Kind, Falls_Back_To_Full_When_HANA_Has_No_Full_Backup) {
  hdbsql_.expect(full_sql, table("BACKUP_ID", {}));
  Executor& executor = ready_executor();
  EXPECT_EQ(choose(executor), JOB_DEFINITION_SUBTYPE_FULL);
  EXPECT_STREQ(executor.lift_reason_, "no full backup");
  expect_info("Failed to get full backup, set job type to full\n");
  EXPECT_EQ(backupd_.count_of("GET /q5/r/v2/sets"), 0U);
}

TEST_F(Backup_Kind, Falls_Back_To_Full_When_Backupd_Does_Not_Know_The_Full_Backup) {
  expect_full_backup();
  EXPECT_EQ(choose(ready_executor()), JOB_DEFINITION_SUBTYPE_FULL);
  expect_info("Failed to get full backup, set job type to full\n");
  expect_error("Failed to get TN1 backup sets, null\n");
}

TEST_F(Backup_Kind, Falls_Back_To_Full_When_No_Storage_Holds_The_Full_Backup) {
  Object set = full_set();
  set["storages"] = json_spirit::Array();
  set_full(set);
  expect_full_backup();
  EXPECT_EQ(choose(ready_executor()), JOB_DEFINITION_SUBTYPE_FULL);
  expect_info("Failed to get full backup, set job type to full\n");
}

TEST_F(Backup_Kind, Falls_Back_To_Full_When_Pool_Changed) {
  struct Row {
    const char* name;
    json_spirit::Value pool;
  };
  const Row rows[] = {{"another pool", "another"}, {"no text", 5}, {"none", nullptr}};
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    Object set = full_set();
    set["pool_uuid"] = row.pool;
    set_full(set);
    expect_full_backup();
    Executor& executor = ready_executor();
    EXPECT_EQ(choose(executor), JOB_DEFINITION_SUBTYPE_FULL);
    EXPECT_STREQ(executor.lift_reason_, "pool changed");
    expect_info("Storage pool is changed, set job type to full\n");
  }
}

TEST_F(Backup_Kind, Gives_Another_Pool_As_The_Reason_Also_When_The_Database_Was_Restored_Since) {
  Object set = full_set();
  set["pool_uuid"] = "another";
  set_full(set);
  write_backup_log("2023-11-14T22:00:01+00:00 RECOVER DATA started\n", "TN1");
  expect_full_backup();
  Executor& executor = ready_executor();
  EXPECT_EQ(choose(executor), JOB_DEFINITION_SUBTYPE_FULL);
  EXPECT_STREQ(executor.lift_reason_, "pool changed");
  expect_info("Storage pool is changed, set job type to full\n");
  EXPECT_FALSE(log_.has_containing("has been restored"));
}

TEST_F(Backup_Kind, Falls_Back_To_Full_When_Restored_Since) {
  full_set();
  write_backup_log("2023-11-15T07:00:01+09:00 RECOVER DATA started\n", "TN1");
  expect_full_backup();
  Executor& executor = ready_executor();
  EXPECT_EQ(choose(executor), JOB_DEFINITION_SUBTYPE_FULL);
  EXPECT_STREQ(executor.lift_reason_, "restored");
  expect_info("Database has been restored, set job type to full\n");
}

TEST_F(Backup_Kind, Falls_Back_To_Full_When_It_Cannot_Tell_Whether_Restored_Since) {
  {
    SCOPED_TRACE("no start time");
    Object set = full_set();
    set.erase("start_time");
    set_full(set);
    expect_full_backup();
    EXPECT_EQ(choose(ready_executor()), JOB_DEFINITION_SUBTYPE_FULL);
    expect_info("Database has been restored, set job type to full\n");
  }
  {
    SCOPED_TRACE("a start that is no time");
    full_set("soon");
    expect_full_backup();
    EXPECT_EQ(choose(ready_executor()), JOB_DEFINITION_SUBTYPE_FULL);
    expect_info("Database has been restored, set job type to full\n");
  }
  {
    SCOPED_TRACE("a log that cannot be read");
    full_set();
    write_backup_log("RECOVER DATA started\n", "TN1");
    expect_full_backup();
    EXPECT_EQ(choose(ready_executor()), JOB_DEFINITION_SUBTYPE_FULL);
    expect_error("Failed to handle time string 'RECOVER DATA started'\n");
    expect_info("Database has been restored, set job type to full\n");
  }
}
