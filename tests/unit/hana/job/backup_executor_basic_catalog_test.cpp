// What the executors learn from HANA's backup catalog, from backupd and from backup.log.

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "records/tenant_name.h"
#include "support/scoped_zone.h"
#include "unit/hana/job/executor_fixture.h"

namespace {

using backup_test::Executor;
using backup_test::refused;
using backup_test::table;
using json_spirit::Array;
using json_spirit::dump_json;
using json_spirit::Object;
using json_spirit::Value;

class Catalog_Queries : public backup_test::Executor_Test {
 protected:
  /// Every refused statement is reported by the service that ran it.
  void claim_refusals() { expect_error_with("HANA HDB_HDB00"); }
  std::vector<double> sleeps() const { return clock_.sleeps(); }
};

class Restore_Log : public backup_test::Executor_Test {};

const std::vector<double> all_delays = {1, 2, 2, 2, 2, 2, 2, 2, 2, 2};

constexpr const char* full_sql =
    "select c.BACKUP_ID as BACKUP_ID from SYS_DATABASES.M_BACKUP_CATALOG as c join "
    "SYS_DATABASES.M_BACKUP_CATALOG_FILES "
    "as f on c.BACKUP_ID = f.BACKUP_ID where lower(ENTRY_TYPE_NAME)='complete data backup' and "
    "lower(DESTINATION_TYPE_NAME)='backint'  and STATE_NAME='successful' and c.DATABASE_NAME='TN1' order by "
    "c.BACKUP_ID "
    "desc limit 1";
constexpr const char* state_sql =
    "select STATE_NAME, SYS_END_TIME from SYS_DATABASES.M_BACKUP_CATALOG where BACKUP_ID=1700";
constexpr const char* time_sql =
    "select TO_VARCHAR(UTC_START_TIME, 'YYYY-MM-DD HH24:MI:SS') as START_TIME, TO_VARCHAR(UTC_END_TIME, 'YYYY-MM-DD "
    "HH24:MI:SS') as END_TIME from SYS_DATABASES.M_BACKUP_CATALOG where BACKUP_ID=1700";

}  // namespace

TEST_F(Catalog_Queries, Ask_For_The_Newest_Backup_Of_Each_Kind_In_The_Schema_Of_The_System) {
  struct Row {
    const char* name;
    bool multi_container;
    Job_Definition_Subtype type;
    bool successful_only;
    const char* sql;
  };
  const Row rows[] = {
      {"tenants, full, successful", true, JOB_DEFINITION_SUBTYPE_FULL, true, full_sql},
      {"tenants, incremental, any", true, JOB_DEFINITION_SUBTYPE_INCREMENTAL, false,
       "select c.BACKUP_ID as BACKUP_ID from SYS_DATABASES.M_BACKUP_CATALOG as c join "
       "SYS_DATABASES.M_BACKUP_CATALOG_FILES as f on c.BACKUP_ID = f.BACKUP_ID where "
       "lower(ENTRY_TYPE_NAME)='incremental data backup' and lower(DESTINATION_TYPE_NAME)='backint'   and "
       "c.DATABASE_NAME='TN1' order by c.BACKUP_ID desc limit 1"},
      {"no tenants, differential, successful", false, JOB_DEFINITION_SUBTYPE_CUMULATIVE, true,
       "select c.BACKUP_ID as BACKUP_ID from SYS.M_BACKUP_CATALOG as c join SYS.M_BACKUP_CATALOG_FILES as f on "
       "c.BACKUP_ID = f.BACKUP_ID where lower(ENTRY_TYPE_NAME)='differential data backup' and "
       "lower(DESTINATION_TYPE_NAME)='backint'  and STATE_NAME='successful'  order by c.BACKUP_ID desc limit 1"},
      {"no tenants, full, any", false, JOB_DEFINITION_SUBTYPE_FULL, false,
       "select c.BACKUP_ID as BACKUP_ID from SYS.M_BACKUP_CATALOG as c join SYS.M_BACKUP_CATALOG_FILES as f on "
       "c.BACKUP_ID = f.BACKUP_ID where lower(ENTRY_TYPE_NAME)='complete data backup' and "
       "lower(DESTINATION_TYPE_NAME)='backint'    order by c.BACKUP_ID desc limit 1"},
  };
  Executor& executor = ready_executor();
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    executor.mdc_ = row.multi_container;
    hdbsql_.expect(row.sql, table("BACKUP_ID", {"1700000000123"}));
    ACE_UINT64 id = 0;
    EXPECT_TRUE(executor.get_last_backup_id("TN1", row.type, id, row.successful_only));
    EXPECT_EQ(id, 1700000000123U);
  }
  EXPECT_TRUE(sleeps().empty());
}

