#include <gtest/gtest.h>

#include "unit/dorsal3/command_fixture.h"
#include "unit/dorsal3/keyboard.h"

using namespace dorsal3;

namespace {

constexpr const char* running = R"({"id":"a1","state":3,"state_name":"running","progress":10,"host_uuid":"h1"})";
constexpr const char* completed = R"({"id":"a1","state":7,"state_name":"completed","progress":100,"host_uuid":"h1"})";
constexpr const char* canceled = R"({"id":"a1","state":9,"state_name":"canceled","progress":10,"host_uuid":"h1"})";
constexpr const char* hosts_answer =
    R"({"total":2,"rows":[{"uuid":"h1","name":"hana01","connected":true},{"uuid":"h2","name":"hana02"}]})";
constexpr const char* cluster_answer =
    R"({"total":1,"rows":[{"uuid":"0d0c1a4e-16f3-4f0a-8d5c-2f9f0a5b7e21","name":"PRD_HDB00","type":"hana","instances":[)"
    R"({"host_uuid":"h1","extended_attrs":{"instance_name":"HDB00","localhost":"node1","active_master":false}},)"
    R"({"host_uuid":"h2","extended_attrs":{"instance_name":"HDB00","localhost":"node2","active_master":true}}]}]})";
constexpr const char* pair_answer =
    R"({"total":1,"rows":[{"uuid":"0d0c1a4e-16f3-4f0a-8d5c-2f9f0a5b7e21","name":"PRD_HDB00","type":"hana","instances":[)"
    R"({"host_uuid":"h1","extended_attrs":{"instance_name":"HDB00"}},)"
    R"({"host_uuid":"h2","extended_attrs":{"instance_name":"HDB00"}}]}]})";

const std::vector<std::string> one_tenant{"backup", "PRD_HDB00/TN1"};

class Backup_Test : public Command_Fixture {
 protected:
  Backup_Test() {
    watch_interruptions();
    terminal.input_is_terminal = true;
    terminal.output_is_terminal = true;
    server.answer("GET /hosts", hosts_answer);
    server.answer("GET /alerts?job_act_id=a1&order=desc", R"({"total":0,"rows":[]})");
    server.answer("POST /jobs/a1/stop", R"({"code":0,"message":""})");
  }
  ~Backup_Test() override { forget_interruption(); }

  void run_is(const std::vector<std::string>& records) {
    for (const std::string& record : records) server.answer("GET /jobs/a1", record);
  }

  void use_resources(const char* answer) {
    server.forget("GET /resources");
    server.answer("GET /resources", answer);
  }

  [[nodiscard]] std::string posted_host() {
    json_spirit::Value value;
    std::string host;
    const auto bodies = server.bodies("POST /job-definitions");
    if (!bodies.empty() && json_spirit::load_json(bodies.back(), value))
      (void)json_spirit::object_get(value.get_obj(), "host_uuid", host);
    return host;
  }

  [[nodiscard]] std::size_t stops() const { return server.count("POST /jobs/a1/stop"); }
};

}  // namespace

TEST_F(Backup_Test, Of_A_System_Without_Tenants_Takes_No_Other_Name_Than_Its_Own) {
  std::string single = resources_answer;
  const std::string multi = R"("multi_container":true)";
  single.replace(single.find(multi), multi.size(), R"("multi_container":false)");
  server.forget("GET /resources");
  server.answer("GET /resources", single);
  EXPECT_EQ(run({"backup", "PRD_HDB00/OTHER"}), exit_not_found);
  EXPECT_NE(error.str().find("system PRD has no tenants"), std::string::npos) << error.str();
  EXPECT_EQ(server.count("POST /job-definitions"), 0U);
}

TEST_F(Backup_Test, Ctrl_C_Asks_And_Stop_Cancels_The_Run) {
  let_start(one_tenant);
  run_is({running, running, running, running, canceled});
  clock.at(std::chrono::milliseconds(500), [] { press_ctrl_c(); });
  const Keyboard keyboard("s\n");
  EXPECT_EQ(run(one_tenant), exit_failed) << "there is no backup";
  EXPECT_EQ(stops(), 1U);
  EXPECT_NE(error.str().find("Stop the backup? [s]top it, [l]eave it running, [c]ontinue watching"), std::string::npos);
  EXPECT_NE(out.str().find("\nThe backup was canceled\n"), std::string::npos) << "on a line of its own: " << out.str();
}

TEST_F(Backup_Test, Ctrl_C_Asks_And_Continue_Goes_On_Watching) {
  let_start(one_tenant);
  run_is({running, running, running, completed});
  clock.at(std::chrono::milliseconds(500), [] { press_ctrl_c(); });
  const Keyboard keyboard("what\nc\n");
  EXPECT_EQ(run(one_tenant), exit_ok) << error.str();
  EXPECT_EQ(stops(), 0U);
}

