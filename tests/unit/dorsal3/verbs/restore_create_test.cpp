#include <gtest/gtest.h>

#include "dorsal3/server/resources.h"
#include "unit/dorsal3/command_fixture.h"
#include "unit/dorsal3/keyboard.h"

using namespace dorsal3;

namespace {

constexpr const char* statement = "RECOVER DATA FOR QA1 USING SOURCE 'TN1@PRD' USING BACKUP_ID 1 CLEAR LOG;";
constexpr const char* secret = "New\"Secret1";
constexpr const char* completed = R"({"id":"a1","state":7,"state_name":"completed","progress":100,"host_uuid":"h1"})";
constexpr const char* failed =
    R"({"id":"a1","state":10,"state_name":"error","progress":0,"host_uuid":"h1","log":[{"priority":128,"text":"Failed to restore tenant database\n"}]})";

struct Target {
  const char* database = "QA1";
  bool connected = true;
  bool system_database = false;
};

std::string plan_json(const Target& target, const std::string& refusals) {
  const auto word = [](bool flag) { return flag ? "true" : "false"; };
  return std::string(R"({"resource_uuid":")") + resource_uuid +
         R"(","name":"PRD_HDB00","sid":"PRD","database":"TN1","kind":"full","time":"2026-11-20 08:15:00",)"
         R"("set":"f0000000-0000-4000-8000-000000000001","ignore_delta":false,"lifeline":"l","target":{"resource_uuid":")" +
         resource_uuid + R"(","name":"PRD_HDB00","instance_name":"HDB00","sid":"PRD","database":")" + target.database +
         R"(","host_uuid":"h1","connected":)" + word(target.connected) +
         R"(,"multi_container":true,"system_database":)" + word(target.system_database) +
         R"(,"in_place":false,"stops":")" + (target.system_database ? "instance" : "database") + R"("},"statement":")" +
         statement + R"(","sets":[],"totals":{"objects":0,"size":0,"stored_size":0},"notes":[],"refusals":[)" +
         refusals + R"(],"ok":)" + word(refusals.empty()) + "}";
}

class Restore_Create_Test : public Command_Fixture {
 protected:
  Restore_Create_Test() {
    watch_interruptions();
    plan_is({});
    server.answer("POST /agents/h1/call", databases_answer);
  }
  ~Restore_Create_Test() override { forget_interruption(); }

  void plan_is(const Target& target, const std::string& refusals = "") {
    server.forget("POST /restore/plan");
    server.answer("POST /restore/plan", plan_json(target, refusals));
  }
  /// What the agent says, in turn: the list of databases, to the creation, of the last recovery before and behind it.
  void agent_says(const std::string& creation, unsigned status = 200) {
    server.forget("POST /agents/h1/call");
    server.answer("POST /agents/h1/call", databases_answer);
    server.answer("POST /agents/h1/call", creation, status);
    server.answer("POST /agents/h1/call", R"({"found":false})");
    server.answer("POST /agents/h1/call",
                  std::string(R"({"found":true,"successful":true,"command":")") + statement + "\"}");
  }
  /// A restore runs as a1 and ends so.
  void let_restore(const std::string& record) {
    server.answer("POST /job-definitions", "{}");
    server.answer("GET /jobs/a1", record);
    agent_says(R"({"error":0})");
    EXPECT_EQ(run_with_password(), exit_not_found) << "a first try tells the definition's id";
    server.answer("POST /job-definitions/" + definition_id() + "/start", R"({"job_act_id":"a1"})");
    agent_says(R"({"error":0})");
  }
  int run_with_password(const std::string& typed = std::string(secret) + "\n") {
    const Keyboard keyboard(typed);
    return run(confirmed_);
  }
  std::vector<std::string> creations() const {
    std::vector<std::string> found;
    for (const std::string& body : server.bodies("POST /agents/h1/call"))
      if (body.find("hana.database.create") != std::string::npos) found.push_back(body);
    return found;
  }
  std::string refusal_code(const std::vector<std::string>& arguments) {
    std::vector<std::string> words = arguments;
    words.insert(words.end(), {"--output", "json"});
    EXPECT_EQ(run(words), exit_failed) << out.str();
    const json_spirit::Object answer = json();
    json_spirit::Object plan;
    (void)json_spirit::object_get(answer, "plan", plan);
    const auto refusals = object_rows(plan, "refusals");
    return refusals.empty() ? "" : text_member(refusals.back(), "code");
  }
  void expect_no_secret() {
    EXPECT_EQ((out.str() + error.str()).find("Secret1"), std::string::npos) << out.str() << error.str();
  }

