#include "agentd/log_backup/log_queue_drain.h"

#include <gtest/gtest.h>

#include "support/fake_http_transport.h"
#include "support/log_capture.h"
#include "support/temp_root.h"
#include "support/virtual_clock.h"

using namespace agentd;

namespace {

constexpr const char* host = "6f9619ff-8b86-4d01-b42d-00cf4fc964ff";
constexpr const char* drain_path = "/q5/r/v2/backint/ondemand-runs/drain";
constexpr const char* resource_path = "/q5/r/v2/resources?uuid=r-1";
constexpr const char* none = R"({"total":0,"rows":[]})";
constexpr const char* two =
    R"({"total":2,"rows":[{"backint_job_uuid":"j-1","message":"it failed"},{"backint_job_uuid":"j-2","message":"it waits"}]})";

std::string body(const std::string& database, const std::string& sid = "QAS") {
  return std::string(R"({"host_uuid":")") + host + R"(","sid":")" + sid + R"(","database":")" + database + "\"}";
}

json_spirit::Value parsed(const std::string& text) {
  json_spirit::Value value;
  EXPECT_TRUE(json_spirit::load_json(text, value)) << text;
  return value;
}

class Log_Queue_Drain_Test : public ::testing::Test {
 protected:
  Log_Queue_Drain_Test() {
    root.write(
        "/etc/opt/tarvex/dorsal3/agent.toml",
        std::string("server_url = \"http://127.0.0.1:9000\"\nhost_uuid = \"") + host + "\"\naccess_key = \"k\"\n",
        0600);
  }
  void expect_system() {
    server.expect("GET", resource_path, "", 200,
                  R"({"total":1,"rows":[{"uuid":"r-1","instances":[{"extended_attrs":{"sid":"QAS"}}]}]})");
  }
  void expect(const std::string& database, const char* answer) {
    server.expect("POST", drain_path, body(database), 200, answer);
  }
  void drain(const std::vector<std::string>& databases) { drain_log_backups({"r-1", "PRD", databases}, host, stop); }

  support::Temp_Root root;
  support::Log_Capture log;
  support::Virtual_Clock clock;
  support::Scripted_Http_Handler server;
  support::Fake_Http_Transport transport{server};
  platform::Wait_Event stop;
};

}  // namespace

TEST(Restored_Databases, Are_Those_That_A_Restore_Writes_Over) {
  const Restored_Databases restored = Restored_Databases::of(
      parsed(R"({"type":"restore","target":{"resource_uuid":"r-1"},"source":{"id":"r-0","entries":[)"
             R"({"original":{"sid":"PRD","database":"TN1"},"restore_as":{"database":"TN9"}},)"
             R"({"original":{"sid":"PRD","database":"TN2"},"restore_as":{"timepoint":"2026-01-01 10:00:00"}},)"
             R"({"original":{"sid":"PRD","database":"TN9"}}]}})"));
  EXPECT_EQ(restored.resource_uuid, "r-1");
  EXPECT_EQ(restored.sid, "PRD");
  EXPECT_EQ(restored.databases, (std::vector<std::string>{"TN9", "TN2"}));
}

TEST(Restored_Databases, Of_Other_Jobs_There_Are_None) {
  for (const char* text : {R"({"type":"backup","source":{"entries":["hana/HDB00/TN1"]}})", "{}", "[]",
                           R"({"type":"restore","source":{"entries":["hana/HDB00/TN1"]}})"})
    EXPECT_TRUE(Restored_Databases::of(parsed(text)).databases.empty()) << text;
}

TEST_F(Log_Queue_Drain_Test, Nothing_Waits_And_Nobody_Is_Asked_Twice) {
  expect_system();
  expect("TN1", none);
  expect("TN2", none);
  drain({"TN1", "TN2"});
  EXPECT_TRUE(clock.sleeps().empty());
}

TEST_F(Log_Queue_Drain_Test, Waits_Until_All_Are_Recorded) {
  expect_system();
  expect("TN1", two);
  expect("TN1", R"({"total":1,"rows":[{"backint_job_uuid":"j-2"}]})");
  expect("TN1", none);
  const auto begin = clock.steady_now();
  drain({"TN1"});
  EXPECT_EQ(clock.steady_now() - begin, drain_first_poll + 2 * drain_first_poll);
}

TEST_F(Log_Queue_Drain_Test, Asks_Less_Often_The_Longer_It_Takes) {
  expect_system();
  constexpr int asked = 8;
  for (int i = 0; i < asked; ++i) expect("TN1", two);
  expect("TN1", none);
  drain({"TN1"});
  EXPECT_EQ(clock.sleeps(), (std::vector<double>{0.25, 0.5, 1, 2, 4, 5, 5, 5}));
}

TEST_F(Log_Queue_Drain_Test, Names_What_Is_Left_At_The_Limit_And_Goes_On) {
  expect_system();
  // At once, after 0.25, 0.75, 1.75, 3.75 and 7.75 seconds, then every 5 seconds and at the limit.
  constexpr int asked = 6 + 118 + 1;
  for (int i = 0; i < asked; ++i) expect("TN1", two);
  expect("TN2", none);
  const auto begin = clock.steady_now();
  drain({"TN1", "TN2"});
  EXPECT_EQ(clock.steady_now() - begin, drain_limit);
  EXPECT_EQ(log.claim_containing("A log backup of TN1 is not recorded yet, the Backint job is j-1: it failed; the "
                                 "restore goes on\n",
                                 LM_WARNING),
            1U);
  EXPECT_EQ(log.claim_containing("the Backint job is j-2: it waits", LM_WARNING), 1U);
}

TEST_F(Log_Queue_Drain_Test, A_Stop_Ends_The_Wait) {
  expect_system();
  expect("TN1", two);
  clock.at(std::chrono::milliseconds(100), [this] { stop.set(); });
  drain({"TN1", "TN2"});
  EXPECT_LE(clock.sleeps().size(), 1U);
}

TEST_F(Log_Queue_Drain_Test, Without_An_Answer_The_Restore_Goes_On) {
  server.expect("GET", resource_path, "", 404, R"({"error":{"code":"not_found","message":"no such resource"}})");
  server.expect("POST", drain_path, body("TN1", "PRD"), 400,
                R"({"error":{"code":"bad_request","message":"not like this"}})");
  drain({"TN1"});
  EXPECT_EQ(log.claim_containing("Whether log backups of TN1 wait to be recorded is not known", LM_WARNING), 1U);
}
