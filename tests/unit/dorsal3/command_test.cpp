#include "dorsal3/command.h"

#include <gtest/gtest.h>

#include <sstream>

#include "dorsal3/exit_codes.h"
#include "fake_server.h"
#include "support/fake_http_transport.h"
#include "support/temp_root.h"
#include "support/virtual_clock.h"

using namespace dorsal3;

namespace {

constexpr const char* resource_uuid = "0d0c1a4e-16f3-4f0a-8d5c-2f9f0a5b7e21";
constexpr const char* resources_answer =
    R"({"total":1,"rows":[{"uuid":"0d0c1a4e-16f3-4f0a-8d5c-2f9f0a5b7e21","name":"PRD_HDB00","type":"hana","instances":[)"
    R"({"name":"PRD_HDB00","host_uuid":"h1","extended_attrs":{"sid":"PRD","instance_name":"HDB00",)"
    R"("version":"2.00.059","localhost":"hana01","multi_container":true}}]}]})";
constexpr const char* pools_answer = R"({"total":1,"rows":[{"uuid":"p1","name":"main","directory":"/pool"}]})";
constexpr const char* databases_answer =
    R"({"databases":[{"name":"SYSTEMDB","active":true},{"name":"TN1","active":true}]})";

class Command_Test : public ::testing::Test {
 protected:
  Command_Test() {
    root.write("/etc/opt/tarvex/dorsal3/dorsal3.toml", "server = \"http://127.0.0.1:8443\"\nkey_file = \"/etc/key\"\n");
    root.write("/etc/key", Fake_Server::key, 0600);
    server.answer("GET /resources", resources_answer);
    server.answer("GET /pools", pools_answer);
  }

  int run(const std::vector<std::string>& arguments) {
    out.str("");
    error.str("");
    return run_command(arguments, Terminal(), "", out, error);
  }

  json_spirit::Object json() {
    json_spirit::Value value;
    EXPECT_TRUE(json_spirit::load_json(out.str(), value)) << out.str();
    return value.is_object() ? value.get_obj() : json_spirit::Object();
  }

  std::string error_code() {
    json_spirit::Object inner;
    std::string code;
    const json_spirit::Object whole = json();
    EXPECT_TRUE(json_spirit::object_get(whole, "error", inner));
    EXPECT_TRUE(json_spirit::object_get(inner, "code", code));
    return code;
  }

  void let_backups_start() {
    server.answer("POST /agents/h1/call", databases_answer);
    server.answer("POST /job-definitions", "{}");
  }

  /// The path of the start request depends on the definition's id, which the posted definition tells.
  std::string definition_id() {
    json_spirit::Value value;
    std::string id;
    const auto bodies = server.bodies("POST /job-definitions");
    if (!bodies.empty() && json_spirit::load_json(bodies.back(), value))
      (void)json_spirit::object_get(value.get_obj(), "id", id);
    return id;
  }

  support::Temp_Root root;
  support::Virtual_Clock clock;
  Fake_Server server;
  support::Fake_Http_Transport transport{server};
  std::ostringstream out;
  std::ostringstream error;
};

}  // namespace

TEST_F(Command_Test, Wrong_Command_Lines_End_With_Two_And_Ask_Nothing) {
  const std::vector<std::vector<std::string>> lines = {
      {}, {"nonsense"}, {"backup"}, {"backup", "X", "--type", "log"}, {"--output", "xml", "check"}, {"verify"}};
  for (const auto& line : lines) EXPECT_EQ(run(line), exit_usage) << (line.empty() ? "nothing" : line.front());
  EXPECT_TRUE(transport.requests().empty());
}

TEST_F(Command_Test, Help_And_Version_Are_No_Failure) {
  EXPECT_EQ(run({"--help"}), exit_ok);
  EXPECT_NE(out.str().find("backup"), std::string::npos);
  EXPECT_EQ(run({"--version"}), exit_ok);
  EXPECT_NE(out.str().find("dorsal3 "), std::string::npos);
}

TEST_F(Command_Test, Failures_Of_The_Way_Have_Their_Own_Exit_Codes) {
  transport.refuse_connections(1);
  EXPECT_EQ(run({"pools"}), exit_unreachable);
  EXPECT_NE(error.str().find("cannot reach backupd at http://127.0.0.1:8443"), std::string::npos) << error.str();

  root.write("/etc/key", "other", 0600);
  EXPECT_EQ(run({"pools"}), exit_refused);
  EXPECT_EQ(error.str(), "dorsal3: the key is not known\n");

  root.write("/etc/opt/tarvex/dorsal3/dorsal3.toml", "");
  EXPECT_EQ(run({"pools"}), exit_configuration);
}

