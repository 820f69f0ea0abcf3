#include <future>
#include <latch>

#include "unit/backupd/fake_agent.h"

using namespace backupd_test;

namespace {

constexpr char host_c[] = "66666666-6666-4666-8666-666666666666";
constexpr char method[] = "hana.instance.control";

std::string to(const std::string& host, const std::string& more = "", const std::string& name = method) {
  return R"({"host_uuid":")" + host + R"(","method":")" + name + R"(","params":{"action":"state"})" + more + "}";
}

/// Both hosts have an instance of one system.
struct One_System : Memory_Server {
  One_System() {
    add_instance(host_a);
    add_instance(host_b);
  }
};

/// A request that stays unanswered until it is let go.
class Held_Request {
 public:
  JSON_RPC_Answer operator()() {
    arrived_.set_value();
    released_.wait();
    return good("late");
  }
  void wait_arrived() { arrived_.get_future().wait(); }
  void let_go() { release_.set_value(); }

 private:
  std::promise<void> arrived_;
  std::promise<void> release_;
  std::shared_future<void> released_ = release_.get_future().share();
};

TEST(Agent_Forward, Tells_An_Unknown_Host_From_One_That_Is_Away) {
  One_System server;
  Fake_Agent asking(server, server.agent_key, obedient);
  ASSERT_TRUE(asking.hello(host_a).ok);
  {
    Fake_Agent asked(server, server.other_agent_key, obedient);
    ASSERT_TRUE(asked.hello(host_b).ok);
  }
  while (server.core->agents.is_connected(host_b)) std::this_thread::yield();
  const JSON_RPC_Answer away = asking.call("agent.forward", to(host_b));
  EXPECT_EQ(away.code, JSON_RPC_E_NOT_CONNECTED);
  EXPECT_EQ(away.message, std::string("the agent of the host ") + host_b + " is not connected");
  const JSON_RPC_Answer unknown = asking.call("agent.forward", to(host_c));
  EXPECT_EQ(unknown.code, JSON_RPC_E_NOT_CONNECTED);
  EXPECT_NE(unknown.message.find(std::string("no agent of a host ") + host_c + " was ever seen"), std::string::npos);
}

TEST(Agent_Forward, Hands_An_Error_On_As_It_Is) {
  One_System server;
  Fake_Agent asking(server, server.agent_key, obedient);
  Fake_Agent asked(server, server.other_agent_key, [](const std::string&, const json_spirit::Value&) {
    return JSON_RPC_Answer{false, json_spirit::Object{{"state", 2}}, -32050, "the instance is away"};
  });
  ASSERT_TRUE(asked.hello(host_b).ok);
  const JSON_RPC_Answer answer = asking.call("agent.forward", to(host_b));
  EXPECT_FALSE(answer.ok);
  EXPECT_EQ(answer.code, -32050);
  EXPECT_EQ(answer.message, "the instance is away");
  EXPECT_EQ(json_spirit::dump_json(answer.result), R"({"state":2})");
}

TEST(Agent_Forward, Lets_An_Agent_Ask_Itself) {
  One_System server;
  Fake_Agent agent(server, server.agent_key,
                   [](const std::string& name, const json_spirit::Value&) { return good("did " + name); });
  ASSERT_TRUE(agent.hello(host_a).ok);
  EXPECT_EQ(agent.call("agent.forward", to(host_a)).result.get_str(), std::string("did ") + method);
}

TEST(Agent_Forward, Waits_As_Long_As_It_Is_Asked_To_Within_Its_Bounds) {
  struct Row {
    const char* timeout;
    std::chrono::seconds waited;
  };
  for (const Row& row :
       {Row{"", std::chrono::seconds(60)}, Row{R"(,"timeout":7)", std::chrono::seconds(7)},
        Row{R"(,"timeout":3600)", std::chrono::seconds(3600)},
        Row{R"(,"timeout":99999999)", std::chrono::seconds(3600)}, Row{R"(,"timeout":0)", std::chrono::seconds(1)}}) {
    One_System server;
    Held_Request held;
    Fake_Agent asking(server, server.agent_key, obedient);
    Fake_Agent asked(server, server.other_agent_key,
                     [&](const std::string&, const json_spirit::Value&) { return held(); });
    ASSERT_TRUE(asked.hello(host_b).ok);
    server.clock.cut_waits_of(row.waited);
    const JSON_RPC_Answer answer = asking.call("agent.forward", to(host_b, row.timeout));
    EXPECT_EQ(answer.code, JSON_RPC_E_TIMEOUT) << row.timeout << ": " << answer.message;
    held.let_go();
  }
  One_System server;
  Fake_Agent asking(server, server.agent_key, obedient);
  for (const char* wrong : {R"(,"timeout":-1)", R"(,"timeout":"60")"})
    EXPECT_EQ(asking.call("agent.forward", to(host_b, wrong)).code, JSON_RPC_E_INVALID_PARAMS) << wrong;
}

TEST(Agent_Forward, Answers_At_Once_When_The_Called_Agent_Goes_Away) {
  One_System server;
  Held_Request held;
  Fake_Agent asking(server, server.agent_key, obedient);
  Fake_Agent asked(server, server.other_agent_key,
                   [&](const std::string&, const json_spirit::Value&) { return held(); });
  ASSERT_TRUE(asking.hello(host_a).ok);
  ASSERT_TRUE(asked.hello(host_b).ok);
  std::future<JSON_RPC_Answer> answer =
      std::async(std::launch::async, [&] { return asking.call("agent.forward", to(host_b, R"(,"timeout":3600)")); });
  held.wait_arrived();
  Fake_Agent again(server, server.other_agent_key, obedient);
  ASSERT_TRUE(again.hello(host_b).ok) << "its new connection closes the old one";
  EXPECT_EQ(answer.get().code, JSON_RPC_E_NOT_CONNECTED);
  EXPECT_TRUE(asking.call("agent.forward", to(host_b)).ok);
  held.let_go();
}

TEST(Agent_Forward, Gives_Calls_Up_When_The_Agent_That_Asked_Goes_Away) {
  One_System server;
  Held_Request held;
  Fake_Agent asked(server, server.other_agent_key, [&](const std::string& name, const json_spirit::Value&) {
    return name == method ? held() : good("free");
  });
  ASSERT_TRUE(asked.hello(host_b).ok);
  {
    Fake_Agent asking(server, server.agent_key, obedient);
    ASSERT_TRUE(asking.hello(host_a).ok);
    std::thread caller([&] {
      EXPECT_EQ(asking.call("agent.forward", to(host_b, R"(,"timeout":3600)")).code, JSON_RPC_E_NOT_CONNECTED);
    });
    held.wait_arrived();
    asking.leave();
    caller.join();
  }
  // Nothing of it is left although the other agent is still at work: its place is free, and it may come again.
  while (server.core->agents.is_connected(host_a)) std::this_thread::yield();
  Fake_Agent again(server, server.agent_key, obedient);
  ASSERT_TRUE(again.hello(host_a).ok);
  EXPECT_EQ(again.call("agent.forward", to(host_b, "", "hana.instance.list")).result.get_str(), "free");
  held.let_go();
}

TEST(Agent_Forward, Lets_Two_Agents_Ask_Each_Other_At_The_Same_Moment) {
  constexpr int each = 4;
  One_System server;
  // Nobody answers before every request has arrived: all of them are under way at once.
  std::latch all_arrived(2 * each);
  const auto answers = [&](const std::string&, const json_spirit::Value&) {
    all_arrived.arrive_and_wait();
    return good(1);
  };
  Fake_Agent a(server, server.agent_key, answers);
  Fake_Agent b(server, server.other_agent_key, answers);
  ASSERT_TRUE(a.hello(host_a).ok);
  ASSERT_TRUE(b.hello(host_b).ok);
  std::vector<std::future<bool>> calls;
  for (int i = 0; i < each; ++i) {
    calls.push_back(std::async(std::launch::async, [&] { return a.call("agent.forward", to(host_b)).ok; }));
    calls.push_back(std::async(std::launch::async, [&] { return b.call("agent.forward", to(host_a)).ok; }));
  }
  for (std::future<bool>& call : calls) EXPECT_TRUE(call.get());
}

TEST(Agent_Forward, Lets_An_Agent_Ask_Back_While_It_Is_Asked) {
  One_System server;
  Fake_Agent a(server, server.agent_key, [](const std::string&, const json_spirit::Value&) { return good("from a"); });
  Fake_Agent* asked = nullptr;
  Fake_Agent b(server, server.other_agent_key,
               [&](const std::string&, const json_spirit::Value&) { return asked->call("agent.forward", to(host_a)); });
  asked = &b;
  ASSERT_TRUE(a.hello(host_a).ok);
  ASSERT_TRUE(b.hello(host_b).ok);
  const JSON_RPC_Answer answer = a.call("agent.forward", to(host_b));
  ASSERT_TRUE(answer.ok) << answer.message;
  EXPECT_EQ(answer.result.get_str(), "from a");
}

TEST(Agent_Forward, Keeps_The_Way_Free_For_Reports_While_An_Agent_Waits_For_Others) {
  constexpr int most = 6;
  One_System server;
  std::latch arrived(most);
  std::promise<void> release;
  const std::shared_future<void> released = release.get_future().share();
  net::Net_Error error;
  Fake_Agent asking(server, server.agent_key, obedient);
  const auto socket =
      server.network->open_web_socket({false, "backupd.test", 9443, ""}, "/q5/rpc",
                                      secure_string(server.other_agent_key), std::chrono::seconds(10), error);
  JSON_RPC_Peer asked(
      *socket,
      [&](const std::string&, const json_spirit::Value&) {
        arrived.count_down();
        released.wait();
        return good(1);
      },
      most);
  std::thread reader([&] { asked.serve(); });
  ASSERT_TRUE(
      asked.call("agent.hello", json_spirit::Object{{"host_uuid", host_b}, {"name", "hana2"}}, std::chrono::seconds(10))
          .ok);
  std::vector<std::future<bool>> calls;
  for (int i = 0; i < most; ++i)
    calls.push_back(std::async(std::launch::async, [&] { return asking.call("agent.forward", to(host_b)).ok; }));
  arrived.wait();
  const JSON_RPC_Answer refused = asking.call("agent.forward", to(host_b));
  EXPECT_EQ(refused.code, JSON_RPC_E_SERVER);
  EXPECT_NE(refused.message.find("6 answers of other agents already"), std::string::npos) << refused.message;
  EXPECT_TRUE(asking.call("job.report", R"({"activities":[{"id":")" + uuid_of(70) + R"(","state":3}]})").ok);
  release.set_value();
  for (std::future<bool>& call : calls) EXPECT_TRUE(call.get());
  EXPECT_TRUE(asking.call("agent.forward", to(host_b)).ok) << "the places are free again";
  asked.close();
  reader.join();
}

}  // namespace
