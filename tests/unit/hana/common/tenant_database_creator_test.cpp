#include "hana/common/tenant_database_creator.h"

#include "unit/hana/common/hana_system.h"

namespace {

using namespace sap_hana;
using hana_test::child;

constexpr const char* secret = "New \"Pass'w\\ord;";
constexpr const char* in_statement = "\"New \"\"Pass'w\\ord;\"";

/// HANA without a database QA1.
class Tenant_Database_Creator_Test : public hana_test::HANA_System {
 protected:
  Tenant_Database_Creator_Test() { EXPECT_TRUE(executor_.init("HDB", "HDB00", "", "SYSTEM", secure_string("S1"))); }

  static support::Scripted_Child listed(const std::string& rows) {
    return child("DATABASE_NAME,DESCRIPTION,ACTIVE_STATUS,OS_USER,OS_GROUP\n" + rows);
  }
  bool create(const std::string& name = "QA1", const std::string& password = secret) {
    return Tenant_Database_Creator(executor_).create(name, secure_string(password), why_);
  }
  /// What hdbsql was given in its last run.
  std::string last_input() { return runner_.calls().empty() ? std::string() : runner_.calls().back().input; }
  void expect_no_secret() {
    const std::string log = log_.dump();
    for (const std::string& part : {std::string(secret), std::string(in_statement), std::string("Pass'w")}) {
      EXPECT_EQ(log.find(part), std::string::npos) << log;
      EXPECT_EQ(why_.find(part), std::string::npos) << why_;
    }
  }