TEST_F(Command_Test, Answers_That_Are_No_JSON_Are_Told_Apart) {
  server.answer("GET /hosts", R"({"total":0,"rows":[]})");
  server.answer("GET /server", "<html>");
  EXPECT_EQ(run({"check"}), exit_protocol);
}

TEST_F(Command_Test, Json_Failures_Go_To_The_Output_With_A_Word_For_Programs) {
  EXPECT_EQ(run({"--output", "json", "info", "QAS_HDB00"}), exit_not_found);
  EXPECT_EQ(error_code(), "not_found");
  EXPECT_TRUE(error.str().empty());
}

TEST_F(Command_Test, An_Unknown_Instance_Is_Answered_With_The_Known_Ones) {
  EXPECT_EQ(run({"backup", "QAS_HDB00"}), exit_not_found);
  EXPECT_NE(error.str().find("registered are: PRD_HDB00"), std::string::npos) << error.str();
}

TEST_F(Command_Test, Discover_Shows_What_The_Agents_Found) {
  server.answer("POST /discover", resources_answer);
  EXPECT_EQ(run({"discover"}), exit_ok);
  EXPECT_NE(out.str().find("PRD_HDB00  hana  PRD  2.00.059  hana01  yes"), std::string::npos) << out.str();
}

TEST_F(Command_Test, Check_Fails_When_One_Check_Does) {
  server.answer("GET /server", R"({"product":"dorsal3-backupd","version":"1.0.0"})");
  server.answer("GET /hosts", R"({"total":1,"rows":[{"uuid":"h1","name":"hana01","connected":true}]})");
  server.answer("POST /agents/h1/call", R"({"checks":[{"name":"state","ok":true,"message":"runs"}]})");
  server.answer("POST /agents/h1/call", R"({"checks":[{"name":"account","ok":false,"message":"none is stored"}]})");
  EXPECT_EQ(run({"check"}), exit_ok) << out.str();
  EXPECT_EQ(run({"check"}), exit_failed);
  EXPECT_NE(out.str().find("FAILED  account: none is stored"), std::string::npos) << out.str();
}

TEST_F(Command_Test, Check_Without_Any_Agent_Is_Not_Good) {
  server.answer("GET /server", R"({"product":"dorsal3-backupd","version":"1.0.0"})");
  server.answer("GET /hosts", R"({"total":0,"rows":[]})");
  server.answer("POST /agents/h1/call", R"({"error":{"code":"unavailable","message":"not connected"}})", 503);
  EXPECT_EQ(run({"check"}), exit_failed);
  EXPECT_NE(out.str().find("FAILED  agent: not connected"), std::string::npos) << out.str();
}

TEST_F(Command_Test, Backup_Without_A_Database_Takes_All_And_Refuses_None) {
  server.answer("POST /agents/h1/call", R"({"databases":[]})");
  EXPECT_EQ(run({"backup", "PRD_HDB00"}), exit_not_found);
  EXPECT_NE(error.str().find("lists no database"), std::string::npos) << error.str();
  EXPECT_EQ(server.count("POST /job-definitions"), 0U);
}

TEST_F(Command_Test, Backup_Follows_The_Run_To_Its_End) {
  let_backups_start();
  EXPECT_EQ(run({"backup", "PRD_HDB00"}), exit_not_found);  // tells the definition's id
  const std::string id = definition_id();
  ASSERT_FALSE(id.empty());
  server.answer("POST /job-definitions/" + id + "/start", R"({"job_act_id":"a1"})");
  server.answer("GET /jobs/a1", R"({"id":"a1","state":3,"state_name":"running","progress":10})");
  server.answer("GET /jobs/a1", R"({"id":"a1","state":7,"state_name":"completed","progress":100,"size":2048})");
  server.answer("GET /sets?resource_uuid=" + std::string(resource_uuid),
                R"({"total":2,"rows":[{"uuid":"s0","job_act_id":"a0","database":"TN1","type":"full"},)"
                R"({"uuid":"s1","job_act_id":"a1","database":"TN1","type":"full","source_size":2048}]})");
  EXPECT_EQ(run({"backup", "PRD_HDB00", "--output", "json"}), exit_ok) << error.str();
  const json_spirit::Object model = json();
  std::string state;
  json_spirit::Array sets;
  EXPECT_TRUE(json_spirit::object_get(model, "state", state));
  EXPECT_EQ(state, "completed");
  ASSERT_TRUE(json_spirit::object_get(model, "sets", sets));
  EXPECT_EQ(sets.size(), 1U);
  EXPECT_NE(error.str().find("10%"), std::string::npos) << "progress goes beside the JSON: " << error.str();
}