  const std::vector<std::string> planned_{"restore", "PRD_HDB00/TN1", "--set",   "f0000000-0000-4000-8000-000000000001",
                                          "--as",    "QA1",           "--create"};
  const std::vector<std::string> confirmed_{
      "restore", "PRD_HDB00/TN1", "--set", "f0000000-0000-4000-8000-000000000001", "--as", "QA1", "--create",
      "--run",   "--confirm",     "QA1"};
};

TEST_F(Restore_Create_Test, Plans_The_Creation_And_Does_Nothing) {
  EXPECT_EQ(run(planned_), exit_ok) << error.str();
  EXPECT_NE(out.str().find("The database PRD_HDB00/QA1 does not exist. It is created first: CREATE DATABASE QA1 SYSTEM "
                           "USER PASSWORD ... NO START.\n"),
            std::string::npos)
      << out.str();
  EXPECT_EQ(out.str().find("is stopped meanwhile"), std::string::npos) << out.str();
  EXPECT_NE(out.str().find("--run --confirm QA1"), std::string::npos) << out.str();
  EXPECT_TRUE(creations().empty());
  const auto wishes = server.bodies("POST /restore/plan");
  EXPECT_NE(wishes.back().find(R"("database":"QA1"})"), std::string::npos) << wishes.back();
}

TEST_F(Restore_Create_Test, Creates_Then_Restores) {
  let_restore(completed);
  EXPECT_EQ(run_with_password(), exit_ok) << out.str() << error.str();
  ASSERT_EQ(creations().size(), 2U);
  EXPECT_EQ(creations().back(),
            R"({"method":"hana.database.create","params":{"sid":"PRD","instance_name":"HDB00","database":"QA1",)"
            R"("password":"New\"Secret1"},"timeout":3600})");
  EXPECT_NE(out.str().find("Creating the database PRD_HDB00/QA1"), std::string::npos) << out.str();
  EXPECT_NE(out.str().find("The restore is complete."), std::string::npos) << out.str();
  expect_no_secret();
  agent_says(R"({"error":0})");
  std::vector<std::string> words = confirmed_;
  words.insert(words.end(), {"--output", "json"});
  const Keyboard keyboard(std::string(secret) + "\n");
  EXPECT_EQ(run(words), exit_ok);
  EXPECT_TRUE(flag_member(json(), "created")) << out.str();
}

TEST_F(Restore_Create_Test, Says_That_The_Tenant_Stays_When_The_Restore_Goes_Wrong) {
  const std::string stays =
      "The database PRD_HDB00/QA1 was created and stays: restore into it without --create, or drop it in HANA.";
  let_restore(failed);
  EXPECT_NE(error.str().find(stays), std::string::npos) << "it could not be started: " << error.str();
  EXPECT_EQ(run_with_password(), exit_failed);
  EXPECT_NE(out.str().find("The restore FAILED"), std::string::npos) << out.str();
  EXPECT_NE(out.str().find(stays), std::string::npos) << out.str();
}

