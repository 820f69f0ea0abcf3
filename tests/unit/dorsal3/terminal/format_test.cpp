#include "dorsal3/terminal/format.h"

#include <gtest/gtest.h>

#include <limits>

using namespace dorsal3;

TEST(Format, Bytes_Keep_Three_Digits) {
  struct Row {
    std::uint64_t bytes;
    const char* text;
  };
  const Row rows[] = {{0, "0 B"},
                      {1, "1 B"},
                      {1023, "1023 B"},
                      {1024, "1.0 KiB"},
                      {1536, "1.5 KiB"},
                      {102348, "99.9 KiB"},
                      {102400, "100 KiB"},
                      {1048063, "1023 KiB"},
                      {1048575, "1.0 MiB"},
                      {209715200, "200 MiB"},
                      {std::numeric_limits<std::uint64_t>::max(), "16.0 EiB"}};
  for (const Row& row : rows) EXPECT_EQ(format_bytes(row.bytes), row.text) << row.bytes;
}

TEST(Format, Spans_Show_Hours_Only_When_There_Are_Some) {
  EXPECT_EQ(format_span(std::chrono::seconds(-3)), "0:00");
  EXPECT_EQ(format_span(std::chrono::seconds(5)), "0:05");
  EXPECT_EQ(format_span(std::chrono::seconds(760)), "12:40");
  EXPECT_EQ(format_span(std::chrono::seconds(3600)), "1:00:00");
  EXPECT_EQ(format_span(std::chrono::hours(30)), "30:00:00");
}

TEST(Format, Ratio_Of_Nothing_Stored_Is_A_Dash) {
  EXPECT_EQ(format_ratio(100, 0), "-");
  EXPECT_EQ(format_ratio(250, 100), "2.5x");
}

TEST(Format, No_Backup_Ends_Before_It_Begins) {
  EXPECT_EQ(end_of_backup("2026-11-21 08:00:01", "2026-11-21 08:00:05"), "2026-11-21 08:00:05");
  EXPECT_EQ(end_of_backup("2026-11-21 08:00:01", "2026-11-21 08:00:00"), "2026-11-21 08:00:01");
  EXPECT_EQ(end_of_backup("2026-11-21 08:00:01", ""), "") << "it is not known";
  EXPECT_EQ(end_of_backup("", "2026-11-21 08:00:00"), "2026-11-21 08:00:00");
}

TEST(Format, Foreign_Text_Cannot_Steer_The_Terminal) {
  EXPECT_EQ(one_line("a\033[2Jb\nc\n"), "a?[2Jb?c");
  EXPECT_EQ(one_line("Zürich"), "Zürich");
}

TEST(Text_Table, Columns_Are_As_Wide_As_Their_Widest_Cell) {
  Text_Table table({"A", "LONG"});
  table.add({"wider", "x"});
  table.add({"ü", ""});
  EXPECT_EQ(table.text(), "A      LONG\nwider  x\nü\n");
}