TEST_F(Backup_Test, Shows_Sizes_Ratio_And_Speed_Of_What_Was_Stored) {
  let_start(one_tenant);
  run_is({running, running, running, running,
          R"({"id":"a1","state":7,"state_name":"completed","progress":100,"host_uuid":"h1",)"
          R"("databases":[{"name":"TN1","kind":"full","set":"s1"}]})"});
  server.answer("GET /sets?uuid=s1", R"({"total":1,"rows":[{"uuid":"s1","type":"full","database":"TN1",)"
                                     R"("source_size":4194304,"lifeline":"l1","files":[{"storage_size":2097152}]}]})");
  EXPECT_EQ(run(one_tenant), exit_ok) << out.str() << error.str();
  EXPECT_NE(out.str().find("SET  DATABASE  TYPE  SIZE     STORED   RATIO  LIFELINE  NOTE\n"
                           "s1   TN1       full  4.0 MiB  2.0 MiB  2.0x   l1\n"
                           "4.0 MiB in 0:02, 2.0 MiB/s\n"
                           "The backup is complete.\n"),
            std::string::npos)
      << out.str();
}

TEST_F(Backup_Test, Ctrl_C_Can_Leave_The_Backup_Running) {
  struct Row {
    const char* what;
    const char* typed;
    bool terminal;
    std::vector<std::string> more;
    bool asks;
  };
  const Row rows[] = {{"answered", "l\n", true, {}, true},
                      {"end of input", "", true, {}, true},
                      {"no terminal", "s\n", false, {}, false},
                      {"JSON", "s\n", true, {"--output", "json"}, false}};
  let_start(one_tenant);
  run_is({running});
  for (const Row& row : rows) {
    terminal.input_is_terminal = row.terminal;
    std::vector<std::string> arguments = one_tenant;
    arguments.insert(arguments.end(), row.more.begin(), row.more.end());
    clock.at(std::chrono::milliseconds(500), [] { press_ctrl_c(); });
    const Keyboard keyboard(row.typed);
    EXPECT_EQ(run(arguments), exit_interrupted) << row.what;
    EXPECT_EQ(error.str().find("Stop the backup?") != std::string::npos, row.asks) << row.what;
    EXPECT_NE((out.str() + error.str()).find("the backup goes on, follow it with: dorsal3 jobs a1"), std::string::npos)
        << row.what;
    forget_interruption();
  }
  EXPECT_EQ(stops(), 0U);
}

TEST_F(Backup_Test, A_Second_Ctrl_C_While_It_Is_Being_Stopped_Leaves) {
  let_start(one_tenant);
  run_is({running});
  clock.at(std::chrono::milliseconds(500), [] { press_ctrl_c(); });
  clock.at(std::chrono::seconds(4), [] { press_ctrl_c(); });
  const Keyboard keyboard("s\n");
  EXPECT_EQ(run(one_tenant), exit_interrupted);
  EXPECT_EQ(stops(), 1U);
  EXPECT_NE(error.str().find("the run a1 goes on"), std::string::npos) << error.str();
}

TEST_F(Backup_Test, A_Host_That_Declines_Hands_The_Backup_To_The_Next_One) {
  use_resources(pair_answer);
  let_start(one_tenant);
  run_is({running, R"({"id":"a1","state":17,"state_name":"skipped","host_uuid":"h1","followed_by":"a2"})"});
  server.answer("GET /jobs/a2", R"({"id":"a2","state":3,"progress":50,"host_uuid":"h2","follows":"a1"})");
  server.answer("GET /jobs/a2", R"({"id":"a2","state":7,"state_name":"completed","progress":100,"host_uuid":"h2"})");
  EXPECT_EQ(run(one_tenant), exit_ok) << error.str();
  EXPECT_NE(out.str().find("hana01 declined the backup: it is a replication secondary or its instance does not run "
                           "there.\nThe backup goes to hana02 as run a2.\n"),
            std::string::npos)
      << out.str();
  EXPECT_NE(out.str().find("The backup is complete.\n"), std::string::npos) << out.str();
}

TEST_F(Backup_Test, The_Reason_Of_A_Host_That_Declined_Is_In_Its_Log) {
  use_resources(pair_answer);
  let_start(one_tenant);
  run_is({R"({"id":"a1","state":17,"state_name":"skipped","host_uuid":"h1","followed_by":"a2","log":[)"
          R"({"priority":128,"text":"Failed to get resource info to check if the node is active\n"}]})"});
  server.answer("GET /jobs/a2", R"({"id":"a2","state":17,"state_name":"skipped","host_uuid":"h2","follows":"a1"})");
  EXPECT_EQ(run(one_tenant), exit_failed);
  EXPECT_NE(out.str().find("hana01 declined the backup: Failed to get resource info to check if the node is active."),
            std::string::npos)
      << out.str();
  EXPECT_NE(out.str().find("Nothing was backed up: every host declined.\n"
                           "  hana01: Failed to get resource info to check if the node is active\n"
                           "  hana02: it is a replication secondary or its instance does not run there\n"),
            std::string::npos)
      << out.str();
}