TEST_F(Catalog_Queries, Cut_The_Database_Clause_At_63_Bytes) {
  // The longest name that fits, as operators are told of it.
  const std::string fits(longest_name_in_catalog_clause, 'A');
  hdbsql_.expect(
      "select c.BACKUP_ID as BACKUP_ID from SYS_DATABASES.M_BACKUP_CATALOG as c join "
      "SYS_DATABASES.M_BACKUP_CATALOG_FILES as f on c.BACKUP_ID = f.BACKUP_ID where "
      "lower(ENTRY_TYPE_NAME)='complete data backup' and lower(DESTINATION_TYPE_NAME)='backint'   and "
      "c.DATABASE_NAME='" +
          fits + "' order by c.BACKUP_ID desc limit 1",
      table("BACKUP_ID", {"4"}));
  hdbsql_.expect(
      "select c.BACKUP_ID as BACKUP_ID from SYS_DATABASES.M_BACKUP_CATALOG as c join "
      "SYS_DATABASES.M_BACKUP_CATALOG_FILES as f on c.BACKUP_ID = f.BACKUP_ID where "
      "lower(ENTRY_TYPE_NAME)='complete data backup' and lower(DESTINATION_TYPE_NAME)='backint'   and "
      "c.DATABASE_NAME='" +
          std::string(42, 'A') + " order by c.BACKUP_ID desc limit 1",
      table("BACKUP_ID", {"5"}));
  ACE_UINT64 id = 0;
  Executor& executor = ready_executor();
  EXPECT_TRUE(executor.get_last_full_backup_id(fits, id));
  EXPECT_TRUE(executor.get_last_full_backup_id(std::string(43, 'A'), id));
}

TEST_F(Catalog_Queries, Refuse_A_Kind_That_Is_No_Data_Backup) {
  Executor& executor = ready_executor();
  for (const Job_Definition_Subtype type :
       {JOB_DEFINITION_SUBTYPE_NONE, JOB_DEFINITION_SUBTYPE_CONTINUOUS, JOB_DEFINITION_SUBTYPE_ONDEMAND}) {
    SCOPED_TRACE(type);
    ACE_UINT64 id = 99;
    EXPECT_FALSE(executor.get_last_backup_id("TN1", type, id, true));
    EXPECT_EQ(id, 99U);
    expect_error(std::string("Unknown job subtype '") + job_def_subtype_to_string(type) + "'\n");
  }
}

TEST_F(Catalog_Queries, Read_The_Column_By_Name_From_The_Last_Row) {
  hdbsql_.expect(full_sql, table("X,BACKUP_ID", {"1,2", "3,4"}));
  ACE_UINT64 id = 0;
  EXPECT_TRUE(ready_executor().get_last_full_backup_id("TN1", id, true));
  EXPECT_EQ(id, 4U);
}

TEST_F(Catalog_Queries, Give_No_Backup_Id_When_The_Answer_Holds_None) {
  struct Row {
    const char* name;
    backup_test::Sql_Answer answer;
  };
  const Row rows[] = {
      {"no output", backup_test::done()},
      {"a header without rows", table("BACKUP_ID", {})},
      {"another column", table("ENTRY_ID", {"5"})},
      {"a row shorter than its header", table("X,BACKUP_ID", {"5"})},
      {"NULL", table("BACKUP_ID", {"?"})},
      {"no number", table("BACKUP_ID", {"abc"})},
      {"a number and more", table("BACKUP_ID", {"5x"})},
      {"a negative number", table("BACKUP_ID", {"-5"})},
      {"more than 64 bits", table("BACKUP_ID", {"18446744073709551616"})},
  };
  Executor& executor = ready_executor();
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    hdbsql_.expect(full_sql, row.answer);
    ACE_UINT64 id = 99;
    EXPECT_FALSE(executor.get_last_full_backup_id("TN1", id, true));
    EXPECT_EQ(id, 0U);
  }
  EXPECT_TRUE(sleeps().empty()) << "a statement that succeeds is not tried again";
}

