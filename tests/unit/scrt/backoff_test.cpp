#include <gtest/gtest.h>

#include <limits>
#include <vector>

#include "scrt/exponential_backoff_iterator.h"

namespace {

std::vector<unsigned> delays(const Exponential_Backoff_Range& range) {
  std::vector<unsigned> all;
  for (const unsigned delay : range) all.push_back(delay);
  return all;
}

constexpr unsigned no_cap = std::numeric_limits<unsigned>::max();

TEST(Exponential_Backoff, Delays_Double_Up_To_The_Cap) {
  EXPECT_EQ(delays(exponential_backoff(1, 10, 2, false)), (std::vector<unsigned>{1, 2, 2, 2, 2, 2, 2, 2, 2, 2}));
  EXPECT_EQ(delays(exponential_backoff(1, 6, 10, false)), (std::vector<unsigned>{1, 2, 4, 8, 10, 10}));
  EXPECT_EQ(delays(exponential_backoff(1, 10, no_cap, false)),
            (std::vector<unsigned>{1, 2, 4, 8, 16, 32, 64, 128, 256, 512}));
  EXPECT_EQ(delays(exponential_backoff(3, 3, 2, false)), (std::vector<unsigned>{3, 6, 6}));
  EXPECT_TRUE(delays(exponential_backoff(1, 0, 2, false)).empty());
}

TEST(Exponential_Backoff, The_Exponent_Saturates) {
  Exponential_Backoff_Iterator at(1, no_cap, no_cap, false);
  for (int i = 0; i < 200; ++i) ++at;
  EXPECT_EQ(*at, 1U << 31);
  Exponential_Backoff_Iterator wide(no_cap, no_cap, no_cap, false);
  for (int i = 0; i < 200; ++i) ++wide;
  EXPECT_EQ(*wide, no_cap);
}

TEST(Exponential_Backoff, The_Sum_Counts_The_Delays_Left_Behind) {
  Exponential_Backoff_Iterator at(1, 10, 10, false);
  EXPECT_EQ(at.cumulation(), 0U);
  for (int i = 0; i < 4; ++i) ++at;
  EXPECT_EQ(at.cumulation(), 1U + 2 + 4 + 8);
  EXPECT_FALSE(at.exhausted());
  for (int i = 0; i < 6; ++i) ++at;
  EXPECT_TRUE(at.exhausted());
}

TEST(Exponential_Backoff, Jitter_Draws_Between_One_And_The_Delay) {
  bool below = false;
  for (int round = 0; round < 100; ++round) {
    Exponential_Backoff_Iterator at(1, no_cap, 10, true);
    for (int i = 0; i < 8; ++i) ++at;
    ASSERT_GE(*at, 1U);
    ASSERT_LE(*at, 10U);
    below = below || *at < 10;
  }
  EXPECT_TRUE(below);
}

}  // namespace
