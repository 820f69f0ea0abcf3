#include "agent/backupd_client/backint_workplace.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/files.h"
#include "platform/product_paths.h"
#include "support/log_capture.h"
#include "support/temp_root.h"

namespace {

constexpr mode_t permission_bits = 07777;

class Backint_Workplace : public testing::Test {
 protected:
  Backint_Workplace() {
    EXPECT_EQ(platform::mkdir_p(platform::product_paths::agent_state("").c_str(), platform::mode_directory), 0);
    root_.write("/etc/group", "sapsys:x:" + std::to_string(::getgid()) + ":\n");
  }
  struct stat status_of(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(::stat(root_.real(path).c_str(), &status), 0) << path;
    return status;
  }

  support::Temp_Root root_;
  support::Log_Capture log_;
  const std::string log_path_ = platform::product_paths::backint_log();
  const std::string rates_ = platform::product_paths::backint_rate_directory();
};

TEST_F(Backint_Workplace, The_Group_Of_HANAs_Users_May_Write_Log_And_Rates) {
  prepare_backint_workplace();
  EXPECT_EQ(status_of(log_path_).st_mode & permission_bits, 0660U);
  EXPECT_EQ(status_of(log_path_).st_gid, ::getgid());
  EXPECT_EQ(status_of(rates_).st_mode & permission_bits, 0770U);
  EXPECT_EQ(status_of(rates_).st_gid, ::getgid());
}

TEST_F(Backint_Workplace, Keeps_What_The_Log_Holds) {
  root_.write(log_path_, "a line\n", 0600);
  prepare_backint_workplace();
  std::string content;
  ASSERT_TRUE(platform::read_file(log_path_, content));
  EXPECT_EQ(content, "a line\n");
  EXPECT_EQ(status_of(log_path_).st_mode & permission_bits, 0660U);
}

TEST_F(Backint_Workplace, Follows_No_Link_And_Says_So) {
  root_.write("/etc/secret", "kept", 0600);
  ASSERT_EQ(platform::make_link("/etc/secret", log_path_.c_str()), 0);
  prepare_backint_workplace();
  EXPECT_TRUE(log_.has_containing("Failed to make " + log_path_ + " for HANA's users, "));
  EXPECT_EQ(status_of("/etc/secret").st_mode & permission_bits, 0600U);
}

TEST_F(Backint_Workplace, Says_What_Could_Not_Be_Made) {
  root_.write(rates_, "no directory");
  prepare_backint_workplace();
  EXPECT_TRUE(log_.has_containing("Failed to make " + rates_ + " for HANA's users, "));
}

}  // namespace
