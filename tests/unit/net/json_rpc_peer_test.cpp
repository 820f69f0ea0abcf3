#include "net/json_rpc_peer.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>

#include "platform/clock.h"
#include "support/log_capture.h"
#include "support/memory_web_socket.h"

namespace {

using namespace std::chrono_literals;
using json_spirit::Object;
using json_spirit::Value;

constexpr std::chrono::seconds patience{20};

JSON_RPC_Answer good(Value result) {
  JSON_RPC_Answer answer;
  answer.ok = true;
  answer.result = std::move(result);
  return answer;
}

/// One peer with its reader; the test speaks the other side by hand.
class Json_Rpc_Peer : public testing::Test {
 protected:
  support::Log_Capture log;
  std::pair<std::unique_ptr<net::Web_Socket>, std::unique_ptr<net::Web_Socket>> line = support::make_web_socket_pair();
  net::Web_Socket& far = *line.second;
  net::Net_Error error;
  std::unique_ptr<JSON_RPC_Peer> peer;
  std::thread reader;

  void start(JSON_RPC_Peer::Handler handler, unsigned workers = 2) {
    peer = std::make_unique<JSON_RPC_Peer>(*line.first, std::move(handler), workers);
    reader = std::thread([this] { peer->serve(); });
  }
  void TearDown() override {
    if (!peer) return;
    peer->close();
    reader.join();
  }
  std::string next() {
    std::string text;
    EXPECT_TRUE(far.receive(text, error)) << error.text;
    return text;
  }
  void say(const std::string& text) { ASSERT_TRUE(far.send(text, error)); }
};

TEST_F(Json_Rpc_Peer, Answers_A_Request_With_Its_Id) {
  start([](const std::string& method, const Value& params) { return good(Object{{"m", method}, {"p", params}}); });
  say(R"({"jsonrpc":"2.0","id":"x","method":"a.b","params":{"k":null}})");
  EXPECT_EQ(next(), R"({"jsonrpc":"2.0","id":"x","result":{"m":"a.b","p":{"k":null}}})");
}

TEST_F(Json_Rpc_Peer, Sends_The_Handlers_Error) {
  start([](const std::string&, const Value&) {
    JSON_RPC_Answer answer;
    answer.code = 12;
    answer.message = "busy";
    return answer;
  });
  say(R"({"jsonrpc":"2.0","id":1,"method":"m"})");
  EXPECT_EQ(next(), R"({"jsonrpc":"2.0","id":1,"error":{"code":12,"message":"busy"}})");
}

TEST_F(Json_Rpc_Peer, A_Handler_That_Throws_Is_An_Internal_Error) {
  start([](const std::string&, const Value&) -> JSON_RPC_Answer { throw std::runtime_error("broken"); });
  say(R"({"jsonrpc":"2.0","id":1,"method":"m"})");
  EXPECT_EQ(next(), R"({"jsonrpc":"2.0","id":1,"error":{"code":-32603,"message":"broken"}})");
  EXPECT_TRUE(log.claim("JSON-RPC method m failed: broken\n")) << log.dump();
}

TEST_F(Json_Rpc_Peer, An_Error_Keeps_Its_Data) {
  start({});
  std::thread caller([&] {
    const JSON_RPC_Answer answer = peer->call("m", Value(), patience);
    EXPECT_FALSE(answer.ok);
    EXPECT_EQ(answer.code, 12);
    EXPECT_EQ(answer.result, Value(Object{{"state", 2}}));
  });
  next();
  say(R"({"jsonrpc":"2.0","id":1,"error":{"code":12,"message":"busy","data":{"state":2}}})");
  caller.join();
}

TEST_F(Json_Rpc_Peer, A_Call_Ends_When_Its_Group_Is_Given_Up_And_Others_Go_On) {
  start({});
  JSON_RPC_Call_Group group;
  std::thread caller([&] { EXPECT_EQ(peer->call("m", Value(), patience, &group).code, JSON_RPC_E_NOT_CONNECTED); });
  next();
  std::thread other([&] { EXPECT_TRUE(peer->call("n", Value(), patience).ok); });
  next();
  group.give_up();
  caller.join();
  say(R"({"jsonrpc":"2.0","id":1,"result":1})");  // too late, nobody minds
  say(R"({"jsonrpc":"2.0","id":2,"result":1})");
  other.join();
  EXPECT_EQ(peer->call("m", Value(), patience, &group).code, JSON_RPC_E_NOT_CONNECTED) << "it stays given up";
}

TEST_F(Json_Rpc_Peer, A_Notification_Is_Handled_And_Not_Answered) {
  std::atomic<int> seen{0};
  start(
      [&](const std::string& method, const Value&) {
        if (method == "n") ++seen;
        return good(seen.load());
      },
      1);
  say(R"({"jsonrpc":"2.0","method":"n"})");
  say(R"({"jsonrpc":"2.0","id":2,"method":"m"})");
  EXPECT_EQ(next(), R"({"jsonrpc":"2.0","id":2,"result":1})");
}

TEST_F(Json_Rpc_Peer, A_Malformed_Message_Is_Refused_And_The_Next_One_Served) {
  start([](const std::string&, const Value&) { return good(1); });
  say("nonsense");
  EXPECT_EQ(next().substr(0, 53), R"({"jsonrpc":"2.0","id":null,"error":{"code":-32700,"me)");
  say(R"({"jsonrpc":"2.0","id":3,"method":7})");
  EXPECT_EQ(next(), R"({"jsonrpc":"2.0","id":3,"error":{"code":-32600,"message":"\"method\" is not a string"}})");
  say(R"({"jsonrpc":"2.0","id":4,"method":"m"})");
  EXPECT_EQ(next(), R"({"jsonrpc":"2.0","id":4,"result":1})");
}

