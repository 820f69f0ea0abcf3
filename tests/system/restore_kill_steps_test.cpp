// The agent dies at a step of a restore that HANA takes no part in, or while HANA changes the state of a tenant; a new
// agent is started, and the operator restores again.

#include <signal.h>

#include <algorithm>
#include <filesystem>
#include <iostream>

#include "held_file.h"
#include "restore_system.h"
#include "traced_process.h"

using namespace system_tests;

namespace {

namespace fs = std::filesystem;

/// A name in the staging folder, and whether the agent dies before or after it is given.
struct Step {
  const char* name;
  Traced_Process::Moment moment;
  std::size_t staged;     ///< files that have their names then
  std::size_t temporary;  ///< files that have none yet
};

class Restore_Kill_Steps : public Restore_System {
 protected:
  static constexpr const char* catalog_file = "/catalog_HDB_TN1_HDB_TN1.json";
  static constexpr const char* control_file = "/restore_HDB_TN1.json";
  static constexpr const char* statement_file = "/usr/sap/HDB/HDB00/work/recoverInstance.sql";
  static constexpr const char* groups = "/etc/group";
  static constexpr const char* users = "/etc/passwd";

  [[nodiscard]] pid_t agent() const { return pids_below(root(), "dorsal3-agent").at(0); }
  std::string start_wanted() { return start_restore({{.database = "TN1", .timepoint = wanted_}}); }

  /// Files below the folder that were not written to their end.
  [[nodiscard]] std::vector<std::string> unfinished(const std::string& folder) const {
    std::vector<std::string> files = files_below(real(folder));
    std::erase_if(files, [](const std::string& file) { return !file.ends_with(".tmp"); });
    return files;
  }
  /// Of those that a restore writes.
  [[nodiscard]] std::size_t unfinished() const {
    return unfinished("/var/opt/tarvex/dorsal3/agent/hana").size() + unfinished("/usr/sap/HDB/HDB00/work").size();
  }
  /// Files with the host's key in them, beside the two that are there for it.
  [[nodiscard]] std::vector<std::string> files_with_key() const {
    const std::string configured = real(std::string(configuration_directory) + "/agent.key");
    std::string key = slurp(configured);
    key.erase(key.find_last_not_of('\n') + 1);
    EXPECT_FALSE(key.empty());
    std::vector<std::string> files = files_below(root());
    std::erase_if(files, [&](const std::string& file) {
      return file == configured || file == real("/var/opt/tarvex/dorsal3/agent/access_key") ||
             slurp(file).find(key) == std::string::npos;
    });
    return files;
  }
  void expect_staged(const Step& step) const {
    EXPECT_EQ(unfinished(), step.temporary);
    EXPECT_EQ(staged_files().size(), step.staged + step.temporary);
    EXPECT_EQ(files_with_key().size(), step.staged + step.temporary);
  }
  /// What runs may be writing something else.
  void expect_nothing_unfinished() const {
    EXPECT_TRUE(eventually([this] { return unfinished("").empty(); })) << ::testing::PrintToString(unfinished(""));
  }
  void expect_nothing_staged() const {
    EXPECT_EQ(staged_files(), std::vector<std::string>());
    EXPECT_EQ(files_with_key(), std::vector<std::string>());
  }

  void kill_agent() { (void)host_.stop_agent(SIGKILL); }
  /// The run that was cut off is told as failed, and nothing that it staged is left.
  void start_agent_behind(const std::string& run) {
    start_agent();
    EXPECT_EQ(wait_for_end(run), "error");
    expect_nothing_staged();
  }
  void expect_restored() {
    EXPECT_EQ(wait_for_end(start_wanted()), "completed") << agent_log();
    EXPECT_EQ(rows("TN1"), "a,1\n");
    expect_nothing_staged();
    expect_nothing_unfinished();
  }
  [[nodiscard]] std::string status_of_tenant() const {
    return host_.sql("select ACTIVE_STATUS as A from SYS.M_DATABASES where DATABASE_NAME = 'TN1'").out;
  }
};

}  // namespace

TEST_F(Restore_Kill_Steps, Of_Its_Staging_Leave_Nothing_Behind) {
  start_with_a_past();
  using enum Traced_Process::Moment;
  for (const Step& step : {Step{catalog_file, before, 0, 1}, Step{catalog_file, after, 1, 0},
                           Step{control_file, before, 1, 1}, Step{control_file, after, 2, 0}}) {
    SCOPED_TRACE(std::string(step.name) + (step.moment == before ? " before" : " after"));
    Held_File beginning(real(groups));
    const std::string run = start_wanted();
    ASSERT_TRUE(beginning.holds(agent())) << "it asks for the group of its key before all else";
    Traced_Process traced(agent());
    if (traced.follow()) {
      beginning.release();
      ASSERT_TRUE(traced.stands_at_rename(step.name, step.moment)) << agent_log();
      expect_staged(step);
    } else {
      std::cout << "this machine lets no process be followed: the agent is killed before it stages\n";
    }
    traced.kill();
    kill_agent();
    beginning.release();
    EXPECT_TRUE(rows("TN1").starts_with("a,2\n")) << "nothing was stopped";
    start_agent_behind(run);
    expect_nothing_unfinished();
  }
  expect_restored();
}

