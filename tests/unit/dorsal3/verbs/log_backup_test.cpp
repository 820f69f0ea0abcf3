#include "unit/dorsal3/command_fixture.h"
#include "unit/dorsal3/keyboard.h"

using namespace dorsal3;

namespace {

constexpr const char* definitions_request = "GET /job-definitions?limit=10000&module=hana";
constexpr const char* queue_request = "GET /backint/ondemand-runs?limit=10000&host_uuid=h1&sid=PRD";
constexpr const char* no_definitions = R"({"total":0,"rows":[]})";

/// What the agent tells of a host: files as "database live definition", the rest as JSON.
std::string status_json(const std::string& files, const std::string& lacks = "", const std::string& more = "") {
  return R"({"open":true,"files":[)" + files + R"(],"other_systems":[],"settings":{"log_backup_using_backint":)" +
         (lacks.empty() ? "true" : "false") + R"(},"lacks":")" + lacks + R"(","databases":[])" + more + "}";
}
/// The same where systems beside this one have a log backup.
std::string status_beside(const std::string& files, const std::string& systems) {
  std::string text = status_json(files);
  const std::string none = R"("other_systems":[])";
  return text.replace(text.find(none), none.size(), R"("other_systems":[)" + systems + "]");
}
std::string file_json(const std::string& database, const std::string& definition, bool live = true) {
  return R"({"path":"/state/log_backup_x","live":)" + std::string(live ? "true" : "false") + R"(,"database":")" +
         database + R"(","definition_uuid":")" + definition + R"(","problem":""})";
}
std::string definition_json(const std::string& id, const std::string& entry, const std::string& state = "installed") {
  return R"({"id":")" + id + R"(","name":"logs","subtype":"log","host_uuid":"h1","source":{"id":")" + resource_uuid +
         R"(","name":"PRD_HDB00","entries":[")" + entry + R"("]},"setup":{"wanted":"installed","state":")" + state +
         R"(","message":""}})";
}
std::string setup_json(const std::string& state, const std::string& message = "",
                       const std::string& wanted = "installed") {
  return R"({"id":"d1","setup":{"wanted":")" + wanted + R"(","state":")" + state + R"(","message":")" + message +
         R"("}})";
}

class Log_Backup_Test : public Command_Fixture {
 protected:
  Log_Backup_Test() { server.answer("GET /hosts", R"({"total":1,"rows":[{"uuid":"h1","name":"hana01"}]})"); }

  /// What the agent and the server say before anything is changed, and the agent afterwards.
  void let_look(const std::string& before, const std::string& after, const std::string& definitions = no_definitions) {
    server.answer(definitions_request, definitions);
    server.answer("POST /agents/h1/call", before);
    server.answer("POST /agents/h1/call", databases_answer);
    server.answer("POST /agents/h1/call", after);
  }
  static std::string list(const std::string& rows) { return R"({"total":1,"rows":[)" + rows + "]}"; }
  /// A backup of the queue whose last object was stored so long ago.
  std::string queued(const std::string& database, long seconds, const std::string& state = "waiting") {
    const auto now = std::chrono::duration_cast<std::chrono::milliseconds>(clock.now().time_since_epoch());
    return R"({"database":")" + database + R"(","state":")" + state + R"(","message":"no full backup","stored_ms":)" +
           std::to_string(now.count() - seconds * 1000) + "}";
  }
  static std::string queue_json(const std::vector<std::string>& rows) {
    std::string text;
    for (const std::string& row : rows) text += (text.empty() ? "" : ",") + row;
    return R"({"total":)" + std::to_string(rows.size()) + R"(,"rows":[)" + text + "]}";
  }
  std::string first_host(const char* key) {
    json_spirit::Array rows;
    (void)json_spirit::object_get(json(), "hosts", rows);
    std::string text;
    if (!rows.empty()) (void)json_spirit::object_get(rows.front().get_obj(), key, text);
    return text;
  }
  int enable(std::vector<std::string> more = {}, const std::string& subject = "PRD_HDB00") {
    more.insert(more.begin(), {"--output", "json", "log-backup", "enable", subject});
    return run(more);
  }
};

}  // namespace