TEST_F(Catalog_Queries, Try_A_Refused_Statement_Ten_Times_With_Growing_Pauses) {
  hdbsql_.expect(full_sql, refused(), 10);
  ACE_UINT64 id = 99;
  EXPECT_FALSE(ready_executor().get_last_full_backup_id("TN1", id, true));
  EXPECT_EQ(id, 0U);
  EXPECT_EQ(sleeps(), all_delays);
  claim_refusals();
}

TEST_F(Catalog_Queries, Tell_The_Job_What_HANA_Refused) {
  hdbsql_.expect(full_sql, refused("* 258: insufficient privilege"), 10);
  ACE_UINT64 id = 0;
  EXPECT_FALSE(ready_executor().get_last_full_backup_id("TN1", id, true));
  EXPECT_NE(job().message().find("insufficient privilege"), std::string::npos) << job().message();
  claim_refusals();
}

TEST_F(Catalog_Queries, Stop_Trying_With_The_First_Success) {
  hdbsql_.expect(full_sql, refused(), 3);
  hdbsql_.expect(full_sql, table("BACKUP_ID", {"7"}));
  ACE_UINT64 id = 0;
  EXPECT_TRUE(ready_executor().get_last_full_backup_id("TN1", id, true));
  EXPECT_EQ(id, 7U);
  EXPECT_EQ(sleeps(), (std::vector<double>{1, 2, 2}));
  claim_refusals();
}

TEST_F(Catalog_Queries, Read_What_Was_Printed_Even_When_Every_Attempt_Failed) {
  backup_test::Sql_Answer printed = table("BACKUP_ID", {"7"});
  printed.code = 3;
  hdbsql_.expect(full_sql, printed);
  hdbsql_.expect(full_sql, refused(), 9);
  ACE_UINT64 id = 0;
  EXPECT_TRUE(ready_executor().get_last_full_backup_id("TN1", id, true));
  EXPECT_EQ(id, 7U);
  EXPECT_EQ(sleeps(), all_delays);
  log_.claim_all();
}

TEST_F(Catalog_Queries, Take_Any_Full_Backup_When_Not_Asked_For_A_Successful_One) {
  constexpr const char* any_sql =
      "select c.BACKUP_ID as BACKUP_ID from SYS_DATABASES.M_BACKUP_CATALOG as c join "
      "SYS_DATABASES.M_BACKUP_CATALOG_FILES as f on c.BACKUP_ID = f.BACKUP_ID where "
      "lower(ENTRY_TYPE_NAME)='complete data backup' and lower(DESTINATION_TYPE_NAME)='backint'   and "
      "c.DATABASE_NAME='TN1' order by c.BACKUP_ID desc limit 1";
  Executor& executor = ready_executor();
  hdbsql_.expect(any_sql, table("BACKUP_ID", {"1700"}));
  ACE_UINT64 id = 0;
  EXPECT_TRUE(executor.get_last_full_backup_id("TN1", id));
  hdbsql_.expect(any_sql, table("BACKUP_ID", {"1700"}));
  hdbsql_.expect(state_sql, table("STATE_NAME,SYS_END_TIME", {"\"failed\",\"2023-11-14 22:00:00.0\""}));
  std::string state;
  EXPECT_TRUE(executor.get_last_full_backup_state("TN1", id, state));
  EXPECT_EQ(state, "failed");
  hdbsql_.expect(any_sql, table("BACKUP_ID", {}));
  EXPECT_FALSE(executor.get_last_full_backup_state("TN1", id, state));
}

TEST_F(Catalog_Queries, Give_The_Times_Of_A_Backup_As_Utc_Whatever_The_Local_Zone) {
  const support::Scoped_Zone zone("Asia/Tokyo");
  hdbsql_.expect(time_sql, table("START_TIME,END_TIME", {"\"2023-11-14 22:13:20\",\"2023-11-14 23:13:20\""}));
  std::time_t start = 0;
  std::time_t end = 0;
  EXPECT_TRUE(ready_executor().get_backup_catalog_time(1700, start, end));
  EXPECT_EQ(start, 1700000000);
  EXPECT_EQ(end, 1700003600);
}

