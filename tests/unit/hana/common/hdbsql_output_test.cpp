#include "hana/common/hdbsql_output.h"

#include <cerrno>
#include <chrono>

#include "hana/common/hdbsql_error_msg_handler.h"
#include "hana/common/hdbsql_general_text_handler.h"
#include "unit/hana/common/hana_system.h"

namespace {

using namespace sap_hana;
using platform::Output_Stream;

TEST(HDBSQL_Error_Line, Tells_Errors_From_Warnings_And_Text) {
  const struct {
    const char* line;
    bool wanted;
    int code;
  } rows[] = {
      {"* 10: authentication failed SQLSTATE: 28000", true, 10},
      {"* -10709: Connection failed (RTE:[89006] System call 'connect' failed)", true, -10709},
      {"* 447: backup could not be completed", true, 447},
      {"* 99999999999: out of range", true, 0},
      {"Warning: * 431: user's password will expire within few days", false, 0},
      {" * 10: not at the start", false, 0},
      {"*10: no blank", false, 0},
      {"* ten: no number", false, 0},
      {"* 10", false, 0},
      {"* 10 :", false, 0},
      {"* ", false, 0},
      {"", false, 0},
  };
  for (const auto& row : rows) {
    int code = 0;
    const std::string exact(row.line);
    EXPECT_EQ(parse_hdbsql_error(exact, code), row.wanted) << row.line;
    EXPECT_EQ(code, row.code) << row.line;
  }
}

TEST(HDBSQL_Error_Line, Tells_A_Refused_Logon_From_A_Failing_Statement) {
  const struct {
    int code;
    HDBSQL_Failure wanted;
  } rows[] = {{10, HDBSQL_Failure::logon},          {414, HDBSQL_Failure::logon},
              {415, HDBSQL_Failure::logon},         {416, HDBSQL_Failure::logon},
              {-10709, HDBSQL_Failure::connection}, {-10000, HDBSQL_Failure::connection},
              {-9999, HDBSQL_Failure::statement},   {259, HDBSQL_Failure::statement},
              {447, HDBSQL_Failure::statement},     {1, HDBSQL_Failure::statement}};
  for (const auto& row : rows) EXPECT_EQ(classify_hdbsql_error(row.code), row.wanted) << row.code;
}

platform::Exit_Status ended(int code, int signal = 0) {
  platform::Exit_Status status;
  status.started = true;
  status.code = signal != 0 ? -1 : code;
  status.signal = signal;
  return status;
}

HDBSQL_Outcome outcome_of(const std::string& errors, const platform::Exit_Status& status) {
  const std::vector<secure_string> secrets{secure_string(hana_test::password)};
  HDBSQL_Output output(nullptr, secrets);
  output.on_output(Output_Stream::standard_error, errors.data(), errors.size());
  output.on_close(Output_Stream::standard_output);
  output.on_close(Output_Stream::standard_error);
  return output.outcome(status);
}

TEST(HDBSQL_Output, Judges_By_Errors_And_Exit_Status) {
  const support::Log_Capture log;
  platform::Exit_Status missing;
  missing.error = ENOENT;
  const struct {
    const char* name;
    const char* errors;
    platform::Exit_Status status;
    HDBSQL_Failure failure;
    int code;
    const char* message;
  } rows[] = {
      {"good", "", ended(0), HDBSQL_Failure::none, 0, ""},
      {"good with a warning", "Warning: * 431: user's password will expire within few days SQLSTATE: 01010\n", ended(0),
       HDBSQL_Failure::none, 0, ""},
      {"good with other text", "some note\n", ended(0), HDBSQL_Failure::none, 0, ""},
      {"error though exit 0", "* 259: invalid table name SQLSTATE: HY000\n", ended(0), HDBSQL_Failure::statement, 259,
       "* 259: invalid table name SQLSTATE: HY000"},
      {"refused logon, then not connected", "* 10: authentication failed SQLSTATE: 28000\n* -10404: Not connected\n",
       ended(3), HDBSQL_Failure::logon, 10, "* 10: authentication failed SQLSTATE: 28000"},
      {"error over two lines", "* 447: backup could not be completed: [110507] Backint exited\nconsole output: x\n",
       ended(191), HDBSQL_Failure::statement, 447,
       "* 447: backup could not be completed: [110507] Backint exited console output: x"},
      {"text behind a warning is none of the error's", "* 447: failed\nWarning: * 431: expires\nconsole output: x\n",
       ended(191), HDBSQL_Failure::statement, 447, "* 447: failed"},
      {"text behind a second error is none of the first's", "* 447: failed\n* -10404: Not connected\nmore of it\n",
       ended(191), HDBSQL_Failure::statement, 447, "* 447: failed"},
      {"single sign-on", "Single Sign-On authentication failed\n", ended(0), HDBSQL_Failure::logon, 10,
       "Single Sign-On authentication failed"},
      {"bad connect options", "Bad connect options (use -i ##,-n,-d,-u,-p,-U): -u X -p *******\n", ended(0),
       HDBSQL_Failure::logon, 10, "Bad connect options (use -i ##,-n,-d,-u,-p,-U): -u X -p *******"},
      {"bare exit code", "", ended(3), HDBSQL_Failure::tool, 0, "hdbsql ended with exit code 3 and gave no reason"},
      {"exit code with text", "libSQLDBCHDB.so: cannot open\n", ended(127), HDBSQL_Failure::tool, 0,
       "hdbsql ended with exit code 127: libSQLDBCHDB.so: cannot open"},
      {"killed", "", ended(0, 9), HDBSQL_Failure::tool, 0, "hdbsql was killed by signal 9 and gave no reason"},
      {"missing", "", missing, HDBSQL_Failure::tool, 0, "hdbsql could not be started: No such file or directory"},
      {"control characters without an error", "a\x1b[31mb\n", ended(127), HDBSQL_Failure::tool, 0,
       "hdbsql ended with exit code 127: a?[31mb"},
      {"control characters", "* 3: a\x1b[31mb\n", ended(3), HDBSQL_Failure::statement, 3, "* 3: a?[31mb"},
  };
  for (const auto& row : rows) {
    const HDBSQL_Outcome outcome = outcome_of(row.errors, row.status);
    EXPECT_EQ(outcome.failure, row.failure) << row.name;
    EXPECT_EQ(outcome.ok(), row.failure == HDBSQL_Failure::none) << row.name;
    EXPECT_EQ(outcome.code, row.code) << row.name;
    EXPECT_EQ(outcome.message, row.message) << row.name;
  }
}

TEST(HDBSQL_Output, Takes_The_First_Line_Of_The_Output_And_No_Later_One_For_A_Refused_Logon) {
  const support::Log_Capture log;
  const struct {
    const char* output;
    HDBSQL_Failure wanted;
  } rows[] = {{"Single Sign-On authentication failed\n", HDBSQL_Failure::logon},
              {"NOTE\nSingle Sign-On authentication failed\n", HDBSQL_Failure::none}};
  for (const auto& row : rows) {
    HDBSQL_General_Text_Handler handler;
    const std::vector<secure_string> secrets{secure_string("x")};
    HDBSQL_Output output(&handler, secrets);
    const std::string text = row.output;
    output.on_output(Output_Stream::standard_output, text.data(), text.size());
    output.on_close(Output_Stream::standard_output);
    output.on_close(Output_Stream::standard_error);
    EXPECT_EQ(output.outcome(ended(0)).failure, row.wanted) << text;
  }
}

TEST(HDBSQL_Output, Takes_The_Password_Out_Of_Messages) {
  const support::Log_Capture log;
  const std::string secret = hana_test::password;
  const HDBSQL_Outcome outcome = outcome_of("* 10: cannot use '" + secret + "' or " + secret + "\n", ended(10));
  EXPECT_EQ(outcome.message, "* 10: cannot use '***' or ***");
}

TEST(HDBSQL_Output, Takes_The_Password_Out_Of_What_It_Logs) {
  const support::Log_Capture log;
  const std::string secret = hana_test::password;
  const std::vector<secure_string> secrets{secure_string(secret.c_str())};
  HDBSQL_Output output(nullptr, secrets);
  const std::string printed = "said '" + secret + "'\n";
  output.on_output(Output_Stream::standard_output, printed.data(), printed.size());
  const std::string warning = "Warning: " + printed;
  output.on_output(Output_Stream::standard_error, warning.data(), warning.size());
  EXPECT_TRUE(log.has("hdbsql: said '***'\n")) << log.dump();
  EXPECT_TRUE(log.has("hdbsql: Warning: said '***'\n")) << log.dump();
  EXPECT_FALSE(log.has_containing(secret));
}

TEST(HDBSQL_Output, Cuts_An_Endless_Error) {
  const support::Log_Capture log;
  std::string errors = "* 3: begun\n";
  for (int i = 0; i < 1000; ++i) errors += "and so on and so on\n";
  EXPECT_LT(outcome_of(errors, ended(3)).message.size(), 2200U);
}

TEST(HDBSQL_Output, Keeps_A_Reason_So_Long_That_Only_The_End_Of_Its_Line_Is_Left) {
  const support::Log_Capture log;
  const support::Virtual_Clock clock;
  const std::vector<secure_string> secrets{secure_string("secret")};
  HDBSQL_Output output(nullptr, secrets);
  const std::string reason = "cannot open " + std::string(5U << 20, 'y');
  output.on_output(Output_Stream::standard_error, reason.data(), reason.size());
  output.on_output(Output_Stream::standard_error, "\n", 1);
  output.on_close(Output_Stream::standard_output);
  output.on_close(Output_Stream::standard_error);
  EXPECT_TRUE(output.outcome(ended(127)).message.starts_with("hdbsql ended with exit code 127: cannot open yyy"));
}

TEST(HDBSQL_Output, Gives_The_Answer_To_The_Connect_Command_To_Nobody) {
  const support::Log_Capture log;
  const std::vector<secure_string> secrets{secure_string("x")};
  HDBSQL_General_Text_Handler handler;
  HDBSQL_Output output(&handler, secrets);
  const std::string text = "Connected to SYSTEMDB@hanahost:30013\nA\n\"Connected to X\"\n";
  output.on_output(Output_Stream::standard_output, text.data(), text.size());
  output.on_close(Output_Stream::standard_output);
  output.on_close(Output_Stream::standard_error);
  EXPECT_EQ(handler.get_values(), (HDBSQL_General_Text_Handler::Values{{"Connected to X"}}));
}

TEST(HDBSQL_Output, Tells_The_Handler_Of_The_End_Of_Each_Stream) {
  struct Recorder : Text_Process_Handler {
    int handle_stdout_close() override {
      closed.emplace_back("output");
      return 0;
    }
    int handle_stderr_close() override {
      closed.emplace_back("errors");
      return 0;
    }
    std::vector<std::string> closed;
  } handler;
  const std::vector<secure_string> secrets{secure_string("x")};
  HDBSQL_Output output(&handler, secrets);
  output.on_close(Output_Stream::standard_error);
  output.on_close(Output_Stream::standard_output);
  EXPECT_EQ(handler.closed, (std::vector<std::string>{"errors", "output"}));
}

TEST(HDBSQL_Output, Gives_An_Unfinished_Line_To_The_Handler_When_Nothing_More_Comes) {
  const support::Log_Capture log;
  const support::Virtual_Clock clock;
  const std::vector<secure_string> secrets{secure_string("x")};
  HDBSQL_Error_Msg_Handler handler;
  HDBSQL_Output output(&handler, secrets);
  const std::string text = "Backup was canceled by user, waiting";
  output.on_output(Output_Stream::standard_output, text.data(), text.size());
  EXPECT_FALSE(handler.is_canceled());
  output.on_idle();
  EXPECT_TRUE(handler.is_canceled());
}

}  // namespace
