#include "hana/websvcs_agent/json_rpc_hana_instance_control_handler.h"

#include <ace/Log_Priority.h>

#include "support/vtable_slots.h"
#include "unit/hana/websvcs_agent/rpc_fixture.h"

namespace {

using hana_test::child;

constexpr int all_running = 3;
constexpr int all_stopped = 4;

std::string request(const std::string& params) {
  return R"({"jsonrpc":"2.0","id":7,"method":"hana.instance.control","params":)" + params + "}";
}
std::string result(const std::string& value) { return R"({"jsonrpc":"2.0","id":7,"result":)" + value + "}"; }
std::string error(int code, const std::string& message) {
  return R"({"jsonrpc":"2.0","id":7,"error":{"code":)" + std::to_string(code) + R"(,"message":")" + message + "\"}}";
}
std::string action(const std::string& name) {
  return request(R"({"sid":"HDB","instance_name":"HDB00","action":")" + name + "\"}");
}

class JSON_RPC_HANA_Instance_Control_Handler_Test : public rpc_test::Rpc_Test {
 protected:
  std::string actions() {
    std::string seen;
    for (const support::Seen_Call& call : runner_.calls())
      if (call.program.ends_with("/HDB")) seen += (seen.empty() ? "" : " ") + call.arguments.at(0);
    return seen;
  }

  JSON_RPC_HANA_Instance_Control_Handler handler_;
};

TEST_F(JSON_RPC_HANA_Instance_Control_Handler_Test, Has_Its_Operation_In_Its_Slot) {
  EXPECT_EQ(support::slot_of(&JSON_RPC_Handler::handle_object), 0);
  EXPECT_EQ(sizeof(JSON_RPC_HANA_Instance_Control_Handler), sizeof(void*)) << "it has no data";
}

TEST_F(JSON_RPC_HANA_Instance_Control_Handler_Test, Starts_Stops_And_Restarts) {
  const struct {
    const char* name;
    std::vector<support::Scripted_Child> states;
    const char* commands;
  } rows[] = {{"start", {child("", all_running)}, "start"},
              {"stop", {child("", all_stopped)}, "stop"},
              {"restart", {child("", all_stopped), child("", all_running)}, "stop start"}};
  std::string before;
  for (const auto& row : rows) {
    runner_.clear_rules();
    script("HDB", {child("")});
    script("sapcontrol", row.states);
    EXPECT_EQ(answer_of(handler_, action(row.name)), result(R"({"error":0})")) << row.name;
    EXPECT_EQ(result_, 0) << row.name;
    before += (before.empty() ? "" : " ") + std::string(row.commands);
    EXPECT_EQ(actions(), before) << row.name;
  }
}

TEST_F(JSON_RPC_HANA_Instance_Control_Handler_Test, Tells_The_State_As_A_Number) {
  const struct {
    int sapcontrol;
    const char* wanted;
  } rows[] = {{0, R"({"state":0})"}, {all_running, R"({"state":1})"}, {all_stopped, R"({"state":2})"}};
  for (const auto& row : rows) {
    runner_.clear_rules();
    script("sapcontrol", {child("", row.sapcontrol)});
    EXPECT_EQ(answer_of(handler_, action("state")), result(row.wanted));
  }
  EXPECT_EQ(actions(), "");
}

TEST_F(JSON_RPC_HANA_Instance_Control_Handler_Test, Refuses_Bad_Params) {
  const struct {
    const char* params;
    const char* message;
    const char* logged;
  } rows[] = {
      {R"({"instance_name":"HDB00","action":"state"})", R"(Failed to initialize params\n)",
       "Invalid params: lack of key 'sid'"},
      {R"({"sid":"HDB","action":"state"})", R"(Failed to initialize params\n)",
       "Invalid params: lack of key 'instance_name'"},
      {R"({"sid":"HDB","instance_name":"HDB00"})", R"(Failed to initialize params\n)",
       "Invalid params: lack of key 'action'"},
      {R"({"sid":1,"instance_name":"HDB00","action":"state"})", R"(Failed to initialize params\n)",
       "Invalid params: key 'sid' is integer, expected a string"},
      {R"({"sid":"","instance_name":7,"action":"state"})", R"(Failed to initialize params\n)",
       "Invalid params: key 'instance_name' is integer, expected a string"},
      {R"(["HDB","HDB00","state"])", R"(Failed to initialize params\n)",
       "Invalid params: value is array, expected object"},
      {R"({"sid":"","instance_name":"HDB00","action":"state"})", R"(sid or instance_name is empty\n)", nullptr},
      {R"({"sid":"HDB","instance_name":"","action":"state"})", R"(sid or instance_name is empty\n)", nullptr},
      {R"({"sid":"","instance_name":"HDB00","action":"pause"})", R"(sid or instance_name is empty\n)", nullptr},
      {R"({"sid":"HDB","instance_name":"HDB00","action":"Start"})", R"(action is not supported\n)", nullptr},
      {R"({"sid":"HDB","instance_name":"HDB00","action":""})", R"(action is not supported\n)", nullptr},
      {R"({"sid":"HDB","instance_name":"HDB00","action":"start "})", R"(action is not supported\n)", nullptr},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(answer_of(handler_, request(row.params)), error(-32602, row.message)) << row.params;
    EXPECT_EQ(result_, 0) << "what sending gave";
    if (row.logged != nullptr) {
      EXPECT_EQ(log_.claim_containing(row.logged), 1U) << row.params << "\n" << log_.dump();
    }
  }
  EXPECT_EQ(answer_of(handler_, R"({"jsonrpc":"2.0","id":7,"method":"hana.instance.control"})"),
            error(-32602, R"(Failed to initialize params\n)"));
  expect_error("Invalid params: ");
  EXPECT_TRUE(runner_.calls().empty());
}