TEST_F(Log_Backup_Test, Enable_Stores_A_Definition_For_The_Host_And_Reads_The_Settings_Back) {
  let_look(status_json("", "log_backup_using_backint is false"), status_json(file_json("", "d1")));
  server.answer("POST /job-definitions", setup_json("installed"), 201);
  EXPECT_EQ(enable({"--compression", "zstd"}), exit_ok) << out.str();
  EXPECT_EQ(first_host("state"), "installed");
  const std::string posted = server.bodies("POST /job-definitions").back();
  for (const char* part : {R"("subtype":"log")", R"("entries":["hana/HDB00"])", R"("host_uuid":"h1")",
                           R"("name":"PRD_HDB00 logs on hana01 to main")", R"("compression":"zstd")"})
    EXPECT_NE(posted.find(part), std::string::npos) << part << posted;
}

TEST_F(Log_Backup_Test, Enable_Fails_Where_The_Settings_Could_Not_Be_Changed) {
  let_look(status_json(""), status_json(file_json("", "d1"), "log_mode is overwrite"));
  server.answer("POST /job-definitions", setup_json("installed"), 201);
  EXPECT_EQ(enable(), exit_failed);
  EXPECT_NE(first_host("message").find("could not be changed, log_mode is overwrite"), std::string::npos) << out.str();
}

TEST_F(Log_Backup_Test, Enable_Fails_Where_Nobody_Could_Log_On) {
  server.answer(definitions_request, no_definitions);
  server.answer("POST /agents/h1/call", status_json(""));
  server.answer("POST /agents/h1/call", R"({"error":{"code":"agent_error","message":"Failed to get account."}})", 502);
  server.answer("POST /agents/h1/call", status_json(file_json("", "d1"), "log_backup_using_backint is false"));
  server.answer("POST /job-definitions", setup_json("installed"), 201);
  EXPECT_EQ(enable(), exit_failed) << out.str();
  EXPECT_NE(out.str().find("is not switched on everywhere"), std::string::npos) << out.str();
}

TEST_F(Log_Backup_Test, Enable_Sets_Up_Once_More_Where_The_File_Is_Damaged) {
  std::string damaged = file_json("", "d1");
  const std::string none = R"("problem":"")";
  damaged.replace(damaged.find(none), none.size(), R"("problem":"it is damaged")");
  let_look(status_json(damaged), status_json(damaged), list(definition_json("d1", "hana/HDB00")));
  server.answer("POST /agents/h1/call", status_json(file_json("", "d1")));
  server.answer("POST /job-definitions", setup_json("installed"));
  server.answer("POST /job-definitions/d1/setup", setup_json("installed"));
  EXPECT_EQ(enable(), exit_ok) << out.str();
  EXPECT_EQ(server.count("POST /job-definitions/d1/setup"), 1U);
}

TEST_F(Log_Backup_Test, Enable_Sets_Up_Once_More_Where_The_Settings_Were_Lost) {
  let_look(status_json(file_json("", "d1"), "log_backup_using_backint is false"),
           status_json(file_json("", "d1"), "log_backup_using_backint is false"),
           list(definition_json("d1", "hana/HDB00")));
  server.answer("POST /agents/h1/call", status_json(file_json("", "d1")));
  server.answer("POST /job-definitions", setup_json("installed"));
  server.answer("POST /job-definitions/d1/setup", setup_json("installed"));
  EXPECT_EQ(enable(), exit_ok) << out.str();
  EXPECT_EQ(server.count("POST /job-definitions/d1/setup"), 1U);
  EXPECT_NE(server.bodies("POST /job-definitions").back().find(R"("id":"d1")"), std::string::npos)
      << "the definition that is there is changed";
}

TEST_F(Log_Backup_Test, Tells_A_Setup_That_Failed_From_One_That_Waits) {
  for (const auto& [state, code] : {std::pair{"failed", exit_failed}, std::pair{"pending", exit_unreachable}}) {
    server.forget("POST /agents/h1/call");
    server.forget("POST /job-definitions");
    let_look(status_json(""), status_json(""));
    server.answer("POST /job-definitions", setup_json(state, "the reason"), 201);
    EXPECT_EQ(enable(), code) << state;
    EXPECT_EQ(first_host("message"), "the reason");
  }
}

