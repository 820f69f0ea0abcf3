#include <gtest/gtest.h>

#include "dorsal3/restore/restore_definition.h"
#include "dorsal3/server/resources.h"
#include "dorsal3/terminal/time_argument.h"
#include "support/scoped_zone.h"
#include "unit/dorsal3/command_fixture.h"
#include "unit/dorsal3/keyboard.h"

using namespace dorsal3;

namespace {

constexpr const char* statement =
    "RECOVER DATABASE FOR TN1 UNTIL TIMESTAMP '2026-11-20 08:15:00' CLEAR LOG  USING CATALOG BACKINT USING BACKUP_ID 1 "
    "CHECK ACCESS ALL";
constexpr const char* full_uuid = "f0000000-0000-4000-8000-000000000001";
constexpr const char* delta_uuid = "d0000000-0000-4000-8000-000000000001";

std::string object_json(const char* name, const char* state) {
  return std::string(R"({"name":")") + name + R"(","ebid":"e","path":"h/l/TN1/1/)" + name +
         R"(","size":1048576,"stored_size":1024,"state":")" + state + "\"}";
}

std::string set_json(const char* uuid, const char* type, const char* begun, const std::string& object,
                     const std::string& more = "") {
  return std::string(R"({"uuid":")") + uuid + R"(","type":")" + type + R"(","database_backup_id":1,"first_time":")" +
         begun +
         R"(","last_time":"2026-11-20 08:30:30","pool_uuid":"p1","pool":"main","size":1048576,"stored_size":1024)" +
         more + R"(,"objects":[)" + object + "]}";
}

std::string target_json(const char* database = "TN1", const char* stops = "database") {
  return std::string(R"({"resource_uuid":")") + resource_uuid +
         R"(","name":"PRD_HDB00","instance_name":"HDB00","sid":"PRD","database":")" + database +
         R"(","version":"2.00.059","host_uuid":"h1","connected":true,"multi_container":true,"system_database":)" +
         (std::string(stops) == "instance" ? "true" : "false") + R"(,"in_place":true,"stops":")" + stops + "\"}";
}

std::string plan_json(const std::string& more = "", const std::string& target = target_json(),
                      const std::string& state = "present", const std::string& kind = "point-in-time") {
  const bool ok = more.find("refusals") == std::string::npos;
  return std::string(R"({"resource_uuid":")") + resource_uuid +
         R"(","name":"PRD_HDB00","sid":"PRD","database":"TN1","kind":")" + kind +
         R"(","time":"2026-11-20 08:15:00","set":"","ignore_delta":false,"lifeline":"11111111-0000-4000-8000-000000000001","target":)" +
         target + R"(,"statement":")" + statement + R"(","sets":[)" +
         set_json(full_uuid, "full", "2026-11-20 08:00:01", object_json("F1_databackup_0_1", state.c_str())) + "," +
         set_json(delta_uuid, "incremental", "2026-11-20 08:05:01", object_json("I1_databackup_0_1", "present")) + "," +
         set_json("70000000-0000-4000-8000-000000000001", "log", "2026-11-20 08:20:01",
                  object_json("log_backup_2_0_100_110", "present"),
                  R"(,"volume":2,"partition":0,"first_position":100,"last_position":110)") +
         R"(],"catalog":)" +
         set_json("c0000000-0000-4000-8000-000000000001", "catalog", "2026-11-20 08:20:04",
                  object_json("log_backup_0_0_0_0", "present"), R"(,"staged":true)") +
         R"(,"totals":{"objects":4,"size":4194304,"stored_size":4096},"notes":[])" + (ok ? R"(,"refusals":[])" : "") +
         more + R"(,"ok":)" + (ok ? "true" : "false") + "}";
}

constexpr const char* completed = R"({"id":"a1","state":7,"state_name":"completed","progress":100,"host_uuid":"h1"})";
constexpr const char* failed =
    R"({"id":"a1","state":10,"state_name":"error","progress":0,"host_uuid":"h1","log":[{"priority":128,"text":"Failed to restore tenant database\n"}]})";

std::string recovery(const char* reached, const std::string& command = statement) {
  return R"({"found":true,"id":"2","started":"2026-11-22 02:00:00","command":")" + command +
         R"(","ended":"2026-11-22 02:00:09","successful":true,"reached_time":")" + reached + "\"}";
}

