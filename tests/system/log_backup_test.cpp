// Log backups over all processes: HANA begins them, hdbbackint stores them, the agent records them.

#include "log_backup_system.h"

using namespace system_tests;

namespace {

class Log_Backups : public Log_Backup_System {
 protected:
  void expect_switches(const char* on_or_off) const {
    const bool on = std::string(on_or_off) == "on";
    EXPECT_EQ(setting("log_mode"), "normal");
    EXPECT_EQ(setting("enable_auto_log_backup"), on ? "yes" : "no");
    EXPECT_EQ(setting("log_backup_using_backint"), on ? "true" : "false");
    EXPECT_EQ(setting("catalog_backup_using_backint"), on ? "true" : "false");
  }
};

using Names = std::vector<std::string>;

}  // namespace

TEST_F(Log_Backups, Are_Stored_And_Recorded_By_Themselves) {
  start_with_log_backup();
  expect_switches("on");
  EXPECT_EQ(configuration_files(), Names{"log_backup_HDB_HDB00"});
  const Names databases{"SYSTEMDB", "TN1"};
  // The full backup's catalogs, then for each round a log and its catalog of each service.
  ASSERT_TRUE(all_recorded(databases, 2)) << agent_log();
  for (std::size_t round = 1; round <= 3; ++round) {
    make_logs(databases);
    const std::size_t services = 3;  // name server; index server and xsengine
    EXPECT_TRUE(all_recorded(databases, 2 + round * 2 * services)) << round << agent_log();
  }
  EXPECT_EQ(saved_by_hana(databases), recorded_sets());
  EXPECT_EQ(waiting_runs(), 0);
  EXPECT_TRUE(alerts().empty());
}