TEST_F(Catalog_Queries, Read_The_Times_In_The_Schema_Of_A_System_Without_Tenants) {
  Executor& executor = ready_executor();
  executor.mdc_ = false;
  hdbsql_.expect(
      "select TO_VARCHAR(UTC_START_TIME, 'YYYY-MM-DD HH24:MI:SS') as START_TIME, TO_VARCHAR(UTC_END_TIME, 'YYYY-MM-DD "
      "HH24:MI:SS') as END_TIME from SYS.M_BACKUP_CATALOG where BACKUP_ID=18446744073709551615",
      table("START_TIME,END_TIME", {"\"2023-11-14 22:13:20\",\"2023-11-14 22:13:20\""}));
  std::time_t start = 0;
  std::time_t end = 0;
  EXPECT_TRUE(executor.get_backup_catalog_time(18446744073709551615U, start, end));
}

TEST_F(Catalog_Queries, Give_No_Times_When_One_Is_Missing_Or_No_Time) {
  struct Row {
    const char* name;
    backup_test::Sql_Answer answer;
  };
  const std::string time = "\"2023-11-14 22:13:20\"";
  const Row rows[] = {
      {"no start", table("START_TIME,END_TIME", {"?," + time})},
      {"no end", table("START_TIME,END_TIME", {time + ",?"})},
      {"a start that is no time", table("START_TIME,END_TIME", {"\"yesterday\"," + time})},
      {"an end that is no time", table("START_TIME,END_TIME", {time + ",\"2023-13-01 00:00:00\""})},
      {"no end column", table("START_TIME", {time})},
      {"a short row", table("START_TIME,END_TIME", {time})},
      {"no rows", table("START_TIME,END_TIME", {})},
      {"no output", backup_test::done()},
  };
  Executor& executor = ready_executor();
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    hdbsql_.expect(time_sql, row.answer);
    std::time_t start = 0;
    std::time_t end = 0;
    EXPECT_FALSE(executor.get_backup_catalog_time(1700, start, end));
  }
  EXPECT_TRUE(sleeps().empty());
}

TEST_F(Catalog_Queries, Refuse_The_State_Of_Backup_0) {
  std::string state = "before";
  EXPECT_FALSE(ready_executor().get_job_state(0, state));
  EXPECT_EQ(state, "before");
  expect_error("Failed to get job state, database_backup_id is 0\n");
}

TEST_F(Catalog_Queries, Give_The_State_In_The_Words_Of_HANA_Once_The_Backup_Has_An_End) {
  Executor& executor = ready_executor();
  for (const char* name : {"successful", "failed", "canceled", "cancel pending", "running"}) {
    hdbsql_.expect(state_sql, table("STATE_NAME,SYS_END_TIME",
                                    {std::string("\"") + name + "\",\"2023-11-14 22:13:20.123000000\""}));
    std::string state = "before";
    EXPECT_TRUE(executor.get_job_state(1700, state));
    EXPECT_EQ(state, name);
  }
}

TEST_F(Catalog_Queries, Call_A_Backup_Without_An_End_Running_Whatever_Its_State) {
  Executor& executor = ready_executor();
  for (const char* name : {"\"successful\"", "\"cancel pending\"", "?"}) {
    hdbsql_.expect(state_sql, table("STATE_NAME,SYS_END_TIME", {std::string(name) + ",?"}));
    std::string state;
    EXPECT_TRUE(executor.get_job_state(1700, state));
    EXPECT_EQ(state, "running");
  }
}

TEST_F(Catalog_Queries, Wait_For_A_Backup_That_Is_Not_In_The_Catalog_Yet) {
  hdbsql_.expect(state_sql, table("STATE_NAME,SYS_END_TIME", {}), 2);
  hdbsql_.expect(state_sql, backup_test::done());
  hdbsql_.expect(state_sql, table("STATE_NAME,SYS_END_TIME", {"\"running\",?"}));
  std::string state;
  EXPECT_TRUE(ready_executor().get_job_state(1700, state));
  EXPECT_EQ(state, "running");
  EXPECT_EQ(sleeps(), (std::vector<double>{1, 2, 2}));
}

TEST_F(Catalog_Queries, Give_Up_A_Backup_That_Never_Comes_Into_The_Catalog) {
  hdbsql_.expect(state_sql, table("STATE_NAME,SYS_END_TIME", {}), 10);
  std::string state = "before";
  EXPECT_FALSE(ready_executor().get_job_state(1700, state));
  EXPECT_EQ(state, "");
  EXPECT_EQ(sleeps(), all_delays);
}