constexpr const char* full_statement = "RECOVER DATA FOR TN1 USING BACKUP_ID 1 USING CATALOG BACKINT CLEAR LOG;";
constexpr const char* no_recovery = R"({"found":false})";

class Restore_Test : public Command_Fixture {
 protected:
  Restore_Test() {
    watch_interruptions();
    server.answer("POST /agents/h1/call", databases_answer);
  }
  ~Restore_Test() override { forget_interruption(); }

  void plan_is(const std::string& plan) {
    server.forget("POST /restore/plan");
    server.answer("POST /restore/plan", plan);
  }
  json_spirit::Object posted(const char* request) {
    json_spirit::Value value;
    const auto bodies = server.bodies(request);
    if (bodies.empty() || !json_spirit::load_json(bodies.back(), value)) return {};
    return value.get_obj();
  }
  /// Restores may start as run a1; a first try tells the definition's id.
  void let_run(const std::vector<std::string>& arguments, const std::string& record, const std::string& recovery_answer,
               const std::string& former_recovery = no_recovery) {
    server.answer("POST /job-definitions", "{}");
    server.answer("GET /jobs/a1", record);
    EXPECT_EQ(run(arguments), exit_not_found);
    server.answer("POST /job-definitions/" + definition_id() + "/start", R"({"job_act_id":"a1"})");
    server.forget("POST /agents/h1/call");
    server.answer("POST /agents/h1/call", databases_answer);
    if (former_recovery.empty())
      server.answer("POST /agents/h1/call", R"({"error":{"code":"invalid","message":"a hung mount"}})", 422);
    else
      server.answer("POST /agents/h1/call", former_recovery);
    server.answer("POST /agents/h1/call", recovery_answer);
  }
  const std::vector<std::string> confirmed_{"restore", "PRD_HDB00/TN1", "--to", "2026-11-20 08:15:00",
                                            "--run",   "--confirm",     "TN1"};
};

TEST_F(Restore_Test, Shows_The_Plan_And_Does_Nothing) {
  plan_is(plan_json());
  ASSERT_EQ(run({"restore", "PRD_HDB00/TN1", "--to", "2026-11-20T13:45:00+05:30", "--plan"}), exit_ok) << error.str();
  EXPECT_EQ(json_spirit::dump_json(posted("POST /restore/plan")),
            std::string(R"({"resource_uuid":")") + resource_uuid + R"(","database":"TN1","target":{"resource_uuid":")" +
                resource_uuid + R"(","database":"TN1"},"ignore_delta":false,"time":"2026-11-20 08:15:00"})");
  EXPECT_EQ(server.count("POST /job-definitions"), 0U);
  for (const char* wanted :
       {"Restore PRD_HDB00/TN1 to 2026-11-20 08:15:00 UTC", "log of volume 2, 100 to 110", "catalog, staged", "all 1",
        "4 objects, 4.0 MiB, 4.0 KiB stored", "The database PRD_HDB00/TN1 is stopped meanwhile.",
        "All that PRD_HDB00/TN1 holds now is overwritten", statement, "--run --confirm TN1"})
    EXPECT_NE(out.str().find(wanted), std::string::npos) << wanted << " in\n" << out.str();
}

TEST_F(Restore_Test, Sends_The_Set_And_The_Target_That_Were_Named) {
  plan_is(plan_json());
  ASSERT_EQ(run({"restore", "PRD_HDB00/TN1", "--set", full_uuid, "--into", "PRD_HDB00/TN2", "--ignore-delta"}), exit_ok)
      << error.str();
  EXPECT_EQ(json_spirit::dump_json(posted("POST /restore/plan")),
            std::string(R"({"resource_uuid":")") + resource_uuid + R"(","database":"TN1","target":{"resource_uuid":")" +
                resource_uuid + R"(","database":"TN2"},"ignore_delta":true,"set":")" + full_uuid + "\"}");
}

