#include "platform/log_file.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <ostream>

#include "platform/files.h"
#include "support/temp_root.h"

namespace {

constexpr const char* path = "/program.log";

class Log_File : public testing::Test {
 protected:
  support::Temp_Root root_;

  [[nodiscard]] static std::string content(const std::string& of = path) {
    std::string text;
    EXPECT_TRUE(platform::read_file(of, text)) << of;
    return text;
  }
};

TEST_F(Log_File, Two_Processes_Never_Mix_Their_Lines) {
  platform::Log_File_Buffer first(path);
  platform::Log_File_Buffer second(path);
  std::ostream one(&first);
  std::ostream other(&second);
  // Larger than any buffer of the stream's own would be.
  const std::string long_line(100'000, 'x');
  one << long_line;
  other << "short" << '\n' << std::flush;
  one << '\n' << std::flush;
  other << "again\n" << std::flush;
  EXPECT_EQ(content(), "short\n" + long_line + "\nagain\n");
}

TEST_F(Log_File, Goes_On_Behind_What_Is_There) {
  root_.write(path, "before\n");
  platform::Log_File_Buffer buffer(path);
  std::ostream(&buffer) << "after\n" << std::flush;
  EXPECT_EQ(content(), "before\nafter\n");
}

TEST_F(Log_File, Begins_A_New_File_When_The_Old_One_Was_Moved_Away) {
  platform::Log_File_Buffer buffer(path);
  std::ostream out(&buffer);
  out << "old\n" << std::flush;
  ASSERT_EQ(std::rename(root_.real(path).c_str(), root_.real("/program.log.1").c_str()), 0);
  out << "new\n" << std::flush;
  EXPECT_EQ(content("/program.log.1"), "old\n");
  EXPECT_EQ(content(), "new\n");
}

TEST_F(Log_File, Goes_On_In_A_File_That_Was_Cut_To_Nothing) {
  platform::Log_File_Buffer buffer(path);
  std::ostream out(&buffer);
  out << "old\n" << std::flush;
  ASSERT_EQ(::truncate(root_.real(path).c_str(), 0), 0);
  out << "new\n" << std::flush;
  EXPECT_EQ(content(), "new\n");
}

TEST_F(Log_File, Loses_No_Line_After_One_That_Could_Not_Be_Written) {
  ASSERT_EQ(::symlink("/dev/full", root_.real(path).c_str()), 0);
  platform::Log_File_Buffer buffer(path);
  ASSERT_TRUE(buffer.is_open());
  std::ostream out(&buffer);
  out << "lost\n" << std::flush;
  EXPECT_TRUE(out.good());
  ASSERT_EQ(::unlink(root_.real(path).c_str()), 0);
  out << "kept\n" << std::flush;
  EXPECT_EQ(content(), "kept\n");
}

TEST_F(Log_File, A_Line_That_Was_Cut_Does_Not_Run_Into_The_Next) {
  const auto former = ::signal(SIGXFSZ, SIG_IGN);
  rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
  platform::Log_File_Buffer buffer(path);
  std::ostream out(&buffer);
  const rlimit small{10, before.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
  out << "0123456789 and more\n" << std::flush;
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &before), 0);
  static_cast<void>(::signal(SIGXFSZ, former));
  out << "next\n" << std::flush;
  EXPECT_EQ(content(), "0123456789\nnext\n");
}

TEST_F(Log_File, Is_Not_Open_Where_There_Is_No_Directory) {
  platform::Log_File_Buffer buffer("/missing/program.log");
  EXPECT_FALSE(buffer.is_open());
}

}  // namespace