TEST_F(Json_Rpc_Peer, A_Slow_Request_Holds_Neither_Answers_Nor_Other_Requests) {
  platform::Wait_Event release;
  start([&](const std::string& method, const Value&) {
    if (method == "slow") (void)release.wait_real(patience);
    return good(method);
  });
  say(R"({"jsonrpc":"2.0","id":1,"method":"slow"})");
  say(R"({"jsonrpc":"2.0","id":2,"method":"fast"})");
  EXPECT_EQ(next(), R"({"jsonrpc":"2.0","id":2,"result":"fast"})");
  std::thread caller([&] { EXPECT_TRUE(peer->call("ask", {}, patience).ok); });
  EXPECT_EQ(next(), R"({"jsonrpc":"2.0","id":1,"method":"ask"})");
  say(R"({"jsonrpc":"2.0","id":1,"result":true})");
  caller.join();
  release.set();
  EXPECT_EQ(next(), R"({"jsonrpc":"2.0","id":1,"result":"slow"})");
}

TEST_F(Json_Rpc_Peer, Answers_Find_Their_Callers_In_Any_Order) {
  start([](const std::string&, const Value&) { return good(1); });
  std::thread first([&] { EXPECT_EQ(peer->call("a", {}, patience).result, Value("for a")); });
  const std::string a = next();
  std::thread second([&] { EXPECT_EQ(peer->call("b", {}, patience).message, "for b"); });
  const std::string b = next();
  EXPECT_EQ(a, R"({"jsonrpc":"2.0","id":1,"method":"a"})");
  EXPECT_EQ(b, R"({"jsonrpc":"2.0","id":2,"method":"b"})");
  say(R"({"jsonrpc":"2.0","id":99,"result":"nobody's"})");
  say(R"({"jsonrpc":"2.0","id":"1","result":"not a number"})");
  say(R"({"jsonrpc":"2.0","id":2,"error":{"code":3,"message":"for b"}})");
  say(R"({"jsonrpc":"2.0","id":1,"result":"for a"})");
  first.join();
  second.join();
}

TEST_F(Json_Rpc_Peer, A_Call_Without_An_Answer_Ends_In_Time) {
  start([](const std::string&, const Value&) { return good(1); });
  const JSON_RPC_Answer answer = peer->call("m", {}, 20ms);
  EXPECT_FALSE(answer.ok);
  EXPECT_EQ(answer.code, JSON_RPC_E_TIMEOUT);
  EXPECT_EQ(answer.message, "no answer to m in time");
  say(R"({"jsonrpc":"2.0","id":1,"result":"late"})");  // nobody waits any more
}

TEST_F(Json_Rpc_Peer, The_End_Of_The_Connection_Ends_Every_Call) {
  start([](const std::string&, const Value&) { return good(1); });
  std::thread caller([&] { EXPECT_EQ(peer->call("m", {}, patience).code, JSON_RPC_E_NOT_CONNECTED); });
  (void)next();
  far.close();
  caller.join();
  EXPECT_EQ(peer->call("m", {}, patience).code, JSON_RPC_E_NOT_CONNECTED);
}

TEST_F(Json_Rpc_Peer, Sends_A_Notification) {
  start([](const std::string&, const Value&) { return good(1); });
  peer->notify("n", Object{{"a", 1}});
  EXPECT_EQ(next(), R"({"jsonrpc":"2.0","method":"n","params":{"a":1}})");
}

TEST_F(Json_Rpc_Peer, A_Flood_Of_Requests_Is_Refused_And_Not_Kept) {
  // Shared with the worker, which goes on with what is queued after this function has returned.
  const auto release = std::make_shared<platform::Wait_Event>();
  start(
      [release](const std::string&, const Value&) {
        (void)release->wait_real(patience);
        return good(1);
      },
      1);
  constexpr int flood = 1100;
  for (int i = 1; i <= flood; ++i) say(R"({"jsonrpc":"2.0","id":)" + std::to_string(i) + R"(,"method":"m"})");
  EXPECT_NE(next().find("too many requests are waiting"), std::string::npos);
  release->set();
}

TEST_F(Json_Rpc_Peer, Shows_The_Handler_The_Whole_Message) {
  peer = std::make_unique<JSON_RPC_Peer>(
      *line.first,
      [](const JSON_RPC_Message& message) {
        return good(Object{{"kind", static_cast<int>(message.kind)}, {"requester", message.requester}});
      },
      1, JSON_RPC_Peer::Side_Lane{});
  reader = std::thread([this] { peer->serve(); });
  say(R"({"jsonrpc":"2.0","method":"n"})");
  say(R"({"jsonrpc":"2.0","id":1,"method":"m","requester":{"role":"viewer"}})");
  EXPECT_EQ(next(), R"({"jsonrpc":"2.0","id":1,"result":{"kind":1,"requester":{"role":"viewer"}}})");
}

TEST_F(Json_Rpc_Peer, Says_In_Whose_Name_It_Asks) {
  start({});
  std::thread caller([&] { (void)peer->call("m", Object(), patience, nullptr, Object{{"role", "agent"}}); });
  EXPECT_EQ(next(), R"({"jsonrpc":"2.0","id":1,"method":"m","params":{},"requester":{"role":"agent"}})");
  say(R"({"jsonrpc":"2.0","id":1,"result":1})");
  caller.join();
}

TEST_F(Json_Rpc_Peer, A_Side_Lane_Holds_Up_Nobody_Else) {
  platform::Wait_Event release;
  peer = std::make_unique<JSON_RPC_Peer>(
      *line.first,
      [&](const JSON_RPC_Message& message) {
        if (message.method == "side") (void)release.wait_real(patience);
        return good(message.method);
      },
      1, JSON_RPC_Peer::Side_Lane{[](const JSON_RPC_Message& message) { return message.method == "side"; }, 1});
  reader = std::thread([this] { peer->serve(); });
  for (int i = 1; i <= 3; ++i) say(R"({"jsonrpc":"2.0","id":)" + std::to_string(i) + R"(,"method":"side"})");
  say(R"({"jsonrpc":"2.0","id":4,"method":"main"})");
  EXPECT_EQ(next(), R"({"jsonrpc":"2.0","id":4,"result":"main"})");
  release.set();
  for (int i = 1; i <= 3; ++i)
    EXPECT_EQ(next(), R"({"jsonrpc":"2.0","id":)" + std::to_string(i) + R"(,"result":"side"})") << "in their order";
}

}  // namespace
