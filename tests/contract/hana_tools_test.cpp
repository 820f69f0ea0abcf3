#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <optional>

#include "hana/common/database_lister.h"
#include "hana/common/environ_getter.h"
#include "hana/common/hdbsql_error_msg_handler.h"
#include "hana/common/hdbsql_executor.h"
#include "hana/common/hdbsql_general_text_handler.h"
#include "hana/common/instance_control.h"
#include "hana/common/name_server_config_parser.h"
#include "hana/common/replication_state_getter.h"
#include "hana/common/system_config_manager.h"
#include "hana/common/system_control.h"
#include "hana/common/system_instance_lister.h"
#include "hana/common/tenant_database_control.h"
#include "platform/file_root.h"
#include "platform/process_runner.h"
#include "support/log_capture.h"
#include "support/temp_root.h"

// The HANA services over programs that really run: what the unit tests say with scripted processes, shown on the
// stand-in's tools and its database behind them.

namespace {

using namespace sap_hana;

constexpr const char* tricky_password = "Tr1cky \"pass\\word;";

struct Discard final : platform::Output_Sink {
  void on_output(platform::Output_Stream, const char* data, std::size_t size) override { text.append(data, size); }
  std::string text;
};

/// Runs one of the stand-in's own programs, which lie outside the root.
bool run_outside(const std::string& program, std::vector<std::string> arguments) {
  const platform::Scoped_File_Root outside("");
  platform::Process_Spec spec;
  spec.program = std::string(STANDIN_DIRECTORY) + "/" + program;
  spec.arguments = std::move(arguments);
  Discard output;
  const platform::Exit_Status status = platform::Process_Runner::current().run(spec, output);
  EXPECT_TRUE(status.success()) << program << " " << platform::describe(status) << "\n" << output.text;
  return status.success();
}

/// HANA system HDB with the tenants TN1 and TN2, running; one for all cases of the suite.
class HANA_Tools_Contract : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    root_.emplace();
    const std::string secret = root_->path() + "/password";
    std::ofstream(secret) << tricky_password << "\n";
    ASSERT_TRUE(run_outside("standin-hana-install", {"--root", root_->path(), "--sid", "HDB", "--nr", "00", "--host",
                                                     "hanahost", "--version", "2.00.059.00.1632920961", "--tenant",
                                                     "TN1", "--tenant", "TN2", "--password-file", secret}));
    ASSERT_TRUE(Instance_Controller("HDB").start("HDB00"));
  }
  static void TearDownTestSuite() {
    EXPECT_TRUE(Instance_Controller("HDB").stop("HDB00"));
    root_.reset();
  }
  void TearDown() override { control({"no-faults"}); }

  static void control(std::vector<std::string> words) {
    words.insert(words.begin(), {"--root", root_->path(), "--sid", "HDB"});
    EXPECT_TRUE(run_outside("standin-hana-control", words));
  }
  static HDBSQL_Executor bound(const std::string& database = {}, const char* secret = tricky_password) {
    HDBSQL_Executor executor("");
    EXPECT_TRUE(executor.init("HDB", "HDB00", database, "SYSTEM", secure_string(secret)));
    return executor;
  }
  void expect_error(const std::string& part) {
    EXPECT_EQ(log_.claim_containing(part), 1U) << "wanted: " << part << "\nlogged:\n" << log_.dump();
  }

  static std::optional<support::Temp_Root> root_;
  support::Log_Capture log_;
};

std::optional<support::Temp_Root> HANA_Tools_Contract::root_;