TEST_F(Log_Backup_Test, Asks_Before_It_Leaves_A_Database_Without_A_File) {
  terminal.input_is_terminal = true;
  terminal.output_is_terminal = true;
  struct Row {
    const char* typed;
    int code;
  };
  for (const Row& row : {Row{"n\n", exit_usage}, Row{"", exit_usage}, Row{"y\n", exit_ok}}) {
    server.forget("POST /agents/h1/call");
    let_look(status_json(""), status_json(file_json("TN1", "d1")));
    server.forget("POST /job-definitions");
    server.answer("POST /job-definitions", setup_json("installed"), 201);
    const std::size_t before = server.count("POST /job-definitions");
    const Keyboard keyboard(row.typed);
    EXPECT_EQ(run({"log-backup", "enable", "PRD_HDB00/TN1"}), row.code) << row.typed << error.str();
    EXPECT_NE(error.str().find("the logs of SYSTEMDB go to Backint too"), std::string::npos) << error.str();
    EXPECT_EQ(server.count("POST /job-definitions") > before, row.code == exit_ok);
  }
}

TEST_F(Log_Backup_Test, Disable_Removes_Each_Definition_Of_The_Subject_And_No_Other) {
  let_look(status_json(file_json("", "d1")), "{}",
           list(definition_json("d1", "hana/HDB00") + "," + definition_json("d2", "hana/HDB00/TN1")));
  server.answer("DELETE /job-definitions/d1", setup_json("removed", "", "removed"));
  EXPECT_EQ(run({"--output", "json", "log-backup", "disable", "PRD_HDB00"}), exit_ok) << out.str();
  EXPECT_EQ(server.count("DELETE /job-definitions/d1"), 1U);
  EXPECT_EQ(server.count("DELETE /job-definitions/d2"), 0U);
}

TEST_F(Log_Backup_Test, Disable_Warns_Where_Another_File_Keeps_The_Switches_On) {
  const std::string files = file_json("SYSTEMDB", "d1") + "," + file_json("TN1", "d2");
  let_look(status_json(files), "{}", list(definition_json("d2", "hana/HDB00/TN1")));
  EXPECT_EQ(run({"--output", "json", "log-backup", "disable", "PRD_HDB00/TN1"}), exit_usage);
  EXPECT_NE(out.str().find("the logs of TN1 go to Backint too"), std::string::npos) << out.str();
}

TEST_F(Log_Backup_Test, Disable_Warns_Where_Another_System_Keeps_The_Switches_On) {
  const auto look = [this] {
    server.forget("POST /agents/h1/call");
    let_look(status_beside(file_json("", "d1"), R"("QAS")"), "{}", list(definition_json("d1", "hana/HDB00")));
  };
  server.answer("DELETE /job-definitions/d1", setup_json("removed", "", "removed"));
  look();
  EXPECT_EQ(run({"--output", "json", "log-backup", "disable", "PRD_HDB00"}), exit_usage);
  EXPECT_NE(out.str().find("the logs of SYSTEMDB, TN1 go to Backint too"), std::string::npos) << out.str();
  EXPECT_EQ(out.str().find("act on the whole instance"), std::string::npos)
      << "it is the whole instance: " << out.str();
  EXPECT_EQ(server.count("DELETE /job-definitions/d1"), 0U);
  look();
  EXPECT_EQ(run({"log-backup", "disable", "PRD_HDB00", "--yes"}), exit_ok) << error.str();
  EXPECT_NE(out.str().find("while another system (QAS) has a log backup on this host"), std::string::npos) << out.str();
}

TEST_F(Log_Backup_Test, Disable_Warns_Of_Databases_That_Nobody_Could_List) {
  const auto disable = [this](const std::string& files) {
    server.forget("POST /agents/h1/call");
    server.answer(definitions_request, list(definition_json("d2", "hana/HDB00/TN1")));
    server.answer("POST /agents/h1/call", status_json(files));
    server.answer("POST /agents/h1/call", R"({"error":{"code":"invalid","message":"it is stopped"}})", 422);
    return run({"--output", "json", "log-backup", "disable", "PRD_HDB00/TN1"});
  };
  server.answer("DELETE /job-definitions/d2", setup_json("removed", "", "removed"));
  EXPECT_EQ(disable(file_json("SYSTEMDB", "d1") + "," + file_json("TN1", "d2")), exit_usage);
  EXPECT_NE(out.str().find("the logs of databases that could not be listed now, TN1 go to Backint too"),
            std::string::npos)
      << out.str();
  EXPECT_EQ(disable(file_json("", "d1") + "," + file_json("TN1", "d2")), exit_ok) << "the instance's file takes all";
  EXPECT_EQ(disable(file_json("TN1", "d2")), exit_ok) << "the last one switches HANA's settings off";
}

