#include "agentd/restore/staged_elsewhere.h"

#include <gtest/gtest.h>

#include <future>
#include <map>

#include "agent/backupd_client/json_rpc_forward.h"
#include "support/fake_http_transport.h"
#include "support/log_capture.h"
#include "support/temp_root.h"
#include "support/virtual_clock.h"

using namespace agentd;

namespace {

constexpr const char* host = "6f9619ff-8b86-4d01-b42d-00cf4fc964ff";
constexpr const char* resources = "/q5/r/v2/resources?limit=10000";

/// The other hosts, as backupd's forwards reach them.
class Other_Hosts : public Agent_Channel {
 public:
  JSON_RPC_Answer call(const std::string& method, const json_spirit::Value& params, std::chrono::nanoseconds) override {
    if (asked.empty()) first_call.set_value();
    asked.push_back(method + " " + json_spirit::dump_json(params));
    std::string uuid;
    (void)json_spirit::object_get(params.get_obj(), "host_uuid", uuid);
    const auto found = refusals.find(uuid);
    if (found != refusals.end()) return {false, {}, found->second, "it says no"};
    return {true, json_spirit::Object{{"removed", 2}}, 0, {}};
  }
  std::vector<std::string> asked;
  std::promise<void> first_call;
  std::map<std::string, int> refusals;
};

std::string request_to(const std::string& uuid, const std::string& database = "TN1") {
  return R"(agent.forward {"host_uuid":")" + uuid +
         R"(","method":"staged.remove","params":{"origin_sid":"PRD","origin_database":"T0","target_sid":"HDB",)" +
         R"("target_database":")" + database + R"("},"timeout":60})";
}

std::string instance(const std::string& uuid, const std::string& sid = "HDB") {
  return R"({"host_uuid":")" + uuid + R"(","extended_attrs":{"sid":")" + sid + R"("}})";
}

class Staged_Elsewhere_Test : public ::testing::Test {
 protected:
  Staged_Elsewhere_Test() {
    root.write(
        "/etc/opt/tarvex/dorsal3/agent.toml",
        std::string("server_url = \"http://127.0.0.1:9000\"\nhost_uuid = \"") + host + "\"\naccess_key = \"k\"\n",
        0600);
  }
  /// backupd is asked for its resources once, and has one with these instances.
  void expect_instances(const std::string& instances) {
    server.expect("GET", resources, "", 200, R"({"total":1,"rows":[{"uuid":"r","instances":[)" + instances + "]}]}");
  }
  void restore_over(const std::string& database = "TN1") { elsewhere.restore_over({{"PRD", "T0", "HDB", database}}); }
  /// The next round that its thread begins by itself.
  void work_after_a_pause() {
    clock.advance(Staged_Elsewhere::pause);
    elsewhere.work();
  }
  /// Further rounds: nothing more is asked.
  void expect_settled() {
    const std::size_t before = channel.asked.size();
    elsewhere.work();
    EXPECT_EQ(channel.asked.size(), before);
  }

  support::Temp_Root root;
  support::Log_Capture log;
  support::Virtual_Clock clock;
  support::Scripted_Http_Handler server;
  support::Fake_Http_Transport transport{server};
  Other_Hosts channel;
  Scoped_Agent_Channel scope{channel};
  bool connected = true;
  bool in_use = false;
  Staged_Elsewhere elsewhere{host, {[this] { return connected; }, [this](const Staged_Name&) { return in_use; }}};
};

}  // namespace

TEST_F(Staged_Elsewhere_Test, Each_Other_Host_Of_The_System_Is_Asked_Once) {
  expect_instances(instance("h-3") + "," + instance(host) + "," + instance("h-2") + "," + instance("h-2") + "," +
                   instance("h-4", "QAS"));
  restore_over();
  elsewhere.work();
  EXPECT_EQ(channel.asked, (std::vector<std::string>{request_to("h-2"), request_to("h-3")}));
  EXPECT_TRUE(log.has_containing("The host h-2 has removed what the restore of TN1 staged there"));
  expect_settled();
}

