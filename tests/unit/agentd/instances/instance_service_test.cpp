#include "agentd/instances/instance_service.h"

#include "agentd/instances/system_id.h"
#include "unit/agentd/modules/module_fixture.h"

using namespace agentd;

namespace {

const json_spirit::Object subject{{"type", "testing"}, {"name", "PRD_HDB00"}};

class Instance_Service_Test : public Module_Fixture {
 protected:
  Instance_Service_Test() {
    EXPECT_TRUE(modules.load({"testing"}));
    EXPECT_TRUE(manager.open());
  }

  static std::string text(const JSON_RPC_Answer& answer) {
    return answer.ok ? json_spirit::dump_json(answer.result) : "refused: " + answer.message;
  }

  Modules modules;
  Instance_Manager manager;
  Scoped_Instance_Manager scope{manager};
  Instance_Service service{modules, manager};
};

}  // namespace

TEST_F(Instance_Service_Test, Probing_Stores_What_The_Modules_Find) {
  const JSON_RPC_Answer answer = service.probe();
  ASSERT_TRUE(answer.ok) << answer.message;
  const auto instance = manager.find("testing", "PRD_HDB00");
  ASSERT_NE(instance, nullptr);
  EXPECT_EQ(text(answer), R"({"instances":[{"type":"testing","name":"PRD_HDB00","uuid":")" + instance->uuid +
                              R"(","extended_attrs":{"sid":"PRD","instance_name":"HDB00","multi_container":true}}]})");
}

TEST_F(Instance_Service_Test, A_Good_Account_Is_Stored_And_A_Bad_One_Is_Not) {
  ASSERT_TRUE(service.probe().ok);
  json_spirit::Object params = subject;
  params["username"] = "BACKUP";
  params["password"] = "bad";
  EXPECT_EQ(text(service.logon(params)),
            R"({"code":-32000,"message":"the database refused the user or the password"})");
  std::string user;
  secure_string password;
  EXPECT_NE(manager.get_account("testing", "PRD_HDB00", "", user, password), 0);
  EXPECT_EQ(log.claim_containing("No account is stored"), 1U);
  params["password"] = "good";
  EXPECT_EQ(text(service.logon(params)), R"({"code":0,"message":"the account works and is stored"})");
  EXPECT_EQ(manager.get_account("testing", "PRD_HDB00", "", user, password), 0);
  EXPECT_EQ(user, "BACKUP");
  EXPECT_EQ(password.view(), "good");
}

TEST_F(Instance_Service_Test, Logons_That_Would_Be_Commands_Are_Refused) {
  ASSERT_TRUE(service.probe().ok);
  json_spirit::Object params = subject;
  params["username"] = "BACKUP";
  params["password"] = "good\n\\q";
  EXPECT_EQ(text(service.logon(params)), "refused: user and password must not hold control characters");
}

TEST_F(Instance_Service_Test, Unknown_Subjects_Are_Refused) {
  EXPECT_EQ(text(service.state({})), "refused: \"type\" and \"name\" of the instance are needed");
  EXPECT_EQ(text(service.state({{"type", "oracle"}, {"name", "X"}})),
            "refused: this agent has no module for instances of type \"oracle\"");
  EXPECT_EQ(text(service.state(subject)), "refused: instance \"PRD_HDB00\" is not known on this host; run discover");
}

TEST_F(Instance_Service_Test, Checks_Name_What_Is_Missing) {
  ASSERT_TRUE(service.probe().ok);
  const std::string before = text(service.check(subject));
  EXPECT_NE(before.find("hdbbackint is missing"), std::string::npos) << before;
  EXPECT_NE(before.find(R"({"name":"state","ok":true,"message":"the instance runs"})"), std::string::npos) << before;
  EXPECT_NE(before.find(R"({"name":"databases","ok":true,"message":"SYSTEMDB, TN1"})"), std::string::npos) << before;
  EXPECT_NE(before.find("no account is stored"), std::string::npos) << before;
  EXPECT_NE(before.find(R"({"name":"backint link","ok":true,)"), std::string::npos) << before;
  EXPECT_EQ(log.claim_containing("No account is stored"), 1U);

  root.write("/opt/tarvex/dorsal3/bin/hdbbackint", "x", 0755);
  ASSERT_TRUE(manager.set_account("testing", "PRD_HDB00", "", "BACKUP", secure_string("good")));
  const std::string after = text(service.check(subject));
  EXPECT_EQ(after.find("\"ok\":false"), std::string::npos) << after;
  EXPECT_EQ(after.find("good\""), std::string::npos) << "the password is in the answer: " << after;
}

TEST_F(Instance_Service_Test, Tells_When_The_Databases_Cannot_Be_Listed) {
  auto instance = std::make_shared<Instance>();
  instance->type = "testing";
  instance->name = "SILENT";
  ASSERT_TRUE(manager.store({{"SILENT", instance}}));
  const std::string checks = text(service.check({{"type", "testing"}, {"name", "SILENT"}}));
  EXPECT_NE(checks.find("the databases cannot be listed: the module gave no answer to hana.database.list"),
            std::string::npos)
      << checks;
  EXPECT_EQ(log.claim_containing("No account is stored"), 1U);
}

TEST(System_Id, Cannot_Lead_To_Another_Folder) {
  EXPECT_TRUE(is_sid("PRD"));
  EXPECT_TRUE(is_sid("A1B"));
  for (const char* sid : {"", "../", "a/b", "PR", "PRDX", "prd"}) EXPECT_FALSE(is_sid(sid)) << sid;
}
