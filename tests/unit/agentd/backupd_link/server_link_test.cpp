#include "agentd/backupd_link/server_link.h"

#include <gtest/gtest.h>

#include <atomic>
#include <mutex>

#include "support/fake_http_transport.h"
#include "support/log_capture.h"
#include "support/temp_root.h"
#include "support/virtual_clock.h"

using namespace agentd;

namespace {

constexpr std::chrono::seconds limit{20};

/// The server's side: greets each socket's messages with an echo and can ask the agent something.
class Rpc_Server : public net::Http_Handler {
 public:
  void handle(net::Server_Exchange& exchange) override {
    net::Http_Response response;
    response.status = 404;
    exchange.respond(response);
  }
  Serve accept_web_socket(const std::string& target, const net::Http_Headers& headers, unsigned& status) override {
    const std::string* key = headers.find("Authorization");
    status = 401;
    if (target != Server_Link::rpc_path || key == nullptr || *key != "Bearer agents-key") return {};
    return [this](net::Web_Socket& socket) {
      JSON_RPC_Peer peer(socket, [](const std::string& method, const json_spirit::Value&) {
        JSON_RPC_Answer answer;
        answer.ok = true;
        answer.result = "server did " + method;
        return answer;
      });
      std::thread asker([&] {
        JSON_RPC_Answer answer = peer.call("instance.probe", nullptr, limit);
        // The next connection may ask while this one ends.
        const std::lock_guard lock(mutex);
        asked = std::move(answer);
        asked_event.set();
      });
      peer.serve();
      asker.join();
    };
  }

  std::mutex mutex;
  JSON_RPC_Answer asked;  ///< guarded by mutex until asked_event is set for the only connection
  platform::Wait_Event asked_event;
};

class Server_Link_Test : public ::testing::Test {
 protected:
  Server_Link_Test() {
    configuration.server_url = "http://127.0.0.1:1";
    configuration.host_uuid = "5c3e2f6a-8f0e-4a3a-9a39-5b3d8a1d1c11";
    configuration.access_key = secure_string("agents-key");
    EXPECT_TRUE(net::parse_endpoint(configuration.server_url, configuration.endpoint));
  }

  support::Temp_Root root;
  support::Log_Capture log;
  Rpc_Server server;
  support::Fake_Http_Transport transport{server};
  Agent_Configuration configuration;
  platform::Wait_Event connected;
  std::atomic<bool> handler_holds{false};
  platform::Wait_Event handled;  ///< a request is at work
  platform::Wait_Event let_go;   ///< it may end
  Server_Link link{configuration,
                   [this](const JSON_RPC_Message& message) {
                     if (handler_holds) {
                       handled.set();
                       (void)let_go.wait_real(3 * limit);
                     }
                     JSON_RPC_Answer answer;
                     answer.ok = true;
                     answer.result = "agent did " + message.method;
                     return answer;
                   },
                   [this] { connected.set(); }};
};

}  // namespace

TEST_F(Server_Link_Test, Requests_Go_Both_Ways_Over_One_Socket) {
  EXPECT_EQ(link.call("x", nullptr, limit).code, JSON_RPC_E_NOT_CONNECTED);
  EXPECT_EQ(link.connection(), 0U);
  link.start();
  ASSERT_TRUE(connected.wait_real(limit)) << log.dump();
  const JSON_RPC_Answer answer = link.call("agent.hello", nullptr, limit);
  ASSERT_TRUE(answer.ok) << answer.message;
  EXPECT_EQ(answer.result.get_str(), "server did agent.hello");
  ASSERT_TRUE(server.asked_event.wait_real(limit));
  EXPECT_EQ(server.asked.result.get_str(), "agent did instance.probe");
  link.stop();
  EXPECT_EQ(link.call("x", nullptr, limit).code, JSON_RPC_E_NOT_CONNECTED);
}

TEST_F(Server_Link_Test, Connects_Again_With_A_New_Number_And_Tells_Of_An_Absence_Once) {
  support::Virtual_Clock clock;
  transport.refuse_connections(1);
  link.start();
  ASSERT_TRUE(connected.wait_real(limit)) << log.dump();
  const std::uint64_t first = link.connection();
  EXPECT_NE(first, 0U);
  connected.reset();
  transport.close_web_sockets();
  ASSERT_TRUE(connected.wait_real(limit)) << log.dump();
  EXPECT_GT(link.connection(), first);
  link.stop();
  EXPECT_EQ(log.claim_containing("Failed to connect to backupd", LM_WARNING), 1U) << log.dump();
}

TEST_F(Server_Link_Test, Connects_Again_While_A_Request_Of_The_Old_Connection_Still_Runs) {
  support::Virtual_Clock clock;
  handler_holds = true;
  link.start();
  ASSERT_TRUE(connected.wait_real(limit)) << log.dump();
  ASSERT_TRUE(handled.wait_real(limit)) << log.dump();
  handler_holds = false;
  connected.reset();
  transport.close_web_sockets();
  ASSERT_TRUE(connected.wait_real(limit)) << log.dump();
  EXPECT_EQ(link.connection(), 2U);
  EXPECT_FALSE(let_go.is_set());
  let_go.set();
  link.stop();
}

TEST_F(Server_Link_Test, Ends_While_It_Waits_For_The_Server) {
  transport.refuse_connections(1000);
  link.start();
  link.stop();
  EXPECT_FALSE(connected.is_set());
}
