#include "agentd/unfinished_writes.h"

#include <gtest/gtest.h>

#include <string>

#include "platform/files.h"
#include "support/log_capture.h"
#include "support/temp_root.h"

namespace {

constexpr const char* state = "/var/opt/tarvex/dorsal3/agent";
/// An id that no process has: beyond what the kernel gives.
constexpr const char* left = ".restore_HDB_TN1.json.1073741823.0.tmp";

std::string in(const std::string& folder) { return std::string(state) + folder + "/" + left; }

}  // namespace

TEST(Unfinished_Writes, Are_Removed_In_The_Whole_State_Directory) {
  const support::Temp_Root root;
  support::Log_Capture log;
  for (const char* folder : {"", "/hana/catalog", "/act"}) root.write(in(folder), "an access key");
  root.write(std::string(state) + "/hana/catalog/restore_HDB_TN1.json", "{}");
  agentd::remove_unfinished_writes();
  for (const char* folder : {"", "/hana/catalog", "/act"}) {
    EXPECT_FALSE(platform::is_regular_file(in(folder).c_str())) << folder;
    EXPECT_TRUE(log.has_containing("Removed '" + in(folder) + "', it was not written to its end")) << folder;
  }
  EXPECT_EQ(root.read(std::string(state) + "/hana/catalog/restore_HDB_TN1.json"), "{}");
}

TEST(Unfinished_Writes, Behind_A_Link_Are_Not_Touched) {
  const support::Temp_Root root;
  support::Log_Capture log;
  const std::string elsewhere = std::string("/elsewhere/") + left;
  root.write(elsewhere, "x");
  root.make_directory(state);
  ASSERT_EQ(platform::make_link("/elsewhere", (std::string(state) + "/hana").c_str()), 0);
  agentd::remove_unfinished_writes();
  EXPECT_TRUE(platform::is_regular_file(elsewhere.c_str()));
}

TEST(Unfinished_Writes, That_Cannot_Be_Removed_Are_Told) {
  const support::Temp_Root root;
  support::Log_Capture log;
  root.make_directory(in("") + "/a_directory_of_this_name");
  agentd::remove_unfinished_writes();
  EXPECT_EQ(log.claim_containing("Failed to remove what was not written to its end in " + std::string(state)), 1U);
}
