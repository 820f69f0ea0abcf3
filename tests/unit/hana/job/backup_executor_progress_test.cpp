// How a running backup is watched.

#include <ace/Thread_Manager.h>

#include <functional>
#include <string>
#include <vector>

#include "scrt/thread_helper.h"
#include "support/scoped_zone.h"
#include "unit/hana/job/executor_fixture.h"

namespace {

using backup_test::Executor;
using backup_test::Sql_Answer;
using backup_test::table;

constexpr const char* tenant_sql =
    "select TO_VARCHAR(UTC_START_TIME, 'YYYY-MM-DD HH24:MI:SS') as START_TIME, BACKUP_SIZE,TRANSFERRED_SIZE from "
    "SYS_DATABASES.M_BACKUP_PROGRESS where DATABASE_NAME='TN1'";
constexpr const char* single_sql =
    "select TO_VARCHAR(UTC_START_TIME, 'YYYY-MM-DD HH24:MI:SS') as START_TIME, BACKUP_SIZE,TRANSFERRED_SIZE from "
    "SYS.M_BACKUP_PROGRESS ";
constexpr const char* header = "START_TIME,BACKUP_SIZE,TRANSFERRED_SIZE";
/// When the test clock starts.
constexpr std::time_t since = 1700000000;
constexpr const char* now_text = "\"2023-11-14 22:13:20\"";

/// One service's row.
Sql_Answer sizes(const std::string& size, const std::string& transferred) {
  return table(header, {std::string(now_text) + "," + size + "," + transferred});
}

class Backup_Progress : public backup_test::Executor_Test {
 protected:
  using Percentages = std::vector<int>;

  /// Runs a backup of TN1 that is looked at once per answer.
  void watch(Executor& executor, int start, int end, std::vector<Sql_Answer> looks) {
    hdbsql_.expect_backup("BACKUP DATA", backup_test::done(), tenant_sql, std::move(looks));
    bool ok = false;
    Thread_Helper worker(THR_NEW_LWP | THR_JOINABLE | THR_INHERIT_SCHED, ACE_DEFAULT_THREAD_PRIORITY);
    ASSERT_GE(worker.spawn(&Executor::execute_backup_cmd, &executor, "BACKUP DATA", std::ref(ok)), 0);
    EXPECT_TRUE(executor.update_progress(worker, "TN1", start, end));
    worker.join();
    EXPECT_TRUE(ok);
  }
};

}  // namespace

TEST_F(Backup_Progress, Reports_The_Share_That_Was_Transferred_Every_30_Seconds) {
  Executor& executor = ready_executor();
  watch(executor, 0, 100, {sizes("1000", "10"), sizes("1000", "505"), sizes("1000", "1000")});
  EXPECT_EQ(progress(), (Percentages{0, 1, 50, 100, 100}));
  EXPECT_EQ(clock_.sleeps(), (std::vector<double>{30, 30})) << "the last wait ends with the worker";
}

TEST_F(Backup_Progress, Stays_Within_The_Slice_Of_The_Database) {
  watch(ready_executor(), 33, 66, {sizes("1000", "10"), sizes("1000", "500"), sizes("1000", "990")});
  EXPECT_EQ(progress(), (Percentages{33, 49, 65, 66})) << "an unchanged percentage is not reported again";
}

TEST_F(Backup_Progress, Reckons_In_Whole_Per_Cent_Of_The_Slice) {
  // 3.1 % are 3 %, of which a slice of 33 has not yet a whole one.
  watch(ready_executor(), 33, 66, {sizes("1000", "31")});
  EXPECT_EQ(progress(), (Percentages{33, 66}));
}

TEST_F(Backup_Progress, Never_Counts_A_Backup_From_Before_The_Monitor_Began) {
  const std::string now(now_text);
  const std::string before = "\"2023-11-14 22:13:19\"";
  watch(ready_executor(), 0, 100,
        {table(header, {before + ",1000,1000"}), table(header, {before + ",1000,1000", now + ",1000,400"}),
         table(header, {before + ",1000,1000", now + ",1000,500"})});
  EXPECT_EQ(progress(), (Percentages{0, 40, 50, 100}));
}

TEST_F(Backup_Progress, Never_Passes_The_End_Of_The_Slice) {
  watch(ready_executor(), 33, 66, {sizes("1000", "5000"), sizes("1", "18000000000000000")});
  EXPECT_EQ(progress(), (Percentages{33, 66, 66}));
}

TEST_F(Backup_Progress, Keeps_The_Last_Value_While_Nothing_Is_Told) {
  watch(ready_executor(), 0, 100,
        {sizes("1000", "500"), sizes("0", "0"), table(header, {}), sizes("1000", "500"), sizes("1000", "0")});
  EXPECT_EQ(progress(), (Percentages{0, 50, 100}));
  EXPECT_EQ(clock_.sleeps(), (std::vector<double>{30, 30, 30, 30}));
}

TEST_F(Backup_Progress, May_Go_Back_When_The_Announced_Size_Grows) {
  watch(ready_executor(), 0, 100, {sizes("1000", "500"), sizes("2000", "500")});
  EXPECT_EQ(progress(), (Percentages{0, 50, 25, 100}));
}

TEST_F(Backup_Progress, Asks_Once_A_Look_And_Goes_On_When_HANA_Refuses) {
  watch(ready_executor(), 0, 100, {backup_test::refused(), sizes("1000", "500")});
  EXPECT_EQ(progress(), (Percentages{0, 50, 100}));
  EXPECT_EQ(clock_.sleeps(), (std::vector<double>{30}));
  expect_error_with("HANA HDB_HDB00");
}