TEST_F(Staged_Elsewhere_Test, A_System_Of_The_Same_Name_That_This_Host_Is_Not_In_Is_None_Of_Its) {
  server.expect("GET", resources, "", 200,
                R"({"total":2,"rows":[{"instances":[)" + instance("h-2") + R"(]},{"instances":[)" + instance(host) +
                    "," + instance("h-3") + R"(]},{"instances":[)" + instance("h-4") + "," + instance(host, "QAS") +
                    "]},7]}");
  restore_over();
  elsewhere.work();
  EXPECT_EQ(channel.asked, std::vector<std::string>{request_to("h-3")});
}

TEST_F(Staged_Elsewhere_Test, A_System_On_One_Host_Asks_Nobody) {
  expect_instances(instance(host));
  restore_over();
  elsewhere.work();
  EXPECT_TRUE(channel.asked.empty());
  expect_settled();
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(Staged_Elsewhere_Test, A_Host_That_Is_Away_Is_Named_Once_And_Asked_Again_Until_It_Is_Back) {
  expect_instances(instance(host) + "," + instance("h-2") + "," + instance("h-3"));
  channel.refusals["h-2"] = JSON_RPC_E_NOT_CONNECTED;
  restore_over();
  elsewhere.work();
  elsewhere.work();
  EXPECT_EQ(channel.asked, (std::vector<std::string>{request_to("h-2"), request_to("h-3"), request_to("h-2")}));
  EXPECT_EQ(log.claim_containing("The host h-2 keeps what the restore of TN1 staged there", LM_WARNING), 1U)
      << log.dump();
  EXPECT_TRUE(log.has_containing("its agent's next start removes it, unless it comes back within minutes"));
  channel.refusals.clear();
  elsewhere.work();
  EXPECT_TRUE(log.has_containing("The host h-2 has removed what the restore of TN1 staged there"));
  expect_settled();
}

TEST_F(Staged_Elsewhere_Test, A_Host_That_Stays_Away_Is_Given_Up) {
  expect_instances(instance(host) + "," + instance("h-2"));
  channel.refusals["h-2"] = JSON_RPC_E_NOT_CONNECTED;
  restore_over();
  for (unsigned i = 0; i < Staged_Elsewhere::tries; ++i) work_after_a_pause();
  EXPECT_EQ(channel.asked.size(), Staged_Elsewhere::tries);
  expect_settled();
}

TEST_F(Staged_Elsewhere_Test, Ends_Of_Other_Restores_Use_No_Minute_Of_A_Host_That_Is_Away) {
  expect_instances(instance(host) + "," + instance("h-2"));
  channel.refusals["h-2"] = JSON_RPC_E_NOT_CONNECTED;
  restore_over();
  for (unsigned i = 0; i < 3 * Staged_Elsewhere::tries; ++i) {
    elsewhere.work();
    clock.advance(Staged_Elsewhere::pause / (4 * Staged_Elsewhere::tries));
  }
  const std::size_t before = channel.asked.size();
  for (unsigned i = 0; i + 1 < Staged_Elsewhere::tries; ++i) work_after_a_pause();
  EXPECT_EQ(channel.asked.size(), before + Staged_Elsewhere::tries - 1);
  expect_settled();
}

TEST_F(Staged_Elsewhere_Test, A_Refusal_That_Will_Not_Pass_Is_Not_Tried_Again) {
  for (const int code : {JSON_RPC_E_INVALID_PARAMS, JSON_RPC_E_METHOD_NOT_FOUND}) {
    expect_instances(instance(host) + "," + instance("h-2"));
    channel.refusals["h-2"] = code;
    const std::size_t before = channel.asked.size();
    restore_over();
    elsewhere.work();
    EXPECT_EQ(channel.asked.size(), before + 1);
    expect_settled();
  }
  EXPECT_EQ(log.claim_containing("it says no (code -32602); its agent's next start removes it\n", LM_WARNING), 1U)
      << log.dump();
}

TEST_F(Staged_Elsewhere_Test, What_Is_Over_While_Backupd_Is_Away_Waits_For_It) {
  connected = false;
  restore_over();
  elsewhere.work();
  connected = true;
  server.expect("GET", resources, "", 503, R"({"error":{"code":"unavailable","message":"not now"}})");
  server.expect("GET", resources, "", 503, R"({"error":{"code":"unavailable","message":"not now"}})");
  elsewhere.work();
  elsewhere.work();
  EXPECT_EQ(log.claim_containing("The other hosts of HDB keep what a restore staged there", LM_WARNING), 1U)
      << log.dump();
  EXPECT_TRUE(channel.asked.empty());
  expect_instances(instance(host) + "," + instance("h-2"));
  elsewhere.work();
  EXPECT_EQ(channel.asked, std::vector<std::string>{request_to("h-2")});
}

TEST_F(Staged_Elsewhere_Test, Backupd_That_Never_Tells_The_Hosts_Is_Asked_So_Often_And_No_More) {
  for (unsigned i = 0; i < Staged_Elsewhere::tries; ++i)
    server.expect("GET", resources, "", 403, R"({"error":{"code":"forbidden","message":"not you"}})");
  restore_over();
  for (unsigned i = 0; i + 1 < Staged_Elsewhere::tries; ++i) work_after_a_pause();
  EXPECT_EQ(log.claim_containing("it is asked again for some minutes", LM_WARNING), 1U) << log.dump();
  work_after_a_pause();
  EXPECT_EQ(log.claim_containing("the next start of their agents removes it", LM_WARNING), 1U) << log.dump();
  // One more request would meet nothing that is expected.
  elsewhere.work();
  EXPECT_TRUE(channel.asked.empty());
}

TEST_F(Staged_Elsewhere_Test, Ends_Of_Other_Restores_Use_No_Minute_In_Which_Backupd_May_Tell_The_Hosts) {
  const auto refuse = [&] {
    server.expect("GET", resources, "", 503, R"({"error":{"code":"unavailable","message":"not now"}})");
  };
  restore_over();
  for (unsigned i = 0; i < 2 * Staged_Elsewhere::tries; ++i) {
    refuse();
    elsewhere.work();
  }
  EXPECT_EQ(log.claim_containing("it is asked again for some minutes", LM_WARNING), 1U) << log.dump();
  for (unsigned i = 0; i + 2 < Staged_Elsewhere::tries; ++i) {
    refuse();
    work_after_a_pause();
  }
  expect_instances(instance(host) + "," + instance("h-2"));
  work_after_a_pause();
  EXPECT_EQ(channel.asked, std::vector<std::string>{request_to("h-2")});
}

TEST_F(Staged_Elsewhere_Test, What_Another_Restore_Uses_Is_Left_Until_Its_End) {
  in_use = true;
  restore_over();
  elsewhere.work();
  EXPECT_TRUE(channel.asked.empty());
  in_use = false;
  expect_instances(instance(host) + "," + instance("h-2"));
  elsewhere.work();
  EXPECT_EQ(channel.asked, std::vector<std::string>{request_to("h-2")});
}

TEST_F(Staged_Elsewhere_Test, Its_Thread_Asks_By_Itself) {
  expect_instances(instance(host) + "," + instance("h-2"));
  elsewhere.start();
  restore_over();
  channel.first_call.get_future().wait();
  elsewhere.stop();
  EXPECT_EQ(channel.asked, std::vector<std::string>{request_to("h-2")});
  elsewhere.stop();
}

TEST_F(Staged_Elsewhere_Test, The_End_Waits_Until_Each_Host_Was_Asked_Once) {
  expect_instances(instance(host) + "," + instance("h-2"));
  channel.refusals["h-2"] = JSON_RPC_E_NOT_CONNECTED;
  const std::chrono::seconds limit(10);
  const auto before = clock.steady_now();
  elsewhere.finish(limit);
  EXPECT_EQ(clock.steady_now(), before) << "nothing is over";
  restore_over();
  elsewhere.finish(limit);
  EXPECT_EQ(clock.steady_now(), before + limit);
  elsewhere.work();
  elsewhere.finish(limit);
  EXPECT_EQ(clock.steady_now(), before + limit);
}

TEST_F(Staged_Elsewhere_Test, The_End_Waits_For_Nothing_Without_Backupd) {
  connected = false;
  restore_over();
  const auto before = clock.steady_now();
  elsewhere.finish(std::chrono::seconds(10));
  EXPECT_EQ(clock.steady_now(), before);
}
