#include <gtest/gtest.h>
#include <unistd.h>

#include "hdbbackint/protocol/answer_file.h"
#include "hdbbackint/protocol/interface_version.h"
#include "hdbbackint/protocol/line_tokens.h"
#include "hdbbackint/protocol/request.h"
#include "hdbbackint/protocol/tool_option.h"
#include "hdbbackint/protocol/user_id.h"
#include "support/log_capture.h"
#include "support/temp_root.h"

namespace hdbbackint {
namespace {

using Tokens = std::vector<std::string>;

TEST(Line_Tokens, Are_Split_At_Blanks_And_Quotes) {
  struct Row {
    const char* name;
    std::string line;
    bool ok;
    Tokens wanted;
  };
  const Row rows[] = {
      {"plain", "#PIPE /a/b 5", true, {"#PIPE", "/a/b", "5"}},
      {"many blanks and tabs", "#PIPE  \t /a \t", true, {"#PIPE", "/a"}},
      {"empty line", "", true, {}},
      {"blanks only", "   ", true, {}},
      {"quoted blank", "#PIPE \"/a b\"", true, {"#PIPE", "/a b"}},
      {"escaped quote", "#PIPE \"/a\\\"b\"", true, {"#PIPE", "/a\"b"}},
      {"lone backslash in quotes", "#PIPE \"C:\\x\"", true, {"#PIPE", "C:\\x"}},
      {"double backslash in quotes", "#PIPE \"a\\\\b\"", true, {"#PIPE", "a\\\\b"}},
      {"lone backslash bare, quoted text behind", "#PIPE /x\\y \"/a b\"", true, {"#PIPE", "/x\\y", "/a b"}},
      {"backslash at the end of a bare one", "#PIPE a\\", true, {"#PIPE", "a\\"}},
      {"quote within a bare one", "#PIPE a\"b", true, {"#PIPE", "a\"b"}},
      {"hash within", "#PIPE /a#b", true, {"#PIPE", "/a#b"}},
      {"empty parameter", "#PIPE \"\" 1", true, {"#PIPE", "", "1"}},
      {"umlauts", "#PIPE \"/\xc3\xa4 \xc3\xb6\"", true, {"#PIPE", "/\xc3\xa4 \xc3\xb6"}},
      {"quote not closed", "#PIPE \"/a", false, {}},
      {"closing quote escaped", "#PIPE \"/a\\\"", false, {}},
      {"text behind a closing quote", "#PIPE \"/a\"b", false, {}},
  };
  for (const Row& row : rows) {
    Tokens tokens;
    EXPECT_EQ(split_line(row.line, tokens), row.ok) << row.name;
    if (row.ok) {
      EXPECT_EQ(tokens, row.wanted) << row.name;
    }
  }
}

TEST(Line_Tokens, What_Is_Written_Is_Read_Back) {
  for (const std::string text : {"/a/b", "/a b", "a\"b", "C:\\x", "a\\\\b", "\"", "\\\"x", "ends\\", "#x", ""}) {
    Tokens tokens;
    ASSERT_TRUE(split_line(quote_parameter(text), tokens)) << text;
    EXPECT_EQ(tokens, Tokens{text}) << text;
  }
  EXPECT_EQ(quote_parameter("a\"b"), "\"a\\\"b\"");
  EXPECT_EQ(quote_parameter("C:\\x"), "\"C:\\x\"");
}

TEST(Request, Backup_File_With_Everything_Around_It) {
  const Request request = parse_request(
      "#SOFTWAREID \"backint 1.04\" \"HANA HDB server 2.00.071\"\r\n"
      "a comment\n\n#UNKNOWN x\n"
      "#PIPE /usr/sap/HDB/SYS/global/hdb/backint/SYSTEMDB/x_databackup_0_1 4096\n"
      "#PIPEX /not/this\n"
      "#FILE \"/a b\" \"12\"\n"
      "#PIPE /no/size\n"
      "#PIPE /odd/size many\n"
      " #PIPE /behind/a/blank\n"
      "#TOOLOPTION \"job_uuid=1;\"\n"
      "#PIPE \"/last \\\"one\\\"\" 0",
      Function::backup);
  EXPECT_EQ(request.caller_interface, "1.04");
  EXPECT_EQ(request.caller, "HANA HDB server 2.00.071");
  EXPECT_EQ(request.tool_option, "job_uuid=1;");
  EXPECT_TRUE(request.malformed.empty());
  using Kind = Request_Entry::Kind;
  const std::vector<Request_Entry> wanted = {
      {Kind::pipe, "/usr/sap/HDB/SYS/global/hdb/backint/SYSTEMDB/x_databackup_0_1", "", "", 4096},
      {Kind::file, "/a b", "", "", 12},
      {Kind::pipe, "/no/size", "", "", {}},
      {Kind::pipe, "/odd/size", "", "", {}},
      {Kind::pipe, "/last \"one\"", "", "", 0},
  };
  EXPECT_EQ(request.entries, wanted);
}

TEST(Request, Lines_Of_The_Other_Functions) {
  using Kind = Request_Entry::Kind;
  struct Row {
    const char* name;
    Function function;
    const char* line;
    std::vector<Request_Entry> wanted;
    bool malformed;
  };
  const Row rows[] = {
      {"restore newest", Function::restore, "#NULL /a", {{Kind::newest, "/a", "", "", {}}}, false},
      {"restore newest to", Function::restore, "#NULL /a \"/b c\"", {{Kind::newest, "/a", "", "/b c", {}}}, false},
      {"restore version", Function::restore, "#EBID e /a", {{Kind::version, "/a", "e", "", {}}}, false},
      {"restore version to", Function::restore, "#EBID \"e\" \"/a\" /b", {{Kind::version, "/a", "e", "/b", {}}}, false},
      {"restore without name", Function::restore, "#EBID e", {}, true},
      {"restore nothing", Function::restore, "#NULL", {}, true},
      {"restore of a pipe line is a comment", Function::restore, "#PIPE /a", {}, false},
      {"inquire all", Function::inquire, "#NULL", {{Kind::newest, "", "", "", {}}}, false},
      {"inquire name", Function::inquire, "#NULL \"/a\"", {{Kind::newest, "/a", "", "", {}}}, false},
      {"inquire version", Function::inquire, "#EBID e /a", {{Kind::version, "/a", "e", "", {}}}, false},
      {"inquire version alone", Function::inquire, "#EBID e", {{Kind::version, "", "e", "", {}}}, false},
      {"inquire nothing", Function::inquire, "#EBID", {}, true},
      {"delete", Function::remove, "#EBID e /a", {{Kind::version, "/a", "e", "", {}}}, false},
      {"delete without name", Function::remove, "#EBID e", {}, true},
      {"delete newest is a comment", Function::remove, "#NULL /a", {}, false},
      {"backup without name", Function::backup, "#PIPE", {}, true},
      {"backup with an empty name", Function::backup, "#PIPE \"\"", {}, true},
      {"broken quote", Function::backup, "#PIPE \"/a", {}, true},
  };
  for (const Row& row : rows) {
    const Request request = parse_request(row.line, row.function);
    EXPECT_EQ(request.entries, row.wanted) << row.name;
    EXPECT_EQ(!request.malformed.empty(), row.malformed) << row.name;
  }
}

TEST(Request, Malformed_Line_Is_Named_And_The_Others_Are_Read) {
  const Request request = parse_request("#PIPE /a\n#PIPE\n#PIPE /b\n", Function::backup);
  EXPECT_EQ(request.entries.size(), 2U);
  EXPECT_EQ(request.malformed, Tokens{"line 2: #PIPE: the name is missing"});
}

TEST(Request, Takes_Lines_Of_Any_Length) {
  const std::string name = "/" + std::string(4096, 'n');
  const std::string option(512, 'o');
  const std::string long_comment(1 << 20, 'x');
  const Request request =
      parse_request(long_comment + "\n#TOOLOPTION \"" + option + "\"\n#PIPE " + name, Function::backup);
  ASSERT_EQ(request.entries.size(), 1U);
  EXPECT_EQ(request.entries[0].name, name);
  EXPECT_EQ(request.tool_option, option);
}

TEST(Interface_Version, Answers_The_Highest_That_Both_Know) {
  struct Row {
    const char* caller;
    const char* answered;
    bool timestamps;
  };
  const Row rows[] = {{"", "1.00", false},      {"1.00", "1.00", false}, {"1.04", "1.04", false},
                      {"1.06", "1.04", false},  {"1.5", "1.04", false},  {"1.50", "1.50", true},
                      {"1.50.2", "1.50", true}, {"9.99", "1.50", true},  {"1.100", "1.50", true},
                      {"0.9", "1.00", false}};
  for (const Row& row : rows) {
    EXPECT_EQ(answered_interface(row.caller), row.answered) << row.caller;
    EXPECT_EQ(wants_timestamps(row.caller), row.timestamps) << row.caller;
  }
}

TEST(Tool_Option, Value_Of_A_Key) {
  struct Row {
    const char* option;
    const char* wanted;
  };
  const Row rows[] = {{"job_uuid=1;", "1"},
                      {"job_uuid=1", "1"},
                      {" job_uuid = 1 ; x=2", "1"},
                      {"x=2;job_uuid=1;", "1"},
                      {"xjob_uuid=1;", ""},
                      {"", ""},
                      {";;;", ""},
                      {"job_uuid", ""},
                      {"job_uuid=;", ""},
                      {"a=b=c;job_uuid=d=e;", "d=e"}};
  for (const Row& row : rows) EXPECT_EQ(tool_option_value(row.option, "job_uuid"), row.wanted) << row.option;
}

TEST(User_Id, Database_And_System) {
  struct Row {
    const char* text;
    bool ok;
    const char* sid;
    const char* database;
  };
  const Row rows[] = {{"TN1@HDB", true, "HDB", "TN1"}, {"HDB", true, "HDB", ""},
                      {"A@B@HDB", true, "HDB", "A@B"}, {"", false, "", ""},
                      {"@HDB", false, "", ""},         {"TN1@", false, "", ""}};
  for (const Row& row : rows) {
    User_Id user;
    EXPECT_EQ(parse_user_id(row.text, user), row.ok) << row.text;
    EXPECT_EQ(user.sid, row.sid) << row.text;
    EXPECT_EQ(user.database, row.database) << row.text;
  }
}

TEST(Answer_File, Lines_Are_There_As_Soon_As_They_Are_Given) {
  const support::Temp_Root root;
  root.write("/tmp/out", "left from before\n");
  Answer_File answers;
  std::string error;
  ASSERT_TRUE(answers.open("/tmp/out", error)) << error;
  answers.software_id("1.04", "tool \"x\"");
  EXPECT_EQ(root.read("/tmp/out"), "#SOFTWAREID \"backint 1.04\" \"tool \\\"x\\\"\"\n");
  answers.saved("e-1", "/a b", 12);
  answers.restored("e-1", "/a");
  answers.backup("e-1", "/a", "");
  answers.backup("e-1", "/a", "2024-02-08T13:24:01.000Z");
  answers.deleted("e-1", "/a");
  answers.not_found("", "");
  answers.not_found("e-1", "/a\\");
  EXPECT_FALSE(answers.failed());
  answers.error("", "/a");
  EXPECT_TRUE(answers.failed());
  EXPECT_EQ(root.read("/tmp/out"),
            "#SOFTWAREID \"backint 1.04\" \"tool \\\"x\\\"\"\n"
            "#SAVED \"e-1\" \"/a b\" 12\n"
            "#RESTORED \"e-1\" \"/a\"\n"
            "#BACKUP \"e-1\" \"/a\"\n"
            "#BACKUP \"e-1\" \"/a\" \"2024-02-08T13:24:01.000Z\"\n"
            "#DELETED \"e-1\" \"/a\"\n"
            "#NOTFOUND\n"
            "#NOTFOUND \"e-1\" /a\\\n"
            "#ERROR \"/a\"\n");
}

TEST(Answer_File, Answer_That_Cannot_Be_Written_Is_A_Failure) {
  support::Log_Capture log;
  const support::Temp_Root root;
  ASSERT_EQ(::symlink("/dev/full", root.real("/out").c_str()), 0);
  Answer_File answers;
  std::string error;
  ASSERT_TRUE(answers.open("/out", error)) << error;
  answers.saved("e", "/a", 1);
  EXPECT_TRUE(answers.failed());
  EXPECT_EQ(log.claim_containing("cannot write an answer to the output file"), 1U);
  EXPECT_FALSE(Answer_File().open("/no/such/folder/out", error));
  EXPECT_NE(error.find("/no/such/folder/out"), std::string::npos);
}

}  // namespace
}  // namespace hdbbackint