TEST_F(Catalog_Queries, Give_No_State_When_A_Column_Is_Missing) {
  Executor& executor = ready_executor();
  for (const auto& answer : {table("STATE_NAME", {"\"running\""}), table("SYS_END_TIME", {"?"}),
                             table("STATE_NAME,SYS_END_TIME", {"\"running\""})}) {
    hdbsql_.expect(state_sql, answer);
    std::string state = "before";
    EXPECT_FALSE(executor.get_job_state(1700, state));
    EXPECT_EQ(state, "");
  }
}

TEST_F(Catalog_Queries, Ask_Backupd_For_The_Newest_Set_Of_A_Database) {
  Executor& executor = ready_executor();
  backupd_.sets[{"TN1", 0}] = Object{{"uuid", "set-1"}};
  Object set{{"old", 1}};
  EXPECT_TRUE(executor.get_backup_sets("TN1", 0, set));
  EXPECT_EQ(dump_json(set), R"({"uuid":"set-1","state":false})");
  EXPECT_EQ(backupd_.requests().back(),
            "GET /q5/r/v2/sets/restore/sets?resource_uuid=11111111-1111-4111-8111-111111111111&database=TN1&order=desc&"
            "limit=1&sort=id&module=hana");
}

TEST_F(Catalog_Queries, Ask_Backupd_For_The_Set_Of_One_Backup_With_Its_Id_Last) {
  Executor& executor = ready_executor();
  backupd_.sets[{"A B/C", 1700}] = Object{{"uuid", "set-1"}};
  Object set;
  EXPECT_TRUE(executor.get_backup_sets("A B/C", 1700, set));
  EXPECT_EQ(backupd_.requests().back(),
            "GET /q5/r/v2/sets/restore/sets?resource_uuid=11111111-1111-4111-8111-111111111111&database=A+B%2fC&order="
            "desc&limit=1&sort=id&module=hana&database_backup_id=1700");
}

TEST_F(Catalog_Queries, Call_A_Set_Usable_When_A_Storage_Has_It_In_Some_State) {
  struct Row {
    const char* name;
    Value storages;
    bool usable;
  };
  const Row rows[] = {
      {"no storages", Value(Array()), false},
      {"storages of another type", Value(Object{{"state", Array{"online"}}}), false},
      {"a storage without a state", Value(Array{Object{{"size", 1}}}), false},
      {"an empty state", Value(Array{Object{{"state", Array()}}}), false},
      {"a state of another type", Value(Array{Object{{"state", "online"}}}), false},
      {"an element that is no object", Value(Array{1, "online"}), false},
      {"one storage with a state", Value(Array{Object{{"state", Array{"online"}}}}), true},
      {"any state counts", Value(Array{Object{{"state", Array{"archived"}}}}), true},
      {"the second of two", Value(Array{Object{{"state", Array()}}, Object{{"state", Array{"online"}}}}), true},
  };
  Executor& executor = ready_executor();
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    backupd_.sets[{"TN1", 0}] = Object{{"state", "as stored"}, {"storages", row.storages}};
    Object set;
    EXPECT_TRUE(executor.get_backup_sets("TN1", 0, set));
    EXPECT_EQ(set.find("state")->get_bool(), row.usable);
  }
}

TEST_F(Catalog_Queries, Report_A_Database_Without_Sets_With_What_Came_Back) {
  Executor& executor = ready_executor();
  Object set{{"old", 1}};
  EXPECT_FALSE(executor.get_backup_sets("TN1", 0, set));
  EXPECT_EQ(dump_json(set), R"({"old":1})");
  expect_error("Failed to get TN1 backup sets, null\n");
  EXPECT_TRUE(sleeps().empty()) << "an answer without rows is an answer";
}

TEST_F(Catalog_Queries, Report_A_Set_That_Is_No_Object_With_What_Came_Back) {
  Executor& executor = ready_executor();
  backupd_.sets[{"TN1", 0}] = Array{1, "two"};
  Object set;
  EXPECT_FALSE(executor.get_backup_sets("TN1", 0, set));
  expect_error("Failed to get TN1 backup sets, [1,\"two\"]\n");
}

TEST_F(Catalog_Queries, Report_A_Backupd_That_Refuses) {
  Executor& executor = ready_executor();
  backupd_.intercept = [](const std::string&, const std::string&) { return backup_test::error_answer(403); };
  Object set;
  EXPECT_FALSE(executor.get_backup_sets("TN1", 0, set));
  expect_error("Failed to get TN1 backup sets, null\n");
  log_.claim_all();
}

