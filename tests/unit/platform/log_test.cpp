#include "platform/log.h"

#include <gtest/gtest.h>

#include "support/log_capture.h"

namespace {

TEST(Log, Lines_Carry_Priority_And_Text) {
  support::Log_Capture log;
  D3_ERROR("Failed to open %C, %d\n", "file", 5);
  D3_INFO("started\n");
  ASSERT_EQ(log.lines().size(), 2U);
  EXPECT_EQ(log.lines()[0].priority, LM_ERROR);
  EXPECT_TRUE(log.claim("Failed to open file, 5\n"));
  EXPECT_FALSE(log.claim("Failed to open file, 5\n")) << "a line is claimed once";
}

TEST(Log, A_Record_Names_This_File_Without_Any_Build_Path) {
  support::Log_Capture log;
  D3_EMERGENCY("at %N\n");
  EXPECT_TRUE(log.claim("at tests/unit/platform/log_test.cpp\n")) << log.dump();
}

TEST(Log, Long_Arguments_Are_Cut_So_That_The_Line_End_Stays) {
  support::Log_Capture log;
  D3_ERROR("Failed: %C\n", platform::cut_for_log(std::string(100'000, 'x')).c_str());
  ASSERT_EQ(log.lines().size(), 1U);
  EXPECT_TRUE(log.lines()[0].text.ends_with("x...\n"));
  log.claim_all();
  EXPECT_EQ(platform::cut_for_log("short"), "short");
}

}  // namespace
