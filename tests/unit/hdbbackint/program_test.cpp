#include <sys/resource.h>

#include "net/http_server.h"
#include "unit/hdbbackint/agent_fixture.h"
#include "unit/hdbbackint/installed_agent.h"

namespace hdbbackint {
namespace {

/// The built program, installed below a temporary root, with a backup server on loopback.
class Program : public Agent_Fixture {
 protected:
  void SetUp() override {
    Agent_Fixture::SetUp();
    std::string error;
    ASSERT_TRUE(listener_.start(error)) << error;
    root_.write("/etc/opt/tarvex/dorsal3/agent.toml",
                "server_url = \"http://127.0.0.1:" + std::to_string(listener_.port()) +
                    "\"\nhost_uuid = \"99999999-0b0a-4908-8706-050403020100\"\n");
    program_ = install_agent(root_.path(), HDBBACKINT_PROGRAM);
  }

  Child start(const std::string& function, const std::string& input) {
    root_.write("/tmp/in", input);
    root_.write("/tmp/out", "");
    return Child({program_, "-f", function, "-u", "TN1@HDB", "-i", "/tmp/in", "-o", "/tmp/out", "-s", "5"},
                 root_.real("/tmp/err"));
  }
  [[nodiscard]] std::string errors() const { return root_.read("/tmp/err"); }

