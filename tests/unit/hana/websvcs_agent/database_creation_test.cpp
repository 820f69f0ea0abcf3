#include "hana/websvcs_agent/database_creation.h"

#include "hana/websvcs_agent/json_rpc_hana_instance_control_handler.h"
#include "unit/hana/websvcs_agent/rpc_fixture.h"

namespace {

using hana_test::child;

constexpr const char* good_params = R"({"sid":"HDB","instance_name":"HDB00","database":"QA1","password":"Secret\"1"})";

std::string request(const std::string& params, const std::string& method = "hana.database.create") {
  return R"({"jsonrpc":"2.0","id":7,"method":")" + method + R"(","params":)" + params + "}";
}
std::string error(int code, const std::string& message) {
  return R"({"jsonrpc":"2.0","id":7,"error":{"code":)" + std::to_string(code) + R"(,"message":")" + message + "\"}}";
}

class Database_Creation_Test : public rpc_test::Rpc_Test {
 protected:
  void let_create(support::Scripted_Child answer) {
    runner_.clear_rules();
    script("hdbsql", {child("DATABASE_NAME,DESCRIPTION,ACTIVE_STATUS,OS_USER,OS_GROUP\n"), std::move(answer)});
  }

  JSON_RPC_HANA_Instance_Control_Handler handler_;
};

TEST_F(Database_Creation_Test, Is_Done_With_The_Account_Of_The_Instance_In_The_System_Database) {
  let_create(child(""));
  EXPECT_EQ(answer_of(handler_, request(good_params)), R"({"jsonrpc":"2.0","id":7,"result":{"error":0}})");
  ASSERT_EQ(runner_.calls().size(), 2U);
  EXPECT_EQ(runner_.calls().back().input,
            "\\c -i 00 -d SYSTEMDB -u BACKUP -p \"Tr1cky \"\"pass\\word\"\n"
            "CREATE DATABASE QA1 SYSTEM USER PASSWORD \"Secret\"\"1\" NO START\n\\q\n");
}

TEST_F(Database_Creation_Test, Tells_Why_HANA_Refused) {
  let_create(child("", 1, "* 412: invalid password layout SQLSTATE: HY000\n"));
  EXPECT_EQ(answer_of(handler_, request(good_params)),
            error(-32603, "HANA did not create the database QA1: * 412: invalid password layout SQLSTATE: HY000"));
  expect_error("Failed to create database 'QA1' of HANA system HDB: ");
  EXPECT_EQ(log_.dump().find("Secret"), std::string::npos) << log_.dump();
}

TEST_F(Database_Creation_Test, Takes_No_Params_That_Are_Not_Whole) {
  for (const char* params : {"[]", "{}", R"({"sid":"HDB","instance_name":"HDB00","database":"QA1"})",
                             R"({"sid":"HDB","instance_name":"HDB00","database":"QA1","password":7})",
                             R"({"sid":"HDB","instance_name":"HDB00","database":["QA1"],"password":"Secret1"})",
                             R"({"sid":"HDB","instance_name":7,"database":"QA1","password":"Secret1"})",
                             R"({"instance_name":"HDB00","database":"QA1","password":"Secret1"})"}) {
    const std::string answer = answer_of(handler_, request(params));
    EXPECT_NE(answer.find("-32602"), std::string::npos) << answer;
    EXPECT_EQ(answer.find("Secret1"), std::string::npos) << answer;
  }
  EXPECT_TRUE(runner_.calls().empty());
}

TEST_F(Database_Creation_Test, Is_For_Registered_Instances_With_An_Account) {
  keep("HDB_HDB01", {{"sid", "HDB"}, {"instance_number", 1}, {"instance_name", "HDB01"}});
  const struct {
    const char* sid;
    const char* instance_name;
    const char* wanted;
  } rows[] = {{"QQQ", "HDB00", "not known on this host; run: dorsal3 discover"},
              {"../", "HDB00", "not known on this host"},
              {"HDB", "../HDB00", "not known on this host"},
              {"HDB", "HDB01", "no account of HDB_HDB01 is stored on this host; run: dorsal3 logon HDB_HDB01"}};
  for (const auto& row : rows) {
    const std::string answer =
        answer_of(handler_, request(std::string(R"({"sid":")") + row.sid + R"(","instance_name":")" +
                                    row.instance_name + R"(","database":"QA1","password":"Secret1"})"));
    EXPECT_NE(answer.find("-32603"), std::string::npos) << answer;
    EXPECT_NE(answer.find(row.wanted), std::string::npos) << answer;
  }
  EXPECT_TRUE(runner_.calls().empty());
  expect_error("No account is stored for the instance 'HDB_HDB01' of type 'hana'");
}

TEST_F(Database_Creation_Test, Of_A_Notification_Is_Not_Answered) {
  let_create(child(""));
  EXPECT_EQ(answer_of(handler_,
                      R"({"jsonrpc":"2.0","method":"hana.database.create","params":)" + std::string(good_params) + "}"),
            "");
  EXPECT_EQ(runner_.calls().size(), 2U);
}

TEST_F(Database_Creation_Test, Needs_Its_Own_Method) {
  EXPECT_EQ(answer_of(handler_, request(good_params, "hana.instance.control")),
            error(-32602, R"(Failed to initialize params\n)"));
  expect_error("Invalid params: lack of key 'action'");
  EXPECT_TRUE(runner_.calls().empty());
}

}  // namespace