TEST_F(Restore_Test, Tells_On_Which_Host_It_Runs_And_What_The_Others_Go_Through) {
  std::string target = target_json("SYSTEMDB", "instance");
  target.replace(target.find("\"connected\""), 0,
                 R"("host":"hana01","other_hosts":[{"host_uuid":"h2","host":"hana02"},{"host_uuid":"h3","host":""}],)");
  plan_is(plan_json("", target));
  server.answer("GET /hosts", R"({"total":1,"rows":[{"uuid":"h1","name":"hana01.site"}]})");
  ASSERT_EQ(run({"restore", "PRD_HDB00/SYSTEMDB", "--set", full_uuid, "--host", "hana01.site"}), exit_ok)
      << error.str();
  for (const char* wanted : {"It runs on the host hana01 (h1).\nThe whole instance PRD_HDB00 is stopped",
                             "When it is back, the other hosts of the system are restarted: hana02 (h2), h3.\n"})
    EXPECT_NE(out.str().find(wanted), std::string::npos) << wanted << " in\n" << out.str();
  EXPECT_NE(json_spirit::dump_json(posted("POST /restore/plan")).find(R"("database":"SYSTEMDB","host_uuid":"h1"})"),
            std::string::npos);
}

TEST_F(Restore_Test, Ends_By_The_Reason_Of_A_Refusal) {
  struct Row {
    const char* codes;
    int exit_code;
  };
  for (const Row& row :
       {Row{R"({"code":"logs_too_short","message":"the logs end"})", exit_gap},
        Row{R"({"code":"log_gap","message":"a gap"},{"code":"logs_too_short","message":"the logs end"})", exit_gap},
        Row{R"({"code":"object_missing","message":"an object"})", exit_failed},
        Row{R"({"code":"log_gap","message":"a gap"},{"code":"agent_away","message":"away"})", exit_failed}}) {
    plan_is(plan_json(std::string(R"(,"refusals":[)") + row.codes +
                      R"(],"before":{"time":"2026-11-20 08:10:00"},"after":{"time":"2026-11-20 09:00:01","set":"s"})"));
    EXPECT_EQ(run({"restore", "PRD_HDB00/TN1", "--to", "2026-11-20 08:15:00"}), row.exit_code) << row.codes;
    EXPECT_NE(out.str().find("REFUSED: "), std::string::npos);
    EXPECT_NE(out.str().find("nearest before it: 2026-11-20 08:10:00 UTC"), std::string::npos) << out.str();
    EXPECT_NE(out.str().find("nearest after it: " + time_for_people("2026-11-20 09:00:01") + ", --set s"),
              std::string::npos)
        << out.str();
    EXPECT_EQ(out.str().find("--confirm"), std::string::npos);
    EXPECT_EQ(run(confirmed_), row.exit_code);
    EXPECT_NE(out.str().find("Nothing was restored"), std::string::npos);
  }
  EXPECT_EQ(server.count("POST /job-definitions"), 0U);
}

TEST_F(Restore_Test, Names_The_Objects_That_Are_Missing) {
  plan_is(plan_json(R"(,"refusals":[{"code":"object_missing","message":"gone"}])", target_json(), "missing"));
  EXPECT_EQ(run({"restore", "PRD_HDB00/TN1", "--to", "2026-11-20 08:15:00"}), exit_failed);
  EXPECT_NE(out.str().find("1 of 1 MISSING"), std::string::npos) << out.str();
  EXPECT_NE(out.str().find("missing: h/l/TN1/1/F1_databackup_0_1"), std::string::npos);
}

TEST_F(Restore_Test, Does_Not_Call_Missing_What_Nobody_Looked_For) {
  struct Row {
    std::vector<const char*> states;
    const char* wanted;
  };
  for (const Row& row : {Row{{"present", "present"}, "  all 2  "}, Row{{"unknown", "unknown"}, "  2 not looked for  "},
                         Row{{"present", "unknown"}, "  1 of 2 not looked for  "},
                         Row{{"missing", "unknown", "present"}, "  1 of 3 MISSING, 1 not looked for  "},
                         Row{{"missing", "wrong size", "present"}, "  2 of 3 MISSING  "}}) {
    std::string objects;
    for (const char* state : row.states) objects += (objects.empty() ? "" : ",") + object_json("F1_databackup", state);
    std::string plan = plan_json();
    const std::string one = object_json("F1_databackup_0_1", "present");
    plan.replace(plan.find(one), one.size(), objects);
    plan_is(plan);
    EXPECT_EQ(run({"restore", "PRD_HDB00/TN1", "--to", "2026-11-20 08:15:00"}), exit_ok);
    const std::size_t at = out.str().find(full_uuid);
    ASSERT_NE(at, std::string::npos);
    const std::string line = out.str().substr(at, out.str().find('\n', at) - at);
    EXPECT_NE(line.find(row.wanted), std::string::npos) << row.wanted << " in " << line;
  }
}