TEST_F(Command_Test, A_Failed_Run_Is_Exit_Code_One_With_Its_Cause) {
  let_backups_start();
  EXPECT_EQ(run({"backup", "PRD_HDB00/TN1"}), exit_not_found);
  server.answer("POST /job-definitions/" + definition_id() + "/start", R"({"job_act_id":"a1"})");
  server.answer("GET /jobs/a1",
                R"({"id":"a1","state":10,"state_name":"error","progress":0,"message":"Failed to execute backup","log":[
                  {"priority":8,"text":"Backup database TN1 in HDB00\n","time":"2026-11-21 08:00:00"},
                  {"priority":128,"text":"* 447: backup could not be completed\n","time":"2026-11-21 08:00:01"},
                  {"priority":128,"text":"Failed to execute backup\n","time":"2026-11-21 08:00:01"}]})");
  server.answer("GET /sets?resource_uuid=" + std::string(resource_uuid), R"({"total":0,"rows":[]})");
  EXPECT_EQ(run({"backup", "PRD_HDB00/TN1"}), exit_failed);
  EXPECT_NE(out.str().find("The backup FAILED: Failed to execute backup\n"
                           "  * 447: backup could not be completed\n"
                           "  Failed to execute backup\n"),
            std::string::npos)
      << out.str();
}

TEST_F(Command_Test, A_Server_That_Goes_Away_Does_Not_End_The_Watching_At_Once) {
  let_backups_start();
  EXPECT_EQ(run({"backup", "PRD_HDB00/TN1"}), exit_not_found);
  server.answer("POST /job-definitions/" + definition_id() + "/start", R"({"job_act_id":"a1"})");
  server.answer("GET /jobs/a1", R"({"error":{"code":"unavailable","message":"down"}})", 503);
  server.answer("GET /jobs/a1", R"({"id":"a1","state":7,"state_name":"completed","progress":100})");
  server.answer("GET /sets?resource_uuid=" + std::string(resource_uuid), R"({"total":0,"rows":[]})");
  EXPECT_EQ(run({"backup", "PRD_HDB00/TN1"}), exit_ok) << error.str();
}

TEST_F(Command_Test, Detach_Comes_Back_With_The_Job) {
  let_backups_start();
  EXPECT_EQ(run({"backup", "PRD_HDB00/TN1", "--detach"}), exit_not_found);
  server.answer("POST /job-definitions/" + definition_id() + "/start", R"({"job_act_id":"a1"})");
  EXPECT_EQ(run({"backup", "PRD_HDB00/TN1", "--detach"}), exit_ok);
  EXPECT_EQ(out.str(), "Started. Follow it with: dorsal3 jobs a1\n");
  EXPECT_EQ(server.count("GET /jobs/a1"), 0U);
}

TEST_F(Command_Test, A_Running_Job_Is_Busy) {
  let_backups_start();
  EXPECT_EQ(run({"backup", "PRD_HDB00/TN1"}), exit_not_found);
  server.answer("POST /job-definitions/" + definition_id() + "/start",
                R"({"error":{"code":"conflict","message":"the job is running"}})", 409);
  EXPECT_EQ(run({"backup", "PRD_HDB00/TN1"}), exit_busy);
}

TEST_F(Command_Test, Several_Pools_Must_Be_Chosen_From) {
  server.answer("GET /pools", R"({"total":2,"rows":[{"uuid":"p1","name":"one"},{"uuid":"p2","name":"two"}]})");
  EXPECT_EQ(run({"pools"}), exit_ok);  // the first answer has one pool
  EXPECT_EQ(run({"backup", "PRD_HDB00/TN1"}), exit_usage);
  EXPECT_NE(error.str().find("choose one with --pool: one, two"), std::string::npos) << error.str();
  EXPECT_EQ(run({"backup", "PRD_HDB00/TN1", "--pool", "three"}), exit_not_found);
}

TEST_F(Command_Test, Verify_Fails_When_One_Object_Does_Or_None_Is_There) {
  server.answer("POST /verify", R"({"ok":true,"objects":[{"name":"/a","size":5,"ok":true,"message":""}]})");
  server.answer("POST /verify", R"({"ok":false,"objects":[{"name":"/a","size":5,"ok":false,"message":"checksum"}]})");
  server.answer("POST /verify", R"({"ok":true,"objects":[]})");
  EXPECT_EQ(run({"verify", "s1"}), exit_ok);
  EXPECT_EQ(run({"verify", "s1"}), exit_failed);
  EXPECT_NE(out.str().find("FAILED  /a  5 B  checksum"), std::string::npos) << out.str();
  EXPECT_EQ(run({"verify", "s1"}), exit_failed);
}

TEST_F(Command_Test, The_Key_Appears_In_No_Output) {
  for (const char* verb : {"pools", "info", "jobs", "discover", "check"}) {
    (void)run({verb});
    EXPECT_EQ((out.str() + error.str()).find(Fake_Server::key), std::string::npos) << verb;
  }
}
