#include "agentd/modules/handler_call.h"

#include <gtest/gtest.h>

#include "support/virtual_clock.h"

using namespace agentd;

namespace {

constexpr std::chrono::seconds limit{10};

/// Does as it is told with what it is handed, and keeps it.
class Keeper : public JSON_RPC_Handler {
 public:
  using Action = std::function<void(JSON_RPC_Channel&, const JSON_RPC_Request&)>;
  explicit Keeper(Action action) : action_(std::move(action)) {}
  int handle_object(std::weak_ptr<JSON_RPC_Channel> channel, std::shared_ptr<JSON_RPC_Object> object) override {
    kept_ = object;
    action_(*channel.lock(), dynamic_cast<const JSON_RPC_Request&>(*object));
    return 0;
  }

 private:
  Action action_;
  std::shared_ptr<JSON_RPC_Object> kept_;
};

JSON_RPC_Message message_of(JSON_RPC_Message::Kind kind) {
  JSON_RPC_Message message;
  message.kind = kind;
  if (kind == JSON_RPC_Message::request) message.id = "four";
  message.method = "m";
  message.params = json_spirit::Object{{"a", 1}};
  return message;
}

class Kept_Call_Test : public testing::Test {
 protected:
  JSON_RPC_Answer call(Keeper::Action action, JSON_RPC_Message::Kind kind = JSON_RPC_Message::request) {
    Keeper handler(std::move(action));
    return call_handler(handler, message_of(kind), limit);
  }

  support::Virtual_Clock clock;
};

}  // namespace

TEST_F(Kept_Call_Test, Shows_The_Request_As_It_Came) {
  (void)call([](JSON_RPC_Channel& channel, const JSON_RPC_Request& request) {
    EXPECT_EQ(request.kind(), JSON_RPC_Object::KIND_REQUEST);
    EXPECT_EQ(request.id(), json_spirit::Value("four"));
    EXPECT_EQ(request.method(), "m");
    EXPECT_EQ(json_spirit::dump_json(request.params()), R"({"a":1})");
    (void)channel.send(std::make_shared<JSON_RPC_Response>(request));
  });
}

TEST_F(Kept_Call_Test, An_Answer_Is_Taken_At_Once_Although_The_Request_Is_Kept) {
  EXPECT_TRUE(call([](JSON_RPC_Channel& channel, const JSON_RPC_Request& request) {
                EXPECT_EQ(channel.send(std::make_shared<JSON_RPC_Response>(request)), 0);
              }).ok);
  EXPECT_TRUE(clock.sleeps().empty());
}

TEST_F(Kept_Call_Test, One_Without_An_Answer_Is_Given_Up_When_The_Time_Has_Passed) {
  const auto begin = clock.steady_now();
  EXPECT_EQ(call([](auto&, const auto&) {}).code, JSON_RPC_E_TIMEOUT);
  EXPECT_EQ(clock.steady_now() - begin, limit);
}

TEST_F(Kept_Call_Test, What_Is_No_Response_Becomes_An_Internal_Error) {
  for (const auto& sent : {std::make_shared<JSON_RPC_Object>(JSON_RPC_Object::KIND_RESPONSE, "four"),
                           std::shared_ptr<JSON_RPC_Object>()}) {
    const JSON_RPC_Answer answer =
        call([&sent](JSON_RPC_Channel& channel, const auto&) { EXPECT_EQ(channel.send(sent), 0); });
    EXPECT_FALSE(answer.ok);
    EXPECT_EQ(answer.code, JSON_RPC_E_INTERNAL);
    EXPECT_EQ(answer.message, "the module answered with something that is no response");
  }
}

TEST_F(Kept_Call_Test, What_Answers_A_Notification_Is_Kept_By_Nobody) {
  const JSON_RPC_Answer answer = call(
      [](JSON_RPC_Channel& channel, const JSON_RPC_Request& request) {
        EXPECT_EQ(channel.send_error(-32602, request.id(), "no"), 0);
        EXPECT_EQ(channel.send(std::make_shared<JSON_RPC_Response>(request)), 0);
      },
      JSON_RPC_Message::notification);
  EXPECT_FALSE(answer.ok);
  EXPECT_EQ(answer.code, JSON_RPC_E_TIMEOUT) << "whatever it was, it is not the one above";
}