  HDBSQL_Executor executor_{""};
  std::string why_;
};

TEST_F(Tenant_Database_Creator_Test, Creates_A_Tenant_That_Is_Not_Started) {
  script("hdbsql", {listed(""), child("")});
  EXPECT_TRUE(create()) << why_;
  EXPECT_EQ(why_, "");
  EXPECT_EQ(last_input(), "\\c -i 00 -d SYSTEMDB -u SYSTEM -p S1\nCREATE DATABASE QA1 SYSTEM USER PASSWORD " +
                              std::string(in_statement) + " NO START\n\\q\n");
}

TEST_F(Tenant_Database_Creator_Test, Gives_The_Password_By_Standard_Input_Alone) {
  script("hdbsql", {listed(""), child("")});
  EXPECT_TRUE(create());
  for (const support::Seen_Call& call : runner_.calls()) {
    for (const std::string& argument : call.arguments) EXPECT_EQ(argument.find("Pass"), std::string::npos);
    for (const auto& [name, value] : call.environment) EXPECT_EQ(value.find("Pass"), std::string::npos) << name;
  }
  expect_no_secret();
}

TEST_F(Tenant_Database_Creator_Test, Keeps_Out_A_Password_That_Begins_As_The_Accounts_Own) {
  ASSERT_TRUE(executor_.init("HDB", "HDB00", "", "SYSTEM", secure_string("Init1234")));
  const std::string password = "Init1234\"5!x";
  script("hdbsql", {listed(""), child("", 1, "* 257: sql syntax error: incorrect syntax near " + password + "\n"),
                    listed(""), child("", 1, "* 257: near Init1234\"\"5!x\n")});
  for (int i = 0; i < 2; ++i) {
    EXPECT_FALSE(create("QA1", password));
    EXPECT_EQ(why_.find("5!x"), std::string::npos) << why_;
    EXPECT_EQ(log_.dump().find("5!x"), std::string::npos) << log_.dump();
  }
  EXPECT_EQ(log_.claim_containing("Failed to create database 'QA1' of HANA system HDB: "), 2U) << log_.dump();
}

TEST_F(Tenant_Database_Creator_Test, Keeps_The_Password_Out_Of_What_HANA_Says) {
  const std::string said = std::string("* 257: sql syntax error: incorrect syntax near ") + in_statement + "\nat " +
                           secret + " SQLSTATE: HY000\n";
  script("hdbsql", {listed(""), child(std::string(secret) + "\n", 1, said), listed(""),
                    child("", 1, std::string(in_statement) + "\n"), listed(""),
                    child("", 1, "* 2: " + std::string(2040, 'x') + secret + "\n")});
  EXPECT_FALSE(create());
  EXPECT_NE(why_.find("HANA did not create the database QA1: * 257: "), std::string::npos) << why_;
  expect_no_secret();
  EXPECT_FALSE(create());
  expect_no_secret();
  EXPECT_FALSE(create());
  EXPECT_EQ(why_.find("New"), std::string::npos) << "nor the half of it that a cut would leave";
  EXPECT_EQ(log_.claim_containing("Failed to create database 'QA1' of HANA system HDB: "), 3U) << log_.dump();
}

TEST_F(Tenant_Database_Creator_Test, Tells_What_HANA_Refused_It_For) {
  script("hdbsql",
         {listed(""), child("", 1, "* 412: invalid password layout: minimal password length:[8] SQLSTATE: HY000\n")});
  EXPECT_FALSE(create());
  EXPECT_NE(why_.find("412: invalid password layout: minimal password length:[8]"), std::string::npos) << why_;
  EXPECT_EQ(why_.find("list the databases"), std::string::npos) << "HANA has said that it did not";
  expect_error("Failed to create database 'QA1' of HANA system HDB: ");
}

TEST_F(Tenant_Database_Creator_Test, Says_When_HANA_May_Have_Done_It_All_The_Same) {
  support::Scripted_Child killed = child("");
  killed.signal = 9;
  script("hdbsql", {listed(""), killed, listed(""), child("", 1, "* -10807: Connection down\n")});
  for (int i = 0; i < 2; ++i) {
    EXPECT_FALSE(create());
    EXPECT_NE(why_.find("it may be there all the same"), std::string::npos) << why_;
  }
  EXPECT_EQ(log_.claim_containing("Failed to create database 'QA1' of HANA system HDB: "), 2U);
}

TEST_F(Tenant_Database_Creator_Test, Leaves_A_Database_That_Is_There_Alone) {
  script("hdbsql", {listed("\"QA1\",\"\",\"NO\",\"\",\"\"\n")});
  EXPECT_FALSE(create());
  EXPECT_EQ(why_, "the database QA1 exists already; nothing was created");
  EXPECT_EQ(runner_.calls().size(), 1U);
}

TEST_F(Tenant_Database_Creator_Test, Asks_HANA_For_Nothing_That_Cannot_Be) {
  const struct {
    std::string name;
    std::string password;
    const char* wanted;
  } rows[] = {{"", "S", "the name is not fit"},
              {"qa1", "S", "the name is not fit"},
              {"1QA", "S", "the name is not fit"},
              {"QA-1", "S", "the name is not fit"},
              {"QA1 NO START", "S", "the name is not fit"},
              {"QA1\nX", "S", "the name is not fit"},
              {std::string(128, 'A'), "S", "the name is not fit"},
              {"QA1", "", "is empty"},
              {"QA1", "a\nb", "holds control characters"},
              {"QA1", std::string("a\0b", 3), "holds control characters"},
              {"QA1", "a\x7f", "holds control characters"}};
  for (const auto& row : rows) {
    EXPECT_FALSE(create(row.name, row.password)) << row.name;
    EXPECT_NE(why_.find(row.wanted), std::string::npos) << row.name << ": " << why_;
  }
  EXPECT_TRUE(runner_.calls().empty());
}

TEST_F(Tenant_Database_Creator_Test, Knows_That_A_Single_Container_Has_No_Tenants) {
  configure("global.ini", "[persistence]\n");
  ASSERT_TRUE(executor_.init("HDB", "HDB00", "", "SYSTEM", secure_string("S1")));
  EXPECT_FALSE(create());
  EXPECT_EQ(why_, "the system HDB is a single container and has no tenants");
  EXPECT_TRUE(runner_.calls().empty());
}

TEST_F(Tenant_Database_Creator_Test, Creates_Nothing_When_The_Databases_Cannot_Be_Listed) {
  script("hdbsql", {child("", 1, "* 10: authentication failed SQLSTATE: 28000\n")});
  EXPECT_FALSE(create());
  EXPECT_NE(why_.find("the databases of system HDB cannot be listed"), std::string::npos) << why_;
  EXPECT_EQ(runner_.calls().size(), 1U);
  expect_error("Failed to log on to HANA HDB_HDB00 database 'SYSTEMDB'");
}

}  // namespace