  net::Http_Server listener_{server_, {}};
  std::string program_;
};

TEST_F(Program, Saves_And_Restores_Below_Its_Own_Root) {
  add_job("file:///pool", "zstd", {});
  const std::string pipe = make_pipe(object_name("1_1"));
  const std::string content(3'000'000, 'z');
  Child backup = start("backup", "#PIPE " + pipe + "\n");
  EXPECT_TRUE(write_pipe(pipe, content));
  EXPECT_EQ(backup.wait(), 0) << errors();
  EXPECT_EQ(errors(), "");
  ASSERT_EQ(server_.files().size(), 1U);
  Child restore = start("restore", "#NULL " + pipe + "\n");
  EXPECT_TRUE(read_pipe(pipe) == content);
  EXPECT_EQ(restore.wait(), 0) << errors();
}

TEST_F(Program, Signals_Leave_Nothing_Visible_And_One_Line_Each) {
  for (const int number : {SIGTERM, SIGINT, SIGHUP}) {
    const std::string pipe = make_pipe(object_name(std::to_string(number)));
    Child backup = start("backup", "#PIPE " + pipe + "\n");
    const int fd = ::open(root_.real(pipe).c_str(), O_WRONLY | O_CLOEXEC);
    const std::string part(1'000'000, 'x');
    EXPECT_EQ(::write(fd, part.data(), part.size()), static_cast<ssize_t>(part.size()));
    backup.signal(number);
    EXPECT_EQ(backup.wait(), 1) << number;
    ::close(fd);
    EXPECT_NE(root_.read("/tmp/out").find("#ERROR \"" + pipe + "\"\n"), std::string::npos);
    EXPECT_NE(errors().find("hdbbackint: stopped by a signal\n"), std::string::npos) << errors();
  }
  EXPECT_TRUE(stored().empty());
  EXPECT_TRUE(server_.files().empty());
}

TEST_F(Program, Killed_One_Leaves_No_Object_And_The_Next_Call_Works) {
  const std::string pipe = make_pipe(object_name("1_1"));
  Child backup = start("backup", "#PIPE " + pipe + "\n");
  const int fd = ::open(root_.real(pipe).c_str(), O_WRONLY | O_CLOEXEC);
  const std::string part(1'000'000, 'x');
  EXPECT_EQ(::write(fd, part.data(), part.size()), static_cast<ssize_t>(part.size()));
  backup.signal(SIGKILL);
  EXPECT_EQ(backup.wait(), -SIGKILL);
  ::close(fd);
  EXPECT_TRUE(server_.files().empty());
  for (const std::string& file : stored()) EXPECT_EQ(file[file.rfind('/') + 1], '.') << file;
  Child again = start("backup", "#PIPE " + pipe + "\n");
  EXPECT_TRUE(write_pipe(pipe, part));
  EXPECT_EQ(again.wait(), 0) << errors();
  EXPECT_EQ(server_.files().size(), 1U);
}

TEST_F(Program, File_Size_Limit_Of_The_User_Fails_The_Object_Alone) {
  const std::string big = make_pipe(object_name("1_1"));
  const std::string small = make_pipe(object_name("1_2"));
  Child backup = start("backup", "#PIPE " + big + "\n#PIPE " + small + "\n");
  const rlimit limit{1 << 20, 1 << 20};
  ASSERT_EQ(::prlimit(backup.pid(), RLIMIT_FSIZE, &limit, nullptr), 0);
  EXPECT_FALSE(write_pipe(big, std::string(16 << 20, 'x')));
  EXPECT_TRUE(write_pipe(small, "x"));
  EXPECT_EQ(backup.wait(), 1);
  EXPECT_NE(root_.read("/tmp/out").find("#ERROR \"" + big + "\"\n"), std::string::npos);
  EXPECT_NE(errors().find("File too large"), std::string::npos) << errors();
  EXPECT_EQ(server_.files().size(), 1U);
  EXPECT_EQ(stored().size(), 1U);
}

TEST_F(Program, Log_That_Cannot_Be_Written_Fails_Nothing) {
  root_.make_directory("/var/opt/tarvex/dorsal3/agent/hdbbackint.log");
  const std::string pipe = make_pipe(object_name("1_1"));
  Child backup = start("backup", "#PIPE " + pipe + "\n#PIPE /missing\n");
  EXPECT_TRUE(write_pipe(pipe, "x"));
  EXPECT_EQ(backup.wait(), 1);
  EXPECT_EQ(errors(), "hdbbackint: /missing: cannot read /missing: No such file or directory\n");
}

TEST_F(Program, Usage_Failures_Are_One_Line_And_Exit_2) {
  Child unknown({program_, "-f", "backup", "--frobnicate"}, root_.real("/tmp/err"));
  EXPECT_EQ(unknown.wait(), 2);
  EXPECT_EQ(errors(), "hdbbackint: unknown option '--frobnicate'\n");
  Child version({program_, "-v"}, root_.real("/tmp/err"));
  EXPECT_EQ(version.wait(), 0);
}

/// What a sanitizer keeps for itself beside the program.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr long instrumentation_kib = 1 << 20;
#else
constexpr long instrumentation_kib = 0;
#endif

TEST_F(Program, Memory_Stays_Bounded_With_Eight_Streams) {
  constexpr long bound_kib = (32 + 8 * 8) * 1024;
  add_job("file:///pool", "zstd", {});
  const std::string idle = make_pipe(object_name("idle"));
  std::string input = "#PIPE " + idle + "\n";
  std::vector<std::thread> writers;
  std::vector<std::string> pipes;
  for (int i = 0; i < 8; ++i) {
    pipes.push_back(make_pipe(object_name(std::to_string(i))));
    input += "#PIPE " + pipes.back() + "\n";
  }
  Child backup = start("backup", input);
  for (const std::string& pipe : pipes) {
    writers.emplace_back([this, &pipe] { EXPECT_TRUE(write_pipe(pipe, std::string(32 << 20, '\0'))); });
  }
  for (std::thread& writer : writers) writer.join();
  // The stream that is still open keeps the process, and so its figures.
  const long resident_kib = backup.resident_so_far_kib();
  EXPECT_GT(resident_kib, 0);
  EXPECT_LT(resident_kib, bound_kib + instrumentation_kib);
  EXPECT_TRUE(write_pipe(idle, "x"));
  EXPECT_EQ(backup.wait(), 0) << errors();
}

}  // namespace
}  // namespace hdbbackint
