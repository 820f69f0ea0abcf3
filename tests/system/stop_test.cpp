// A data backup that is stopped from outside, over all processes: in HANA, on the pool, with the server.

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <limits>
#include <sstream>

#include "system_fixture.h"

using namespace system_tests;

namespace fs = std::filesystem;

namespace {

constexpr const char* no_running_backup = "7/20";
constexpr const char* failed_statement = "7/8";

class Stop_System : public System_Fixture {
 protected:
  static std::string tenant() { return std::string(instance) + "/TN1"; }
  /// A cancel is pending until the test takes its faults away.
  static constexpr const char* held_cancel = "cancel_pending_ms = 600000";

  /// A backup of `subject` that goes on until no_faults.
  std::string start_slow_backup(const std::string& subject) {
    fault(held_backup);
    std::string run = start_backup(subject);
    EXPECT_TRUE(program_runs("hdbbackint"));
    EXPECT_TRUE(eventually([&] { return !dataset_directories().empty(); })) << "nothing reaches the pool";
    return run;
  }

  /// The request alone; the answer's "code" of the agent, -2 when it was refused.
  [[nodiscard]] int ask_to_stop(const std::string& run) const {
    const Rest_Answer answer = rest("POST", "/jobs/" + run + "/stop");
    json_spirit::Value value;
    int code = -2;
    if (answer.status == 200 && json_spirit::load_json(answer.body, value) && value.is_object())
      json_spirit::object_get(value.get_obj(), "code", code);
    return code;
  }

  [[nodiscard]] std::size_t count_alerts(const std::string& code) const {
    const std::vector<std::string> all = alerts();
    return static_cast<std::size_t>(std::count(all.begin(), all.end(), code));
  }

  /// Directories of the pool that hold the objects of one backup.
  [[nodiscard]] std::vector<std::string> dataset_directories() const {
    std::vector<std::string> list;
    for (const std::string& file : pool_files()) list.push_back(fs::path(file).parent_path().string());
    std::sort(list.begin(), list.end());
    list.erase(std::unique(list.begin(), list.end()), list.end());
    return list;
  }

  [[nodiscard]] std::size_t count_backint_records(const std::string& run) const {
    const Rest_Answer answer = rest("GET", "/backint/jobs?job_act_id=" + run);
    json_spirit::Value value;
    std::size_t total = 0;
    EXPECT_TRUE(json_spirit::load_json(answer.body, value) && value.is_object()) << answer.status;
    if (value.is_object()) json_spirit::object_get(value.get_obj(), "total", total);
    return total;
  }

  void expect_no_traces(const std::string& run) {
    EXPECT_TRUE(eventually([&] { return dataset_directories().empty(); }))
        << ::testing::PrintToString(dataset_directories());
    EXPECT_TRUE(eventually([&] { return count_backint_records(run) == 0; }));
    EXPECT_TRUE(sets().empty());
  }

  /// HANA's own words for the states of its full backups of TN1.
  [[nodiscard]] std::string states_in_hana() const {
    return host_
        .sql(
            "select STATE_NAME from SYS_DATABASES.M_BACKUP_CATALOG where DATABASE_NAME='TN1' and "
            "ENTRY_TYPE_NAME='complete data backup' order by BACKUP_ID")
        .out;
  }

  /// HANA has taken the request to cancel the backup.
  void expect_pending() const {
    EXPECT_TRUE(eventually([&] { return states_in_hana() == "cancel pending\n"; })) << states_in_hana();
  }

  /// Kills the hdbsql that waits for the backup: the oldest one, others ask for the state of it meanwhile.
  void kill_the_backup_statement() const {
    const std::vector<pid_t> running = pids_below(root(), "hdbsql");
    ASSERT_FALSE(running.empty()) << ::testing::PrintToString(processes_below(root()));
    const auto oldest =
        std::min_element(running.begin(), running.end(), [](pid_t a, pid_t b) { return start_of(a) < start_of(b); });
    EXPECT_EQ(::kill(*oldest, SIGKILL), 0);
  }

