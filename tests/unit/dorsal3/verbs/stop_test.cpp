#include <gtest/gtest.h>

#include "dorsal3/jobs/run_follower.h"
#include "dorsal3/jobs/run_stopper.h"
#include "unit/dorsal3/command_fixture.h"
#include "unit/dorsal3/keyboard.h"

using namespace dorsal3;

namespace {

constexpr const char* alerts_of_a1 = "GET /alerts?job_act_id=a1&order=desc";
constexpr const char* no_alert = R"({"total":0,"rows":[]})";
constexpr const char* running = R"({"id":"a1","state":3,"state_name":"running","progress":40,"host_uuid":"h1"})";
constexpr const char* canceling = R"({"id":"a1","state":8,"state_name":"canceling","progress":40,"host_uuid":"h1"})";
constexpr const char* canceled = R"({"id":"a1","state":9,"state_name":"canceled","progress":40,"host_uuid":"h1"})";
constexpr const char* taken = R"({"code":0,"message":""})";

std::string vain_alert(int id) {
  return R"({"id":)" + std::to_string(id) +
         R"(,"class":7,"code":20,"parameters":{"database":"TN1"},"job_act_id":"a1"})";
}

std::string alerts(const std::vector<std::string>& rows) {
  std::string list;
  for (const std::string& row : rows) list += (list.empty() ? "" : ",") + row;
  return R"({"total":)" + std::to_string(rows.size()) + R"(,"rows":[)" + list + "]}";
}

class Stop_Test : public Command_Fixture {
 protected:
  Stop_Test() {
    watch_interruptions();
    server.answer(alerts_of_a1, no_alert);
    server.answer("POST /jobs/a1/stop", taken);
  }
  ~Stop_Test() override { forget_interruption(); }

  void run_is(const std::vector<std::string>& records) {
    for (const std::string& record : records) server.answer("GET /jobs/a1", record);
  }

  [[nodiscard]] std::size_t requests() const { return server.count("POST /jobs/a1/stop"); }
};

}  // namespace

TEST_F(Stop_Test, Asks_Once_And_Waits_Until_The_Run_Is_Canceled) {
  run_is({running, running, canceling, canceled});
  EXPECT_EQ(run({"stop", "a1"}), exit_ok) << error.str();
  EXPECT_EQ(out.str(), "The run a1 is canceled.\n");
  EXPECT_EQ(requests(), 1U);
  EXPECT_EQ(server.bodies("POST /jobs/a1/stop").front(), "{}");
}

TEST_F(Stop_Test, Every_Ending_Has_Its_Exit_Code_And_Text) {
  struct Row {
    const char* ending;
    int exit_code;
    const char* text;
  };
  const Row rows[] = {
      {R"({"id":"a1","state":7,"state_name":"completed"})", exit_failed,
       "The run a1 was complete before the stop came through: its backup is kept.\n"},
      {R"({"id":"a1","state":10,"state_name":"error","message":"Failed to execute backup\n","log":[{"priority":128,"text":"* 447: no\n"}]})",
       exit_failed,
       "The run a1 has ended, but was not canceled. The backup FAILED: Failed to execute backup\n  * 447: no\n"},
      {canceled, exit_ok, "The run a1 is canceled.\n"}};
  for (const Row& row : rows) {
    Fake_Server fresh;
    support::Fake_Http_Transport way{fresh};
    fresh.answer(alerts_of_a1, no_alert);
    fresh.answer("POST /jobs/a1/stop", taken);
    for (const char* record : {running, running, row.ending}) fresh.answer("GET /jobs/a1", record);
    EXPECT_EQ(run({"stop", "a1"}), row.exit_code) << row.ending;
    EXPECT_EQ(out.str(), row.text);
  }
}

TEST_F(Stop_Test, A_Run_That_Has_Ended_Already_Is_Told_And_Not_Asked) {
  run_is({canceled});
  EXPECT_EQ(run({"stop", "a1"}), exit_failed);
  EXPECT_EQ(out.str(), "There is nothing to stop, the run a1 has ended already. The backup was canceled\n");
  EXPECT_EQ(requests(), 0U);
}

