#include "dorsal3/jobs/progress.h"

#include <gtest/gtest.h>

#include <sstream>

using namespace dorsal3;
using std::chrono::seconds;

namespace {

constexpr std::uint64_t mebibyte = 1U << 20;
const std::chrono::steady_clock::time_point start{};

Progress_Sample sample(int second, int percent, std::uint64_t bytes, std::uint64_t total = 0) {
  return {start + seconds(second), percent, bytes, total};
}

}  // namespace

TEST(Progress_Tracker, Speed_Is_That_Of_The_Last_Quarter_Minute) {
  Progress_Tracker tracker;
  EXPECT_EQ(tracker.speed(), 0U);
  tracker.add(sample(0, 0, 0));
  tracker.add(sample(10, 10, 10 * mebibyte));
  EXPECT_EQ(tracker.speed(), mebibyte);
  for (int second = 11; second <= 40; ++second)
    tracker.add(sample(second, 20, 10 * mebibyte + static_cast<std::uint64_t>(second - 10) * 4 * mebibyte));
  EXPECT_EQ(tracker.speed(), 4 * mebibyte);
}

TEST(Progress_Tracker, Time_Left_Needs_Progress) {
  Progress_Tracker tracker;
  tracker.add(sample(0, 0, 0));
  tracker.add(sample(5, 0, 5));
  EXPECT_EQ(tracker.time_left(), seconds(-1));
  tracker.add(sample(10, 25, 10));
  EXPECT_EQ(tracker.time_left(), seconds(30));
  tracker.add(sample(40, 100, 10));
  EXPECT_EQ(tracker.time_left(), seconds(-1));
}

TEST(Progress_Tracker, A_Count_That_Goes_Back_Is_No_Negative_Speed) {
  Progress_Tracker tracker;
  tracker.add(sample(0, 0, 100 * mebibyte));
  tracker.add(sample(1, 0, mebibyte));
  EXPECT_EQ(tracker.speed(), 0U);
  tracker.add(sample(2, 0, 3 * mebibyte));
  EXPECT_EQ(tracker.speed(), 2 * mebibyte);
}

TEST(Progress_Line, Shows_Bar_Bytes_Speed_And_Time_Left) {
  Progress_Tracker tracker;
  tracker.add(sample(0, 0, 0, 200 * mebibyte));
  tracker.add(sample(10, 50, 100 * mebibyte, 200 * mebibyte));
  EXPECT_EQ(progress_line(tracker, "PRD_HDB00", 90),
            "PRD_HDB00  50% [===============>              ] 100 MiB of 200 MiB  10.0 MiB/s  0:10 left");
}

TEST(Progress_Line, Never_Wider_Than_The_Terminal) {
  Progress_Tracker tracker;
  tracker.add(sample(0, 0, 0));
  tracker.add(sample(10, 50, 100 * mebibyte));
  for (std::size_t width = 1; width < 120; ++width) EXPECT_LE(progress_line(tracker, "X", width).size(), width);
  EXPECT_EQ(progress_line(tracker, "", 40), " 50% 100 MiB  10.0 MiB/s  0:10 left");
}

TEST(Progress_Display, Draws_One_Line_Again_On_A_Terminal) {
  std::ostringstream out;
  Progress_Display display(out, true, 30);
  Progress_Tracker tracker;
  tracker.add(sample(0, 0, 0));
  display.show(tracker, "");
  display.show(tracker, "");
  display.finish();
  EXPECT_EQ(out.str(), "\r\033[K  0% [>                 ] 0 B\r\033[K  0% [>                 ] 0 B\n");
}

TEST(Progress_Display, Writes_Plain_Lines_Elsewhere_Only_When_Something_Changed) {
  std::ostringstream out;
  Progress_Display display(out, false, 80);
  Progress_Tracker tracker;
  tracker.add(sample(0, 10, 0));
  display.show(tracker, "X");
  tracker.add(sample(1, 10, mebibyte));
  display.show(tracker, "X");
  tracker.add(sample(2, 20, 2 * mebibyte));
  display.show(tracker, "X");
  tracker.add(sample(40, 20, 40 * mebibyte));
  display.show(tracker, "X");
  display.finish();
  EXPECT_EQ(out.str(),
            "X  10%  0 B\n"
            "X  20%  2.0 MiB  1.0 MiB/s  0:16 left\n"
            "X  20%  40.0 MiB  1.0 MiB/s  5:20 left\n");
}
