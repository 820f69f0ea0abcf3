#include "agent/api/json_rpc_session.h"

#include <gtest/gtest.h>

namespace {

class Told_Channel : public Agent_Channel {
 public:
  JSON_RPC_Answer call(const std::string& method, const json_spirit::Value& params,
                       std::chrono::nanoseconds timeout) override {
    seen = method + " " + json_spirit::dump_json(params);
    limit = timeout;
    return answer;
  }
  JSON_RPC_Answer answer;
  std::string seen;
  std::chrono::nanoseconds limit{};
};

struct Asked {
  bool sent = false;
  std::shared_ptr<JSON_RPC_Object> answer;
};

Asked ask(Told_Channel& channel, JSON_RPC_Answer answer) {
  channel.answer = std::move(answer);
  JSON_RPC_Session session(&channel);
  std::shared_ptr<JSON_RPC_Request> request;
  EXPECT_TRUE(session.make_rpc_request("job.def.list", json_spirit::Object{{"uuid", "u"}}, request));
  Asked asked;
  asked.sent = session.request(request, asked.answer, 0);
  return asked;
}

}  // namespace

TEST(JSON_RPC_Session, Brings_The_Result) {
  Told_Channel channel;
  const Asked asked = ask(channel, {true, json_spirit::Array{1}, 0, {}});
  ASSERT_TRUE(asked.sent);
  EXPECT_EQ(channel.seen, R"(job.def.list {"uuid":"u"})");
  EXPECT_EQ(channel.limit, JSON_RPC_Session::answer_limit);
  const auto response = std::dynamic_pointer_cast<JSON_RPC_Response>(asked.answer);
  ASSERT_NE(response, nullptr);
  EXPECT_EQ(json_spirit::dump_json(response->result), "[1]");
}

TEST(JSON_RPC_Session, An_Error_Is_An_Answer_Without_A_Result) {
  Told_Channel channel;
  const Asked asked = ask(channel, {false, {}, -32603, "broken"});
  ASSERT_TRUE(asked.sent);
  EXPECT_EQ(asked.answer->kind(), JSON_RPC_Object::KIND_ERROR);
}

TEST(JSON_RPC_Session, Fails_When_Nothing_Came_Back) {
  Told_Channel channel;
  EXPECT_FALSE(ask(channel, {false, {}, JSON_RPC_E_NOT_CONNECTED, "away"}).sent);
  EXPECT_FALSE(ask(channel, {false, {}, JSON_RPC_E_TIMEOUT, "late"}).sent);
}

TEST(JSON_RPC_Session, Needs_A_Channel) {
  EXPECT_EQ(Global_JSON_RPC_Channel::instance(), nullptr);
  JSON_RPC_Session session(Global_JSON_RPC_Channel::instance());
  std::shared_ptr<JSON_RPC_Request> request;
  EXPECT_FALSE(session.make_rpc_request("m", nullptr, request));
  std::shared_ptr<JSON_RPC_Object> answer;
  EXPECT_FALSE(session.request(std::make_shared<JSON_RPC_Request>(1, "m", nullptr), answer, 0));
  Told_Channel channel;
  const Scoped_Agent_Channel scope(channel);
  EXPECT_EQ(Global_JSON_RPC_Channel::instance(), &channel);
}
