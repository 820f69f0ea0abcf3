#include "agent/backupd_client/json_rpc_forward.h"

#include <gtest/gtest.h>

namespace {

using json_spirit::Object;
using json_spirit::Value;

class Recording_Channel final : public Agent_Channel {
 public:
  std::string method;
  Value params;
  std::chrono::nanoseconds timeout{0};
  JSON_RPC_Answer answer;

  JSON_RPC_Answer call(const std::string& a_method, const Value& some_params,
                       std::chrono::nanoseconds a_timeout) override {
    method = a_method;
    params = some_params;
    timeout = a_timeout;
    return answer;
  }
};

class Json_Rpc_Forward : public testing::Test {
 protected:
  Recording_Channel channel;
  Scoped_Agent_Channel scope{channel};
  Value result = "old";

  std::string failure(const Value& params, json_spirit::Value_type expected = json_spirit::obj_type) {
    try {
      (void)json_rpc_forward("h1", params, "m", &result, expected);
    } catch (const Forward_Error& caught) {
      return std::to_string(caught.code()) + " " + caught.what();
    }
    return "no failure";
  }
};

TEST_F(Json_Rpc_Forward, Wraps_The_Call_And_Gives_The_Reply) {
  channel.answer.ok = true;
  channel.answer.result = Object{{"state", 1}};
  const Object params{{"action", "state"}, {"sid", "ABC"}};
  EXPECT_TRUE(json_rpc_forward("h1", params, "hana.instance.control", &result, json_spirit::obj_type));
  EXPECT_EQ(result, Value(Object{{"state", 1}}));
  EXPECT_EQ(channel.method, "agent.forward");
  EXPECT_EQ(
      json_spirit::dump_json(channel.params),
      R"({"host_uuid":"h1","method":"hana.instance.control","params":{"action":"state","sid":"ABC"},"timeout":60})");
}

TEST_F(Json_Rpc_Forward, Waits_An_Hour_Only_Where_An_Instance_Changes_Its_State) {
  struct Row {
    const char* method;
    Value params;
    long seconds;
  };
  channel.answer.ok = true;
  for (const Row& row :
       {Row{"hana.instance.control", Object{{"action", "start"}}, 3600},
        Row{"hana.instance.control", Object{{"action", "stop"}}, 3600},
        Row{"hana.instance.control", Object{{"action", "restart"}}, 3600},
        Row{"hana.instance.control", Object{{"action", "state"}}, 60},
        Row{"hana.instance.control", Object{{"action", 1}}, 60}, Row{"hana.instance.control", Value(), 60},
        Row{"hana.file.download", Object{{"action", "start"}}, 60}}) {
    EXPECT_TRUE(json_rpc_forward("h1", row.params, row.method));
    EXPECT_EQ(channel.params.get_obj().find("timeout")->get_int64(), row.seconds) << row.method;
    EXPECT_EQ(channel.timeout, std::chrono::seconds(row.seconds + 5)) << row.method;
  }
}

TEST_F(Json_Rpc_Forward, A_Reply_That_Nobody_Wants_Is_Awaited_And_Dropped) {
  channel.answer.ok = true;
  channel.answer.result = "anything";
  EXPECT_TRUE(json_rpc_forward("h1", Object{}, "m"));
  channel.answer.ok = false;
  EXPECT_THROW((void)json_rpc_forward("h1", Object{}, "m"), std::exception);
}

TEST_F(Json_Rpc_Forward, A_Failure_Is_Thrown_With_Method_Host_And_Cause) {
  channel.answer.code = JSON_RPC_E_TIMEOUT;
  channel.answer.message = "no answer";
  EXPECT_EQ(failure(Object{}), "-32001 call of m on host h1 failed: no answer (code -32001)");
  EXPECT_EQ(result, Value("old"));
}

TEST_F(Json_Rpc_Forward, A_Reply_Of_Another_Type_Is_A_Failure) {
  channel.answer.ok = true;
  channel.answer.result = "text";
  EXPECT_EQ(failure(Object{}), "-32000 call of m on host h1 failed: the answer is of type string, expected object");
  EXPECT_EQ(failure(Object{}, json_spirit::int_type),
            "-32000 call of m on host h1 failed: the answer is of type string, expected integer");
  EXPECT_EQ(result, Value("old"));
  EXPECT_EQ(failure(Object{}, json_spirit::str_type), "no failure");
  EXPECT_EQ(result, Value("text"));
}

TEST(Json_Rpc_Forward_Alone, Fails_Without_A_Channel) {
  ASSERT_EQ(Agent_Channel::current(), nullptr);
  EXPECT_THROW((void)json_rpc_forward("h1", Object{}, "m"), Forward_Error);
}

}  // namespace
