// What every process runner promises, the real one and the scripted one of the tests.

#include "platform/process_runner.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <atomic>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "contract/process_side.h"
#include "platform/clock.h"
#include "support/temp_root.h"

namespace {

using namespace platform;
using namespace std::chrono_literals;
using contract::Child_Plan;

constexpr auto some_silence = 5ms;

/// Takes everything down, and fails the test over a call that no runner may make.
class Watching_Sink : public Output_Sink {
 public:
  void on_start(pid_t pid) override {
    expect_own_thread();
    EXPECT_EQ(starts++, 0) << "started twice";
    EXPECT_GT(pid, 0);
    child = pid;
    if (at_start) at_start();
  }
  void on_output(Output_Stream stream, const char* data, std::size_t size) override {
    expect_own_thread();
    EXPECT_EQ(starts, 1) << "output before the start";
    EXPECT_GT(size, 0U);
    EXPECT_EQ(closed(stream), 0) << "output behind the end";
    (stream == Output_Stream::standard_output ? out : err).append(data, size);
    if (at_output) at_output();
  }
  void on_idle() override {
    expect_own_thread();
    EXPECT_EQ(starts, 1) << "silence before the start";
    ++idle;
    if (at_idle) at_idle();
  }
  void on_close(Output_Stream stream) override {
    expect_own_thread();
    ++closed(stream);
  }

  void kill_child(int signal) const { EXPECT_EQ(::kill(child, signal), 0); }
  /// Both ends were told, once each.
  void expect_whole() const {
    EXPECT_EQ(starts, 1);
    EXPECT_EQ(closed_out, 1);
    EXPECT_EQ(closed_err, 1);
  }
  void expect_nothing() const { EXPECT_EQ(starts + idle + closed_out + closed_err, 0) << out << err; }

  pid_t child = 0;
  std::string out, err;
  int starts = 0;
  int idle = 0;
  int closed_out = 0;
  int closed_err = 0;
  std::function<void()> at_start, at_output, at_idle;

 private:
  int& closed(Output_Stream stream) { return stream == Output_Stream::standard_output ? closed_out : closed_err; }
  void expect_own_thread() const { EXPECT_EQ(std::this_thread::get_id(), caller_); }

  std::thread::id caller_ = std::this_thread::get_id();
};

class Process_Runner_Contract : public testing::TestWithParam<contract::Process_Side_Name> {
 protected:
  Process_Runner_Contract() {
    // The programs of this system, below the root too.
    for (const char* directory : {"/bin", "/usr", "/lib", "/lib64"})
      if (std::filesystem::exists(directory))
        std::filesystem::create_directory_symlink(directory, root.real(directory));
  }
  static Exit_Status run(const Process_Spec& spec, Output_Sink& sink) {
    return Process_Runner::current().run(spec, sink);
  }
  /// As the system names it, without links.
  std::string path_of(const char* documented) const { return std::filesystem::canonical(root.real(documented)); }
  static void expect_ended_by(const Exit_Status& status, int signal) {
    EXPECT_TRUE(status.started);
    EXPECT_EQ(status.signal, signal);
    EXPECT_EQ(status.code, -1);
    EXPECT_FALSE(status.success());
  }

