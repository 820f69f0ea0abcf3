#include "net/json_rpc.h"

#include <gtest/gtest.h>

#include "platform/secure_string.h"
#include "support/freed_memory_watch.h"

namespace {

using json_spirit::Object;
using json_spirit::Value;

TEST(Json_Rpc_Message, Tells_The_Kinds_Apart) {
  struct Row {
    const char* text;
    JSON_RPC_Message::Kind kind;
  };
  for (const Row& row : {Row{R"({"jsonrpc":"2.0","id":1,"method":"m","params":{}})", JSON_RPC_Message::request},
                         Row{R"({"jsonrpc":"2.0","id":"x","method":"m"})", JSON_RPC_Message::request},
                         Row{R"({"jsonrpc":"2.0","id":null,"method":"m"})", JSON_RPC_Message::request},
                         Row{R"({"jsonrpc":"2.0","method":"m","params":[1]})", JSON_RPC_Message::notification},
                         Row{R"({"jsonrpc":"2.0","id":1,"result":null})", JSON_RPC_Message::result},
                         Row{R"({"jsonrpc":"2.0","id":1,"error":{"code":-1,"message":"no"}})", JSON_RPC_Message::error},
                         Row{R"({"jsonrpc":"2.0","id":null,"error":{"code":-32700,"message":"no","data":[1]}})",
                             JSON_RPC_Message::error}})
    EXPECT_EQ(JSON_RPC_Message::parse(row.text).kind, row.kind) << row.text;
}

TEST(Json_Rpc_Message, Takes_A_Password_Into_Care_And_Leaves_None_In_The_Memory_It_Gives_Back) {
  const std::string secret = "a password \"of more bytes\" than a short string holds";
  const std::string text =
      R"({"jsonrpc":"2.0","id":1,"method":"m","params":{"list":[{"password":"a password \"of more bytes\" )"
      R"(than a short string holds"}],"password":7,"user":"u"}})";
  // Without what is escaped.
  const std::string_view watched = "than a short string holds";
  const support::Freed_Memory_Watch watch(watched);
  {
    const JSON_RPC_Message message = JSON_RPC_Message::parse(text);
    ASSERT_EQ(message.kind, JSON_RPC_Message::request) << message.error_message;
    const Object& params = message.params.get_obj();
    const Object& first = params.find("list")->get_array().front().get_obj();
    EXPECT_EQ(first.find("password")->get_secure_str().view(), secret);
    EXPECT_TRUE(params.find("user")->is_string());
    std::string again = json_rpc_request_text(message.id, message.method, message.params);
    EXPECT_EQ(again, text);
    platform::wipe_memory(again.data(), again.size());
  }
  EXPECT_EQ(JSON_RPC_Message::parse(std::string_view(text).substr(0, text.size() - 1)).kind, JSON_RPC_Message::invalid);
  EXPECT_EQ(watch.found(), 0U);
}

TEST(Json_Rpc_Message, Refuses_With_The_Fitting_Code) {
  struct Row {
    std::string text;
    int code;
  };
  for (const Row& row :
       {Row{"", JSON_RPC_E_PARSE},
        Row{"{", JSON_RPC_E_PARSE},
        Row{"nonsense", JSON_RPC_E_PARSE},
        Row{"{}{}", JSON_RPC_E_PARSE},
        Row{std::string(10000, '['), JSON_RPC_E_PARSE},
        Row{"\"\xff\xfe\"", JSON_RPC_E_PARSE},
        Row{"1", JSON_RPC_E_INVALID_REQUEST},
        Row{"[]", JSON_RPC_E_INVALID_REQUEST},
        Row{"{}", JSON_RPC_E_INVALID_REQUEST},
        Row{R"({"id":1,"method":"m"})", JSON_RPC_E_INVALID_REQUEST},
        Row{R"({"jsonrpc":2.0,"id":1,"method":"m"})", JSON_RPC_E_INVALID_REQUEST},
        Row{R"({"jsonrpc":"1.0","id":1,"method":"m"})", JSON_RPC_E_INVALID_REQUEST},
        Row{R"({"jsonrpc":"2.0","id":1})", JSON_RPC_E_INVALID_REQUEST},
        Row{R"({"jsonrpc":"2.0","id":{},"method":"m"})", JSON_RPC_E_INVALID_REQUEST},
        Row{R"({"jsonrpc":"2.0","id":true,"method":"m"})", JSON_RPC_E_INVALID_REQUEST},
        Row{R"({"jsonrpc":"2.0","id":1,"method":7})", JSON_RPC_E_INVALID_REQUEST},
        Row{R"({"jsonrpc":"2.0","result":1})", JSON_RPC_E_INVALID_REQUEST},
        Row{R"({"jsonrpc":"2.0","id":1,"result":1,"error":{}})", JSON_RPC_E_INVALID_REQUEST},
        Row{R"({"jsonrpc":"2.0","id":1,"error":"no"})", JSON_RPC_E_INVALID_REQUEST},
        Row{R"({"jsonrpc":"2.0","id":1,"error":{"code":"x","message":"y"}})", JSON_RPC_E_INVALID_REQUEST}}) {
    const JSON_RPC_Message message = JSON_RPC_Message::parse(row.text);
    EXPECT_EQ(message.kind, JSON_RPC_Message::invalid) << row.text.substr(0, 80);
    EXPECT_EQ(message.error_code, row.code) << row.text.substr(0, 80);
    EXPECT_FALSE(message.error_message.empty()) << row.text.substr(0, 80);
  }
}