TEST_F(Catalog_Queries, Ask_For_A_Set_Again_Within_10_Seconds_While_Backupd_Is_Not_Ready) {
  Executor& executor = ready_executor();
  backupd_.sets[{"TN1", 0}] = Object{{"uuid", "set-1"}};
  unsigned refusals = 3;
  backupd_.intercept = [&refusals](const std::string&, const std::string&) -> std::optional<net::Http_Response> {
    if (refusals == 0) return std::nullopt;
    --refusals;
    return backup_test::error_answer(503);
  };
  Object set;
  EXPECT_TRUE(executor.get_backup_sets("TN1", 0, set));
  EXPECT_EQ(sleeps(), (std::vector<double>{1, 2, 4}));

  refusals = 4;
  EXPECT_FALSE(executor.get_backup_sets("TN1", 0, set));
  EXPECT_EQ(sleeps(), (std::vector<double>{1, 2, 4, 1, 2, 4})) << "one more pause would end after 15 seconds";
  expect_error("Failed to get TN1 backup sets, null\n");
  expect_error_with("503");
}

TEST_F(Restore_Log, Gives_0_When_There_Is_No_Log_Or_No_Recovery_In_It) {
  Executor& executor = ready_executor();
  std::time_t time = 99;
  EXPECT_TRUE(executor.get_last_restore("SYSTEMDB", time));
  EXPECT_EQ(time, 0);
  write_backup_log("2023-11-14T22:13:20+00:00  P001  INFO  BACKUP   SAVE DATA started\n");
  time = 99;
  EXPECT_TRUE(executor.get_last_restore("SYSTEMDB", time));
  EXPECT_EQ(time, 0);
}

TEST_F(Restore_Log, Gives_The_Last_Recovery_Of_The_File_With_Its_Zone) {
  const support::Scoped_Zone zone("Asia/Tokyo");
  write_backup_log(
      "2023-11-14T22:13:20+01:00  P001 x INFO  RECOVERY RECOVER DATA started\n"
      "2023-11-14T22:13:20+00:00  P001 x INFO  RECOVERY RECOVER DATA finished successfully\n"
      "2023-11-14T22:13:20+02:00  P001 y INFO  RECOVERY RECOVER DATA started");
  std::time_t time = 0;
  EXPECT_TRUE(ready_executor().get_last_restore("SYSTEMDB", time));
  EXPECT_EQ(time, 1700000000 - 7200) << "the last line counts, not the latest time";
}

TEST_F(Restore_Log, Looks_For_A_Tenant_In_Its_Own_Folder) {
  write_backup_log("2023-11-14T22:13:20+00:00 RECOVER DATA started\n");
  write_backup_log("2023-11-14T22:13:30+00:00 RECOVER DATA started\n", "TN1");
  Executor& executor = ready_executor();
  std::time_t time = 0;
  EXPECT_TRUE(executor.get_last_restore("TN1", time));
  EXPECT_EQ(time, 1700000010);
  EXPECT_TRUE(executor.get_last_restore("SYSTEMDB", time));
  EXPECT_EQ(time, 1700000000);
  EXPECT_TRUE(executor.get_last_restore("TN2", time));
  EXPECT_EQ(time, 0);
}

TEST_F(Restore_Log, Looks_For_Any_Database_In_The_Trace_Directory_Of_A_System_Without_Tenants) {
  set_multi_container(false);
  write_backup_log("2023-11-14T22:13:20+00:00 RECOVER DATA started\n");
  std::time_t time = 0;
  EXPECT_TRUE(ready_executor().get_last_restore("TN1", time));
  EXPECT_EQ(time, 1700000000);
}

TEST_F(Restore_Log, Takes_The_Latest_Recovery_Of_Several_Trace_Directories) {
  write_backup_log("2023-11-14T22:13:30+00:00 RECOVER DATA started\n");
  root_.write("/usr/sap/HDB/HDB00/otherhost/trace/backup.log", "2023-11-14T22:13:20+00:00 RECOVER DATA started\n");
  root_.make_directory("/usr/sap/HDB/HDB00/thirdhost/trace");
  std::time_t time = 0;
  EXPECT_TRUE(ready_executor().get_last_restore("SYSTEMDB", time));
  EXPECT_EQ(time, 1700000010);
}

