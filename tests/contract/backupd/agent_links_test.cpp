#include <gtest/gtest.h>
#include <sys/wait.h>

#include <chrono>
#include <csignal>
#include <future>
#include <memory>
#include <thread>

#include "agent/backupd_client/json_rpc_forward.h"
#include "agentd/backupd_link/server_link.h"
#include "contract/backupd/running_server.h"
#include "support/log_capture.h"

namespace {

constexpr char host_a[] = "11111111-1111-4111-8111-111111111111";
constexpr char host_b[] = "22222222-2222-4222-8222-222222222222";
constexpr char method[] = "hana.instance.control";
constexpr std::chrono::seconds limit{30};
constexpr std::chrono::seconds revocation_limit{120};

/// A host's link to the server, as the agent keeps it.
class Agent {
 public:
  Agent(const contract::Running_Server& server, const std::string& host, agentd::Server_Link::Handler handler)
      : host_(host) {
    configuration_.server_url = server.url();
    configuration_.host_uuid = host;
    configuration_.access_key = secure_string(server.make_key("agent", host));
    EXPECT_TRUE(net::parse_endpoint(configuration_.server_url, configuration_.endpoint));
    register_instance();
    link_ = std::make_unique<agentd::Server_Link>(configuration_, std::move(handler), [this] { connected_.set(); });
    link_->start();
  }

  void greet() {
    ASSERT_TRUE(platform::Clock::current().wait_for(connected_, limit));
    const JSON_RPC_Answer answer =
        link_->call("agent.hello", json_spirit::Object{{"host_uuid", host_}, {"name", "hana"}}, limit);
    ASSERT_TRUE(answer.ok) << answer.message;
  }
  /// As the module asks another host, with its own time limits.
  JSON_RPC_Answer ask(const std::string& host, const std::string& name = method) {
    const json_spirit::Object envelope{
        {"host_uuid", host},
        {"method", name},
        {"params", json_spirit::Object{{"from", host_}, {"sid", "HDB"}, {"target_sid", "HDB"}}},
        {"timeout", 3600}};
    return link_->call("agent.forward", envelope, std::chrono::hours(1));
  }
  agentd::Server_Link& link() { return *link_; }

 private:
  /// All hosts have an instance of one system, or they may not ask each other.
  void register_instance() {
    net::Net_Error error;
    const auto connection = net::Http_Transport::current().connect(configuration_.endpoint, limit, error);
    ASSERT_NE(connection, nullptr) << error.text;
    net::Http_Request request;
    request.method = "POST";
    request.target = "/q5/r/v2/resources";
    request.headers.set_bearer(configuration_.access_key);
    request.headers.set("Content-Type", "application/json");
    request.body = R"({"name":"HDB_HDB00","type":"hana","extended_attrs":{"sid":"HDB","landscape_id":"land-1"}})";
    net::Http_Response response;
    ASSERT_TRUE(connection->exchange(request, response, limit, error)) << error.text;
    ASSERT_EQ(response.status, 201U) << response.body;
  }

  const std::string host_;
  Agent_Configuration configuration_;
  platform::Wait_Event connected_;
  std::unique_ptr<agentd::Server_Link> link_;
};

JSON_RPC_Answer good(json_spirit::Value result) { return {true, std::move(result), 0, {}}; }

class Agent_Links : public ::testing::Test {
 protected:
  Agent_Links() { server.start(); }
  ~Agent_Links() override { EXPECT_EQ(server.end(SIGTERM), 0); }

  support::Log_Capture log;
  contract::Running_Server server;
};

TEST_F(Agent_Links, Two_Agents_Ask_Each_Other_Over_Real_Sockets) {
  const auto echo = [](const JSON_RPC_Message& message) {
    if (message.method == method) return good(message.params);
    return JSON_RPC_Answer{false, {}, -32050, "not today"};
  };
  Agent a(server, host_a, echo);
  Agent b(server, host_b, echo);
  a.greet();
  b.greet();
  std::vector<std::future<JSON_RPC_Answer>> answers;
  constexpr int each = 6;
  for (int i = 0; i < each; ++i) {
    answers.push_back(std::async(std::launch::async, [&] { return a.ask(host_b); }));
    answers.push_back(std::async(std::launch::async, [&] { return b.ask(host_a); }));
  }
  for (std::size_t i = 0; i < answers.size(); ++i) {
    const JSON_RPC_Answer answer = answers[i].get();
    ASSERT_TRUE(answer.ok) << answer.message;
    EXPECT_EQ(json_spirit::dump_json(answer.result),
              std::string(R"({"from":")") + (i % 2 == 0 ? host_a : host_b) + R"(","sid":"HDB","target_sid":"HDB"})");
  }
  EXPECT_TRUE(a.ask(host_a).ok) << "itself";
  const JSON_RPC_Answer refused = a.ask(host_b, "hana.file.download");
  EXPECT_EQ(refused.code, -32050);
  EXPECT_EQ(refused.message, "not today");
  EXPECT_EQ(a.ask(host_b, "job.start").code, JSON_RPC_E_INVALID_PARAMS);
}

TEST_F(Agent_Links, A_Call_Ends_At_Once_When_The_Called_Agent_Goes) {
  platform::Wait_Event arrived;
  platform::Wait_Event released;
  Agent a(server, host_a, [](const JSON_RPC_Message&) { return good(1); });
  Agent b(server, host_b, [&](const JSON_RPC_Message&) {
    arrived.set();
    (void)platform::Clock::current().wait_for(released, limit);
    return good(1);
  });
  a.greet();
  b.greet();
  std::future<JSON_RPC_Answer> answer = std::async(std::launch::async, [&] { return a.ask(host_b); });
  ASSERT_TRUE(platform::Clock::current().wait_for(arrived, limit));
  b.link().reconnect();
  EXPECT_EQ(answer.get().code, JSON_RPC_E_NOT_CONNECTED);
  released.set();
}

TEST_F(Agent_Links, A_Revoked_Key_Ends_The_Connection_Of_Its_Agent_Alone) {
  const auto answer = [](const JSON_RPC_Message&) { return good(1); };
  Agent a(server, host_a, answer);
  Agent b(server, host_b, answer);
  a.greet();
  b.greet();
  // The first key is that of the first agent.
  std::string output;
  ASSERT_EQ(server.run({"key", "revoke", "1"}, output), 0) << output;
  // Until the server has looked: no request to the agent gets through from then on.
  const auto deadline = std::chrono::steady_clock::now() + revocation_limit;
  JSON_RPC_Answer asked = b.ask(host_a);
  while (asked.ok && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    asked = b.ask(host_a);
  }
  EXPECT_EQ(asked.code, JSON_RPC_E_NOT_CONNECTED) << asked.message;
  EXPECT_FALSE(a.link().call("job.def.list", json_spirit::Object(), limit).ok) << "it cannot come back";
  EXPECT_TRUE(b.ask(host_b).ok);
}

}  // namespace