TEST_F(Log_Backup_Test, Disable_That_Waits_For_The_Agent_Ends_With_Its_Own_Code) {
  let_look(status_json(file_json("", "d1")), "{}", list(definition_json("d1", "hana/HDB00")));
  server.answer("DELETE /job-definitions/d1?force=1", setup_json("removed", "", "removed"));
  server.answer("DELETE /job-definitions/d1", setup_json("pending", "away", "removed"), 202);
  EXPECT_EQ(run({"--output", "json", "log-backup", "disable", "PRD_HDB00"}), exit_unreachable) << out.str();
  server.forget("POST /agents/h1/call");
  server.answer("POST /agents/h1/call", status_json(file_json("", "d1")));
  server.answer("POST /agents/h1/call", databases_answer);
  EXPECT_EQ(run({"--output", "json", "log-backup", "disable", "PRD_HDB00", "--force"}), exit_ok) << out.str();
}

TEST_F(Log_Backup_Test, Status_Shows_Each_Database_With_What_Takes_Its_Logs) {
  let_look(status_json(file_json("TN1", "d1") + "," + file_json("TN1", "d0", false)), "{}",
           list(definition_json("d1", "hana/HDB00/TN1")));
  server.answer(queue_request, queue_json({queued("TN1", 90), queued("TN1", 30)}));
  EXPECT_EQ(run({"log-backup", "status", "PRD_HDB00"}), exit_failed) << "nobody takes the logs of SYSTEMDB";
  EXPECT_NE(out.str().find("SYSTEMDB  hana01  none                  on        0                0"), std::string::npos)
      << out.str();
  EXPECT_NE(out.str().find("TN1       hana01  database  logs        on        2        1:30    0"), std::string::npos)
      << out.str();
  EXPECT_NE(out.str().find("the copy /state/log_backup_x was set aside"), std::string::npos) << out.str();
}

TEST_F(Log_Backup_Test, Status_Shows_The_Instances_File_Where_Its_Databases_Cannot_Be_Listed) {
  std::string damaged = file_json("", "");
  const std::string no_problem = R"("problem":"")";
  damaged.replace(damaged.find(no_problem), no_problem.size(), R"("problem":"it is damaged")");
  const struct {
    const char* name;
    std::string file;
    int code;
    const char* shown;
  } rows[] = {{"good", file_json("", "d1"), exit_ok, "(others)  hana01  instance  logs        on        0"},
              {"damaged", damaged, exit_failed, "(others)  hana01  damaged"}};
  server.answer(definitions_request, list(definition_json("d1", "hana/HDB00")));
  server.answer(queue_request, queue_json({queued("TN7", 90)}));
  for (const auto& row : rows) {
    server.forget("POST /agents/h1/call");
    server.answer("POST /agents/h1/call", status_json(row.file));
    server.answer("POST /agents/h1/call", R"({"error":{"code":"invalid","message":"it is stopped"}})", 422);
    EXPECT_EQ(run({"log-backup", "status", "PRD_HDB00"}), row.code) << row.name << error.str();
    EXPECT_NE(out.str().find(row.shown), std::string::npos) << row.name << out.str();
    EXPECT_NE(out.str().find("the databases are those of the files: "), std::string::npos) << out.str();
    EXPECT_NE(out.str().find("TN7 on hana01: 1 wait, the oldest for 1:30: no full backup"), std::string::npos)
        << row.name << out.str();
  }
}

