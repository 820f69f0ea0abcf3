#include "unit/dorsal3/command_fixture.h"

namespace {

constexpr const char* hosts_answer =
    R"({"total":2,"rows":[{"uuid":"h1","name":"hana01","connected":true},{"uuid":"h2","name":"hana02","connected":true}]})";
constexpr const char* installed_answer =
    R"([{"sid":"PRD","instance_name":"HDB00","instance_number":0,"version":"2.00.059","localhost":"hana01"},)"
    R"({"sid":"QAS","instance_name":"HDB10","instance_number":10,"version":"2.00.050","localhost":"hana01"}])";
constexpr const char* listed_answer =
    R"({"instance":"PRD_HDB00","databases":[{"name":"SYSTEMDB","owner":"System","os_user":"prdadm","os_group":"sapsys",)"
    R"("active":true,"log_backup_mode":"instance"},{"name":"TN1","owner":"Sales","os_user":"tn1user",)"
    R"("os_group":"tn1group","active":false,"log_backup_mode":"none"}]})";
constexpr const char* refused_answer =
    R"({"error":{"code":"invalid","message":"the agent refused: Failed to list database"}})";

using Instances_Test = Command_Fixture;

TEST_F(Instances_Test, Lists_What_Is_Installed_On_All_Hosts) {
  server.answer("GET /hosts", hosts_answer);
  server.answer("POST /agents/h1/call", installed_answer);
  server.answer("POST /agents/h2/call", "[]");
  EXPECT_EQ(run({"instances"}), dorsal3::exit_ok) << error.str();
  EXPECT_EQ(out.str(),
            "NAME                       HOST    SID  INSTANCE_NAME  INSTANCE_NUMBER  VERSION   LOCALHOST\n"
            "PRD_HDB00                  hana01  PRD  HDB00          0                2.00.059  hana01\n"
            "- (run: dorsal3 discover)  hana01  QAS  HDB10          10               2.00.050  hana01\n");
  EXPECT_EQ(server.bodies("POST /agents/h1/call").back(), R"({"method":"hana.instance.list"})");
  EXPECT_EQ(run({"instances", "--host", "hana02"}), dorsal3::exit_ok);
  EXPECT_EQ(out.str(), "No instance is installed on these hosts.\n");
  EXPECT_EQ(server.count("POST /agents/h1/call"), 1U);
}

TEST_F(Instances_Test, Has_The_Same_Names_In_Json) {
  server.answer("GET /hosts", hosts_answer);
  server.answer("POST /agents/h1/call", installed_answer);
  EXPECT_EQ(run({"--output", "json", "instances", "--host", "h1"}), dorsal3::exit_ok) << error.str();
  EXPECT_EQ(json_spirit::dump_json(json()),
            R"({"instances":[{"name":"PRD_HDB00","host":"hana01","host_uuid":"h1","sid":"PRD","instance_name":"HDB00",)"
            R"("instance_number":0,"version":"2.00.059","localhost":"hana01"},)"
            R"({"name":"","host":"hana01","host_uuid":"h1","sid":"QAS","instance_name":"HDB10","instance_number":10,)"
            R"("version":"2.00.050","localhost":"hana01"}],"errors":[]})");
}

TEST_F(Instances_Test, Tells_Which_Host_Could_Not_Be_Asked) {
  server.answer("GET /hosts", hosts_answer);
  server.answer("POST /agents/h1/call", R"({"error":{"code":"unavailable","message":"it is away"}})", 503);
  server.answer("POST /agents/h2/call", "[]");
  EXPECT_EQ(run({"instances"}), dorsal3::exit_failed);
  EXPECT_EQ(out.str(), "host hana01: it is away\nNo instance is installed on these hosts.\n");
  EXPECT_EQ(run({"instances", "--host", "hana09"}), dorsal3::exit_not_found);
  EXPECT_NE(error.str().find("the hosts are: hana01, hana02"), std::string::npos) << error.str();
}

TEST_F(Instances_Test, Lists_The_Databases_Of_An_Instance) {
  server.answer("POST /agents/h1/call", listed_answer);
  EXPECT_EQ(run({"databases", "PRD_HDB00"}), dorsal3::exit_ok) << error.str();
  EXPECT_EQ(out.str(),
            "NAME      OWNER   OS_USER  OS_GROUP  ACTIVE  LOG_BACKUP_MODE\n"
            "SYSTEMDB  System  prdadm   sapsys    yes     instance\n"
            "TN1       Sales   tn1user  tn1group  no      none\n");
  EXPECT_EQ(server.bodies("POST /agents/h1/call").back(),
            R"({"method":"hana.database.list","params":{"uid":"","instance":"PRD_HDB00"}})");
  EXPECT_EQ(run({"--output", "json", "databases", "PRD_HDB00"}), dorsal3::exit_ok);
  EXPECT_EQ(json_spirit::dump_json(json()), listed_answer);
}

TEST_F(Instances_Test, Says_What_The_List_Of_Databases_Needs) {
  server.answer("POST /agents/h1/call", refused_answer, 422);
  EXPECT_NE(run({"databases", "PRD_HDB00"}), dorsal3::exit_ok);
  EXPECT_NE(error.str().find("Failed to list database; the instance must run, and an account is needed (dorsal3 logon "
                             "PRD_HDB00 --user USER)"),
            std::string::npos)
      << error.str();
  EXPECT_EQ(run({"databases", "QAS_HDB00"}), dorsal3::exit_not_found);
}

TEST_F(Instances_Test, Asks_The_Next_Host_When_One_Cannot_Tell) {
  server.forget("GET /resources");
  server.answer("GET /resources", R"({"total":1,"rows":[{"uuid":"r","name":"PRD_HDB00","type":"hana","instances":[)"
                                  R"({"name":"PRD_HDB00","host_uuid":"h1","extended_attrs":{}},)"
                                  R"({"name":"PRD_HDB00","host_uuid":"h2","extended_attrs":{}}]}]})");
  server.answer("POST /agents/h1/call", refused_answer, 422);
  server.answer("POST /agents/h2/call", listed_answer);
  EXPECT_EQ(run({"databases", "PRD_HDB00"}), dorsal3::exit_ok) << error.str();
  EXPECT_NE(out.str().find("TN1"), std::string::npos);
}

TEST_F(Instances_Test, Starts_Stops_And_Restarts_An_Instance) {
  server.answer("GET /hosts", hosts_answer);
  server.answer("POST /agents/h1/call", R"({"error":0})");
  const struct {
    const char* action;
    const char* said;
  } rows[] = {{"start", "started"}, {"stop", "stopped"}, {"restart", "restarted"}};
  for (const auto& row : rows) {
    EXPECT_EQ(run({"instance", row.action, "PRD_HDB00"}), dorsal3::exit_ok) << error.str();
    EXPECT_EQ(out.str(), std::string("PRD_HDB00 on hana01: ") + row.said + "\n");
    EXPECT_EQ(
        server.bodies("POST /agents/h1/call").back(),
        std::string(R"({"method":"hana.instance.control","params":{"sid":"PRD","instance_name":"HDB00","action":")") +
            row.action + R"("},"timeout":3600})");
  }
}