TEST_F(Restore_Create_Test, Takes_The_Password_From_A_File_Before_It_Asks_The_Server) {
  root.write("/home/op/pw", "FromFile1\n", 0600);
  std::vector<std::string> words = confirmed_;
  words.insert(words.end(), {"--password-file", "/home/op/pw"});
  agent_says(R"({"error":0})");
  (void)run(words);
  ASSERT_EQ(creations().size(), 1U);
  EXPECT_NE(creations().back().find(R"("password":"FromFile1")"), std::string::npos);
  const std::size_t plans = server.count("POST /restore/plan");
  root.write("/home/op/pw", "FromFile1\n", 0644);
  EXPECT_EQ(run(words), exit_configuration);
  EXPECT_NE(error.str().find("is open to other users"), std::string::npos) << error.str();
  EXPECT_EQ(server.count("POST /restore/plan"), plans);
  EXPECT_EQ(run({"restore", "PRD_HDB00/TN1", "--set", "f", "--password-file", "/home/op/pw"}), exit_usage)
      << "a password is of use for a creation only";
}

TEST_F(Restore_Create_Test, Restores_Nothing_After_Ctrl_C) {
  root.write("/home/op/pw", "FromFile1\n", 0600);
  std::vector<std::string> words = confirmed_;
  words.insert(words.end(), {"--password-file", "/home/op/pw"});
  agent_says(R"({"error":0})");
  press_ctrl_c();
  EXPECT_EQ(run(words), exit_interrupted);
  EXPECT_NE(error.str().find("the database PRD_HDB00/QA1 was created, nothing was restored into it"), std::string::npos)
      << error.str();
  EXPECT_EQ(creations().size(), 1U);
  EXPECT_EQ(server.count("POST /job-definitions"), 0U);
}

TEST_F(Restore_Create_Test, Creates_Nothing_Without_A_Password) {
  EXPECT_EQ(run_with_password(""), exit_usage);
  EXPECT_NE(error.str().find("no password was given"), std::string::npos) << error.str();
  terminal.input_is_terminal = true;
  EXPECT_EQ(run_with_password("Secret1\nSecret2\n"), exit_usage);
  EXPECT_NE(error.str().find("not the same the second time"), std::string::npos) << error.str();
  expect_no_secret();
  EXPECT_TRUE(creations().empty());
}

TEST_F(Restore_Create_Test, Restores_Nothing_When_HANA_Refuses) {
  agent_says(
      R"({"error":{"code":"invalid","message":"the agent refused: HANA did not create the database QA1: * 412: short"}})",
      422);
  EXPECT_EQ(run_with_password(), exit_failed);
  EXPECT_NE(error.str().find("* 412: short"), std::string::npos) << error.str();
  EXPECT_EQ(error.str().find("was created and stays"), std::string::npos) << error.str();
  EXPECT_EQ(server.count("POST /job-definitions"), 0U);
  agent_says(R"({"error":{"code":"unavailable","message":"the agent of the host h1 is not connected"}})", 503);
  EXPECT_EQ(run_with_password(), exit_unreachable);
  EXPECT_NE(
      error.str().find("should the database have been created all the same, dorsal3 databases PRD_HDB00 shows it"),
      std::string::npos)
      << error.str();
  EXPECT_EQ(server.count("POST /job-definitions"), 0U);
}

TEST_F(Restore_Create_Test, Is_Refused_For_A_Database_That_Is_There) {
  plan_is({.database = "TN1"});
  EXPECT_EQ(refusal_code(planned_), "target_exists");
  EXPECT_NE(out.str().find("leave --create out"), std::string::npos) << out.str();
  EXPECT_EQ(run_with_password(), exit_failed);
  EXPECT_TRUE(creations().empty());
}

TEST_F(Restore_Create_Test, Is_Refused_For_What_Is_No_Tenant) {
  plan_is({.database = "SYSTEMDB", .system_database = true});
  EXPECT_EQ(refusal_code(planned_), "no_tenant");
  EXPECT_TRUE(creations().empty());
}