TEST_F(Log_Backup_Test, Status_Fails_Where_Log_Backups_Wait_For_Long_Or_Were_Given_Up) {
  struct Row {
    const char* name;
    std::vector<std::string> queue;
    int code;
    const char* shown;
  };
  const Row rows[] = {
      {"nothing", {}, exit_ok, "on        0                0"},
      {"a minute less", {queued("TN1", 7199)}, exit_ok, "on        1        1:59:59  0"},
      {"long", {queued("TN1", 7200)}, exit_failed, "TN1 on hana01: 1 wait, the oldest for 2:00:00: no full backup"},
      {"given up", {queued("TN1", 60, "given up"), queued("TN1", 5)}, exit_failed, "no full backup; 1 given up"},
      {"from a clock that is ahead", {queued("TN1", -60)}, exit_ok, "on        1        0:00    0"}};
  for (const Row& row : rows) {
    server.forget("POST /agents/h1/call");
    server.forget(definitions_request);
    server.forget(queue_request);
    let_look(status_json(file_json("TN1", "d1")), "{}", list(definition_json("d1", "hana/HDB00/TN1")));
    server.answer(queue_request, queue_json(row.queue));
    EXPECT_EQ(run({"log-backup", "status", "PRD_HDB00/TN1"}), row.code) << row.name << out.str();
    EXPECT_NE(out.str().find(row.shown), std::string::npos) << row.name << out.str();
  }
}

TEST_F(Log_Backup_Test, Status_Reads_A_Long_Queue_Page_By_Page) {
  let_look(status_json(file_json("TN1", "d1")), "{}", list(definition_json("d1", "hana/HDB00/TN1")));
  server.answer(queue_request, R"({"total":3,"rows":[)" + queued("TN1", 9) + "," + queued("TN1", 8) + "]}");
  server.answer(std::string(queue_request) + "&offset=2", R"({"total":3,"rows":[)" + queued("TN1", 7) + "]}");
  EXPECT_EQ(run({"log-backup", "status", "PRD_HDB00/TN1"}), exit_ok) << out.str();
  EXPECT_NE(out.str().find("on        3        0:09    0"), std::string::npos) << out.str();
}

TEST_F(Log_Backup_Test, Retry_Has_What_Waits_And_What_Was_Given_Up_Tried_Now) {
  let_look(status_json(""), "{}");
  server.answer(queue_request, queue_json({queued("TN1", 60, "given up"), queued("TN1", 5), queued("TN2", 5)}));
  server.answer("POST /backint/ondemand-runs/drain", R"({"total":2,"rows":[]})");
  EXPECT_EQ(run({"log-backup", "retry", "PRD_HDB00/TN1"}), exit_ok) << out.str() << error.str();
  EXPECT_NE(out.str().find("TN1: 2 log backups"), std::string::npos) << out.str();
  const auto bodies = server.bodies("POST /backint/ondemand-runs/drain");
  ASSERT_EQ(bodies.size(), 1U);
  for (const char* part : {R"("host_uuid":"h1")", R"("sid":"PRD")", R"("database":"TN1")", R"("retry":true)"})
    EXPECT_NE(bodies.front().find(part), std::string::npos) << bodies.front();
}

TEST_F(Log_Backup_Test, Drop_Wants_A_Yes_And_Takes_Only_What_Was_Given_Up) {
  const std::string queue = queue_json({queued("SYSTEMDB", 5), queued("TN1", 60, "given up"), queued("TN1", 5)});
  let_look(status_json(""), "{}");
  server.answer(queue_request, queue);
  EXPECT_EQ(run({"log-backup", "drop", "PRD_HDB00"}), exit_usage);
  EXPECT_NE(error.str().find("Say --yes"), std::string::npos) << error.str();
  EXPECT_EQ(server.count("POST /backint/ondemand-runs/drop"), 0U);
  server.forget("POST /agents/h1/call");
  server.forget(definitions_request);
  let_look(status_json(""), "{}");
  server.answer("POST /backint/ondemand-runs/drop", R"({"total":1,"rows":[]})");
  EXPECT_EQ(run({"log-backup", "drop", "PRD_HDB00", "--yes"}), exit_ok) << error.str();
  EXPECT_EQ(server.count("POST /backint/ondemand-runs/drop"), 1U);
  EXPECT_NE(out.str().find("TN1: 1 log backups"), std::string::npos) << out.str();
}

TEST_F(Log_Backup_Test, A_Database_That_Is_Not_There_Is_Named) {
  let_look(status_json(""), "{}");
  EXPECT_EQ(enable({}, "PRD_HDB00/TN9"), exit_not_found);
  EXPECT_NE(out.str().find("has no database \\\"TN9\\\"; it has: SYSTEMDB, TN1"), std::string::npos) << out.str();
}