TEST_F(Instances_Test, Tells_The_State_Of_An_Instance) {
  server.answer("GET /hosts", hosts_answer);
  const struct {
    const char* answer;
    const char* said;
  } rows[] = {{R"({"state":0})", "unknown"}, {R"({"state":1})", "running"}, {R"({"state":2})", "stopped"}};
  for (const auto& row : rows) {
    server.forget("POST /agents/h1/call");
    server.answer("POST /agents/h1/call", row.answer);
    EXPECT_EQ(run({"instance", "state", "PRD_HDB00"}), dorsal3::exit_ok) << error.str();
    EXPECT_EQ(out.str(), std::string("PRD_HDB00 on hana01: ") + row.said + "\n");
  }
  EXPECT_EQ(run({"--output", "json", "instance", "state", "PRD_HDB00"}), dorsal3::exit_ok);
  EXPECT_EQ(json_spirit::dump_json(json()),
            R"({"instance":"PRD_HDB00","host":"hana01","host_uuid":"h1","action":"state","state":"stopped"})");
}

TEST_F(Instances_Test, Refuses_What_Is_No_Action) {
  EXPECT_EQ(run({"instance", "pause", "PRD_HDB00"}), dorsal3::exit_usage);
  EXPECT_EQ(run({"instance", "start"}), dorsal3::exit_usage);
  EXPECT_EQ(server.count("POST /agents/h1/call"), 0U);
}