  /// When a process was started, in ticks since the machine's start; the latest of times when it has ended.
  static std::uint64_t start_of(pid_t pid) {
    constexpr int fields_behind_name = 19;
    const std::string stat = slurp("/proc/" + std::to_string(pid) + "/stat");
    std::istringstream fields(stat.substr(std::min(stat.rfind(')') + 1, stat.size())));
    std::string skipped;
    for (int i = 0; i < fields_behind_name; ++i) fields >> skipped;
    std::uint64_t ticks = 0;
    return fields >> ticks ? ticks : std::numeric_limits<std::uint64_t>::max();
  }

  [[nodiscard]] std::string job_state(const std::string& run) const { return text_of(job(run), "state_name"); }
};

}  // namespace

TEST_F(Stop_System, Ends_The_Run_As_Canceled_And_Leaves_Nothing_Behind) {
  start_all({.data_mb = 20});
  const std::string run = start_slow_backup(tenant());
  EXPECT_EQ(ask_to_stop(run), 0);
  EXPECT_EQ(wait_for_end(run), "canceled");
  EXPECT_EQ(count_alerts(no_running_backup), 0U);
  EXPECT_TRUE(eventually([&] { return count_alerts(failed_statement) == 1U; }));
  EXPECT_EQ(states_in_hana(), "canceled\n");
  expect_no_traces(run);
  no_faults();
  EXPECT_EQ(backup(tenant()).code, 0) << "a backup right after it";
  EXPECT_EQ(sets().size(), 1U);
}

TEST_F(Stop_System, Of_The_Second_Database_Keeps_The_Set_Of_The_First) {
  start_all({.tenants = {"TN1", "T_2"}, .data_mb = 20});
  fault(std::string(held_backup) + " | database=T_2");
  const std::string run = start_backup(instance);
  ASSERT_TRUE(eventually([&] { return sets().size() == 2U; })) << "SYSTEMDB and TN1 first";
  ASSERT_TRUE(program_runs("hdbbackint"));
  // Asked between two databases it finds nothing; then it is asked again.
  EXPECT_TRUE(eventually([&] { return ask_to_stop(run) != 0 || job_state(run) == "canceled"; }));
  EXPECT_EQ(wait_for_end(run), "canceled");
  EXPECT_EQ(sets().size(), 2U);
  no_faults();
  EXPECT_TRUE(eventually([&] { return dataset_directories().size() == 2U; }))
      << "nothing is left of T_2: " << ::testing::PrintToString(dataset_directories());
}

TEST_F(Stop_System, Before_HANA_Lists_The_Backup_Raises_Alert_20_And_The_Run_Goes_On) {
  start_all({.data_mb = 20});
  fault("catalog_late_ms = 600000");
  const std::string run = start_slow_backup(tenant());
  EXPECT_EQ(ask_to_stop(run), 0);
  EXPECT_TRUE(eventually([&] { return count_alerts(no_running_backup) == 1U; }));
  no_faults();
  EXPECT_EQ(wait_for_end(run), "completed");
  EXPECT_EQ(sets().size(), 1U);
}

TEST_F(Stop_System, Twice_At_Once_Ends_The_Run_Once) {
  start_all({.data_mb = 20});
  fault(held_cancel);
  const std::string run = start_slow_backup(tenant());
  EXPECT_EQ(ask_to_stop(run), 0);
  EXPECT_EQ(ask_to_stop(run), 0);
  expect_pending();
  no_faults();
  EXPECT_EQ(wait_for_end(run), "canceled");
  expect_no_traces(run);
}

TEST_F(Stop_System, By_An_Account_That_Lost_Its_Privilege_Is_Refused_By_HANA_And_The_Run_Goes_On) {
  start_all({.data_mb = 20});
  fault("fail_statement = 258:insufficient privilege | match=BACKUP CANCEL");
  const std::string run = start_slow_backup(tenant());
  EXPECT_EQ(ask_to_stop(run), 0);
  EXPECT_TRUE(eventually([&] { return count_alerts(no_running_backup) == 1U; }));
  EXPECT_TRUE(agent_says("Failed to cancel backup job for database TN1 with backup id "));
  EXPECT_TRUE(agent_says("insufficient privilege"));
  no_faults();
  EXPECT_EQ(wait_for_end(run), "completed");
  EXPECT_EQ(sets().size(), 1U);
}

