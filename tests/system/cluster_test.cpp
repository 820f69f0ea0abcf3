// Which host of a system a data backup runs on: replicated pairs and scale-out systems, an agent on each host.

#include <signal.h>

#include "cluster_fixture.h"

using namespace system_tests;

namespace {

constexpr int exit_failed = 1;

/// "TN1 full, TN1 incremental" in the order of committing.
std::string kinds(const std::vector<json_spirit::Object>& sets) {
  std::string list;
  for (const auto& set : sets)
    list += (list.empty() ? "" : ", ") + text_of(set, "database") + " " + text_of(set, "type");
  return list;
}

class Cluster_System : public Cluster_Fixture {
 protected:
  [[nodiscard]] Tool_Result backup_from(const std::string& first_host, const std::string& type = "full") const {
    return server().backup(tenant, {"--host", first_host, "--type", type});
  }
  /// How the backup went from host to host.
  [[nodiscard]] std::string story_of(const Tool_Result& result) const { return story(text_of(result.json(), "job")); }
  static void take_over(const Host& secondary) {
    const Tool_Result done = secondary.hana_tool("hdbnsutil", {"-sr_takeover"});
    ASSERT_EQ(done.code, 0) << done.out;
  }
  /// Every object of every set is read back.
  void expect_sets_are_good() const {
    for (const auto& set : server().sets()) {
      const Tool_Result verified = server().dorsal3({"verify", text_of(set, "uuid")});
      EXPECT_EQ(verified.code, 0) << verified.out << verified.err;
    }
  }
};

/// One pair for each replication mode.
class Replicated_Pair : public Cluster_System, public ::testing::WithParamInterface<const char*> {};
INSTANTIATE_TEST_SUITE_P(Modes, Replicated_Pair, ::testing::Values("sync", "syncmem", "async"));

}  // namespace

TEST_P(Replicated_Pair, The_Secondary_Skips_And_The_Primary_Runs) {
  start_pair(GetParam());
  const Tool_Result result = backup_from("hana02");
  ASSERT_EQ(result.code, 0) << result.out << result.err;
  EXPECT_EQ(story_of(result), "hana02 skipped, hana01 completed");
  EXPECT_EQ(kinds(server().sets()), "TN1 full");
  EXPECT_TRUE(server().alerts().empty()) << ::testing::PrintToString(server().alerts());
  expect_sets_are_good();
}

TEST_P(Replicated_Pair, After_A_Takeover_It_Is_The_Other_Way_Round) {
  start_pair(GetParam());
  ASSERT_EQ(story_of(backup_from("hana01")), "hana01 completed");
  take_over(host("hana02"));
  host("hana01").stop_hana();
  const Tool_Result registered =
      host("hana01").hana_tool("hdbnsutil", {"-sr_register", "--name=WDF", "--remoteHost=hana02", "--remoteInstance=00",
                                             std::string("--replicationMode=") + GetParam()});
  ASSERT_EQ(registered.code, 0) << registered.out;
  host("hana01").start_hana();
  log_on(host("hana02"));
  const Tool_Result result = backup_from("hana01");
  ASSERT_EQ(result.code, 0) << result.out << result.err;
  EXPECT_EQ(story_of(result), "hana01 skipped, hana02 completed");
  EXPECT_EQ(kinds(server().sets()), "TN1 full, TN1 full");
  expect_sets_are_good();
}

TEST_F(Cluster_System, One_Resource_Has_An_Instance_On_Each_Site) {
  start_pair();
  json_spirit::Value answer;
  ASSERT_TRUE(json_spirit::load_json(server().rest("GET", "/resources").body, answer));
  json_spirit::Array rows, instances;
  ASSERT_TRUE(json_spirit::object_get(answer.get_obj(), "rows", rows));
  ASSERT_EQ(rows.size(), 1U) << json_spirit::dump_json(answer);
  ASSERT_TRUE(json_spirit::object_get(rows.front().get_obj(), "instances", instances));
  ASSERT_EQ(instances.size(), 2U);
  EXPECT_EQ(text_of(instances[0].get_obj(), "host_uuid"), host("hana01").uuid());
  EXPECT_EQ(text_of(instances[1].get_obj(), "host_uuid"), host("hana02").uuid());
}