TEST_F(Instances_Test, Hands_A_Refusal_On) {
  server.answer("GET /hosts", hosts_answer);
  server.answer("POST /agents/h1/call", R"({"error":{"code":"forbidden","message":"use a key of another role"}})", 403);
  EXPECT_EQ(run({"instance", "stop", "PRD_HDB00"}), dorsal3::exit_refused);
  EXPECT_NE(error.str().find("use a key of another role"), std::string::npos);
}

TEST_F(Instances_Test, Shows_The_Audit_Log_Newest_Last) {
  server.answer("GET /hosts", hosts_answer);
  server.answer(
      "GET /audit?order=desc&limit=50",
      R"({"total":4,"rows":[{"id":4,"time":"2026-01-04 10:00:00","role":"operator","key_id":3,"from_host_uuid":"",)"
      R"("host_uuid":"h1","method":"log_backup.drop","sid":"PRD","database":"TN1","result":"done","message":"3 dropped"},)"
      R"({"id":3,"time":"2026-01-03 10:00:00","role":"operator","key_id":3,"from_host_uuid":"",)"
      R"("host_uuid":"h1","method":"hana.database.create","sid":"PRD","instance_name":"HDB00","database":"QA1",)"
      R"("result":"done"},{"id":2,"time":"2026-01-02 10:00:00","role":"agent","key_id":0,"from_host_uuid":"h2",)"
      R"("host_uuid":"h1","method":"hana.file.download","origin_sid":"PRD","origin_database":"TN1","target_sid":"QAS",)"
      R"("target_database":"TN2","result":"done"},{"id":1,"time":"2026-01-01 10:00:00","role":"viewer","key_id":3,)"
      R"("from_host_uuid":"","host_uuid":"h9","method":"hana.instance.control","sid":"PRD","instance_name":"HDB00",)"
      R"("action":"stop","result":"refused","message":"no\nno"}]})");
  EXPECT_EQ(run({"audit"}), dorsal3::exit_ok) << error.str();
  EXPECT_EQ(
      out.str(),
      "TIME                 ROLE      KEY_ID  HOST    METHOD                 ACTION                       RESULT   "
      "MESSAGE\n"
      "2026-01-01 10:00:00  viewer    3       h9      hana.instance.control  stop PRD HDB00               refused  "
      "no?no\n"
      "2026-01-02 10:00:00  agent     0       hana01  hana.file.download     PRD/TN1 to QAS/TN2           done\n"
      "2026-01-03 10:00:00  operator  3       hana01  hana.database.create   create QA1 in PRD HDB00      done\n"
      "2026-01-04 10:00:00  operator  3       hana01  log_backup.drop        drop log backups of PRD/TN1  done     "
      "3 dropped\n");
  server.answer("GET /audit?order=desc&limit=7&host_uuid=h2", R"({"total":0,"rows":[]})");
  EXPECT_EQ(run({"audit", "--limit", "7", "--host", "hana02"}), dorsal3::exit_ok) << error.str();
  EXPECT_EQ(out.str(), "Nothing was started, stopped, created, staged, retried or dropped through this server.\n");
  EXPECT_EQ(run({"audit", "--limit", "0"}), dorsal3::exit_usage);
}

}  // namespace