TEST_F(Stop_System, While_Backupd_Is_Away_Ends_The_Run_And_Cleans_Up_When_It_Is_Back) {
  start_all({.data_mb = 20});
  fault(held_cancel);
  const std::string run = start_slow_backup(tenant());
  EXPECT_EQ(ask_to_stop(run), 0);
  expect_pending();
  EXPECT_TRUE(agent_says("Try to stop database TN1 backup job with backup id "));
  stop_backupd(SIGKILL);
  no_faults();
  ASSERT_TRUE(agent_says("Failed to backup HANA database")) << "the run needs no server to end";
  EXPECT_EQ(states_in_hana(), "canceled\n");
  start_backupd();
  EXPECT_EQ(wait_for_end(run), "canceled");
  EXPECT_TRUE(eventually([&] { return count_alerts(failed_statement) == 1U; })) << "queued while backupd was away";
  expect_no_traces(run);
}

TEST_F(Stop_System, By_An_Agent_That_Is_Killed_Is_Reported_As_Failed_And_Can_Be_Repeated) {
  start_all({.data_mb = 20});
  fault(held_cancel);
  const std::string run = start_slow_backup(tenant());
  EXPECT_EQ(ask_to_stop(run), 0);
  expect_pending();
  (void)host_.stop_agent(SIGKILL);
  start_agent();
  EXPECT_EQ(wait_for_end(run), "error");
  no_faults();
  EXPECT_TRUE(eventually([&] { return states_in_hana() == "canceled\n"; })) << "HANA goes on with the cancel";
  EXPECT_EQ(backup(tenant()).code, 0);
  EXPECT_EQ(sets().size(), 1U);
  EXPECT_TRUE(eventually([&] { return dataset_directories().size() == 1U; }))
      << "only the good backup's: " << ::testing::PrintToString(dataset_directories());
}

TEST_F(Stop_System, That_Still_Polls_For_An_Ended_Run_Does_Not_Hold_The_Agent_Up) {
  start_all({.data_mb = 20});
  (void)host_.stop_agent(SIGTERM);
  start_agent(1);
  fault("cancel = never");
  const std::string run = start_slow_backup(tenant());
  EXPECT_EQ(ask_to_stop(run), 0);
  expect_pending();
  kill_the_backup_statement();
  EXPECT_EQ(wait_for_end(run), "error") << "the run ends, HANA's backup does not";
  EXPECT_EQ(host_.stop_agent(SIGTERM), 3);
  EXPECT_TRUE(agent_says("The stop of a job that has ended still runs, it is cut off, the agent ends"));
}

TEST_F(Stop_System, Of_A_Run_That_Waits_For_Another_Does_Not_Cancel_The_Other) {
  start_all({.data_mb = 20});
  const std::string first = start_slow_backup(tenant());
  const std::string second = start_backup(tenant(), {"--compression", "zstd"});
  ASSERT_TRUE(eventually([&] { return job_state(second) == "running"; }));
  const Rest_Answer answer = rest("POST", "/jobs/" + second + "/stop");
  EXPECT_NE(answer.body.find("the job " + first + " holds this system now"), std::string::npos) << answer.body;
  EXPECT_EQ(states_in_hana(), "running\n");
  no_faults();
  EXPECT_EQ(wait_for_end(first), "completed");
  EXPECT_EQ(wait_for_end(second), "completed");
  EXPECT_EQ(sets().size(), 2U);
}

TEST_F(Stop_System, Of_A_Run_That_Has_Ended_Is_Refused) {
  start_all({.data_mb = 1});
  const std::string run = start_backup(tenant());
  EXPECT_EQ(wait_for_end(run), "completed");
  const Rest_Answer answer = rest("POST", "/jobs/" + run + "/stop");
  EXPECT_EQ(answer.status, 409U) << answer.body;
  EXPECT_NE(answer.body.find("completed"), std::string::npos) << answer.body;
}