TEST_F(Restore_Kill_Steps, While_A_Tenant_Is_Stopped_Are_Made_Good_By_The_Next_Restore) {
  start_with_a_past();
  const std::string held = "database_change_ms = 600000";
  fault(held);
  const std::string run = start_wanted();
  ASSERT_TRUE(meets(held)) << agent_log();
  EXPECT_EQ(status_of_tenant(), "STOPPING\n");
  EXPECT_EQ(staged_files().size(), 2U);
  kill_agent();
  start_agent_behind(run);
  EXPECT_EQ(status_of_tenant(), "STOPPING\n");
  no_faults();
  ASSERT_TRUE(eventually([this] { return status_of_tenant() == "NO\n"; })) << "HANA goes on with the stop";
  expect_restored();
}

TEST_F(Restore_Kill_Steps, While_A_Tenant_Is_Started_Are_Made_Good_By_The_Next_Restore) {
  start_with_a_past();
  const std::string recovers = "recovery_slow_ms = 600000 | match=end";
  const std::string held = "database_change_ms = 600000";
  fault("recovery_starts_tenant = no");
  fault(recovers);
  const std::string run = start_wanted();
  ASSERT_TRUE(meets(recovers)) << agent_log();
  // The stop is over: what is held now is the start.
  host_.only_faults("recovery_starts_tenant = no\n" + held);
  ASSERT_TRUE(meets(held)) << agent_log();
  EXPECT_EQ(status_of_tenant(), "STARTING\n");
  EXPECT_EQ(staged_files().size(), 2U);
  kill_agent();
  start_agent_behind(run);
  EXPECT_EQ(status_of_tenant(), "STARTING\n");
  no_faults();
  ASSERT_TRUE(eventually([this] { return status_of_tenant() == "YES\n"; })) << "HANA goes on with the start";
  EXPECT_EQ(rows("TN1"), "a,1\n") << "HANA had recovered it";
  put("TN1", "a", "4");
  expect_restored();
}

TEST_F(Restore_Kill_Steps, Before_And_After_The_Statement_Is_There_Are_Made_Good_By_The_Next_Restore) {
  start_with_log_backup();
  put("SYSTEMDB", "s", "1");
  const std::string wanted = moment();
  put("SYSTEMDB", "s", "2");
  save_logs({"SYSTEMDB"});
  const std::vector<Entry> entries{{.database = "SYSTEMDB", .timepoint = wanted}};
  for (const bool there : {false, true}) {
    SCOPED_TRACE(there ? "between the statement and the start" : "while the statement is written");
    const std::string stops = "stop_ms = 600000";
    no_faults();
    fault(stops);
    const std::string run = start_restore(entries);
    ASSERT_TRUE(meets(stops)) << agent_log();
    // All is staged; the next group that is asked for is the statement's, the next user that of the start.
    Held_File group(real(groups));
    host_.only_faults("logon_after_recovery_ms = 0");
    ASSERT_TRUE(group.holds(agent())) << agent_log();
    EXPECT_EQ(unfinished(), 1U) << "the statement has no name yet";
    if (there) {
      Held_File user(real(users));
      group.release();
      ASSERT_TRUE(user.holds(agent())) << agent_log();
      EXPECT_EQ(unfinished(), 0U);
      kill_agent();
    } else {
      kill_agent();
    }
    EXPECT_EQ(staged_files().size(), 2U);
    EXPECT_EQ(fs::exists(real(statement_file)), there);
    group.release();
    start_agent_behind(run);
    if (there) {
      EXPECT_EQ(restore(entries), "error") << "it may be anybody's";
      ASSERT_FALSE(alerts().empty());
      EXPECT_EQ(alerts().back(), "7/18");
      const Tool_Result check = dorsal3({"check", instance});
      EXPECT_NE(check.code, 0);
      EXPECT_NE(check.out.find("remove it, then start the instance or the restore again"), std::string::npos)
          << check.out;
      fs::remove(real(statement_file));
    }
    EXPECT_EQ(restore(entries), "completed") << agent_log();
    EXPECT_EQ(rows("SYSTEMDB"), "s,1\n");
    EXPECT_FALSE(fs::exists(real(statement_file)));
    expect_nothing_unfinished();
    expect_nothing_staged();
  }
}