TEST_F(Backup_Progress, Goes_From_Start_To_End_On_A_System_Without_The_View) {
  Executor& executor = ready_executor();
  executor.ancient_version_ = true;
  watch(executor, 33, 66, {});
  EXPECT_EQ(progress(), (Percentages{33, 66}));
  EXPECT_EQ(hdbsql_.statements(), std::vector<std::string>{"BACKUP DATA"});
}

TEST_F(Backup_Progress, Reports_Start_And_End_When_There_Is_No_Worker) {
  const Thread_Helper none(THR_NEW_LWP | THR_JOINABLE, ACE_DEFAULT_THREAD_PRIORITY);
  EXPECT_TRUE(ready_executor().update_progress(none, "TN1", 33, 66));
  EXPECT_EQ(progress(), (Percentages{33, 66}));
  EXPECT_TRUE(clock_.sleeps().empty());
}

TEST_F(Backup_Progress, Adds_Up_The_Services_Of_The_Database) {
  const support::Scoped_Zone zone("Asia/Tokyo");
  hdbsql_.expect(tenant_sql, table(header, {std::string(now_text) + ",1000,10", std::string(now_text) + ",2000,20"}));
  ACE_UINT64 size = 99;
  ACE_UINT64 transferred = 99;
  EXPECT_TRUE(ready_executor().get_backup_size("TN1", size, transferred, since));
  EXPECT_EQ(size, 3000U);
  EXPECT_EQ(transferred, 30U);
}

TEST_F(Backup_Progress, Asks_Without_A_Filter_On_A_System_Without_Tenants) {
  Executor& executor = ready_executor();
  executor.mdc_ = false;
  hdbsql_.expect(single_sql, sizes("1000", "10"));
  ACE_UINT64 size = 0;
  ACE_UINT64 transferred = 0;
  EXPECT_TRUE(executor.get_backup_size("HDB", size, transferred, since));
}

TEST_F(Backup_Progress, Leaves_Out_Rows_That_Do_Not_Belong_To_This_Backup) {
  hdbsql_.expect(tenant_sql,
                 table(header, {"\"2023-11-14 22:13:19\",1,1", "\"2023-11-14 22:13:20\",1000,10",
                                "\"2023-11-14 22:13:21\",2000,20", "?,4,4", "\"\",8,8", "\"soon\",16,16", "?,?,?"}));
  ACE_UINT64 size = 0;
  ACE_UINT64 transferred = 0;
  EXPECT_TRUE(ready_executor().get_backup_size("TN1", size, transferred, since));
  EXPECT_EQ(size, 3000U);
  EXPECT_EQ(transferred, 30U);
}

TEST_F(Backup_Progress, Tells_No_Sizes_When_One_Is_Missing) {
  struct Row {
    const char* name;
    Sql_Answer answer;
  };
  const std::string now(now_text);
  const Row rows[] = {
      {"no output", backup_test::done()},
      {"no rows", table(header, {})},
      {"only old rows", table(header, {"\"2023-11-14 22:13:19\",1000,10"})},
      {"no size", sizes("0", "10")},
      {"nothing transferred", sizes("1000", "0")},
      {"a size that is no number", sizes("many", "10")},
      {"a transferred size that is NULL", sizes("1000", "?")},
      {"a missing column", table("START_TIME,BACKUP_SIZE", {now + ",1000"})},
      {"no start time", table("BACKUP_SIZE,TRANSFERRED_SIZE", {"1000,10"})},
      {"a short row", table(header, {now + ",1000,10", now + ",1000"})},
  };
  Executor& executor = ready_executor();
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    hdbsql_.expect(tenant_sql, row.answer);
    ACE_UINT64 size = 0;
    ACE_UINT64 transferred = 0;
    EXPECT_FALSE(executor.get_backup_size("TN1", size, transferred, since));
  }
  EXPECT_TRUE(clock_.sleeps().empty());
}

TEST_F(Backup_Progress, Adds_Up_What_Services_Tell_Beside_One_That_Tells_Nothing_Yet) {
  const std::string now(now_text);
  hdbsql_.expect(tenant_sql, table(header, {now + ",1000,10", now + ",?,?", now + ",500,5"}));
  Executor& executor = ready_executor();
  ACE_UINT64 size = 0;
  ACE_UINT64 transferred = 0;
  EXPECT_TRUE(executor.get_backup_size("TN1", size, transferred, since));
  EXPECT_EQ(size, 1500U);
  EXPECT_EQ(transferred, 15U);
}

TEST_F(Backup_Progress, Does_Not_Try_A_Refused_Look_Again) {
  hdbsql_.expect(tenant_sql, backup_test::refused());
  ACE_UINT64 size = 0;
  ACE_UINT64 transferred = 0;
  EXPECT_FALSE(ready_executor().get_backup_size("TN1", size, transferred, since));
  EXPECT_TRUE(clock_.sleeps().empty());
  expect_error_with("HANA HDB_HDB00");
}

TEST_F(Backup_Progress, Tells_The_Job_What_HANA_Refused) {
  hdbsql_.expect(tenant_sql, backup_test::refused("* 258: insufficient privilege"));
  ACE_UINT64 size = 0;
  ACE_UINT64 transferred = 0;
  EXPECT_FALSE(ready_executor().get_backup_size("TN1", size, transferred, since));
  EXPECT_NE(job().message().find("insufficient privilege"), std::string::npos) << job().message();
  expect_error_with("HANA HDB_HDB00");
}

TEST_F(Backup_Progress, Asks_Nothing_On_A_System_Without_The_View) {
  Executor& executor = ready_executor();
  executor.ancient_version_ = true;
  ACE_UINT64 size = 0;
  ACE_UINT64 transferred = 0;
  EXPECT_FALSE(executor.get_backup_size("TN1", size, transferred, since));
  EXPECT_TRUE(hdbsql_.statements().empty());
}