TEST_F(Restore_Test, Refuses_A_Tenant_That_Does_Not_Exist) {
  plan_is(plan_json("", target_json("TN9")));
  EXPECT_EQ(
      run({"restore", "PRD_HDB00/TN1", "--to", "2026-11-20 08:15:00", "--into", "PRD_HDB00/TN9", "--output", "json"}),
      exit_failed);
  const json_spirit::Object answer = json();
  json_spirit::Object plan;
  ASSERT_TRUE(json_spirit::object_get(answer, "plan", plan));
  EXPECT_FALSE(flag_member(plan, "ok"));
  EXPECT_EQ(text_member(object_rows(plan, "refusals").at(0), "code"), "target_missing");
}

TEST_F(Restore_Test, Runs_Only_With_The_Name_Of_What_Is_Overwritten) {
  plan_is(plan_json());
  EXPECT_EQ(run({"restore", "PRD_HDB00/TN1", "--to", "2026-11-20 08:15:00", "--run"}), exit_usage);
  EXPECT_EQ(server.count("POST /restore/plan"), 0U);
  EXPECT_EQ(run({"restore", "PRD_HDB00/TN1", "--to", "2026-11-20 08:15:00", "--run", "--confirm", "TN2"}), exit_usage);
  EXPECT_NE(error.str().find("--confirm TN1"), std::string::npos) << error.str();
  plan_is(plan_json("", target_json("SYSTEMDB", "instance")));
  EXPECT_EQ(run({"restore", "PRD_HDB00/SYSTEMDB", "--to", "2026-11-20 08:15:00", "--run", "--confirm", "SYSTEMDB"}),
            exit_usage);
  EXPECT_NE(error.str().find("The whole instance PRD_HDB00 is stopped"), std::string::npos) << error.str();
  EXPECT_NE(error.str().find("--confirm PRD_HDB00"), std::string::npos) << error.str();
  EXPECT_EQ(server.count("POST /job-definitions"), 0U);
}

TEST_F(Restore_Test, Refuses_A_Command_Line_That_Is_Not_Whole) {
  for (const std::vector<std::string>& arguments :
       {std::vector<std::string>{"restore", "PRD_HDB00", "--to", "2026-11-20 08:15:00"},
        {"restore", "PRD_HDB00/TN1"},
        {"restore", "PRD_HDB00/TN1", "--to", "yesterday"},
        {"restore", "PRD_HDB00/TN1", "--to", "2026-11-20 08:15:00", "--set", "f"},
        {"restore", "PRD_HDB00/TN1", "--to", "2026-11-20 08:15:00", "--plan", "--run"}})
    EXPECT_EQ(run(arguments), exit_usage) << arguments.back();
  EXPECT_EQ(server.count("POST /restore/plan"), 0U);
}

TEST_F(Restore_Test, Restores_And_Tells_How_Far_HANA_Has_Come) {
  plan_is(plan_json());
  let_run(confirmed_, completed, recovery("2026-11-20 08:15:00"));
  EXPECT_EQ(run(confirmed_), exit_ok) << out.str() << error.str();
  EXPECT_NE(out.str().find("The restore is complete; HANA has reached " + time_for_people("2026-11-20 08:15:00") + "."),
            std::string::npos)
      << out.str();
  const json_spirit::Object definition = posted("POST /job-definitions");
  EXPECT_EQ(text_member(definition, "subtype"), "point-in-time");
  json_spirit::Object source;
  json_spirit::object_get(definition, "source", source);
  EXPECT_EQ(
      json_spirit::dump_json(json_spirit::Value(to_array(object_rows(source, "entries")))),
      R"([{"original":{"sid":"PRD","database":"TN1"},"restore_as":{"database":"TN1","timepoint":"2026-11-20 08:15:00",)"
      R"("lifeline":"11111111-0000-4000-8000-000000000001"}}])");
  EXPECT_EQ(json_spirit::dump_json(posted("POST /agents/h1/call")),
            R"({"method":"instance.recovery","params":{"name":"PRD_HDB00","database":"TN1"}})");
}