TEST_F(Restore_Log, Takes_The_Latest_Recovery_In_Whatever_Order_The_Trace_Directories_Stand) {
  struct Row {
    const char* name;
    const char* first;  ///< null: no log
    const char* second;
  };
  const char* const early = "2023-11-14T22:13:20+00:00 RECOVER DATA started\n";
  const char* const late = "2023-11-14T22:13:30+00:00 RECOVER DATA started\n";
  const Row rows[] = {
      {"early, late", early, late},
      {"late, early", late, early},
      {"no log, recovery", nullptr, late},
      {"log without a recovery, recovery", "2023-11-14T22:13:40+00:00 SAVE DATA started\n", late},
  };
  Executor& executor = ready_executor();
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    const std::string first = std::string(backup_test::trace_directory) + "/backup.log";
    (void)std::filesystem::remove(root_.real(first));
    if (row.first != nullptr) root_.write(first, row.first);
    root_.write("/usr/sap/HDB/HDB00/otherhost/trace/backup.log", row.second);
    std::time_t time = 0;
    EXPECT_TRUE(executor.get_last_restore("SYSTEMDB", time));
    EXPECT_EQ(time, 1700000010);
  }
}

TEST_F(Restore_Log, Refuses_A_Line_Whose_Time_Cannot_Be_Read) {
  struct Row {
    const char* name;
    const char* line;
    const char* shown;
  };
  const Row rows[] = {
      {"no time", "yesterday at noon, RECOVER DATA started", "yesterday at noon, RECOVE"},
      {"a short line", "RECOVER DATA started", "RECOVER DATA started"},
      {"no zone", "2023-11-14T22:13:20       RECOVER DATA started", "2023-11-14T22:13:20      "},
  };
  Executor& executor = ready_executor();
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    write_backup_log(std::string(row.line) + "\n");
    std::time_t time = 0;
    EXPECT_FALSE(executor.get_last_restore("SYSTEMDB", time));
    expect_error(std::string("Failed to handle time string '") + row.shown + "'\n");
  }
}

TEST_F(Restore_Log, Skips_What_Is_No_Regular_File) {
  root_.make_directory(std::string(backup_test::trace_directory) + "/backup.log");
  std::time_t time = 99;
  EXPECT_TRUE(ready_executor().get_last_restore("SYSTEMDB", time));
  EXPECT_EQ(time, 0);
}

TEST_F(Restore_Log, Reports_A_Log_That_Cannot_Be_Opened) {
  const std::string path = std::string(backup_test::trace_directory) + "/backup.log";
  write_backup_log("2023-11-14T22:13:20+00:00 RECOVER DATA started\n");
  Executor& executor = ready_executor();
  ASSERT_EQ(::chmod(root_.real(path).c_str(), 0), 0);
  ASSERT_EQ(::chmod(root_.path().c_str(), 0755), 0);
  // The superuser may read anything: be somebody else meanwhile.
  constexpr uid_t nobody = 65534;
  const uid_t before = ::geteuid();
  if (before == 0) {
    ASSERT_EQ(::seteuid(nobody), 0);
  }
  std::time_t time = 0;
  EXPECT_FALSE(executor.get_last_restore("SYSTEMDB", time));
  if (before == 0) {
    ASSERT_EQ(::seteuid(before), 0);
  }
  expect_error("Failed to open HANA backup file '" + path + "'\n");
}

TEST_F(Restore_Log, Reports_A_Log_That_Cannot_Be_Read) {
  const std::string path = std::string(backup_test::trace_directory) + "/backup.log";
  root_.make_directory(backup_test::trace_directory);
  // A regular file that can be opened and of which no byte can be read: the first page of memory.
  ASSERT_EQ(::symlink("/proc/self/mem", root_.real(path).c_str()), 0);
  std::time_t time = 0;
  EXPECT_FALSE(ready_executor().get_last_restore("SYSTEMDB", time));
  expect_error("Failed to open HANA backup file '" + path + "'\n");
}

TEST_F(Restore_Log, Reports_A_System_Without_Trace_Directories) {
  Executor& executor = ready_executor();
  executor.sid_ = "XYZ";
  std::time_t time = 99;
  EXPECT_FALSE(executor.get_last_restore("SYSTEMDB", time));
  EXPECT_EQ(time, 0);
  expect_error("Failed to get trace directory\n");
  expect_error_with("HANA system 'XYZ'");
}
