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

TEST(Log, A_Line_Is_Claimed_At_Its_Priority_Alone) {
  support::Log_Capture log;
  D3_ERROR("broken\n");
  D3_INFO("started\n");
  D3_WARNING("late\n");
  for (const ACE_Log_Priority other : {LM_INFO, LM_WARNING, LM_EMERGENCY}) {
    EXPECT_FALSE(log.claim("broken\n", other));
    EXPECT_EQ(log.claim_containing("broken", other), 0U);
  }
  EXPECT_FALSE(log.claim("started\n"));
  EXPECT_EQ(log.claim_containing("late"), 0U);
  EXPECT_TRUE(log.claim("started\n", LM_INFO));
  EXPECT_EQ(log.claim_containing("late", LM_WARNING), 1U);
  EXPECT_EQ(log.claim_containing("broken"), 1U);
}

TEST(Log, A_Record_Names_This_File_Without_Any_Build_Path) {
  support::Log_Capture log;
  D3_EMERGENCY("at %N\n");
  EXPECT_TRUE(log.claim("at tests/unit/platform/log_test.cpp\n", LM_EMERGENCY)) << log.dump();
}

TEST(Log, Long_Arguments_Are_Cut_So_That_The_Line_End_Stays) {
  support::Log_Capture log;
  D3_ERROR("Failed: %C\n", platform::cut_for_log(std::string(100'000, 'x')).c_str());
  ASSERT_EQ(log.lines().size(), 1U);
  EXPECT_TRUE(log.lines()[0].text.ends_with("x...\n"));
  log.claim_all();
  EXPECT_EQ(platform::cut_for_log("short"), "short");
}

TEST(Log, Cuts_Before_A_Character_And_Never_In_It) {
  const struct {
    const char* text;
    std::size_t limit;
    const char* wanted;
  } rows[] = {{"abc", 3, "abc"},
              {"abcd", 3, "abc..."},
              {"a\xc3\xa4", 3, "a\xc3\xa4"},
              {"a\xc3\xa4x", 2, "a..."},
              {"a\xc3\xa4x", 3, "a\xc3\xa4..."},
              {"a\xf0\x9f\x98\x80x", 4, "a..."},
              {"a\xf0\x9f\x98\x80x", 2, "a..."},
              {"\xc3\xa4", 1, "..."},
              {"x", 0, "..."},
              // No character of UTF-8 is that long.
              {"\x80\x80\x80\x80\x80\x80\x80\x80", 5, "\x80\x80..."}};
  for (const auto& row : rows) EXPECT_EQ(platform::cut_for_log(row.text, row.limit), row.wanted) << row.limit;
}

}  // namespace
