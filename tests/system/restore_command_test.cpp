// The operator restores with the command: what the plan says comes true, and what cannot be is refused before.

#include <cstdio>

#include "restore_system.h"
#include "support/scoped_zone.h"

using namespace system_tests;

namespace {

class Restores_By_Command : public Restore_System {
 protected:
  static std::string tenant(const std::string& database) { return std::string(instance) + "/" + database; }

  Tool_Result restore_of(const std::string& database, std::vector<std::string> more) const {
    std::vector<std::string> words{"restore", tenant(database)};
    words.insert(words.end(), more.begin(), more.end());
    return dorsal3(words);
  }
  void back_up(const std::string& database, const std::string& type = "full") {
    const Tool_Result done = backup(tenant(database), {"--type", type});
    ASSERT_EQ(done.code, 0) << done.out << done.err << agent_log();
  }
  static std::string all(const Tool_Result& result) { return result.out + result.err; }
};

TEST_F(Restores_By_Command, A_Dropped_Table_Is_Back_As_It_Was_The_Moment_Before) {
  const support::Scoped_Zone zone("Asia/Kolkata");
  start_with_log_backup();
  put("TN1", "a", "1");
  ASSERT_EQ(sql_of("TN1", "CREATE TABLE GOODS (NAME NVARCHAR(20))").code, 0);
  back_up("TN1");
  put("TN1", "a", "2");
  back_up("TN1", "incremental");
  put("TN1", "b", "3");
  const std::string wanted = moment();
  put("TN1", "a", "wrong");
  ASSERT_EQ(sql_of("TN1", "DROP TABLE GOODS").code, 0);
  save_logs({"TN1"});

  const Tool_Result plan = restore_of("TN1", {"--to", wanted, "--plan"});
  ASSERT_EQ(plan.code, 0) << all(plan);
  EXPECT_NE(plan.out.find("incremental"), std::string::npos) << plan.out;
  EXPECT_NE(plan.out.find("\"volume\": 2"), std::string::npos) << plan.out;
  EXPECT_NE(plan.out.find("UNTIL TIMESTAMP '" + wanted + "'"), std::string::npos) << plan.out;
  EXPECT_TRUE(rows("TN1").starts_with("a,wrong\n")) << "a plan changes nothing";

  EXPECT_EQ(restore_of("TN1", {"--to", wanted, "--run"}).code, 2);
  EXPECT_EQ(restore_of("TN1", {"--to", wanted, "--run", "--confirm", "TN2"}).code, 2);
  const Tool_Result done = restore_of("TN1", {"--to", wanted, "--run", "--confirm", "TN1"});
  EXPECT_EQ(done.code, 0) << all(done) << agent_log();
  EXPECT_NE(done.out.find("HANA has reached " + wanted), std::string::npos) << done.out;
  EXPECT_EQ(rows("TN1"), "a,2\nb,3\n");
  EXPECT_EQ(sql_of("TN1", "select * from GOODS").code, 0);
}

TEST_F(Restores_By_Command, A_Backup_Comes_Back_Under_Another_Name) {
  start_with_log_backup({.tenants = {"TN1", "TN2"}});
  // Times are kept by the second: each backup has one of its own.
  (void)moment();
  put("TN1", "a", "1");
  back_up("TN1");
  (void)moment();
  put("TN1", "a", "2");
  back_up("TN1", "differential");
  (void)moment();
  const std::string full = text_of(newest_set("TN1", "full"), "uuid");
  const std::string delta = text_of(newest_set("TN1", "differential"), "uuid");
  put("TN1", "a", "3");
  save_logs({"TN1"});
  const Tool_Result missing = restore_of("TN1", {"--set", full, "--into", tenant("TN9")});
  EXPECT_EQ(missing.code, 1);
  EXPECT_NE(missing.out.find("target_missing"), std::string::npos) << missing.out;
  const Tool_Result by_full = restore_of("TN1", {"--set", full, "--into", tenant("TN2"), "--run", "--confirm", "TN2"});
  EXPECT_EQ(by_full.code, 0) << all(by_full) << agent_log();
  EXPECT_EQ(rows("TN2"), "a,1\n");
  const Tool_Result by_delta =
      restore_of("TN1", {"--set", delta, "--into", tenant("TN2"), "--run", "--confirm", "TN2"});
  EXPECT_EQ(by_delta.code, 0) << all(by_delta) << agent_log();
  EXPECT_EQ(rows("TN2"), "a,2\n");
  EXPECT_TRUE(rows("TN1").starts_with("a,3\n")) << "the other one is what it was";
}

TEST_F(Restores_By_Command, What_The_Logs_Do_Not_Hold_Is_Refused_And_The_Nearest_Time_Is_Right) {
  start_with_log_backup();
  put("TN1", "a", "1");
  back_up("TN1");
  put("TN1", "a", "2");
  save_logs({"TN1"});
  put("TN1", "a", "3");
  const std::string wanted = moment();
  const Tool_Result refused = restore_of("TN1", {"--to", wanted, "--run", "--confirm", "TN1"});
  EXPECT_EQ(refused.code, 9) << all(refused);
  EXPECT_TRUE(rows("TN1").starts_with("a,3\n")) << "nothing was touched";
  json_spirit::Object plan;
  json_spirit::Object before;
  const json_spirit::Object answer = refused.json();
  ASSERT_TRUE(json_spirit::object_get(answer, "plan", plan) && json_spirit::object_get(plan, "before", before))
      << refused.out;
  const std::string nearest = text_of(before, "time");
  const Tool_Result done = restore_of("TN1", {"--to", nearest, "--run", "--confirm", "TN1"});
  EXPECT_EQ(done.code, 0) << all(done) << agent_log();
}

TEST_F(Restores_By_Command, An_Object_That_Is_Gone_From_The_Pool_Is_Named_Before_Anything_Stops) {
  start_with_log_backup();
  put("TN1", "a", "1");
  back_up("TN1");
  const std::string full = text_of(newest_set("TN1", "full"), "uuid");
  int removed = 0;
  for (const std::string& file : pool_files())
    if (file.find("/TN1/") != std::string::npos && file.find("databackup%5F2%5F1") != std::string::npos)
      removed += std::remove(file.c_str()) == 0 ? 1 : 0;
  ASSERT_GT(removed, 0);
  const Tool_Result refused = restore_of("TN1", {"--set", full, "--run", "--confirm", "TN1"});
  EXPECT_EQ(refused.code, 1);
  EXPECT_NE(refused.out.find("object_missing"), std::string::npos) << all(refused);
  EXPECT_EQ(rows("TN1"), "a,1\n");
}

TEST_F(Restores_By_Command, The_System_Database_Is_Confirmed_By_The_Name_Of_The_Instance) {
  start_with_log_backup();
  fault("logon_after_recovery_ms = 1000");
  put("SYSTEMDB", "s", "1");
  back_up("SYSTEMDB");
  const std::string full = text_of(newest_set("SYSTEMDB", "full"), "uuid");
  put("SYSTEMDB", "s", "2");
  const Tool_Result plan = restore_of("SYSTEMDB", {"--set", full});
  EXPECT_EQ(plan.code, 0) << all(plan);
  EXPECT_NE(plan.out.find("\"stops\": \"instance\""), std::string::npos) << plan.out;
  EXPECT_EQ(restore_of("SYSTEMDB", {"--set", full, "--run", "--confirm", "SYSTEMDB"}).code, 2);
  const Tool_Result done = restore_of("SYSTEMDB", {"--set", full, "--run", "--confirm", instance});
  EXPECT_EQ(done.code, 0) << all(done) << agent_log();
  EXPECT_EQ(rows("SYSTEMDB"), "s,1\n");
}

}  // namespace
