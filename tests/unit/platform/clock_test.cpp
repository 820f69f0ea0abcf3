#include "platform/clock.h"

#include <gtest/gtest.h>

#include <thread>

#include "support/virtual_clock.h"

using namespace std::chrono_literals;

namespace {

TEST(Clock, A_Waiter_Wakes_When_Another_Thread_Sets_The_Event) {
  platform::Wait_Event event;
  std::thread setter([&event] { event.set(); });
  EXPECT_TRUE(platform::Clock::current().wait_for(event, 30s));
  setter.join();
}

TEST(Virtual_Clock, Hours_Pass_At_Once_And_Due_Actions_Run_In_Order) {
  support::Virtual_Clock clock(1000);
  std::vector<int> order;
  clock.at(2h, [&order] { order.push_back(2); });
  clock.at(1h, [&order] { order.push_back(1); });
  clock.at(5h, [&order] { order.push_back(5); });
  clock.sleep_for(3h);
  EXPECT_EQ(order, (std::vector<int>{1, 2}));
  EXPECT_EQ(clock.wall_seconds(), 1000 + 3 * 3600);
  EXPECT_EQ(clock.sleeps(), std::vector<double>{3 * 3600.0});
}

}  // namespace
