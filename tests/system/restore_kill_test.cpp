// The agent dies in the middle of a restore; the operator restores again.

#include <signal.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "restore_system.h"

using namespace system_tests;

namespace {

namespace fs = std::filesystem;

class Restore_Kills : public Restore_System {
 protected:
  static constexpr const char* statement_file = "/usr/sap/HDB/HDB00/work/recoverInstance.sql";

  void back_up(const std::string& database) {
    const Tool_Result done = backup(std::string(instance) + "/" + database, {"--type", "full"});
    ASSERT_EQ(done.code, 0) << done.out << done.err << agent_log();
  }
  /// Lines of a database's backup.log that hold `mark`.
  [[nodiscard]] long recoveries(const std::string& database, const std::string& mark) const {
    long count = 0;
    for (const std::string& path : files_below(real("/usr/sap/HDB"))) {
      if (!path.ends_with("/DB_" + database + "/backup.log")) continue;
      const std::string text = slurp(path);
      for (std::size_t at = text.find(mark); at != std::string::npos; at = text.find(mark, at + 1)) ++count;
    }
    return count;
  }
  /// Statements that the killed agent has left behind.
  [[nodiscard]] bool a_statement_runs() const { return !pids_below(root(), "hdbsql").empty(); }
  /// HANA goes on with a recovery when nobody waits for it any more, and starts the database after a good one. `good`:
  /// how many there were before.
  [[nodiscard]] bool hana_is_done(const std::string& database, long good) const {
    const bool ended = eventually([&] {
      return !a_statement_runs() &&
             recoveries(database, "RECOVER DATA started") == recoveries(database, "RECOVER DATA finished");
    });
    if (!ended || recoveries(database, "RECOVER DATA finished successfully") == good) return ended;
    return eventually([&] { return is_open(database); });
  }
  [[nodiscard]] bool is_open(const std::string& database) const {
    return sql_of(database, "select 1 as A from DUMMY").code == 0;
  }
  void expect_good_restore(const std::string& wanted) {
    EXPECT_EQ(restore({{.database = "TN1", .timepoint = wanted}}), "completed") << agent_log();
    EXPECT_EQ(rows("TN1"), "a,2\n");
    EXPECT_TRUE(staged_files().empty());
  }
  /// The agent dies while HANA is where this fault holds it.
  void kill_agent_at(const std::string& held, const std::vector<Entry>& entries) {
    fault(held);
    const std::string run = start_restore(entries);
    ASSERT_TRUE(meets(held)) << agent_log();
    (void)host_.stop_agent(SIGKILL);
    no_faults();
    start_agent();
    EXPECT_EQ(wait_for_end(run), "error") << held;
    EXPECT_TRUE(staged_files().empty()) << held;
  }
};

}  // namespace

TEST_F(Restore_Kills, Of_A_Tenant_Are_Made_Good_By_The_Next_Restore) {
  start_with_log_backup();
  put("TN1", "a", "1");
  back_up("TN1");
  put("TN1", "a", "2");
  const std::string wanted = moment();
  put("TN1", "a", "3");
  save_logs({"TN1"});
  kill_agent_at("hang_statement = 0 | match=STOP DATABASE", {{.database = "TN1", .timepoint = wanted}});
  const char* const status = "select ACTIVE_STATUS as A from SYS.M_DATABASES where DATABASE_NAME = 'TN1'";
  ASSERT_TRUE(eventually([&] { return host_.sql(status).out == "NO\n"; })) << "HANA goes on with the stop";
  expect_good_restore(wanted);
  const char* const steps[] = {"catalog", "check", "redo", "end"};
  for (const char* step : steps) {
    SCOPED_TRACE(step);
    const long good = recoveries("TN1", "RECOVER DATA finished successfully");
    kill_agent_at("recovery_slow_ms = 600000 | match=" + std::string(step), {{.database = "TN1", .timepoint = wanted}});
    ASSERT_TRUE(hana_is_done("TN1", good));
    expect_good_restore(wanted);
  }
  EXPECT_GT(recoveries("TN1", "RECOVER DATA started"), static_cast<long>(std::size(steps)))
      << "those that were cut off and those that came after them";
}

TEST_F(Restore_Kills, Of_A_System_Database_Are_Made_Good_By_The_Next_Restore) {
  start_with_log_backup();
  fault("logon_after_recovery_ms = 500");
  put("SYSTEMDB", "s", "1");
  back_up("SYSTEMDB");
  const std::string set = text_of(newest_set("SYSTEMDB", "full"), "uuid");
  put("SYSTEMDB", "s", "2");
  for (const char* step : {"stop_ms = 600000", "recovery_slow_ms = 600000 | match=data"}) {
    kill_agent_at(step, {{.database = "SYSTEMDB", .set = set}});
    EXPECT_FALSE(fs::exists(real(statement_file))) << step << ": HANA has taken it, or it was never there";
    fault("logon_after_recovery_ms = 500");
    EXPECT_EQ(restore({{.database = "SYSTEMDB", .set = set}}), "completed") << step << agent_log();
    EXPECT_EQ(rows("SYSTEMDB"), "s,1\n") << step;
  }
}

TEST_F(Restore_Kills, That_Leave_A_Statement_Are_Told_By_The_Check) {
  start_with_log_backup();
  fault("logon_after_recovery_ms = 500");
  back_up("SYSTEMDB");
  const std::string set = text_of(newest_set("SYSTEMDB", "full"), "uuid");
  const std::string file = real(statement_file);
  // HANA is not able to start: what the restore left stays.
  fault("hdb_start_fails = yes");
  EXPECT_EQ(restore({{.database = "SYSTEMDB", .set = set}}), "error");
  EXPECT_EQ(alerts(), std::vector<std::string>{"7/15"});
  ASSERT_TRUE(fs::exists(file));
  no_faults();
  fault("logon_after_recovery_ms = 500");
  EXPECT_EQ(restore({{.database = "SYSTEMDB", .set = set}}), "error");
  EXPECT_EQ(alerts().back(), "7/18");
  const Tool_Result check = dorsal3({"check", instance});
  EXPECT_NE(check.code, 0);
  EXPECT_NE(check.out.find(std::string(statement_file) + " is there"), std::string::npos) << check.out << check.err;
  EXPECT_NE(check.out.find("remove it, then start the instance or the restore again"), std::string::npos) << check.out;
  fs::remove(file);
  EXPECT_EQ(restore({{.database = "SYSTEMDB", .set = set}}), "completed") << agent_log();
}