TEST_F(HANA_Tools_Contract, Finds_The_Installation) {
  std::list<System_Instance_Info> infos;
  ASSERT_TRUE(System_Instance_Lister().list(infos));
  ASSERT_EQ(infos.size(), 1U);
  EXPECT_EQ(infos.front().system_info.sid, "HDB");
  EXPECT_EQ(infos.front().system_info.localhost, "hanahost");
  EXPECT_EQ(infos.front().system_info.version, "2.00.059.00");
  EXPECT_TRUE(infos.front().system_info.multi_container);
  bool cluster = true, master = false;
  EXPECT_TRUE(Name_Server_Config_Parser("HDB").is_cluster(cluster));
  EXPECT_TRUE(Name_Server_Config_Parser("HDB").is_active_master(master));
  EXPECT_FALSE(cluster);
  EXPECT_TRUE(master);
  std::string id;
  EXPECT_TRUE(Environ_Getter::instance()->get_landscape_id("HDB", id));
  EXPECT_EQ(id.size(), 36U);
  std::vector<std::string> dirs;
  EXPECT_TRUE(Environ_Getter::instance()->get_trace_dirs("HDB", dirs));
  EXPECT_EQ(dirs, (std::vector<std::string>{"/usr/sap/HDB/HDB00/hanahost/trace"}));
}

TEST_F(HANA_Tools_Contract, Tells_That_The_Instance_Runs) {
  Instance_Controller::Instance_State state = Instance_Controller::INSTANCE_STATE_UNKNOWN;
  EXPECT_TRUE(Instance_Controller("HDB").get_state(0, state));
  EXPECT_EQ(state, Instance_Controller::INSTANCE_STATE_RUNNING);
}

TEST_F(HANA_Tools_Contract, Stops_And_Starts_The_Instance) {
  Instance_Controller controller("HDB");
  ASSERT_TRUE(controller.stop("HDB00"));
  Instance_Controller::Instance_State state = Instance_Controller::INSTANCE_STATE_UNKNOWN;
  EXPECT_TRUE(controller.get_state("HDB00", state));
  EXPECT_EQ(state, Instance_Controller::INSTANCE_STATE_STOPPED);
  EXPECT_EQ(bound().run("\\s", nullptr, nullptr).failure, HDBSQL_Failure::connection);
  ASSERT_TRUE(controller.start("HDB00"));
  EXPECT_TRUE(controller.get_state("HDB00", state));
  EXPECT_EQ(state, Instance_Controller::INSTANCE_STATE_RUNNING);
}

TEST_F(HANA_Tools_Contract, Logs_On_With_A_Password_Of_Special_Characters) {
  EXPECT_TRUE(bound().execute("\\s", nullptr));
  EXPECT_TRUE(bound("TN1").execute("\\s", nullptr));
}

TEST_F(HANA_Tools_Contract, Tells_A_Refused_Logon_From_A_Failing_Statement) {
  const HDBSQL_Outcome refused = bound({}, "wrong").run("\\s", nullptr, nullptr);
  EXPECT_EQ(refused.failure, HDBSQL_Failure::logon) << refused.message;
  EXPECT_EQ(refused.code, 10);
  const HDBSQL_Outcome statement = bound().run("select X from SYS.NO_SUCH_TABLE", nullptr, nullptr);
  EXPECT_EQ(statement.failure, HDBSQL_Failure::statement) << statement.message;
  EXPECT_NE(statement.code, 0);
  control({"lock", "SYSTEMDB", "SYSTEM"});
  const HDBSQL_Outcome locked = bound().run("\\s", nullptr, nullptr);
  control({"unlock", "SYSTEMDB", "SYSTEM"});
  EXPECT_EQ(locked.failure, HDBSQL_Failure::logon) << locked.message;
}

TEST_F(HANA_Tools_Contract, Tells_That_The_Tool_Died) {
  control({"fault", "die_hdbsql = 9"});
  const HDBSQL_Outcome outcome = bound().run("select * from SYS.M_DATABASE", nullptr, nullptr);
  EXPECT_EQ(outcome.failure, HDBSQL_Failure::tool) << outcome.message;
  EXPECT_NE(outcome.message.find("killed by signal 9"), std::string::npos);
}

TEST_F(HANA_Tools_Contract, Fails_On_An_Error_Though_The_Exit_Code_Is_0) {
  control({"fault", "error_exit_zero = 1"});
  EXPECT_EQ(bound().run("select X from SYS.NO_SUCH_TABLE", nullptr, nullptr).failure, HDBSQL_Failure::statement);
}

