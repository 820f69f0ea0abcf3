#include "hana/common/tenant_database_control.h"

#include "hana/common/system_config_manager.h"
#include "unit/hana/common/hana_system.h"

namespace {

using namespace sap_hana;
using hana_test::child;

/// The statements that hdbsql is given, answered in order.
class Scripted_Statements : public hana_test::HANA_System {
 protected:
  Scripted_Statements() { EXPECT_TRUE(executor_.init("HDB", "HDB00", "", "SYSTEM", secure_string("S1"))); }
  std::vector<std::string> statements() {
    std::vector<std::string> seen;
    for (const support::Seen_Call& call : runner_.calls()) {
      const std::size_t start = call.input.find('\n') + 1;
      seen.push_back(call.input.substr(start, call.input.rfind("\n\\q\n") - start));
    }
    return seen;
  }
  static support::Scripted_Child status(const std::string& text) { return child("ACTIVE_STATUS\n\"" + text + "\"\n"); }

  HDBSQL_Executor executor_{""};
};

using Tenant_Database_Controller_Test = Scripted_Statements;
using System_Config_Manager_Test = Scripted_Statements;

constexpr const char* status_statement = "select ACTIVE_STATUS from SYS.M_DATABASES where DATABASE_NAME='TN1'";

TEST_F(Tenant_Database_Controller_Test, Leaves_A_Database_That_Is_Where_It_Should_Be) {
  script("hdbsql", {status("YES"), status("NO")});
  EXPECT_TRUE(Tenant_Database_Controller(executor_).start("TN1"));
  EXPECT_TRUE(Tenant_Database_Controller(executor_).stop("TN1"));
  EXPECT_EQ(statements(), (std::vector<std::string>{status_statement, status_statement}));
}

TEST_F(Tenant_Database_Controller_Test, Starts_And_Waits_Until_It_Is_Active) {
  script("hdbsql", {status("NO"), child(""), status("STARTING"), status("STARTING"), status("YES")});
  EXPECT_TRUE(Tenant_Database_Controller(executor_).start("TN1"));
  EXPECT_EQ(statements(), (std::vector<std::string>{status_statement, "ALTER SYSTEM START DATABASE TN1",
                                                    status_statement, status_statement, status_statement}));
  EXPECT_EQ(clock_.sleeps(), (std::vector<double>{10, 10}));
}

TEST_F(Tenant_Database_Controller_Test, Stops_And_Waits_Until_It_Is_Down) {
  script("hdbsql", {status("YES"), child(""), status("STOPPING"), status("NO")});
  EXPECT_TRUE(Tenant_Database_Controller(executor_).stop("TN1"));
  EXPECT_EQ(statements().at(1), "ALTER SYSTEM STOP DATABASE TN1");
}

TEST_F(Tenant_Database_Controller_Test, Waits_For_A_Start_That_Is_Under_Way) {
  script("hdbsql", {status("STARTING"), status("STARTING"), status("YES")});
  EXPECT_TRUE(Tenant_Database_Controller(executor_).start("TN1"));
  EXPECT_EQ(statements(), (std::vector<std::string>(3, status_statement)));
}

TEST_F(Tenant_Database_Controller_Test, Takes_Already_Running_For_Success) {
  script("hdbsql",
         {status("NO"), child("", 2, "* 2: general error: database 'TN1' is already running SQLSTATE: HY000\n")});
  EXPECT_TRUE(Tenant_Database_Controller(executor_).start("TN1"));
}

TEST_F(Tenant_Database_Controller_Test, Quotes_Names_That_Are_Not_Plain) {
  const struct {
    const char* name;
    const char* where;
    const char* statement;
  } rows[] = {{"TN_1", "'TN_1'", "TN_1"},
              {"tn1", "'tn1'", "\"tn1\""},
              {"a'b", "'a''b'", "\"a'b\""},
              {"T\"; DROP", "'T\"; DROP'", "\"T\"\"; DROP\""}};
  for (const auto& row : rows) {
    runner_.clear_rules();
    script("hdbsql", {status("NO"), child(""), status("YES")});
    const std::size_t before = statements().size();
    EXPECT_TRUE(Tenant_Database_Controller(executor_).start(row.name));
    EXPECT_EQ(statements().at(before),
              std::string("select ACTIVE_STATUS from SYS.M_DATABASES where DATABASE_NAME=") + row.where);
    EXPECT_EQ(statements().at(before + 1), std::string("ALTER SYSTEM START DATABASE ") + row.statement);
  }
}

TEST_F(Tenant_Database_Controller_Test, Fails_For_A_Database_That_Does_Not_Exist) {
  script("hdbsql", {child("ACTIVE_STATUS\n")});
  EXPECT_FALSE(Tenant_Database_Controller(executor_).start("TN9"));
  expect_error("HANA system HDB has no database 'TN9'\n");
}

TEST_F(Tenant_Database_Controller_Test, Fails_When_HANA_Refuses) {
  script("hdbsql", {status("NO"), child("", 2, "* 258: insufficient privilege SQLSTATE: HY000\n")});
  EXPECT_FALSE(Tenant_Database_Controller(executor_).start("TN1"));
  expect_error("Failed to start database 'TN1' of HANA system HDB: * 258: insufficient privilege SQLSTATE: HY000\n");
}

TEST_F(Tenant_Database_Controller_Test, Fails_When_The_State_Cannot_Be_Asked) {
  script("hdbsql", {child("", 10, "* 10: authentication failed SQLSTATE: 28000\n")});
  EXPECT_FALSE(Tenant_Database_Controller(executor_).stop("TN1"));
  expect_error("Failed to log on to HANA");
}

TEST_F(Tenant_Database_Controller_Test, Fails_When_It_Falls_Back_Or_Takes_Too_Long) {
  script("hdbsql", {status("NO"), child(""), status("NO")});
  EXPECT_FALSE(Tenant_Database_Controller(executor_).start("TN1"));
  expect_error("Database 'TN1' of HANA system HDB did not start: its status is 'NO'\n");
  runner_.clear_rules();
  script("hdbsql", {status("YES"), child(""), status("STOPPING")});
  EXPECT_FALSE(Tenant_Database_Controller(executor_).stop("TN1"));
  expect_error("Database 'TN1' of HANA system HDB did not stop: its status is 'STOPPING'\n");
  EXPECT_EQ(clock_.sleeps().size(), 60U);
}

TEST_F(System_Config_Manager_Test, Changes_The_System_Layer_At_Once) {
  script("hdbsql", {child("")});
  System_Config_Manager manager(executor_);
  EXPECT_TRUE(manager.alter_log_mode(System_Config_Manager::LOG_MODE_NORMAL));
  EXPECT_TRUE(manager.alter_log_mode(System_Config_Manager::LOG_MODE_OVERWRITE));
  EXPECT_TRUE(manager.alter_auto_log_backup(true));
  EXPECT_TRUE(manager.alter_auto_log_backup(false));
  EXPECT_TRUE(manager.alter_log_backup_using_backint(true));
  EXPECT_TRUE(manager.alter_log_backup_using_backint(false));
  EXPECT_TRUE(manager.alter_catalog_backup_using_backint(true));
  EXPECT_TRUE(manager.alter_catalog_backup_using_backint(false));
  const std::string head = "ALTER SYSTEM ALTER CONFIGURATION ('global.ini','SYSTEM') SET ('";
  const std::string tail = "' WITH RECONFIGURE";
  EXPECT_EQ(statements(), (std::vector<std::string>{head + "persistence','log_mode') = 'normal" + tail,
                                                    head + "persistence','log_mode') = 'overwrite" + tail,
                                                    head + "persistence','enable_auto_log_backup') = 'yes" + tail,
                                                    head + "persistence','enable_auto_log_backup') = 'no" + tail,
                                                    head + "backup','log_backup_using_backint') = 'true" + tail,
                                                    head + "backup','log_backup_using_backint') = 'false" + tail,
                                                    head + "backup','catalog_backup_using_backint') = 'true" + tail,
                                                    head + "backup','catalog_backup_using_backint') = 'false" + tail}));
}

TEST_F(System_Config_Manager_Test, Refuses_An_Unknown_Mode_And_Tells_A_Failure) {
  System_Config_Manager manager(executor_);
  EXPECT_FALSE(manager.alter_log_mode(System_Config_Manager::LOG_MODE_UNKNOWN));
  expect_error("Log mode 0 is not known to HANA\n");
  script("hdbsql", {child("", 2, "* 258: insufficient privilege\n")});
  EXPECT_FALSE(manager.alter_auto_log_backup(true));
  expect_error("* 258: insufficient privilege\n");
}

}  // namespace