TEST_F(Stop_Test, A_Run_That_Ends_While_It_Is_Asked_Has_Ended_Already) {
  server.answer("POST /jobs/a2/stop", R"({"error":{"code":"conflict","message":"the run a2 has ended already"}})", 409);
  server.answer("GET /jobs/a2", R"({"id":"a2","state":3,"state_name":"running"})");
  server.answer("GET /jobs/a2", R"({"id":"a2","state":3,"state_name":"running"})");
  server.answer("GET /jobs/a2", R"({"id":"a2","state":7,"state_name":"completed"})");
  EXPECT_EQ(run({"stop", "a2"}), exit_failed);
  EXPECT_NE(out.str().find("has ended already. The backup is complete."), std::string::npos) << out.str();
}

TEST_F(Stop_Test, A_Stop_That_Found_No_Running_Backup_Is_Told_And_Asked_For_Again) {
  // What was there before does not count.
  server.forget(alerts_of_a1);
  server.answer(alerts_of_a1, alerts({vain_alert(4)}));
  server.answer(alerts_of_a1, alerts({vain_alert(4)}));
  server.answer(alerts_of_a1, alerts({vain_alert(5), vain_alert(4)}));
  run_is({running, running, running, running, running, running, running, running, running, running, running, running,
          running, running, running, canceled});
  EXPECT_EQ(run({"stop", "a1"}), exit_ok) << error.str();
  EXPECT_EQ(requests(), 2U);
  EXPECT_NE(error.str().find("HANA lists no running backup of this run now (at database TN1)"), std::string::npos)
      << error.str();
  EXPECT_NE(error.str().find("Asking again in 5 seconds"), std::string::npos) << error.str();
  EXPECT_EQ(error.str().find("HANA lists"), error.str().rfind("HANA lists")) << "an alert is told once";
}

TEST_F(Stop_Test, Other_Alerts_Of_The_Run_Are_Not_Taken_For_It) {
  server.answer(alerts_of_a1, no_alert);
  server.answer(alerts_of_a1, R"({"total":1,"rows":[{"id":9,"class":7,"code":8,"job_act_id":"a1"}]})");
  run_is({running, running, running, running, canceled});
  EXPECT_EQ(run({"stop", "a1"}), exit_ok);
  EXPECT_EQ(error.str().find("HANA lists"), std::string::npos) << error.str();
}

TEST_F(Stop_Test, What_The_Log_Says_Of_A_Vain_Stop_Is_Passed_On) {
  server.answer(alerts_of_a1, alerts({vain_alert(1)}));
  const char* logged = R"({"id":"a1","state":3,"state_name":"running","log":[)"
                       R"({"priority":128,"text":"Failed to init hdbsql for PRD HDB00\n"},)"
                       R"({"priority":128,"text":"Failed to stop HANA backup job\n"}]})";
  run_is({running, running, logged, canceled});
  EXPECT_EQ(run({"stop", "a1"}), exit_ok);
  EXPECT_NE(error.str().find("The stop found no running backup that it could cancel (at database TN1): Failed to init "
                             "hdbsql for PRD HDB00. Asking again"),
            std::string::npos)
      << error.str();
}

TEST_F(Stop_Test, Requests_Never_Come_Faster_Than_The_Pause) {
  int id = 1;
  std::vector<std::string> rows;
  for (int i = 0; i < 200; ++i) {  // every look finds a new alert
    rows.insert(rows.begin(), vain_alert(id++));
    server.answer(alerts_of_a1, alerts(rows));
  }
  clock.at(std::chrono::seconds(60), [&] { server.answer("GET /jobs/a1", canceled); });
  server.answer("GET /jobs/a1", running);
  clock.at(std::chrono::seconds(60), [&] { press_ctrl_c(); });
  EXPECT_EQ(run({"stop", "a1"}), exit_interrupted);
  EXPECT_GE(requests(), 5U);
  EXPECT_LE(requests(), 60U / 5U + 1U);
}

TEST_F(Stop_Test, A_Stop_Without_Any_News_Is_Asked_For_Again) {
  server.answer("GET /jobs/a1", running);
  clock.at(Run_Stopper::silence_limit + std::chrono::seconds(30), [&] { press_ctrl_c(); });
  EXPECT_EQ(run({"stop", "a1"}), exit_interrupted);
  EXPECT_EQ(requests(), 2U);
  EXPECT_NE(error.str().find("has led to nothing in 360 seconds"), std::string::npos) << error.str();
}