TEST_F(Cluster_System, All_Databases_Go_Where_The_Primary_Is) {
  start_pair();
  const Tool_Result result = server().backup(instance, {"--host", "hana02"});
  ASSERT_EQ(result.code, 0) << result.out << result.err;
  EXPECT_EQ(story_of(result), "hana02 skipped, hana01 completed");
  EXPECT_EQ(kinds(server().sets()), "SYSTEMDB full, TN1 full");
}

TEST_F(Cluster_System, A_Takeover_While_A_Backup_Runs_Leaves_The_Next_One_To_The_New_Primary) {
  start_pair("sync", {.data_mb = 16});
  host("hana01").fault("stream_bytes_per_second = 50000");
  const std::string run = server().start_backup(tenant, {"--host", "hana01"});
  ASSERT_TRUE(eventually([&] { return !server().pool_files().empty(); }));
  take_over(host("hana02"));
  // What HANA's cluster manager does with the former primary.
  (void)run_tool({host("hana01").real("/usr/sap/HDB/HDB00/HDB"), "kill-9"});
  EXPECT_EQ(server().wait_for_end(run), "error");
  EXPECT_TRUE(server().sets().empty());
  log_on(host("hana02"));
  const Tool_Result next = backup_from("hana01");
  ASSERT_EQ(next.code, 0) << next.out << next.err;
  EXPECT_EQ(story_of(next), "hana01 skipped, hana02 completed");
  EXPECT_EQ(kinds(server().sets()), "TN1 full");
  expect_sets_are_good();
}

TEST_F(Cluster_System, A_Backup_That_Runs_On_Through_A_Takeover_Is_Stored) {
  start_pair("sync", {.data_mb = 8});
  host("hana01").fault("stream_bytes_per_second = 50000");
  const std::string run = server().start_backup(tenant, {"--host", "hana01"});
  ASSERT_TRUE(eventually([&] { return !server().pool_files().empty(); }));
  take_over(host("hana02"));
  host("hana01").no_faults();
  EXPECT_EQ(server().wait_for_end(run), "completed") << "the former primary still runs";
  EXPECT_EQ(kinds(server().sets()), "TN1 full");
}

TEST_F(Cluster_System, A_Host_Whose_Agent_Is_Away_Is_Passed_Over) {
  start_pair();
  (void)host("hana02").stop_agent(SIGTERM);
  const Tool_Result result = backup_from("hana02");
  ASSERT_EQ(result.code, 0) << result.out << result.err;
  EXPECT_EQ(story_of(result), "hana01 completed");
  EXPECT_NE(log_of(text_of(result.json(), "job"))
                .find("The agent of the host " + host("hana02").uuid() + " is not connected, the host is passed over"),
            std::string::npos)
      << log_of(text_of(result.json(), "job"));
}

TEST_F(Cluster_System, A_Backup_Is_Refused_When_No_Agent_Is_There) {
  start_pair();
  for (const char* name : {"hana01", "hana02"}) (void)host(name).stop_agent(SIGTERM);
  const Tool_Result result = backup_from("hana01");
  EXPECT_NE(result.code, 0);
  EXPECT_NE(result.out.find("no agent of the hosts "), std::string::npos) << result.out;
}

TEST_F(Cluster_System, The_Command_Tells_Why_When_All_Hosts_Declined) {
  start_pair();
  host("hana01").stop_hana();
  const Tool_Result result = backup_from("hana01");
  EXPECT_EQ(result.code, exit_failed) << result.out;
  EXPECT_EQ(story_of(result), "hana01 skipped, hana02 skipped");
  EXPECT_EQ(text_of(result.json(), "result"), "Nothing was backed up: every host declined.") << result.out;
  json_spirit::Array declined;
  ASSERT_TRUE(json_spirit::object_get(result.json(), "declined", declined)) << result.out;
  ASSERT_EQ(declined.size(), 2U);
  EXPECT_EQ(text_of(declined[0].get_obj(), "host"), "hana01");
  EXPECT_EQ(text_of(declined[1].get_obj(), "host"), "hana02");
  EXPECT_TRUE(server().alerts().empty());
}