TEST_F(HANA_Tools_Contract, Makes_No_Rows_Of_Garbage) {
  control({"fault", "garbage = \"#!%&,not a table"});
  HDBSQL_General_Text_Handler handler;
  static_cast<void>(bound().run("select DATABASE_NAME from SYS.M_DATABASE", &handler, nullptr));
  std::string value;
  EXPECT_FALSE(last_value(handler, "DATABASE_NAME", value));
}

TEST_F(HANA_Tools_Contract, Reads_Rows_Also_Of_A_Statement_On_Several_Lines) {
  HDBSQL_General_Text_Handler handler;
  EXPECT_TRUE(bound().execute("select DATABASE_NAME,\nVERSION\nfrom SYS.M_DATABASE", &handler, nullptr));
  std::string value;
  EXPECT_TRUE(last_value(handler, "DATABASE_NAME", value));
  EXPECT_EQ(value, "SYSTEMDB");
  EXPECT_TRUE(last_value(handler, "VERSION", value));
  EXPECT_EQ(value, "2.00.059.00.1632920961");
}

TEST_F(HANA_Tools_Contract, Lists_The_Databases) {
  Database_Lister lister("HDB", "HDB00", "SYSTEM", secure_string(tricky_password));
  std::list<Database_Info> infos;
  ASSERT_TRUE(lister.list(infos, ""));
  std::string names;
  for (const Database_Info& info : infos) names += info.name + (info.active ? "+ " : "- ");
  EXPECT_EQ(names, "SYSTEMDB+ TN1+ TN2+ ");
  Database_Info info;
  EXPECT_TRUE(lister.list(info, "TN2"));
  EXPECT_EQ(info.name, "TN2");
  EXPECT_FALSE(lister.list(info, "TN9"));
  expect_error("HANA system HDB has no database 'TN9'\n");
}

TEST_F(HANA_Tools_Contract, Stops_And_Starts_A_Tenant) {
  HDBSQL_Executor executor = bound();
  Tenant_Database_Controller tenants(executor);
  Database_Lister lister(executor);
  Database_Info info;
  EXPECT_TRUE(tenants.stop("TN1"));
  EXPECT_TRUE(tenants.stop("TN1"));
  EXPECT_TRUE(lister.list(info, "TN1"));
  EXPECT_FALSE(info.active);
  EXPECT_TRUE(tenants.start("TN1"));
  EXPECT_TRUE(tenants.start("TN1"));
  EXPECT_TRUE(lister.list(info, "TN1"));
  EXPECT_TRUE(info.active);
  EXPECT_FALSE(tenants.start("TN9"));
  expect_error("HANA system HDB has no database 'TN9'\n");
}

TEST_F(HANA_Tools_Contract, Changes_The_Configuration) {
  const HDBSQL_Executor executor = bound();
  System_Config_Manager manager(executor);
  EXPECT_TRUE(manager.alter_log_mode(System_Config_Manager::LOG_MODE_NORMAL));
  EXPECT_TRUE(manager.alter_auto_log_backup(true));
  EXPECT_TRUE(manager.alter_log_backup_using_backint(true));
  EXPECT_TRUE(manager.alter_log_backup_using_backint(false));
  EXPECT_TRUE(manager.alter_catalog_backup_using_backint(false));
}

TEST_F(HANA_Tools_Contract, Tells_The_Replication_State) {
  const struct {
    const char* mode;
    const char* operation_mode;
  } rows[] = {{"primary", "primary"}, {"syncmem", "logreplay"}, {"async", "logreplay"}, {"none", nullptr}};
  for (const auto& row : rows) {
    control({"replication", row.mode});
    Replication_State_Getter::Replication_State state;
    EXPECT_TRUE(Replication_State_Getter("HDB").get_state(state)) << row.mode;
    EXPECT_EQ(state.mode, row.mode);
    if (row.operation_mode != nullptr) {
      EXPECT_EQ(state.operation_mode, row.operation_mode);
    }
  }
}

}  // namespace
