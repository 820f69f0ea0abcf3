#include "hana/common/hdbsql_executor.h"

#include <ace/Log_Record.h>

#include <cerrno>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "agent/instance/instance_manager.h"
#include "hana/common/hdbsql_error_msg_handler.h"
#include "hana/common/hdbsql_general_text_handler.h"
#include "unit/hana/common/hana_system.h"

namespace {

using namespace sap_hana;
using hana_test::child;

class HDBSQL_Executor_Test : public hana_test::HANA_System {
 protected:
  HDBSQL_Executor bound(const std::string& database = {}, const std::string& tool = {}) {
    HDBSQL_Executor executor(tool);
    EXPECT_TRUE(executor.init("HDB", "HDB00", database, "SYSTEM", secure_string(hana_test::password)));
    return executor;
  }
  support::Seen_Call only_call() {
    EXPECT_EQ(runner_.calls().size(), 1U);
    return runner_.calls().empty() ? support::Seen_Call() : runner_.calls().front();
  }
};

TEST_F(HDBSQL_Executor_Test, Runs_The_Instances_Tool_As_Its_User_With_Its_Environment) {
  script("hdbsql", {child("")});
  EXPECT_TRUE(bound().execute("select 1 from DUMMY", nullptr));
  const support::Seen_Call call = only_call();
  EXPECT_EQ(call.program, "/usr/sap/HDB/HDB00/exe/hdbsql");
  EXPECT_EQ(call.arguments, (std::vector<std::string>{"-x", "-j", "-quiet"}));
  EXPECT_EQ(call.user, "hdbadm");
  const std::map<std::string, std::string> wanted = {
      {"DIR_EXECUTABLE", "/usr/sap/HDB/HDB00/exe"},
      {"DIR_INSTANCE", "/usr/sap/HDB/HDB00"},
      {"HOME", "/usr/sap/HDB/home"},
      {"LANG", "en_US.UTF-8"},
      {"LD_LIBRARY_PATH", "/usr/sap/HDB/HDB00/exe"},
      {"LOGNAME", "hdbadm"},
      {"PATH", "/usr/sap/HDB/HDB00/exe:/usr/sap/HDB/HDB00:/usr/local/bin:/usr/bin:/bin:/usr/sbin:/sbin"},
      {"SAPSYSTEMNAME", "HDB"},
      {"SAP_HOSTNAME", "hanahost"},
      {"SAP_RETRIEVAL_PATH", "/usr/sap/HDB/HDB00/hanahost"},
      {"TINSTANCE", "00"},
      {"USER", "hdbadm"},
      {"VTHOSTNAME", "hanahost"}};
  EXPECT_EQ(call.environment, wanted);
  EXPECT_EQ(call.input, "\\c -i 00 -d SYSTEMDB -u SYSTEM -p \"Tr1cky \"\"pass\\word\"\nselect 1 from DUMMY\n\\q\n");
}

TEST_F(HDBSQL_Executor_Test, Takes_The_Home_Of_The_Systems_User) {
  root_.write("/etc/passwd", "root:x:0:0::/root:/bin/sh\nhdbadm:x:1001:79::/home/hdbadm:/bin/sh\n");
  script("hdbsql", {child("")});
  EXPECT_TRUE(bound().execute("select 1 from DUMMY", nullptr));
  EXPECT_EQ(only_call().environment.at("HOME"), "/home/hdbadm");
}

TEST_F(HDBSQL_Executor_Test, Shows_The_Password_To_Standard_Input_Alone) {
  const std::string secret = hana_test::password;
  // Also a tool that repeats all it is given keeps nothing in the log.
  script("hdbsql", {child("\\c -p " + secret + "\n", 3, "* 3: cannot run -p " + secret + "\n" + secret + "\n"),
                    child("* " + secret + "\n", 7, secret)});
  const HDBSQL_Executor executor = bound();
  EXPECT_FALSE(executor.execute("select 1 from DUMMY", nullptr));
  EXPECT_FALSE(executor.execute("select 1 from DUMMY", nullptr));
  for (const support::Seen_Call& call : runner_.calls()) {
    for (const std::string& argument : call.arguments) EXPECT_EQ(argument.find("pass"), std::string::npos);
    for (const auto& [name, value] : call.environment) EXPECT_EQ(value.find("pass"), std::string::npos) << name;
    EXPECT_NE(call.input.find("pass"), std::string::npos);
  }
  EXPECT_EQ(log_.dump().find(secret), std::string::npos) << log_.dump();
  EXPECT_EQ(log_.dump().find("pass\\word"), std::string::npos) << log_.dump();
  log_.claim_all();
}

TEST_F(HDBSQL_Executor_Test, Binds_To_The_Database_That_Is_Meant) {
  install("OLD", "HDB01", "hanahost", "1.00.122.05 Build 1");
  configure("global.ini", "[persistence]\n", "OLD");
  const struct {
    const char* sid;
    const char* instance_name;
    const char* database;
    const char* wanted;
    const char* connect;
  } rows[] = {{"HDB", "HDB00", "", "SYSTEMDB", "\\c -i 00 -d SYSTEMDB -u SYSTEM -p S1\n"},
              {"HDB", "HDB00", "TN1", "TN1", "\\c -i 00 -d TN1 -u SYSTEM -p S1\n"},
              {"HDB", "HDB00", "x y", "x y", "\\c -i 00 -d \"x y\" -u SYSTEM -p S1\n"},
              {"OLD", "HDB01", "", "", "\\c -i 01 -u SYSTEM -p S1\n"},
              {"OLD", "HDB01", "OLD", "", "\\c -i 01 -u SYSTEM -p S1\n"}};
  script("hdbsql", {child("")});
  for (const auto& row : rows) {
    HDBSQL_Executor executor("");
    EXPECT_FALSE(executor.is_initialized());
    ASSERT_TRUE(executor.init(row.sid, row.instance_name, row.database, "SYSTEM", secure_string("S1")));
    EXPECT_TRUE(executor.is_initialized());
    EXPECT_EQ(executor.database(), row.wanted);
    EXPECT_EQ(executor.sid(), row.sid);
    EXPECT_TRUE(runner_.calls().empty() || &row != &rows[0]) << "init must not log on";
    EXPECT_TRUE(executor.execute("\\s", nullptr));
    EXPECT_TRUE(runner_.calls().back().input.starts_with(row.connect)) << runner_.calls().back().input;
  }
}

TEST_F(HDBSQL_Executor_Test, Finds_The_Instance_Of_A_Registry_Name) {
  Instance_Manager registry;
  const Scoped_Instance_Manager scope(registry);
  auto instance = std::make_shared<Instance>();
  instance->type = "hana";
  instance->name = "HDB_HDB00";
  instance->options = {{"sid", "HDB"}, {"instance_name", "HDB00"}};
  ASSERT_TRUE(registry.store({{instance->name, instance}}));
  HDBSQL_Executor executor("");
  EXPECT_TRUE(executor.init("HDB_HDB00", "", "SYSTEM", secure_string("S1")));
  EXPECT_EQ(executor.instance_number(), 0);
  EXPECT_EQ(executor.dir_executable(), "/usr/sap/HDB/HDB00/exe");
  EXPECT_TRUE(executor.is_multi_container());
  EXPECT_EQ(executor.host(), "hanahost");
  EXPECT_FALSE(executor.init("HDB_HDB07", "", "SYSTEM", secure_string("S1")));
  EXPECT_FALSE(executor.is_initialized());
  expect_error("The agent knows no HANA instance 'HDB_HDB07'");
}

TEST_F(HDBSQL_Executor_Test, Needs_A_Registry_For_A_Registry_Name) {
  HDBSQL_Executor executor("");
  EXPECT_FALSE(executor.init("HDB_HDB00", "", "SYSTEM", secure_string("S1")));
  expect_error("The agent knows no HANA instance 'HDB_HDB00'");
}

TEST_F(HDBSQL_Executor_Test, Binds_To_A_Listed_Database) {
  Database_Info info;
  info.instance_info.system_info.sid = "HDB";
  info.instance_info.system_info.multi_container = true;
  info.instance_info.instance_number = 0;
  info.instance_info.dir_executable = "/usr/sap/HDB/HDB00/exe";
  info.name = "TN1";
  HDBSQL_Executor executor("");
  ASSERT_TRUE(executor.init(info, "SYSTEM", secure_string("S1")));
  EXPECT_EQ(executor.database(), "TN1");
  script("hdbsql", {child("")});
  EXPECT_TRUE(executor.execute("\\s", nullptr));
  EXPECT_EQ(only_call().program, "/usr/sap/HDB/HDB00/exe/hdbsql");
}

TEST_F(HDBSQL_Executor_Test, Refuses_What_Cannot_Be_Given_To_The_Tool) {
  const struct {
    const char* database;
    const char* username;
    const char* secret;
    const char* message;
  } rows[] = {
      {"", "", "S1", "No user name to log on to HANA with: it is empty"},
      {"", "SYSTEM", "", "No password to log on to HANA with: it is empty"},
      {"a\nb", "SYSTEM", "S1", "The database name to log on to HANA with holds control characters"},
      {"", "SYS\rTEM", "S1", "The user name to log on to HANA with holds control characters"},
      {"", "SYSTEM", "S1\n\\! x", "The password to log on to HANA with holds control characters"},
      {"", "SYSTEM", "S\x7f", "The password to log on to HANA with holds control characters"},
  };
  for (const auto& row : rows) {
    HDBSQL_Executor executor = bound();
    EXPECT_FALSE(executor.init("HDB", "HDB00", row.database, row.username, secure_string(row.secret))) << row.message;
    EXPECT_FALSE(executor.is_initialized()) << "an executor must not keep what it was bound to before";
    expect_error(row.message);
  }
}

TEST_F(HDBSQL_Executor_Test, Refuses_An_Instance_That_Is_Not_Installed) {
  const struct {
    const char* sid;
    const char* instance_name;
  } rows[] = {{"QQQ", "HDB00"}, {"HDB", "HDB01"}, {"", ""}, {"../", "HDB00"}, {"HDB", "../HDB/HDB00"}};
  for (const auto& row : rows) {
    HDBSQL_Executor executor("");
    EXPECT_FALSE(executor.init(row.sid, row.instance_name, "", "SYSTEM", secure_string("S1")));
    expect_error("is not installed on this host\n");
  }
}

TEST_F(HDBSQL_Executor_Test, Does_Nothing_Before_Init) {
  const HDBSQL_Executor executor("");
  EXPECT_FALSE(executor.execute("select 1 from DUMMY", nullptr));
  expect_error("Failed to execute 'select 1 from DUMMY': the executor is not bound to a database\n");
}

TEST_F(HDBSQL_Executor_Test, Runs_The_Tool_It_Was_Made_With) {
  script("other", {child("")});
  EXPECT_TRUE(bound({}, "other").execute("\\s", nullptr));
  EXPECT_TRUE(bound({}, "/opt/x/other").execute("\\s", nullptr));
  EXPECT_EQ(runner_.calls()[0].program, "/usr/sap/HDB/HDB00/exe/other");
  EXPECT_EQ(runner_.calls()[1].program, "/opt/x/other");
}

TEST_F(HDBSQL_Executor_Test, Fails_With_One_Line_That_Tells_Why) {
  const struct {
    const char* name;
    support::Scripted_Child answer;
    const char* message;
  } rows[] = {
      {"logon", child("", 10, "* 10: authentication failed SQLSTATE: 28000\n"),
       "Failed to log on to HANA HDB_HDB00 database 'SYSTEMDB' as 'SYSTEM': * 10: authentication failed SQLSTATE: "
       "28000\n"},
      {"logon with exit 0", child("", 0, "* 10: authentication failed SQLSTATE: 28000\n"),
       "Failed to log on to HANA HDB_HDB00 database 'SYSTEMDB' as 'SYSTEM': * 10: authentication failed SQLSTATE: "
       "28000\n"},
      {"locked", child("", 160, "* 416: user is locked; try again later: lock time is 1440 minutes; user is locked\n"),
       "Failed to log on to HANA HDB_HDB00 database 'SYSTEMDB' as 'SYSTEM': * 416: user is locked; try again later: "
       "lock time is 1440 minutes; user is locked\n"},
      {"nobody listens", child("", 43, "* -10709: Connection failed (RTE:[89006] System call 'connect' failed)\n"),
       "Failed to connect to HANA HDB_HDB00 database 'SYSTEMDB': * -10709: Connection failed (RTE:[89006] System call "
       "'connect' failed)\n"},
      {"statement", child("", 3, "* 259: invalid table name: Could not find table/view X SQLSTATE: HY000\n"),
       "HANA HDB_HDB00 database 'SYSTEMDB' refused 'select 1 ? from X': * 259: invalid table name: Could not find "
       "table/view X SQLSTATE: HY000\n"},
      {"missing", hana_test::not_started(ENOENT),
       "Failed to run '/usr/sap/HDB/HDB00/exe/hdbsql' for HANA HDB_HDB00 database 'SYSTEMDB': hdbsql could not be "
       "started: No such file or directory\n"},
      {"garbage", child("\x01\xff#garbage\n", 1),
       "Failed to run '/usr/sap/HDB/HDB00/exe/hdbsql' for HANA HDB_HDB00 database 'SYSTEMDB': hdbsql ended with exit "
       "code 1 and gave no reason\n"},
  };
  for (const auto& row : rows) {
    runner_.clear_rules();
    script("hdbsql", {row.answer});
    EXPECT_FALSE(bound().execute("select 1 \t from X", nullptr)) << row.name;
    EXPECT_TRUE(log_.claim(row.message)) << row.name << "\n" << log_.dump();
  }
  support::Scripted_Child killed;
  killed.signal = 9;
  runner_.clear_rules();
  script("hdbsql", {killed});
  EXPECT_FALSE(bound().execute("select 1 from X", nullptr));
  expect_error("hdbsql was killed by signal 9 and gave no reason\n");
}

TEST_F(HDBSQL_Executor_Test, Tells_The_Kind_Of_Failure_Without_Logging_It) {
  script("hdbsql", {child("", 10, "* 10: authentication failed\n"), child("", 3, "* 259: invalid table name\n")});
  const HDBSQL_Executor executor = bound();
  const HDBSQL_Outcome logon = executor.run("select 1 from X", nullptr, nullptr);
  EXPECT_EQ(logon.failure, HDBSQL_Failure::logon);
  EXPECT_EQ(logon.code, 10);
  EXPECT_EQ(executor.run("select 1 from X", nullptr, nullptr).failure, HDBSQL_Failure::statement);
  EXPECT_EQ(executor.run(" ", nullptr, nullptr).failure, HDBSQL_Failure::bad_statement);
}

TEST_F(HDBSQL_Executor_Test, Ends_A_Tool_That_Takes_Longer_Than_It_May) {
  support::Scripted_Child hanging = child("");
  hanging.hangs = true;
  hanging.before = [this] { clock_.advance(question_limit); };
  support::Scripted_Child slow = child("");
  slow.before = hanging.before;
  script("hdbsql", {hanging, slow});
  HDBSQL_Executor executor = bound();
  executor.time_limit(question_limit);
  HDBSQL_General_Text_Handler rows;
  const HDBSQL_Outcome outcome = executor.run("select 1 from DUMMY", &rows, nullptr);
  EXPECT_EQ(outcome.failure, HDBSQL_Failure::connection);
  EXPECT_EQ(outcome.message, "HANA did not answer within 60 seconds, hdbsql was ended");
  EXPECT_TRUE(bound().execute("BACKUP DATA USING BACKINT ('x')", nullptr)) << "others take as long as they take";
}

TEST_F(HDBSQL_Executor_Test, Asks_With_A_Limit_Beside_Statements_Without_One) {
  support::Scripted_Child hanging = child("");
  hanging.hangs = true;
  hanging.before = [this] { clock_.advance(question_limit); };
  support::Scripted_Child slow = child("");
  slow.before = hanging.before;
  script("hdbsql", {hanging, slow});
  const HDBSQL_Executor executor = bound();
  EXPECT_EQ(executor.with_time_limit(question_limit).run("select 1 from DUMMY", nullptr, nullptr).failure,
            HDBSQL_Failure::connection);
  EXPECT_TRUE(executor.execute("BACKUP DATA USING BACKINT ('x')", nullptr));
}

TEST_F(HDBSQL_Executor_Test, Hands_Every_Line_To_The_Handler) {
  script("hdbsql", {child(hana_test::test_data("hdbsql/catalog_entry.txt")),
                    child("", 191, "* 447: backup could not be completed: Backup was canceled by user\n")});
  const HDBSQL_Executor executor = bound();
  HDBSQL_General_Text_Handler table;
  EXPECT_TRUE(executor.execute("select STATE_NAME, SYS_END_TIME from SYS.M_BACKUP_CATALOG", &table, nullptr));
  std::string value;
  EXPECT_TRUE(last_value(table, "SYS_END_TIME", value));
  EXPECT_EQ(value, "2026-04-14 08:15:31.123000000");
  HDBSQL_Error_Msg_Handler cancelled;
  EXPECT_FALSE(executor.execute("BACKUP DATA USING BACKINT('x')", &cancelled, nullptr));
  EXPECT_TRUE(cancelled.is_canceled());
  expect_error("Backup was canceled by user");
}

TEST_F(HDBSQL_Executor_Test, Keeps_The_Table_Of_An_Earlier_Attempt_When_A_Later_One_Prints_Nothing) {
  script("hdbsql", {child("BACKUP_ID\n17\n", 3, "* 1: general error\n"), hana_test::not_started(ENOENT), child("")});
  const HDBSQL_Executor executor = bound();
  HDBSQL_General_Text_Handler table;
  EXPECT_FALSE(executor.execute("select BACKUP_ID", &table, nullptr));
  EXPECT_FALSE(executor.execute("select BACKUP_ID", &table, nullptr));
  EXPECT_TRUE(executor.execute("select BACKUP_ID", &table, nullptr));
  EXPECT_EQ(table.get_values().size(), 1U);
  log_.claim_all();
}

TEST_F(HDBSQL_Executor_Test, Is_Not_Stopped_By_A_Handler_That_Refuses_Lines) {
  struct Refuser : Text_Process_Handler {
    int handle_stdout_line(const char*, std::size_t) override {
      ++lines;
      return -1;
    }
    int lines = 0;
  } handler;
  script("hdbsql", {child("a\nb\nc\n")});
  EXPECT_TRUE(bound().execute("select 1 from DUMMY", &handler, nullptr));
  EXPECT_EQ(handler.lines, 3);
}

TEST_F(HDBSQL_Executor_Test, Logs_The_Output_Without_A_Handler) {
  script("hdbsql", {child("0 rows affected (overall time 1 sec; server time 1 sec)\n\n", 0,
                          "Warning: * 431: user's password will expire within few days SQLSTATE: 01010\n")});
  EXPECT_TRUE(bound().execute("BACKUP CANCEL 17", nullptr));
  EXPECT_TRUE(log_.has("hdbsql: 0 rows affected (overall time 1 sec; server time 1 sec)\n")) << log_.dump();
  EXPECT_TRUE(log_.has("hdbsql: Warning: * 431: user's password will expire within few days SQLSTATE: 01010\n"));
}

class Recording_Callback : public ACE_Log_Msg_Callback {
 public:
  void log(ACE_Log_Record& record) override { lines.emplace_back(record.msg_data()); }
  std::vector<std::string> lines;
};

TEST_F(HDBSQL_Executor_Test, Sends_Its_Messages_To_The_Callback_Of_The_Call) {
  script("hdbsql", {child("done\n", 3, "* 3: refused\n")});
  const HDBSQL_Executor executor = bound();
  const auto callback = std::make_shared<Recording_Callback>();
  EXPECT_FALSE(executor.execute("BACKUP CANCEL 17", callback));
  EXPECT_FALSE(executor.execute("BACKUP CANCEL 17", nullptr));
  EXPECT_EQ(callback->lines,
            (std::vector<std::string>{
                "hdbsql: done\n", "HANA HDB_HDB00 database 'SYSTEMDB' refused 'BACKUP CANCEL 17': * 3: refused\n"}));
  EXPECT_EQ(log_.claim_containing("* 3: refused"), 2U);
}

TEST_F(HDBSQL_Executor_Test, Runs_Two_Statements_At_Once) {
  std::mutex mutex;
  std::condition_variable changed;
  bool queried = false;
  runner_.on([&](const support::Seen_Call& call, support::Scripted_Child& answer) {
    const bool backup = call.input.find("\nBACKUP") != std::string::npos;
    answer = child(backup ? "A\n\"backup\"\n" : "A\n\"query\"\n");
    answer.before = [&, backup] {
      std::unique_lock guard(mutex);
      if (backup) {
        EXPECT_TRUE(changed.wait_for(guard, std::chrono::seconds(20), [&] { return queried; }));
      } else {
        queried = true;
        changed.notify_all();
      }
    };
    return true;
  });
  const HDBSQL_Executor executor = bound();
  HDBSQL_General_Text_Handler first, second;
  std::thread worker([&] { EXPECT_TRUE(executor.execute("BACKUP DATA", &first, nullptr)); });
  EXPECT_TRUE(executor.execute("select 1", &second, nullptr));
  worker.join();
  EXPECT_EQ(first.get_values().back().front(), "backup");
  EXPECT_EQ(second.get_values().back().front(), "query");
}

}  // namespace