TEST_F(JSON_RPC_HANA_Instance_Control_Handler_Test, Tells_When_The_Action_Failed) {
  for (const char* name : {"start", "stop", "restart", "state"}) {
    runner_.clear_rules();
    script("HDB", {child("", 1)});
    script("sapcontrol", {child("", 1)});
    EXPECT_EQ(answer_of(handler_, action(name)), error(-32603, R"(failed to handle instance\n)")) << name;
    EXPECT_GE(log_.claim_containing("Failed to "), 1U) << name;
  }
}

TEST_F(JSON_RPC_HANA_Instance_Control_Handler_Test, Names_From_Outside_Start_Nothing_That_Is_Not_Installed) {
  for (const char* params : {R"({"sid":"../","instance_name":"HDB00","action":"start"})",
                             R"({"sid":"HDB","instance_name":"../../bin","action":"start"})",
                             R"({"sid":"HDB\u0000","instance_name":"HDB00","action":"stop"})",
                             R"({"sid":"HDB","instance_name":"HDB00\u0000","action":"state"})"})
    EXPECT_EQ(answer_of(handler_, request(params)), error(-32603, R"(failed to handle instance\n)")) << params;
  EXPECT_EQ(log_.claim_containing("is not installed on this host\n"), 4U);
  EXPECT_TRUE(runner_.calls().empty());
}

TEST_F(JSON_RPC_HANA_Instance_Control_Handler_Test, A_Notification_Is_Obeyed_And_Not_Answered) {
  script("HDB", {child("")});
  script("sapcontrol", {child("", all_stopped)});
  EXPECT_EQ(answer_of(handler_, R"({"jsonrpc":"2.0","method":"hana.instance.control","params":{"sid":"HDB",)"
                                R"("instance_name":"HDB00","action":"stop"}})"),
            "");
  EXPECT_EQ(result_, 0);
  EXPECT_EQ(actions(), "stop");
}

TEST_F(JSON_RPC_HANA_Instance_Control_Handler_Test, Handles_Nothing_But_Requests_And_Notifications) {
  for (const auto kind : {JSON_RPC_Object::KIND_RESPONSE, JSON_RPC_Object::KIND_ERROR, JSON_RPC_Object::KIND_REQUEST}) {
    EXPECT_EQ(answer_to(handler_, std::make_shared<JSON_RPC_Object>(kind, 7)), "");
    EXPECT_EQ(result_, -1);
    expect_error("obj is neither JSON-RPC request nor notify!\n", LM_EMERGENCY);
  }
  EXPECT_EQ(answer_to(handler_, nullptr), "");
  EXPECT_EQ(result_, -1);
  expect_error("hana/websvcs_agent/rpc_answers.cpp:", LM_EMERGENCY);
}

TEST_F(JSON_RPC_HANA_Instance_Control_Handler_Test, Does_Nothing_For_A_Requester_That_Has_Gone) {
  EXPECT_EQ(handle_without_requester(handler_, action("stop")), -1);
  EXPECT_TRUE(log_.claim("Abort handling JSON-RPC request, requester has gone.\n"));
  EXPECT_TRUE(runner_.calls().empty());
}

TEST_F(JSON_RPC_HANA_Instance_Control_Handler_Test, Returns_What_Sending_Gives) {
  channel_->result = -1;
  EXPECT_NE(answer_of(handler_, action("pause")), "");
  EXPECT_EQ(result_, -1);
  EXPECT_NE(answer_of(handler_, request("[]")), "");
  EXPECT_EQ(result_, -1);
  expect_error("Invalid params: ");
  script("sapcontrol", {child("", all_running)});
  EXPECT_NE(answer_of(handler_, action("state")), "");
  EXPECT_EQ(result_, -1);
}

TEST_F(JSON_RPC_HANA_Instance_Control_Handler_Test, Looks_At_What_It_Got_Before_It_Looks_For_The_Requester) {
  EXPECT_EQ(handler_.handle_object({}, std::make_shared<JSON_RPC_Object>(JSON_RPC_Object::KIND_RESPONSE, 7)), -1);
  expect_error("obj is neither JSON-RPC request nor notify!\n", LM_EMERGENCY);
  EXPECT_EQ(log_.lines().size(), 1U) << log_.dump();
}

}  // namespace