TEST(Json_Rpc_Message, Takes_Params_Of_Any_Type_For_The_Method_To_Judge) {
  for (const char* params : {"null", "\"p\"", "1", "true", "[1]", "{}"}) {
    const JSON_RPC_Message message =
        JSON_RPC_Message::parse(std::string(R"({"jsonrpc":"2.0","id":1,"method":"m","params":)") + params + "}");
    EXPECT_EQ(message.kind, JSON_RPC_Message::request) << params;
    EXPECT_EQ(json_spirit::dump_json(message.params), params);
  }
}

TEST(Json_Rpc_Message, Carries_Who_Asks) {
  const JSON_RPC_Message message =
      JSON_RPC_Message::parse(R"({"jsonrpc":"2.0","id":1,"method":"m","requester":{"role":"viewer"}})");
  EXPECT_EQ(message.requester, Value(Object{{"role", "viewer"}}));
  EXPECT_TRUE(JSON_RPC_Message::parse(R"({"jsonrpc":"2.0","id":1,"method":"m"})").requester.is_null());
  EXPECT_EQ(JSON_RPC_Message::parse(R"({"jsonrpc":"2.0","id":1,"method":"m","requester":"viewer"})").error_code,
            JSON_RPC_E_INVALID_REQUEST);
}

TEST(Json_Rpc_Message, Keeps_The_Id_Of_A_Refused_Request) {
  EXPECT_EQ(JSON_RPC_Message::parse(R"({"jsonrpc":"2.0","id":7,"method":1})").id, Value(7));
}

TEST(Json_Rpc_Text, Is_Written_To_The_Byte) {
  EXPECT_EQ(json_rpc_request_text(7, "m", Object{{"a", 1}}),
            R"({"jsonrpc":"2.0","id":7,"method":"m","params":{"a":1}})");
  EXPECT_EQ(json_rpc_request_text({}, "m", {}), R"({"jsonrpc":"2.0","method":"m"})");
  EXPECT_EQ(json_rpc_result_text("x", {}), R"({"jsonrpc":"2.0","id":"x","result":null})");
  EXPECT_EQ(json_rpc_error_text({}, -32700, "no"),
            R"({"jsonrpc":"2.0","id":null,"error":{"code":-32700,"message":"no"}})");
  EXPECT_EQ(json_rpc_error_text(1, 5, "no", true),
            R"({"jsonrpc":"2.0","id":1,"error":{"code":5,"message":"no","data":true}})");
}

TEST(Json_Rpc_Text, Is_Read_Back_As_Written) {
  const JSON_RPC_Message request =
      JSON_RPC_Message::parse(json_rpc_request_text(7, "m\"\n", Object{{"a", "\xc3\xa4"}}));
  EXPECT_EQ(request.kind, JSON_RPC_Message::request);
  EXPECT_EQ(request.method, "m\"\n");
  EXPECT_EQ(request.params, Value(Object{{"a", "\xc3\xa4"}}));
  const JSON_RPC_Message error = JSON_RPC_Message::parse(json_rpc_error_text(1, 5, "no", true));
  EXPECT_EQ(error.error_code, 5);
  EXPECT_EQ(error.error_message, "no");
  EXPECT_EQ(error.error_data, Value(true));
}

}  // namespace