TEST_F(Cluster_System, The_Host_Of_A_Scale_Out_System_That_Is_Stopped_Skips_And_The_Next_Runs) {
  start_scale_out(2);
  host("hana01").stop_hana();
  ASSERT_TRUE(serves(host("hana02")));
  log_on(host("hana02"));
  const Tool_Result result = backup_from("hana01");
  ASSERT_EQ(result.code, 0) << result.out << result.err;
  EXPECT_EQ(story_of(result), "hana01 skipped, hana02 completed");
  EXPECT_EQ(kinds(server().sets()), "TN1 full");
  expect_sets_are_good();
}

TEST_F(Cluster_System, A_Chain_Goes_On_When_The_Master_Moves_And_Comes_Back) {
  start_scale_out(2);
  ASSERT_EQ(story_of(backup_from("hana01")), "hana01 completed");
  host("hana01").stop_hana();
  ASSERT_TRUE(serves(host("hana02")));
  log_on(host("hana02"));
  EXPECT_EQ(story_of(backup_from("hana01", "incremental")), "hana01 skipped, hana02 completed");
  host("hana01").start_hana();
  host("hana02").stop_hana();
  ASSERT_TRUE(serves(host("hana01")));
  EXPECT_EQ(story_of(backup_from("hana02", "differential")), "hana02 skipped, hana01 completed");
  EXPECT_EQ(kinds(server().sets()), "TN1 full, TN1 incremental, TN1 differential");
  expect_sets_are_good();
}

TEST_F(Cluster_System, Three_Hosts_Are_Tried_Until_One_Runs_The_Backup) {
  start_scale_out(3);
  host("hana01").stop_hana();
  ASSERT_TRUE(serves(host("hana02")));
  host("hana03").no_faults();
  host("hana02").stop_hana();
  ASSERT_TRUE(serves(host("hana03")));
  log_on(host("hana03"));
  const Tool_Result result = backup_from("hana01");
  ASSERT_EQ(result.code, 0) << result.out << result.err;
  EXPECT_EQ(story_of(result), "hana01 skipped, hana02 skipped, hana03 completed");
  (void)host("hana02").stop_agent(SIGTERM);
  EXPECT_EQ(story_of(backup_from("hana01")), "hana01 skipped, hana03 completed") << "the one between is away";
}

TEST_F(Cluster_System, The_Masters_Host_Is_Asked_First) {
  start_scale_out(2);
  host("hana01").stop_hana();
  ASSERT_TRUE(serves(host("hana02")));
  host("hana01").start_hana();
  log_on(host("hana02"));
  ASSERT_EQ(server().dorsal3({"discover"}).code, 0);
  const Tool_Result result = server().backup(tenant);
  ASSERT_EQ(result.code, 0) << result.out << result.err;
  EXPECT_EQ(story_of(result), "hana02 completed") << "hana01 runs as a slave and would have taken it";
}

TEST_F(Cluster_System, A_Host_That_Cannot_Ask_Backupd_Declines_And_The_Command_Tells_Why) {
  start_pair();
  // Its connection stands, what it asks for by REST is refused.
  host("hana01").product().configure("agent.key", "worthless\n");
  const Tool_Result result = backup_from("hana01");
  EXPECT_EQ(result.code, exit_failed) << result.out;
  EXPECT_EQ(story_of(result), "hana01 skipped, hana02 skipped");
  EXPECT_NE(result.out.find("Failed to get resource info to check if the node is active"), std::string::npos)
      << result.out;
}

TEST_F(Cluster_System, A_Restart_Of_Backupd_Does_Not_Lose_The_Next_Host) {
  start_pair();
  // The secondary is slow to tell its mode, so that backupd goes away before the run is declined.
  host("hana02").fault("replication_mode_missing = yes");
  const std::string run = server().start_backup(tenant, {"--host", "hana02"});
  ASSERT_TRUE(host("hana02").agent_says("Start job "));
  server().stop(SIGKILL);
  host("hana02").no_faults();
  server().start();
  std::string last;
  ASSERT_TRUE(eventually([&] { return !(last = text_of(server().job(run), "followed_by")).empty(); }));
  EXPECT_EQ(server().wait_for_end(last), "completed");
  EXPECT_EQ(story(last), "hana02 skipped, hana01 completed");
  EXPECT_EQ(kinds(server().sets()), "TN1 full");
}
