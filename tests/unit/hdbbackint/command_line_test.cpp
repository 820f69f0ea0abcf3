#include "hdbbackint/command_line.h"

#include <gtest/gtest.h>

namespace hdbbackint {
namespace {

using Arguments = std::vector<std::string>;

TEST(Command_Line, As_Hana_Calls_It) {
  Command_Line command;
  std::string error;
  ASSERT_TRUE(parse_command_line({"-f", "backup", "-p", "/p", "-i", "/in", "-o", "/out", "-u", "HDB", "-s",
                                  "1707397841205", "-c", "2", "-l", "COMPLETE"},
                                 command, error))
      << error;
  EXPECT_EQ(command.function, Function::backup);
  EXPECT_EQ(command.parameter_file, "/p");
  EXPECT_EQ(command.input, "/in");
  EXPECT_EQ(command.output, "/out");
  EXPECT_EQ(command.user, "HDB");
  EXPECT_EQ(command.database_backup_id, 1707397841205U);
  EXPECT_EQ(command.object_count, 2U);
  EXPECT_EQ(command.level, "COMPLETE");
}

TEST(Command_Line, Order_And_Case_Are_Free_And_A_Dash_Is_Standard_Input) {
  struct Row {
    const char* value;
    Function wanted;
  };
  for (const Row& row : {Row{"BACKUP", Function::backup}, Row{"Restore", Function::restore},
                         Row{"inquire", Function::inquire}, Row{"DELETE", Function::remove}}) {
    Command_Line command;
    std::string error;
    ASSERT_TRUE(parse_command_line({"-u", "A@HDB", "-i", "-", "-t", "file", "-f", row.value}, command, error)) << error;
    EXPECT_EQ(command.function, row.wanted);
    EXPECT_TRUE(command.input.empty());
    EXPECT_TRUE(command.output.empty());
  }
}

TEST(Command_Line, Versions_Need_Nothing_Else) {
  Command_Line command;
  std::string error;
  ASSERT_TRUE(parse_command_line({"-v"}, command, error));
  EXPECT_EQ(command.show, Command_Line::Show::version);
  ASSERT_TRUE(parse_command_line({"-V"}, command, error));
  EXPECT_EQ(command.show, Command_Line::Show::details);
}

TEST(Command_Line, Refuses_With_One_Clear_Line) {
  struct Row {
    Arguments arguments;
    const char* wanted;
  };
  const Row rows[] = {
      {{}, "option -f is missing: use -f backup, restore, inquire or delete"},
      {{"-u", "HDB"}, "option -f is missing: use -f backup, restore, inquire or delete"},
      {{"-f"}, "option -f needs a value"},
      {{"-f", "verify"}, "-f verify is unknown: use backup, restore, inquire or delete"},
      {{"-f", "backup", "-x", "1"}, "unknown option '-x'"},
      {{"-f", "backup", "stray"}, "unknown option 'stray'"},
      {{"-f", "backup", "--user", "x"}, "unknown option '--user'"},
      {{"-f", "backup", "-s", "12a"}, "-s 12a is not a backup id: it must be a number"},
      {{"-f", "backup", "-c", "-1"}, "-c -1 is not a number of objects"},
  };
  for (const Row& row : rows) {
    Command_Line command;
    std::string error;
    EXPECT_FALSE(parse_command_line(row.arguments, command, error)) << row.wanted;
    EXPECT_EQ(error, row.wanted);
  }
}

}  // namespace
}  // namespace hdbbackint