TEST_F(Restore_Test, Calls_A_Shorter_Restore_An_Error) {
  plan_is(plan_json());
  let_run(confirmed_, completed, recovery("2026-11-20 08:14:59"));
  EXPECT_EQ(run(confirmed_), exit_failed);
  EXPECT_NE(out.str().find("TOO EARLY: HANA has reached " + time_for_people("2026-11-20 08:14:59") + ", wanted was " +
                           time_for_people("2026-11-20 08:15:00")),
            std::string::npos)
      << out.str();
}

TEST_F(Restore_Test, Does_Not_Take_Another_Recovery_For_Its_Own) {
  plan_is(plan_json());
  let_run(confirmed_, completed, recovery("2026-11-20 08:15:00", "RECOVER DATA FOR TN1 CLEAR LOG;"));
  EXPECT_EQ(run(confirmed_), exit_failed);
  EXPECT_NE(out.str().find("HANA's log shows no such recovery, the last one in it is another one: RECOVER DATA"),
            std::string::npos)
      << out.str();
}

/// The plan of a full backup alone, by its time.
std::string full_plan() {
  std::string plan = plan_json("", target_json(), "present", "full");
  plan.replace(plan.find(statement), std::string(statement).size(), full_statement);
  return plan;
}

TEST_F(Restore_Test, A_Full_Restore_Is_Complete_When_HANA_Has_Recovered_In_This_Run) {
  struct Row {
    const char* name;
    std::string before;  ///< empty: HANA's log could not be read then
    std::string after;
    const char* start_time;
    const char* wanted;
  };
  const std::string good = recovery("", full_statement);
  // HANA may log a statement without its end.
  const std::string open_end = recovery("", "RECOVER DATA FOR TN1 USING BACKUP_ID 1 USING CATALOG BACKINT CLEAR LOG");
  const std::string of_old_agent = R"({"found":true,"started":"2026-11-22 02:00:00","command":")" +
                                   std::string(full_statement) +
                                   R"(","ended":"2026-11-22 02:00:05","successful":true,"reached_time":""})";
  std::string same_second = good;
  same_second.replace(same_second.find(R"("id":"2")"), 8, R"("id":"1")");
  std::string bad = good;
  bad.replace(bad.find(R"("successful":true)"), 17,
              R"("successful":false,"message":"RECOVER DATA finished with error")");
  std::string going_on = bad;
  going_on.replace(going_on.find("2026-11-22 02:00:09"), 19, "");
  const char* const complete = "The restore is complete.";
  const char* const none = "HANA's log shows no such recovery. ";
  for (const Row& row :
       {Row{"the first one", no_recovery, good, "", complete},
        Row{"without its end", no_recovery, open_end, "", complete},
        Row{"a second one within a second", same_second, good, "", complete},
        Row{"none", no_recovery, no_recovery, "", none}, Row{"the one before", good, good, "", none},
        Row{"the one before, of an older agent", of_old_agent, of_old_agent, "", none},
        Row{"one that failed", no_recovery, bad, "", "HANA's log says: RECOVER DATA finished with error"},
        Row{"one that goes on", no_recovery, going_on, "", "does not show the end"},
        Row{"nothing known, begun before", "", good, "2026-11-22 02:00:00", complete},
        Row{"nothing known, begun later", "", good, "2026-11-22 02:00:01", none}}) {
    plan_is(full_plan());
    server.forget("GET /jobs/a1");
    std::string record = completed;
    record.insert(record.size() - 1, std::string(R"(,"start_time":")") + row.start_time + "\"");
    server.forget("POST /job-definitions");
    server.forget("POST /agents/h1/call");
    server.answer("POST /agents/h1/call", databases_answer);
    let_run(confirmed_, record, row.after, row.before);
    EXPECT_EQ(run(confirmed_), row.wanted == complete ? exit_ok : exit_failed) << row.name;
    EXPECT_NE(out.str().find(row.wanted), std::string::npos) << row.name << ": " << out.str();
    server.forget("POST /job-definitions/" + definition_id() + "/start");
  }
}