TEST_F(Backup_Test, Json_Names_Every_Host_That_Declined) {
  use_resources(pair_answer);
  let_start(one_tenant);
  run_is({R"({"id":"a1","state":17,"state_name":"skipped","host_uuid":"h1","followed_by":"a2"})"});
  server.answer("GET /jobs/a2", R"({"id":"a2","state":7,"state_name":"completed","host_uuid":"h2"})");
  EXPECT_EQ(run({"backup", "PRD_HDB00/TN1", "--output", "json"}), exit_ok);
  const json_spirit::Object model = json();
  EXPECT_EQ(json_spirit::dump_json(*model.find("declined")),
            R"([{"job":"a1","host_uuid":"h1","host":"hana01","reasons":)"
            R"(["it is a replication secondary or its instance does not run there"]}])");
  EXPECT_EQ(model.find("job")->get_str(), "a2");
}

TEST_F(Backup_Test, A_Single_Host_That_Declines_Is_Not_Waited_For) {
  let_start(one_tenant);
  run_is({R"({"id":"a1","state":17,"state_name":"skipped","host_uuid":"h1"})"});
  EXPECT_EQ(run(one_tenant), exit_failed);
  EXPECT_TRUE(clock.sleeps().empty());
  EXPECT_NE(out.str().find("Nothing was backed up: the run was skipped"), std::string::npos) << out.str();
}

TEST_F(Backup_Test, The_Host_That_Is_Asked_First) {
  struct Row {
    const char* what;
    const char* resources;
    std::vector<std::string> more;
    const char* host;
  };
  const Row rows[] = {{"the active master", cluster_answer, {}, "h2"},
                      {"the first one without a master", pair_answer, {}, "h1"},
                      {"by uuid", cluster_answer, {"--host", "h1"}, "h1"},
                      {"by the agent's name", pair_answer, {"--host", "hana02"}, "h2"},
                      {"by the instance's name of it", cluster_answer, {"--host", "node1"}, "h1"}};
  let_backups_start();
  for (const Row& row : rows) {
    use_resources(row.resources);
    std::vector<std::string> arguments = one_tenant;
    arguments.insert(arguments.end(), row.more.begin(), row.more.end());
    EXPECT_EQ(run(arguments), exit_not_found) << row.what << ": the start has no answer here";
    EXPECT_EQ(posted_host(), row.host) << row.what;
  }
  EXPECT_EQ(run({"backup", "PRD_HDB00/TN1", "--host", "hana07"}), exit_not_found);
  EXPECT_NE(error.str().find("\"hana07\" is no host of PRD_HDB00; its hosts are: hana01 (h1), hana02 (h2)"),
            std::string::npos)
      << error.str();
}

TEST_F(Backup_Test, Hosts_Of_One_Name_Are_Told_Apart) {
  server.forget("GET /hosts");
  server.answer("GET /hosts", R"({"total":2,"rows":[{"uuid":"h1","name":"hana"},{"uuid":"h2","name":"hana"}]})");
  use_resources(pair_answer);
  let_start(one_tenant);
  EXPECT_EQ(run({"backup", "PRD_HDB00/TN1", "--host", "hana"}), exit_usage);
  EXPECT_NE(error.str().find("its hosts are: hana (h1), hana (h2)"), std::string::npos) << error.str();
  run_is({R"({"id":"a1","state":17,"state_name":"skipped","host_uuid":"h1","followed_by":"a2"})"});
  server.answer("GET /jobs/a2", R"({"id":"a2","state":7,"state_name":"completed","host_uuid":"h2"})");
  EXPECT_EQ(run(one_tenant), exit_ok) << error.str();
  EXPECT_NE(out.str().find("hana (h1) declined the backup"), std::string::npos) << out.str();
  EXPECT_NE(out.str().find("The backup goes to hana (h2) as run a2."), std::string::npos) << out.str();
}

TEST_F(Backup_Test, The_Databases_Are_Asked_Of_The_Next_Host_When_One_Is_Away) {
  use_resources(pair_answer);
  server.answer("POST /agents/h1/call", R"({"error":{"code":"unavailable","message":"h1 is not connected"}})", 503);
  server.answer("POST /agents/h2/call", databases_answer);
  server.answer("POST /job-definitions", "{}");
  EXPECT_EQ(run({"backup", "PRD_HDB00"}), exit_not_found);
  EXPECT_EQ(posted_host(), "h1");
}