TEST_F(Stop_Test, Ctrl_C_Ends_The_Asking_And_Says_That_The_Run_Goes_On) {
  server.answer("GET /jobs/a1", running);
  clock.at(std::chrono::seconds(3), [&] { press_ctrl_c(); });
  EXPECT_EQ(run({"stop", "a1"}), exit_interrupted);
  EXPECT_NE(
      error.str().find("the run a1 goes on, unless the last request still ends it; follow it with: dorsal3 jobs a1"),
      std::string::npos)
      << error.str();
}

TEST_F(Stop_Test, No_Wait_Asks_Once) {
  server.answer("GET /jobs/a1", running);
  EXPECT_EQ(run({"stop", "a1", "--no-wait"}), exit_ok);
  EXPECT_NE(out.str().find("The stop of the run a1 was asked for"), std::string::npos) << out.str();
  EXPECT_EQ(requests(), 1U);
  EXPECT_TRUE(clock.sleeps().empty());
}

TEST_F(Stop_Test, No_Wait_Tells_When_The_Agent_Does_Not_Take_It) {
  server.answer("GET /jobs/a2", R"({"id":"a2","state":3})");
  server.answer("POST /jobs/a2/stop", R"({"code":-1,"message":"the job cannot be stopped now"})");
  EXPECT_EQ(run({"stop", "a2", "--no-wait"}), exit_failed);
  EXPECT_NE(error.str().find("the agent did not take the stop: the job cannot be stopped now"), std::string::npos)
      << error.str();
}

TEST_F(Stop_Test, A_Stop_That_The_Agent_Does_Not_Take_Is_Asked_For_Again) {
  server.answer("GET /jobs/a2", R"({"id":"a2","state":3})");
  server.answer("GET /alerts?job_act_id=a2&order=desc", no_alert);
  server.answer("POST /jobs/a2/stop", R"({"code":-1,"message":"not now"})");
  server.answer("POST /jobs/a2/stop", R"({"error":{"code":"invalid","message":"the agent refused: not now"}})", 422);
  server.answer("POST /jobs/a2/stop", taken);
  clock.at(std::chrono::seconds(30), [&] { press_ctrl_c(); });
  EXPECT_EQ(run({"stop", "a2"}), exit_interrupted);
  EXPECT_EQ(server.count("POST /jobs/a2/stop"), 3U);
  EXPECT_NE(
      error.str().find("The stop was not taken: the agent did not take the stop: not now. Asking every 5 seconds"),
      std::string::npos)
      << error.str();
}

TEST_F(Stop_Test, Refusals_Without_End_Are_Given_Up) {
  server.answer("GET /jobs/a2", R"({"id":"a2","state":3})");
  server.answer("POST /jobs/a2/stop", R"({"code":-1,"message":"not now"})");
  EXPECT_EQ(run({"stop", "a2"}), exit_failed);
  EXPECT_EQ(server.count("POST /jobs/a2/stop"), Run_Stopper::refusal_limit);
}

TEST_F(Stop_Test, A_Run_Whose_Turn_Has_Not_Come_Is_Asked_For_Until_It_Is_Taken) {
  constexpr unsigned many = Run_Stopper::refusal_limit + 10;
  server.answer("GET /alerts?job_act_id=a2&order=desc", no_alert);
  server.answer("GET /jobs/a2", R"({"id":"a2","state":3})");
  for (unsigned i = 0; i < many; ++i)
    server.answer("POST /jobs/a2/stop", R"({"code":1,"message":"the backup of a1 runs now"})");
  server.answer("POST /jobs/a2/stop", taken);
  clock.at(Run_Stopper::repeat_pause * (many + 5), [&] { press_ctrl_c(); });
  EXPECT_EQ(run({"stop", "a2"}), exit_interrupted);
  EXPECT_EQ(server.count("POST /jobs/a2/stop"), many + 1);
  const std::string told = "cannot be taken yet: the agent did not take the stop: the backup of a1 runs now. Asking";
  const std::size_t at = error.str().find(told);
  EXPECT_NE(at, std::string::npos) << error.str();
  EXPECT_EQ(error.str().find(told, at + 1), std::string::npos) << "once is enough";
}

