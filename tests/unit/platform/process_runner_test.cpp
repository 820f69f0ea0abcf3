#include "platform/process_runner.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace platform;
using namespace std::chrono_literals;

class Collecting_Sink : public Output_Sink {
 public:
  void on_start(pid_t pid) override { child = pid; }
  void on_output(Output_Stream stream, const char* data, std::size_t size) override {
    (stream == Output_Stream::standard_output ? out : err).append(data, size);
    if (kill_on_output) ::kill(child, SIGKILL);
  }
  void on_idle() override {
    ++idle;
    if (kill_on_idle) ::kill(child, SIGTERM);
  }
  void on_close(Output_Stream) override { ++closed; }

  pid_t child = 0;
  std::string out, err;
  int idle = 0;
  int closed = 0;
  bool kill_on_output = false;
  bool kill_on_idle = false;
};

Process_Spec shell(const std::string& script) {
  Process_Spec spec;
  spec.program = "/bin/sh";
  spec.arguments = {"-c", script};
  spec.environment = {{"PATH", "/usr/bin:/bin"}};
  return spec;
}

TEST(Process_Runner, Separates_The_Streams_And_Tells_The_Exit_Code) {
  Collecting_Sink sink;
  const Exit_Status status = Process_Runner::current().run(shell("echo out; echo err >&2; exit 3"), sink);
  EXPECT_TRUE(status.started);
  EXPECT_EQ(status.code, 3);
  EXPECT_EQ(sink.out, "out\n");
  EXPECT_EQ(sink.err, "err\n");
  EXPECT_EQ(sink.closed, 2);
  EXPECT_FALSE(status.success());
  EXPECT_EQ(describe(status), "ended with exit code 3");
}

