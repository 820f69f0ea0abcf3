#include "dorsal3/command.h"

#include <gtest/gtest.h>

#include "unit/dorsal3/command_fixture.h"
#include "unit/dorsal3/keyboard.h"

using namespace dorsal3;

namespace {

constexpr const char* set_uuid = "11111111-2222-4333-8444-555555555555";

class Command_Test : public Command_Fixture {};

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

TEST_F(Command_Test, Discover_Shows_A_System_Of_Several_Hosts_Once) {
  server.answer("POST /discover",
                R"({"total":2,"rows":[{"uuid":"r1","name":"PRD_HDB00","instances":[{"host_uuid":"h1"}]},)"
                R"({"uuid":"r1","name":"PRD_HDB00","instances":[{"host_uuid":"h1"},{"host_uuid":"h2"}]}]})");
  EXPECT_EQ(run({"discover", "--output", "json"}), exit_ok);
  const json_spirit::Object model = json();
  ASSERT_NE(model.find("resources"), nullptr);
  EXPECT_EQ(json_spirit::dump_json(*model.find("resources")),
            R"([{"uuid":"r1","name":"PRD_HDB00","instances":[{"host_uuid":"h1"},{"host_uuid":"h2"}]}])");
}

TEST_F(Command_Test, Check_Fails_When_One_Check_Does) {
  server.answer("GET /server", R"({"product":"dorsal3-backupd","version":"1.0.0"})");
  server.answer("GET /hosts", R"({"total":1,"rows":[{"uuid":"h1","name":"hana01","connected":true}]})");
  server.answer("POST /agents/h1/call", R"({"checks":[{"name":"state","ok":true,"message":"runs"}]})");
  server.answer("POST /agents/h1/call", R"({"checks":[{"name":"account","ok":false,"message":"none is stored"}]})");
  server.answer("GET /backint/ondemand-runs?limit=10000&host_uuid=h1&sid=PRD", R"({"total":0,"rows":[]})");
  EXPECT_EQ(run({"check"}), exit_ok) << out.str();
  EXPECT_EQ(run({"check"}), exit_failed);
  EXPECT_NE(out.str().find("FAILED  account: none is stored"), std::string::npos) << out.str();
}

TEST_F(Command_Test, Check_Looks_At_The_Host_Where_The_System_Runs) {
  std::string of_two = resources_answer;
  const std::string end = "}]}]}";
  of_two.replace(of_two.rfind(end), end.size(), R"(},{"name":"PRD_HDB00","host_uuid":"h2","extended_attrs":{}}]}]})");
  server.forget("GET /resources");
  server.answer("GET /resources", of_two);
  server.answer("GET /server", R"({"product":"dorsal3-backupd","version":"1.0.0"})");
  server.answer("GET /hosts", R"({"total":2,"rows":[{"uuid":"h1","name":"hana01","connected":true},)"
                              R"({"uuid":"h2","name":"hana02","connected":true}]})");
  server.answer("POST /agents/h1/call", R"({"checks":[{"name":"state","ok":false,"message":"does not run"},)"
                                        R"({"name":"log backup","ok":true,"message":"not set up"}]})");
  server.answer("POST /agents/h2/call", R"({"checks":[{"name":"state","ok":true,"message":"runs"},)"
                                        R"({"name":"databases","ok":true,"message":"SYSTEMDB"},)"
                                        R"({"name":"log backup","ok":true,"message":"switched on"}]})");
  for (const char* host : {"h1", "h2"})
    server.answer(std::string("GET /backint/ondemand-runs?limit=10000&host_uuid=") + host + "&sid=PRD",
                  R"({"total":0,"rows":[]})");
  EXPECT_EQ(run({"check"}), exit_ok) << out.str();
  EXPECT_NE(out.str().find("host: looked at on hana02, where the system runs; it does not on hana01"),
            std::string::npos)
      << out.str();
  EXPECT_NE(out.str().find("log backup on hana01: not set up"), std::string::npos) << out.str();
}

TEST_F(Command_Test, Check_Fails_When_Log_Backups_Were_Given_Up) {
  server.answer("GET /server", R"({"product":"dorsal3-backupd","version":"1.0.0"})");
  server.answer("GET /hosts", R"({"total":1,"rows":[{"uuid":"h1","name":"hana01","connected":true}]})");
  server.answer("POST /agents/h1/call", R"({"checks":[{"name":"state","ok":true,"message":"runs"}]})");
  server.answer("GET /backint/ondemand-runs?limit=10000&host_uuid=h1&sid=PRD",
                R"({"total":1,"rows":[{"database":"TN1","state":"given up","message":"no full backup"}]})");
  EXPECT_EQ(run({"check"}), exit_failed);
  EXPECT_NE(out.str().find("FAILED  log backups to record: TN1: 0 wait: no full backup; 1 given up; see: dorsal3 "
                           "log-backup status PRD_HDB00"),
            std::string::npos)
      << out.str();
}

TEST_F(Command_Test, Check_Names_Databases_Whose_Names_Are_Too_Long_For_HANAs_Catalog) {
  const std::string fits(41, 'A');
  const std::string too_long(42, 'B');
  server.answer("GET /server", R"({"product":"dorsal3-backupd","version":"1.0.0"})");
  server.answer("GET /hosts", R"({"total":1,"rows":[{"uuid":"h1","name":"hana01","connected":true}]})");
  server.answer("POST /agents/h1/call", R"({"checks":[{"name":"state","ok":true,"message":"runs"}]})");
  server.answer("POST /agents/h1/call", R"({"databases":[{"name":")" + fits + R"("},{"name":")" + too_long + R"("}]})");
  server.answer("GET /backint/ondemand-runs?limit=10000&host_uuid=h1&sid=PRD", R"({"total":0,"rows":[]})");
  EXPECT_EQ(run({"check"}), exit_failed);
  EXPECT_NE(out.str().find("FAILED  database name: the name " + too_long + " is longer than 41 bytes"),
            std::string::npos)
      << out.str();
  EXPECT_EQ(out.str().find(fits), std::string::npos) << out.str();
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
  server.answer("GET /jobs/a1", R"({"id":"a1","state":7,"state_name":"completed","progress":100,"size":2048,)"
                                R"("databases":[{"name":"SYSTEMDB","kind":"full","set":"s1"},)"
                                R"({"name":"TN1","kind":"full","set":"s2"}]})");
  server.answer("GET /sets?uuid=s1", R"({"total":1,"rows":[{"uuid":"s1","database":"SYSTEMDB","source_size":2048}]})");
  EXPECT_EQ(run({"backup", "PRD_HDB00", "--output", "json"}), exit_ok) << error.str();
  const json_spirit::Object model = json();
  std::string state;
  json_spirit::Array sets;
  EXPECT_TRUE(json_spirit::object_get(model, "state", state));
  EXPECT_EQ(state, "completed");
  ASSERT_TRUE(json_spirit::object_get(model, "sets", sets));
  ASSERT_EQ(sets.size(), 2U);
  EXPECT_EQ(json_spirit::dump_json(sets[0]), R"({"uuid":"s1","database":"SYSTEMDB","source_size":2048})");
  EXPECT_EQ(json_spirit::dump_json(sets[1]), R"({"uuid":"s2","database":"TN1","type":"full"})")
      << "a set that cannot be read is told with what the run says";
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
  EXPECT_EQ(run({"verify", set_uuid}), exit_ok);
  EXPECT_EQ(run({"verify", set_uuid}), exit_failed);
  EXPECT_NE(out.str().find("FAILED  /a  5 B  checksum"), std::string::npos) << out.str();
  EXPECT_EQ(run({"verify", set_uuid}), exit_failed);
}

TEST_F(Command_Test, The_Beginning_Of_An_Id_Is_Enough_When_It_Is_Clear) {
  server.answer("GET /sets?order=desc&limit=1000&offset=0", R"({"total":3,"rows":[{"uuid":"abc1"},{"uuid":"abd2"}]})");
  server.answer("POST /verify", R"({"ok":true,"objects":[{"name":"/a","size":5,"ok":true}]})");
  EXPECT_EQ(run({"verify", "abd"}), exit_ok) << error.str();
  EXPECT_EQ(server.bodies("POST /verify").back(), R"({"set":"abd2"})");
  EXPECT_EQ(run({"verify", "ab"}), exit_usage);
  EXPECT_NE(error.str().find("more than one backup set, give more of it: abc1, abd2"), std::string::npos)
      << error.str();
  EXPECT_EQ(run({"verify", "b"}), exit_not_found);
  EXPECT_EQ(run({"verify", ""}), exit_usage);
}

TEST_F(Command_Test, An_Id_Is_Looked_For_Over_All_Pages) {
  server.answer("GET /jobs?order=desc&limit=1000&offset=0", R"({"total":1500,"rows":[{"id":"b1"}]})");
  server.answer("GET /jobs?order=desc&limit=1000&offset=1000", R"({"total":1500,"rows":[{"id":"a123"}]})");
  server.answer("GET /jobs/a123", R"({"id":"a123","state":7,"state_name":"completed","progress":100})");
  EXPECT_EQ(run({"jobs", "a1"}), exit_ok) << error.str();
  EXPECT_NE(out.str().find("job       a123\n"), std::string::npos) << out.str();
}

TEST_F(Command_Test, Runs_Are_Listed_With_What_They_Did) {
  server.answer("GET /jobs?order=desc&limit=20",
                R"({"total":1,"rows":[{"id":"a1","kind":"data backup","name":"PRD_HDB00 full to main","state":7,)"
                R"("state_name":"completed","progress":100,"size":2048,"start_time":"2026-01-02 03:04:05",)"
                R"("databases":[{"name":"SYSTEMDB"},{"name":"A"},{"name":"B"},{"name":"C"},{"name":"D"}]}]})");
  EXPECT_EQ(run({"jobs"}), exit_ok) << error.str();
  EXPECT_NE(
      out.str().find("a1   data backup  PRD_HDB00 full to main  SYSTEMDB, A, B and 2 more  completed  100%  2.0 KiB"
                     "  2026-01-02 03:04:05\n"),
      std::string::npos)
      << out.str();
}

TEST_F(Command_Test, Runs_Of_A_Kind_And_State_Are_Listed_Alone) {
  server.answer("GET /jobs?order=desc&limit=5&kind=log%20backup&state=completed%20with%20errors",
                R"({"total":0,"rows":[]})");
  EXPECT_EQ(run({"jobs", "--kind", "log", "--state", "completed with errors", "--limit", "5"}), exit_ok) << error.str();
  EXPECT_NE(out.str().find("There is no such run.\n"), std::string::npos) << out.str();
  EXPECT_EQ(run({"jobs", "--kind", "logs"}), exit_usage);
}

TEST_F(Command_Test, What_Is_Typed_As_An_Id_Stays_Within_Its_Place_In_The_Path) {
  EXPECT_EQ(run({"jobs", "../pools?x=1"}), exit_not_found);
  EXPECT_EQ(server.count("GET /jobs/..%2fpools%3fx%3d1"), 1U);
}

TEST_F(Command_Test, A_Run_Shows_Its_Neighbours_And_Why_A_Kind_Was_Lifted) {
  server.answer("GET /jobs/a2",
                R"({"id":"a2","state":7,"state_name":"completed","progress":100,"follows":"a1","databases":[)"
                R"({"name":"TN1","kind":"full","set":"s1","requested":"incremental","lift_reason":"pool changed"}]})");
  EXPECT_EQ(run({"jobs", "a2"}), exit_ok);
  EXPECT_NE(out.str().find("follows   a1\n"), std::string::npos) << out.str();
  EXPECT_NE(out.str().find("database  TN1: full, asked for incremental, made full: pool changed\n"), std::string::npos)
      << out.str();
}

TEST_F(Command_Test, A_Logon_Is_Stored_Where_It_Is_Asked_For) {
  server.forget("GET /resources");
  server.answer("GET /resources",
                R"({"total":1,"rows":[{"uuid":"r1","name":"PRD_HDB00","type":"hana","instances":[)"
                R"({"host_uuid":"h1","extended_attrs":{}},{"host_uuid":"h2","extended_attrs":{}}]}]})");
  server.answer("GET /hosts", R"({"total":2,"rows":[{"uuid":"h1","name":"hana01"},{"uuid":"h2","name":"hana02"}]})");
  server.answer("POST /agents/h2/call", R"({"code":0})");
  {
    const Keyboard keyboard("secret\n");
    EXPECT_EQ(run({"logon", "PRD_HDB00", "--user", "BACKUP", "--host", "hana02"}), exit_ok) << error.str();
  }
  EXPECT_NE(out.str().find("keep an account of their own; store it there with --host: h1\n"), std::string::npos)
      << out.str();
  EXPECT_EQ(out.str().find("secret"), std::string::npos);
}

TEST_F(Command_Test, The_Key_Appears_In_No_Output) {
  for (const char* verb : {"pools", "info", "jobs", "discover", "check"}) {
    (void)run({verb});
    EXPECT_EQ((out.str() + error.str()).find(Fake_Server::key), std::string::npos) << verb;
  }
}
