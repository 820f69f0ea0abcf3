#include "job/execute_script.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "job/job.h"
#include "support/log_capture.h"
#include "support/scripted_process_runner.h"
#include "test_jobs.h"

namespace {

using support::Scripted_Child;
using Words = std::vector<std::string>;

class Recording_Sink : public Job_Log_Sink {
 public:
  void write(const Job_Log_Line& line) override { lines.push_back(line.text); }
  Words lines;
};

class Execute_Script_Test : public testing::Test {
 protected:
  Execute_Script_Test() { set_job_log_sink(sink_); }
  ~Execute_Script_Test() override { set_job_log_sink(nullptr); }

  support::Log_Capture log_;
  support::Scripted_Process_Runner runner_;
  std::shared_ptr<Recording_Sink> sink_ = std::make_shared<Recording_Sink>();
  Job job_{test_jobs::make_definition()};
};

TEST_F(Execute_Script_Test, Is_True_For_A_Command_Without_Words) {
  EXPECT_TRUE(execute_script("", false, {}));
  EXPECT_TRUE(execute_script(" \t\n", false, job_.log_msg_callback()));
  EXPECT_TRUE(runner_.calls().empty());
}

TEST_F(Execute_Script_Test, Runs_The_Program_Without_A_Shell) {
  runner_.on_program("/opt/scripts/before", {});
  EXPECT_TRUE(execute_script("/opt/scripts/before --name 'TN 1' $HOME ; rm -rf / | \"a\\\"b\"", false, {}));
  ASSERT_EQ(runner_.calls().size(), 1U);
  const support::Seen_Call call = runner_.calls().front();
  EXPECT_EQ(call.program, "/opt/scripts/before");
  EXPECT_EQ(call.arguments, (Words{"--name", "TN 1", "$HOME", ";", "rm", "-rf", "/", "|", "a\"b"}));
  EXPECT_EQ(call.environment.count("PATH"), 1U);
  EXPECT_EQ(call.environment.size(), 2U) << "nothing of the agent's environment is handed on";
}

TEST_F(Execute_Script_Test, Sends_Output_To_The_Job_Log) {
  Scripted_Child child;
  child.standard_output = "one\ntwo";
  child.standard_error = "warned\n";
  runner_.on_program("/bin/before", child);
  EXPECT_TRUE(execute_script("/bin/before", false, job_.log_msg_callback()));
  EXPECT_EQ(sink_->lines, (Words{"one", "warned", "two"}));
}

TEST_F(Execute_Script_Test, Drops_Standard_Output_When_Asked) {
  Scripted_Child child;
  child.standard_output = "one\n";
  child.standard_error = "warned\n";
  runner_.on_program("/bin/before", child);
  EXPECT_TRUE(execute_script("/bin/before", true, job_.log_msg_callback()));
  EXPECT_EQ(sink_->lines, (Words{"warned"}));
}

TEST_F(Execute_Script_Test, Without_A_Callback_Only_The_Agents_Log_Has_The_Output) {
  Scripted_Child child;
  child.standard_output = "one\n";
  runner_.on_program("/bin/before", child);
  EXPECT_TRUE(execute_script("/bin/before", false, {}));
  EXPECT_TRUE(sink_->lines.empty());
  EXPECT_TRUE(log_.has("one\n"));
}

TEST_F(Execute_Script_Test, Takes_Format_Signs_And_Long_Lines_As_Text) {
  Scripted_Child child;
  child.standard_output = "100%s done %n\n" + std::string(5000, 'x') + "\n";
  runner_.on_program("/bin/before", child);
  EXPECT_TRUE(execute_script("/bin/before", false, job_.log_msg_callback()));
  ASSERT_GE(sink_->lines.size(), 2U);
  EXPECT_EQ(sink_->lines[0], "100%s done %n");
  std::string joined;
  for (std::size_t line = 1; line < sink_->lines.size(); ++line) joined += sink_->lines[line];
  EXPECT_EQ(joined, std::string(5000, 'x'));
}

TEST_F(Execute_Script_Test, Tells_How_The_Script_Failed) {
  struct Row {
    const char* name;
    Scripted_Child child;
    std::string reason;
  };
  Row rows[3];
  rows[0].name = "exit code";
  rows[0].child.code = 3;
  rows[0].reason = "ended with exit code 3";
  rows[1].name = "signal";
  rows[1].child.signal = 9;
  rows[1].reason = "was killed by signal 9";
  rows[2].name = "missing";
  rows[2].child.start_error = ENOENT;
  rows[2].reason = "could not be started: No such file or directory";
  for (const Row& row : rows) {
    runner_.clear_rules();
    runner_.on_program("/bin/before", row.child);
    EXPECT_FALSE(execute_script("/bin/before -x", false, job_.log_msg_callback())) << row.name;
    EXPECT_TRUE(log_.claim("Failed to run script '/bin/before -x': " + row.reason + "\n")) << row.name << log_.dump();
    EXPECT_EQ(job_.message(), "Failed to run script '/bin/before -x': " + row.reason) << row.name;
  }
}

TEST_F(Execute_Script_Test, Refuses_A_Program_Without_An_Absolute_Path) {
  EXPECT_FALSE(execute_script("before", false, {}));
  EXPECT_TRUE(log_.claim("Failed to run script 'before': the program must be given with its absolute path\n"));
  EXPECT_TRUE(runner_.calls().empty());
}

TEST_F(Execute_Script_Test, Refuses_An_Open_Quote) {
  EXPECT_FALSE(execute_script("/bin/before 'TN1", false, {}));
  EXPECT_TRUE(log_.claim("Failed to run script '/bin/before 'TN1': a quote is not closed\n"));
}

TEST(Split_Command_Line, Splits_At_Blanks_Outside_Of_Quotes) {
  struct Row {
    std::string text;
    bool sound;
    Words words;
  };
  const Row rows[] = {
      {"", true, {}},
      {"  /a   b\tc\n", true, {"/a", "b", "c"}},
      {"'a b' \"c d\"", true, {"a b", "c d"}},
      {"'' \"\"", true, {"", ""}},
      {"a'b c'd\"e f\"g", true, {"ab cde fg"}},
      {"a\\ b", true, {"a b"}},
      {"'a\\b'", true, {"a\\b"}},
      {"\"a\\\"b\\\\\"", true, {"a\"b\\"}},
      {"'it'\\''s'", true, {"it's"}},
      {"$HOME `id` *", true, {"$HOME", "`id`", "*"}},
      {"'open", false, {}},
      {"\"open", false, {}},
      {"\"open\\", false, {}},
      {"open\\", false, {}},
  };
  for (const Row& row : rows) {
    Words words;
    EXPECT_EQ(split_command_line(row.text, words), row.sound) << row.text;
    if (!row.sound) continue;
    EXPECT_EQ(words, row.words) << row.text;
  }
}

}  // namespace
