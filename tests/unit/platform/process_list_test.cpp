// The processes of this host as the real runner lists them.

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <iterator>

#include "platform/process_runner.h"
#include "support/temp_root.h"

namespace {

using Processes = std::vector<platform::Running_Process>;

Processes::const_iterator find_self(const Processes& processes) {
  return std::find_if(processes.begin(), processes.end(),
                      [](const auto& process) { return process.pid == ::getpid(); });
}

TEST(Process_List, Holds_This_Process_With_Its_Command_Line) {
  Processes processes{{.pid = 1, .user = "of before", .command_line = "of before"}};
  ASSERT_TRUE(platform::Process_Runner::current().list(processes));
  const auto self = find_self(processes);
  ASSERT_NE(self, processes.end());
  std::ifstream stream("/proc/self/cmdline");
  std::string wanted((std::istreambuf_iterator<char>(stream)), {});
  wanted.pop_back();
  std::replace(wanted.begin(), wanted.end(), '\0', ' ');
  EXPECT_EQ(self->command_line, wanted);
  EXPECT_FALSE(self->user.empty());
  for (const auto& process : processes) EXPECT_NE(process.user, "of before");
}

TEST(Process_List, Below_A_Root_Leaves_Programs_Of_Other_Places_Out) {
  const support::Temp_Root root;
  Processes processes;
  ASSERT_TRUE(platform::Process_Runner::current().list(processes));
  EXPECT_EQ(find_self(processes), processes.end()) << "this test is installed elsewhere";
}

}  // namespace
