#include "hana/common/directory_permission.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "platform/file_root.h"
#include "support/log_capture.h"
#include "support/temp_root.h"

namespace {

using sap_hana::change_directory_permission;

mode_t mode_of(const char* path) {
  struct stat status {};
  EXPECT_EQ(::stat(platform::File_Root::current().real(path).c_str(), &status), 0) << path;
  return status.st_mode & 07777U;
}

TEST(Directory_Permission, Changes_The_Directory_Or_The_One_A_File_Lies_In) {
  support::Temp_Root root;
  root.make_directory("/state/catalog");
  root.write("/state/catalog/file", "x", 0640);
  EXPECT_TRUE(change_directory_permission("/state/catalog", 0750));
  EXPECT_EQ(mode_of("/state/catalog"), 0750U);
  EXPECT_TRUE(change_directory_permission("/state/catalog/file", 0755));
  EXPECT_EQ(mode_of("/state/catalog"), 0755U);
  EXPECT_EQ(mode_of("/state/catalog/file"), 0640U);
}

TEST(Directory_Permission, Names_The_Directory_That_Cannot_Be_Changed) {
  support::Temp_Root root;
  support::Log_Capture log;
  EXPECT_FALSE(change_directory_permission("/nowhere/file", 0755));
  EXPECT_EQ(log.claim_containing("Failed to set the mode of '/nowhere': "), 1U);
}

TEST(Directory_Permission, Refuses_A_Path_Whose_Directory_Has_No_Place_In_A_Buffer) {
  support::Temp_Root root;
  support::Log_Capture log;
  const std::string directory(5000, 'd');
  EXPECT_FALSE(change_directory_permission("/" + directory + "/file", 0755));
  EXPECT_EQ(log.claim_containing("Failed to set the mode of the directory of '/ddd"), 1U) << log.dump();
}

}  // namespace
