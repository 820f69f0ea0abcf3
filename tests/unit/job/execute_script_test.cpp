#include "job/execute_script.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

#include "job/job.h"
#include "support/log_capture.h"
#include "support/scripted_process_runner.h"
#include "support/virtual_clock.h"
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

/// Runs a real child that ends by nothing but a signal, and looks after it as often as it is told to.
class Hanging_Script : public platform::Process_Runner {
 public:
  explicit Hanging_Script(Job& job) : job_(job) {}
  bool deaf_to_term = false;
  int idle_calls = 1;
  std::chrono::seconds between{0};
  bool prints = false;
  int ends_by = 0;  ///< a signal that the script gets from elsewhere after all looks

  platform::Exit_Status run(const platform::Process_Spec& spec, platform::Output_Sink& sink) override {
    EXPECT_GT(spec.idle_interval.count(), 0) << "a quiet script is looked after";
    int ready[2];
    EXPECT_EQ(::pipe(ready), 0);
    const pid_t child = ::fork();
    if (child == 0) hang(ready[1]);
    char byte = 0;
    EXPECT_EQ(::read(ready[0], &byte, 1), 1);
    sink.on_start(child);
    sink.on_idle();
    EXPECT_EQ(::waitpid(child, nullptr, WNOHANG), 0) << "not ended while its run goes on";
    job_.state(state);
    for (int call = 0; call < idle_calls; ++call) {
      if (prints)
        sink.on_output(platform::Output_Stream::standard_output, "still here\n", 11);
      else
        sink.on_idle();
      platform::Clock::current().sleep_for(between);
    }
    if (ends_by != 0) {
      EXPECT_EQ(::kill(child, ends_by), 0);
    }
    return status_of(child, ready);
  }

  Job_State state = JOB_STATE_CANCELING;

 private:
  Job& job_;

  [[noreturn]] void hang(int ready) const {
    ::signal(SIGTERM, deaf_to_term ? SIG_IGN : SIG_DFL);
    (void)!::write(ready, "r", 1);
    for (;;) ::pause();
  }
  static platform::Exit_Status status_of(pid_t child, const int (&ready)[2]) {
    int raw = 0;
    EXPECT_EQ(::waitpid(child, &raw, 0), child);
    ::close(ready[0]);
    ::close(ready[1]);
    platform::Exit_Status status;
    status.started = true;
    status.signal = WTERMSIG(raw);
    return status;
  }
};

class Hanging_Script_Test : public testing::Test {
 protected:
  Hanging_Script_Test() { job_->set_job_thread(); }
  ~Hanging_Script_Test() override { job_->complete(); }

  support::Log_Capture log_;
  support::Virtual_Clock clock_;
  Job_Ptr job_{new Job(test_jobs::make_definition())};
  Hanging_Script script_{*job_};
  platform::Scoped_Process_Runner scope_{script_};

  bool claim_end(int signal) {
    return log_.has("Script '/bin/before' was ended because its job is being stopped: it was killed by signal " +
                    std::to_string(signal) + "\n");
  }
};

TEST_F(Hanging_Script_Test, Ends_When_Its_Job_Is_Cancelled_Or_Aborted) {
  for (const Job_State state : {JOB_STATE_CANCELING, JOB_STATE_ABORTING}) {
    job_->state(JOB_STATE_RUNNING);
    script_.state = state;
    EXPECT_FALSE(execute_script("/bin/before", false, job_->log_msg_callback()));
    EXPECT_TRUE(claim_end(SIGTERM)) << log_.dump();
  }
}

TEST_F(Hanging_Script_Test, After_The_Work_Ends_By_An_Abort_Only) {
  job_->state(JOB_STATE_COMPLETING);
  script_.state = JOB_STATE_ABORTING;
  EXPECT_FALSE(execute_script("/bin/before", false, {}));
  EXPECT_TRUE(claim_end(SIGTERM)) << log_.dump();
  job_->state(JOB_STATE_COMPLETING);
  script_.state = JOB_STATE_CANCELING;
  script_.ends_by = SIGUSR1;
  EXPECT_FALSE(execute_script("/bin/before", false, {}));
  EXPECT_TRUE(log_.claim("Failed to run script '/bin/before': was killed by signal " + std::to_string(SIGUSR1) + "\n"))
      << log_.dump();
}

TEST_F(Hanging_Script_Test, Ends_Also_When_It_Prints_Without_End) {
  job_->state(JOB_STATE_RUNNING);
  script_.prints = true;
  EXPECT_FALSE(execute_script("/bin/before", true, {}));
  EXPECT_TRUE(claim_end(SIGTERM)) << log_.dump();
}

TEST_F(Hanging_Script_Test, Is_Killed_When_It_Does_Not_End_Within_10_Seconds) {
  job_->state(JOB_STATE_RUNNING);
  script_.deaf_to_term = true;
  script_.between = std::chrono::seconds(5);
  script_.idle_calls = 3;
  EXPECT_FALSE(execute_script("/bin/before", false, {}));
  EXPECT_TRUE(claim_end(SIGKILL)) << log_.dump();
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