  support::Temp_Root root;
  std::unique_ptr<contract::Process_Side> side = GetParam().make();
  Watching_Sink sink;
};

TEST_P(Process_Runner_Contract, Tells_The_Exit_Code) {
  for (const int code : {0, 1, 10, 255}) {
    Watching_Sink each;
    const Exit_Status status = run(side->child({.code = code}), each);
    EXPECT_TRUE(status.started);
    EXPECT_EQ(status.code, code);
    EXPECT_EQ(status.signal, 0);
    EXPECT_EQ(status.error, 0);
    EXPECT_EQ(status.success(), code == 0);
    each.expect_whole();
  }
}

TEST_P(Process_Runner_Contract, Tells_The_Signal_That_Ended_A_Child) {
  for (const int signal : {SIGTERM, SIGKILL, SIGHUP}) {
    Watching_Sink each;
    expect_ended_by(run(side->child({.output = "x", .signal = signal}), each), signal);
    EXPECT_EQ(each.out, "x");
    each.expect_whole();
  }
}

TEST_P(Process_Runner_Contract, Keeps_The_Streams_Apart_And_Each_In_Order) {
  EXPECT_TRUE(run(side->child({.output = "one\ntwo\nthree", .errors = "four\nfive\n"}), sink).success());
  EXPECT_EQ(sink.out, "one\ntwo\nthree");
  EXPECT_EQ(sink.err, "four\nfive\n");
  sink.expect_whole();
}

TEST_P(Process_Runner_Contract, Closes_The_Streams_Of_A_Child_That_Prints_Nothing) {
  EXPECT_TRUE(run(side->child({}), sink).success());
  EXPECT_EQ(sink.out + sink.err, "");
  sink.expect_whole();
}

TEST_P(Process_Runner_Contract, Gives_The_Input_And_Then_Its_End) {
  const std::string bytes = std::string("a\0b\n", 4) + std::string(300'000, 'x') + "\xff end";
  for (const std::string& input : {std::string(), std::string("x"), bytes}) {
    Watching_Sink each;
    Process_Spec spec = side->child({.copy_input = true, .output = "|"});
    spec.input = secure_string(input);
    EXPECT_TRUE(run(spec, each).success());
    EXPECT_TRUE(each.out == input + "|") << input.size() << " bytes became " << each.out.size();
    each.expect_whole();
  }
}

TEST_P(Process_Runner_Contract, Ends_With_A_Child_That_Does_Not_Read_Its_Input) {
  Process_Spec spec = side->child({.code = 3});
  spec.input = secure_string(std::string(1'000'000, 'x'));
  EXPECT_EQ(run(spec, sink).code, 3);
  sink.expect_whole();
}

TEST_P(Process_Runner_Contract, Gives_The_Child_Its_Arguments_And_Its_Environment_And_No_More) {
  ::setenv("DORSAL3_LEAK", "1", 1);
  Process_Spec spec = side->child({.tell_call = true});
  for (const char* argument : {"plain", "two words", "", "it's", "$HOME `x`", "\xc3\xa4"})
    spec.arguments.emplace_back(argument);
  spec.environment = {{"ONE", "1 and more"}, {"TWO", ""}};
  EXPECT_TRUE(run(spec, sink).success());
  ::unsetenv("DORSAL3_LEAK");
  EXPECT_EQ(sink.out,
            "argument=plain\nargument=two words\nargument=\nargument=it's\nargument=$HOME `x`\nargument=\xc3\xa4\n"
            "ONE=1 and more\nTWO=\ndirectory=" +
                path_of("/") + "\n");
}

TEST_P(Process_Runner_Contract, Runs_The_Child_In_Its_Directory_Below_The_Root) {
  root.make_directory("/work/place");
  Process_Spec spec = side->child({.tell_call = true});
  spec.working_directory = "/work/place";
  EXPECT_TRUE(run(spec, sink).success());
  EXPECT_EQ(sink.out, "directory=" + path_of("/work/place") + "\n");
}

TEST_P(Process_Runner_Contract, Does_Not_Start_In_A_Directory_That_Is_None) {
  root.write("/work/file", "");
  for (const auto& [directory, error] : {std::pair("/no/such/folder", ENOENT), {"/work/file", ENOTDIR}}) {
    Process_Spec spec = side->child({});
    spec.working_directory = directory;
    const Exit_Status status = run(spec, sink);
    EXPECT_FALSE(status.started) << directory;
    EXPECT_EQ(status.error, error) << directory;
    sink.expect_nothing();
  }
}

TEST_P(Process_Runner_Contract, Does_Not_Start_A_Program_That_Is_Not_There) {
  const Exit_Status status = run(side->missing(), sink);
  EXPECT_FALSE(status.started);
  EXPECT_FALSE(status.success());
  EXPECT_EQ(status.error, ENOENT);
  EXPECT_EQ(status.code, -1);
  EXPECT_EQ(status.signal, 0);
  sink.expect_nothing();
}

TEST_P(Process_Runner_Contract, Tells_Of_Silence_Again_And_Again_Until_The_Child_Is_Ended) {
  Process_Spec spec = side->child({.output = "begun", .hang = true});
  spec.idle_interval = some_silence;
  int silences = 0;  // a slow child is silent before its output, too
  sink.at_idle = [&silences, this] {
    if (!sink.out.empty() && ++silences == 3) sink.kill_child(SIGTERM);
  };
  expect_ended_by(run(spec, sink), SIGTERM);
  EXPECT_GE(silences, 3);
  EXPECT_EQ(sink.out, "begun");
  sink.expect_whole();
}

TEST_P(Process_Runner_Contract, Tells_Nobody_Of_Silence_Without_An_Interval) {
  std::thread ender;
  sink.at_output = [&, this] {
    ender = std::thread([this] {
      // Time in which a runner would tell of it, if it did.
      Clock::current().sleep_for(4 * some_silence);
      sink.kill_child(SIGKILL);
    });
  };
  expect_ended_by(run(side->child({.output = "x", .hang = true}), sink), SIGKILL);
  ender.join();
  EXPECT_EQ(sink.idle, 0);
}

TEST_P(Process_Runner_Contract, Lets_A_Child_Be_Ended_As_Soon_As_It_Runs) {
  sink.at_start = [this] { sink.kill_child(SIGKILL); };
  expect_ended_by(run(side->child({.hang = true}), sink), SIGKILL);
  sink.expect_whole();
}

TEST_P(Process_Runner_Contract, Lets_A_Child_Be_Ended_While_It_Prints) {
  sink.at_output = [this] { sink.kill_child(SIGTERM); };
  expect_ended_by(run(side->child({.output = "x", .hang = true}), sink), SIGTERM);
  sink.expect_whole();
}

TEST_P(Process_Runner_Contract, Lets_A_Child_Be_Ended_By_Another_Thread) {
  std::atomic<pid_t> child = 0;
  std::thread ender;
  sink.at_start = [&, this] {
    child = sink.child;
    ender = std::thread([&child] { EXPECT_EQ(::kill(child, SIGTERM), 0); });
  };
  expect_ended_by(run(side->child({.hang = true}), sink), SIGTERM);
  ender.join();
  sink.expect_whole();
}

TEST_P(Process_Runner_Contract, Runs_Children_Of_Many_Threads_At_Once) {
  constexpr int threads = 8;
  constexpr int rounds = 5;
  std::atomic<int> good = 0;
  std::vector<std::thread> running;
  for (int i = 0; i < threads; ++i)
    running.emplace_back([&good, i, this] {
      for (int round = 0; round < rounds; ++round) {
        Watching_Sink own;
        const std::string text = std::to_string(i) + " " + std::to_string(round);
        Process_Spec spec = side->child({.copy_input = true, .errors = text, .code = i});
        spec.input = secure_string(text);
        const Exit_Status status = run(spec, own);
        if (status.code == i && own.out == text && own.err == text) ++good;
      }
    });
  for (std::thread& thread : running) thread.join();
  EXPECT_EQ(good, threads * rounds);
}

TEST_P(Process_Runner_Contract, Lists_Processes_In_Place_Of_What_Was_In_The_List) {
  std::vector<Running_Process> processes{{.pid = 1, .user = "of before", .command_line = "of before"}};
  ASSERT_TRUE(Process_Runner::current().list(processes));
  for (const Running_Process& process : processes) EXPECT_NE(process.user, "of before");
}

INSTANTIATE_TEST_SUITE_P(Sides, Process_Runner_Contract,
                         testing::Values(contract::Process_Side_Name{"Scripted", contract::make_scripted_process_side},
                                         contract::Process_Side_Name{"Real", contract::make_real_process_side}),
                         [](const auto& tested) { return std::string(tested.param.name); });

}  // namespace