TEST_F(Restore_Test, Tells_Why_A_Restore_Failed) {
  plan_is(plan_json());
  let_run(confirmed_, failed, "{}");
  EXPECT_EQ(run(confirmed_), exit_failed);
  EXPECT_NE(out.str().find("The restore FAILED"), std::string::npos) << out.str();
  EXPECT_NE(out.str().find("Failed to restore tenant database"), std::string::npos) << out.str();
}

TEST_F(Restore_Test, Shows_How_Much_Of_All_Has_Come_Back) {
  plan_is(plan_json());
  let_run(confirmed_,
          R"({"id":"a1","state":3,"state_name":"running","progress":0,"restored_size":1048576,"host_uuid":"h1"})",
          "{}");
  clock.at(std::chrono::milliseconds(500), [] { press_ctrl_c(); });
  EXPECT_EQ(run(confirmed_), exit_interrupted);
  EXPECT_NE(out.str().find("PRD_HDB00/TN1  25%  1.0 MiB of 4.0 MiB"), std::string::npos) << out.str();
}

TEST_F(Restore_Test, Shows_No_End_Before_The_Run_Has_Ended) {
  plan_is(plan_json());
  let_run(confirmed_,
          R"({"id":"a1","state":3,"state_name":"running","progress":0,"restored_size":4194999,"host_uuid":"h1"})",
          "{}");
  clock.at(std::chrono::milliseconds(500), [] { press_ctrl_c(); });
  EXPECT_EQ(run(confirmed_), exit_interrupted);
  EXPECT_NE(out.str().find("99%  4.0 MiB of 4.0 MiB"), std::string::npos) << out.str();
}

TEST_F(Restore_Test, Leaves_A_Running_Restore_Alone_On_Ctrl_C) {
  plan_is(plan_json());
  let_run(confirmed_, R"({"id":"a1","state":3,"state_name":"running","progress":10,"host_uuid":"h1"})", "{}");
  clock.at(std::chrono::milliseconds(500), [] { press_ctrl_c(); });
  EXPECT_EQ(run(confirmed_), exit_interrupted);
  EXPECT_NE(error.str().find("the restore goes on, follow it with: dorsal3 jobs a1"), std::string::npos) << error.str();
  EXPECT_EQ(server.count("POST /jobs/a1/stop"), 0U);
}

json_spirit::Object plan_object(const std::string& text) {
  json_spirit::Value value;
  EXPECT_TRUE(json_spirit::load_json(text, value)) << text;
  return value.get_obj();
}

TEST(Restore_Definition, Asks_For_The_Begin_Of_A_Delta_That_Was_Named) {
  for (const char* zone : {"UTC", "Asia/Kolkata"}) {
    const support::Scoped_Zone scope(zone);
    json_spirit::Object plan = plan_object(plan_json());
    EXPECT_EQ(time_to_reach(plan), "2026-11-20 08:15:00");
    plan["set"] = delta_uuid;
    EXPECT_EQ(time_to_reach(plan), "2026-11-20 08:05:00");
    plan["set"] = "another";
    EXPECT_EQ(time_to_reach(plan), "2026-11-20 08:15:00");
    plan["kind"] = "full";
    EXPECT_EQ(time_to_reach(plan), "");
  }
}

TEST(Restore_Definition, Is_The_Same_For_The_Same_Plan) {
  json_spirit::Object plan = plan_object(plan_json());
  const json_spirit::Object first = restore_definition(plan);
  EXPECT_EQ(first, restore_definition(plan));
  plan["set"] = full_uuid;
  const json_spirit::Object second = restore_definition(plan);
  EXPECT_NE(text_member(first, "id"), text_member(second, "id"));
  EXPECT_EQ(json_spirit::dump_json(second).find("timepoint"), std::string::npos);
  EXPECT_NE(json_spirit::dump_json(second).find(std::string(R"("catalog_uuid":")") + full_uuid), std::string::npos);
}

}  // namespace