TEST_F(Restore_Create_Test, Is_Refused_For_A_Name_That_The_Agent_Would_Refuse_Later) {
  for (const char* name : {"qa1", "1QA", "QA-1"}) {
    plan_is({.database = name});
    EXPECT_EQ(refusal_code(planned_), "target_name_unfit") << name;
    EXPECT_NE(out.str().find(std::string("no tenant can be created with the name ") + name), std::string::npos);
    EXPECT_NE(out.str().find("capital letters, digits and underscores"), std::string::npos) << out.str();
    EXPECT_NE(out.str().find("choose such a name with --as"), std::string::npos) << out.str();
  }
  EXPECT_EQ(run_with_password(), exit_failed);
  EXPECT_TRUE(creations().empty());
}

TEST_F(Restore_Create_Test, Is_Refused_For_Such_A_Name_Also_While_The_Agent_Is_Away) {
  plan_is({.database = "qa1", .connected = false}, R"({"code":"agent_away","message":"the agent is away"})");
  EXPECT_EQ(run(planned_), exit_failed);
  EXPECT_NE(out.str().find("target_name_unfit"), std::string::npos) << out.str();
}

TEST_F(Restore_Create_Test, Is_No_Way_Out_For_A_Missing_Tenant_Of_Such_A_Name) {
  plan_is({.database = "qa1"});
  std::vector<std::string> words = planned_;
  words.pop_back();
  EXPECT_EQ(refusal_code(words), "target_missing");
  EXPECT_EQ(out.str().find("--create"), std::string::npos) << out.str();
  EXPECT_NE(out.str().find("look at its name; a new tenant's has capital letters"), std::string::npos) << out.str();
}

TEST_F(Restore_Create_Test, Is_Refused_When_Nobody_Can_Tell_Whether_It_Is_There) {
  server.forget("POST /agents/h1/call");
  server.answer("POST /agents/h1/call",
                R"({"error":{"code":"invalid","message":"the agent refused: Failed to get account"}})", 422);
  EXPECT_EQ(refusal_code(planned_), "target_unknown");
  EXPECT_NE(out.str().find("dorsal3 logon PRD_HDB00 --user USER"), std::string::npos) << out.str();
}

TEST_F(Restore_Create_Test, Creates_Nothing_When_The_Plan_Is_Refused_Or_Not_Confirmed) {
  plan_is({}, R"({"code":"object_missing","message":"an object is gone"})");
  EXPECT_EQ(run_with_password(), exit_failed);
  EXPECT_NE(out.str().find("Nothing was restored"), std::string::npos) << out.str();
  plan_is({});
  std::vector<std::string> words = confirmed_;
  words.back() = "TN1";
  EXPECT_EQ(run(words), exit_usage);
  EXPECT_NE(error.str().find("PRD_HDB00/QA1 does not exist. It is created first"), std::string::npos) << error.str();
  EXPECT_NE(error.str().find("--confirm QA1"), std::string::npos) << error.str();
  EXPECT_TRUE(creations().empty());
}

TEST_F(Restore_Create_Test, Is_Named_As_The_Way_Out_Where_The_Tenant_Is_Missing) {
  std::vector<std::string> words = planned_;
  words.pop_back();
  EXPECT_EQ(refusal_code(words), "target_missing");
  EXPECT_NE(out.str().find("have it created with --create"), std::string::npos) << out.str();
}

TEST_F(Restore_Create_Test, Takes_One_Name_For_The_Target) {
  std::vector<std::string> words = planned_;
  words.insert(words.end(), {"--into", "PRD_HDB00/QA2"});
  EXPECT_EQ(run(words), exit_usage);
  words.back() = "PRD_HDB00";
  EXPECT_EQ(run(words), exit_ok) << error.str();
  EXPECT_NE(server.bodies("POST /restore/plan").back().find(R"("database":"QA1"})"), std::string::npos);
}

}  // namespace