TEST_F(Stop_Test, Failures_Of_The_Way_Have_Their_Own_Exit_Codes) {
  EXPECT_EQ(run({"stop", "nothing"}), exit_not_found);

  server.answer("GET /jobs/a2", R"({"id":"a2","state":0,"state_name":"unknown"})");
  server.answer("POST /jobs/a2/stop",
                R"({"error":{"code":"unavailable","message":"the agent of the host h1 is not connected"}})", 503);
  EXPECT_EQ(run({"stop", "a2"}), exit_unreachable);
  EXPECT_NE(error.str().find("the agent of the host h1 is not connected"), std::string::npos) << error.str();

  server.answer("GET /jobs/a3", R"({"id":"a3","state":3})");
  server.answer("POST /jobs/a3/stop", R"({"error":{"code":"forbidden","message":"a viewer may not"}})", 403);
  EXPECT_EQ(run({"stop", "a3"}), exit_refused);

  transport.refuse_connections(1);
  EXPECT_EQ(run({"stop", "a1"}), exit_unreachable);
}

TEST_F(Stop_Test, A_Server_That_Is_Away_For_A_While_Does_Not_End_The_Waiting) {
  server.answer("GET /jobs/a1", running);
  server.answer("GET /jobs/a1", running);
  for (int i = 0; i < 100; ++i)
    server.answer("GET /jobs/a1", R"({"error":{"code":"unavailable","message":"down"}})", 503);
  server.answer("GET /jobs/a1", canceled);
  EXPECT_EQ(run({"stop", "a1"}), exit_ok) << error.str();
}

TEST_F(Stop_Test, A_Server_That_Stays_Away_Ends_It_With_What_Is_Known) {
  server.answer("GET /jobs/a1", running);
  server.answer("GET /jobs/a1", running);
  server.answer("GET /jobs/a1", R"({"error":{"code":"unavailable","message":"down"}})", 503);
  EXPECT_EQ(run({"stop", "a1"}), exit_unreachable);
  EXPECT_NE(error.str().find("the run a1 goes on"), std::string::npos) << error.str();
}

TEST_F(Stop_Test, An_Agent_That_Goes_Away_After_The_First_Request_Is_Waited_For) {
  server.answer("GET /jobs/a2", R"({"id":"a2","state":3})");
  server.answer("GET /alerts?job_act_id=a2&order=desc", no_alert);
  server.answer("GET /alerts?job_act_id=a2&order=desc", alerts({vain_alert(1)}));
  server.answer("POST /jobs/a2/stop", taken);
  server.answer("POST /jobs/a2/stop", R"({"error":{"code":"unavailable","message":"h1 is not connected"}})", 503);
  EXPECT_EQ(run({"stop", "a2"}), exit_unreachable);
  EXPECT_GE(server.count("POST /jobs/a2/stop"), 20U) << "asked until the limit";
}

TEST_F(Stop_Test, A_Run_That_Another_One_Follows_Leads_To_That_One) {
  run_is({running, running, R"({"id":"a1","state":17,"state_name":"skipped","host_uuid":"h1","followed_by":"a2"})"});
  server.answer("GET /alerts?job_act_id=a2&order=desc", no_alert);
  server.answer("POST /jobs/a2/stop", taken);
  server.answer("GET /jobs/a2", R"({"id":"a2","state":3,"host_uuid":"h2"})");
  server.answer("GET /jobs/a2", R"({"id":"a2","state":9,"state_name":"canceled","host_uuid":"h2"})");
  EXPECT_EQ(run({"stop", "a1"}), exit_ok) << error.str();
  EXPECT_EQ(server.count("POST /jobs/a2/stop"), 1U);
  EXPECT_NE(out.str().find("The run a2 is canceled.\n"), std::string::npos) << out.str();
}

TEST_F(Stop_Test, A_Skipped_Run_Without_A_Successor_Has_Ended) {
  run_is({R"({"id":"a1","state":17,"state_name":"skipped","host_uuid":"h1"})"});
  EXPECT_EQ(run({"stop", "a1"}), exit_failed);
  EXPECT_EQ(requests(), 0U);
  EXPECT_NE(out.str().find("has ended already. Nothing was backed up"), std::string::npos) << out.str();
}

TEST_F(Stop_Test, The_Json_Model_Has_The_Same_Facts) {
  run_is({running, running, canceled});
  EXPECT_EQ(run({"stop", "a1", "--output", "json"}), exit_ok);
  EXPECT_EQ(json_spirit::dump_json(json()),
            R"({"job":"a1","requests":1,"ended":true,"canceled":true,"state":"canceled","message":"","declined":[],)"
            R"("result":"The run a1 is canceled."})");
}
