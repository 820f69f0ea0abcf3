#include "agentd/method_router.h"

#include <future>
#include <latch>
#include <thread>

#include "agentd/handler_call.h"
#include "agentd/server_link.h"
#include "module_fixture.h"
#include "support/virtual_clock.h"

using namespace agentd;

namespace {

class Method_Router_Test : public Module_Fixture {
 protected:
  Modules modules;
  Method_Router router{modules};
};

/// Answers as it is told.
class Told_Handler : public JSON_RPC_Handler {
 public:
  using Action = std::function<int(const std::shared_ptr<JSON_RPC_Channel>&, const JSON_RPC_Request&)>;
  explicit Told_Handler(Action action) : action_(std::move(action)) {}
  int handle_object(std::weak_ptr<JSON_RPC_Channel> channel, std::shared_ptr<JSON_RPC_Object> object) override {
    return action_(channel.lock(), dynamic_cast<const JSON_RPC_Request&>(*object));
  }

 private:
  Action action_;
};

JSON_RPC_Answer call(Told_Handler::Action action) {
  Told_Handler handler(std::move(action));
  return call_handler(handler, "hana.list.instances", nullptr, std::chrono::seconds(10));
}

}  // namespace

TEST_F(Method_Router_Test, Finds_The_Method_And_Hands_It_The_Params) {
  router.add("echo", [](const json_spirit::Object& params) {
    JSON_RPC_Answer answer;
    answer.ok = true;
    answer.result = params;
    return answer;
  });
  EXPECT_EQ(json_spirit::dump_json(router.call("echo", json_spirit::Object{{"a", 1}}).result), R"({"a":1})");
  EXPECT_EQ(json_spirit::dump_json(router.call("echo", nullptr).result), "{}");
  EXPECT_EQ(router.call("echo", json_spirit::Array()).code, JSON_RPC_E_INVALID_PARAMS);
}

TEST_F(Method_Router_Test, Unknown_Methods_And_Those_Of_Absent_Handlers_Are_Not_Found) {
  EXPECT_EQ(router.call("nonsense", nullptr).code, JSON_RPC_E_METHOD_NOT_FOUND);
  EXPECT_EQ(router.call("hana.instance.control", nullptr).code, JSON_RPC_E_METHOD_NOT_FOUND);
}

TEST_F(Method_Router_Test, Slow_Requests_Leave_Room_For_Quick_Ones) {
  std::latch all_run(Method_Router::slow_at_once);
  std::promise<void> release;
  const std::shared_future<void> released = release.get_future().share();
  const auto good = [](const json_spirit::Object&) { return JSON_RPC_Answer{true, 1, 0, {}}; };
  router.add("quick", good);
  router.add(
      "slow",
      [&](const json_spirit::Object& params) {
        all_run.count_down();
        released.wait();
        return good(params);
      },
      Method_Router::Pace::slow);
  std::vector<std::future<bool>> running;
  for (unsigned i = 0; i < Method_Router::slow_at_once; ++i)
    running.push_back(std::async(std::launch::async, [&] { return router.call("slow", nullptr).ok; }));
  all_run.wait();
  const JSON_RPC_Answer refused = router.call("slow", nullptr);
  EXPECT_EQ(refused.code, JSON_RPC_E_SERVER);
  EXPECT_NE(refused.message.find("busy with 4 long requests"), std::string::npos) << refused.message;
  EXPECT_TRUE(router.call("quick", nullptr).ok);
  release.set_value();
  for (std::future<bool>& one : running) EXPECT_TRUE(one.get());
  router.add("slow", good, Method_Router::Pace::slow);
  EXPECT_TRUE(router.call("slow", nullptr).ok) << "the places are free again";
  static_assert(Method_Router::slow_at_once < Server_Link::workers);
}

TEST_F(Method_Router_Test, An_Exception_Becomes_An_Internal_Error) {
  router.add("bad", [](const json_spirit::Object& params) -> JSON_RPC_Answer {
    (void)json_spirit::object_require<std::string>(params, "x");
    return {};
  });
  EXPECT_EQ(router.call("bad", nullptr).code, JSON_RPC_E_INTERNAL);
  EXPECT_EQ(log.claim_containing("Failed to answer bad"), 1U);
}

TEST(Handler_Call, Passes_On_What_The_Handler_Sends) {
  const JSON_RPC_Answer answer = call([](const auto& channel, const JSON_RPC_Request& request) {
    auto response = std::make_shared<JSON_RPC_Response>(request);
    response->result = request.method();
    return channel->send(response);
  });
  ASSERT_TRUE(answer.ok) << answer.message;
  EXPECT_EQ(answer.result.get_str(), "hana.list.instances");
}

TEST(Handler_Call, Waits_For_An_Answer_From_Another_Thread) {
  std::thread worker;
  const JSON_RPC_Answer answer = call([&worker](const auto& channel, const JSON_RPC_Request& request) {
    worker = std::thread([channel, id = request.id()] { channel->send_error(-32602, id, "Invalid params"); });
    return 0;
  });
  worker.join();
  EXPECT_EQ(answer.code, -32602);
  EXPECT_EQ(answer.message, "Invalid params");
}

TEST(Handler_Call, A_Handler_That_Does_Not_Answer_Is_Given_Up) {
  support::Virtual_Clock clock;
  EXPECT_EQ(call([](const auto&, const auto&) { return -1; }).code, JSON_RPC_E_INTERNAL);
  EXPECT_EQ(call([](const auto&, const auto&) { return 0; }).code, JSON_RPC_E_TIMEOUT);
}