TEST(Process_Runner, Feeds_The_Input_And_Moves_More_Than_A_Pipe_Holds) {
  Collecting_Sink sink;
  Process_Spec spec = shell("cat");
  spec.input = secure_string(std::string(300'000, 'x'));
  EXPECT_TRUE(Process_Runner::current().run(spec, sink).success());
  EXPECT_EQ(sink.out.size(), 300'000U);
}

TEST(Process_Runner, Gives_The_Child_Its_Environment_And_Nothing_Else) {
  ::setenv("DORSAL3_LEAK", "1", 1);
  Collecting_Sink sink;
  Process_Spec spec = shell("echo $DORSAL3_LEAK-$GIVEN; pwd; ls /proc/self/fd | wc -l");
  spec.environment["GIVEN"] = "yes";
  EXPECT_TRUE(Process_Runner::current().run(spec, sink).success());
  // ls has the three standard descriptors and the folder it reads.
  EXPECT_EQ(sink.out, "-yes\n/\n4\n");
  ::unsetenv("DORSAL3_LEAK");
}

/// The masks of a process's state, of those signals that it may set: "SigBlk 0". The C library keeps the first two
/// real-time signals for itself; who started the tests may have ignored them.
std::string masks_of(const std::string& status) {
  constexpr std::uint64_t of_the_library = std::uint64_t{3} << 31;
  constexpr int hexadecimal = 16;
  std::istringstream lines(status);
  std::ostringstream masks;
  for (std::string line; std::getline(lines, line);) {
    const std::string name = line.substr(0, line.find(':'));
    if (name != "SigBlk" && name != "SigIgn" && name != "SigCgt") continue;
    const std::uint64_t mask = std::stoull(line.substr(name.size() + 1), nullptr, hexadecimal);
    masks << name << ' ' << std::hex << (mask & ~of_the_library) << '\n';
  }
  return masks.str();
}

std::string read_own(const std::string& file) {
  std::ifstream in("/proc/thread-self/" + file);
  return {std::istreambuf_iterator<char>(in), {}};
}

TEST(Process_Runner, The_Child_Takes_No_Signal_Settings_And_Changes_None) {
  Collecting_Sink warm_up;
  EXPECT_TRUE(Process_Runner::current().run(shell("true"), warm_up).success());
  sigset_t blocked;
  sigset_t before;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGUSR1);
  ::pthread_sigmask(SIG_BLOCK, &blocked, &before);
  const auto ignored = ::signal(SIGHUP, SIG_IGN);
  const auto caught = ::signal(SIGUSR2, [](int) {});
  const std::string own = masks_of(read_own("status"));
  Collecting_Sink sink;
  EXPECT_TRUE(Process_Runner::current().run(shell("exec cat /proc/self/status"), sink).success());
  EXPECT_EQ(masks_of(sink.out), "SigBlk 0\nSigIgn 0\nSigCgt 0\n");
  EXPECT_EQ(masks_of(read_own("status")), own);
  Process_Spec none;
  none.program = "/no/such/program";
  EXPECT_FALSE(Process_Runner::current().run(none, sink).started);
  EXPECT_EQ(masks_of(read_own("status")), own);
  ::signal(SIGHUP, ignored);
  ::signal(SIGUSR2, caught);
  ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

TEST(Process_Runner, The_Child_Keeps_Group_And_Mask_Of_Files_And_Its_Folder_Is_Its_Own) {
  const mode_t before = ::umask(027);
  const std::string folder = std::filesystem::current_path();
  Process_Spec spec = shell("umask; pwd; cut -d' ' -f5 /proc/self/stat; umask 0");
  spec.working_directory = "/proc";
  Collecting_Sink sink;
  EXPECT_TRUE(Process_Runner::current().run(spec, sink).success());
  EXPECT_EQ(sink.out, "0027\n/proc\n" + std::to_string(::getpgrp()) + "\n");
  EXPECT_EQ(::umask(before), 027U);
  EXPECT_EQ(std::filesystem::current_path(), folder);
}

TEST(Process_Runner, A_Folder_That_Is_Not_There_Is_A_Failed_Start) {
  Collecting_Sink sink;
  Process_Spec spec = shell("true");
  spec.working_directory = "/no/such/folder";
  const Exit_Status status = Process_Runner::current().run(spec, sink);
  EXPECT_FALSE(status.started);
  EXPECT_EQ(status.error, ENOENT);
}

TEST(Process_Runner, Many_Threads_Start_Children_At_Once) {
  constexpr int starters = 8;
  constexpr int rounds = 5;
  std::atomic<int> good = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < starters; ++i)
    threads.emplace_back([&good, i] {
      for (int round = 0; round < rounds; ++round) {
        Collecting_Sink sink;
        const std::string text = std::to_string(i) + " " + std::to_string(round);
        if (Process_Runner::current().run(shell("echo " + text), sink).success() && sink.out == text + "\n") ++good;
      }
    });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(good, starters * rounds);
}

TEST(Process_Runner, A_Missing_Program_Is_Not_Started) {
  Collecting_Sink sink;
  Process_Spec spec;
  spec.program = "/no/such/program";
  const Exit_Status status = Process_Runner::current().run(spec, sink);
  EXPECT_FALSE(status.started);
  EXPECT_EQ(status.error, ENOENT);
  EXPECT_EQ(describe(status), "could not be started: No such file or directory");
}

TEST(Process_Runner, A_Killed_Child_Shows_Its_Signal) {
  Collecting_Sink sink;
  sink.kill_on_output = true;
  const Exit_Status status = Process_Runner::current().run(shell("echo x; exec sleep 60"), sink);
  EXPECT_EQ(status.signal, SIGKILL);
  EXPECT_EQ(describe(status), "was killed by signal 9");
}

TEST(Process_Runner, Silence_Is_Reported) {
  Collecting_Sink sink;
  sink.kill_on_idle = true;
  Process_Spec spec = shell("exec sleep 60");
  spec.idle_interval = 20ms;
  const Exit_Status status = Process_Runner::current().run(spec, sink);
  EXPECT_EQ(status.signal, SIGTERM);
  EXPECT_GE(sink.idle, 1);
}

TEST(Process_Runner, A_Daemon_Left_Behind_Does_Not_Hold_The_Caller) {
  Collecting_Sink sink;
  const auto before = std::chrono::steady_clock::now();
  EXPECT_TRUE(Process_Runner::current().run(shell("sleep 20 & echo done"), sink).success());
  EXPECT_EQ(sink.out, "done\n");
  EXPECT_LT(std::chrono::steady_clock::now() - before, 15s);
}

TEST(Process_Runner, A_Child_That_Does_Not_Read_Its_Input_Ends_Well) {
  Collecting_Sink sink;
  Process_Spec spec = shell("exit 0");
  spec.input = secure_string(std::string(1'000'000, 'x'));
  EXPECT_TRUE(Process_Runner::current().run(spec, sink).success());
}

}  // namespace
