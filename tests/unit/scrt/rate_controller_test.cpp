#include "scrt/rate_controller.h"

#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;

TEST(Rate_Controller, Without_A_Limit_Nobody_Waits) {
  Rate_Controller controller;
  EXPECT_EQ(controller.take(1'000'000'000, Rate_Controller::Time(1s)), 0ns);
}

TEST(Rate_Controller, Keeps_The_Average_Without_Drift) {
  Rate_Controller controller;
  controller.limit(1'000'000);
  Rate_Controller::Time now(10s);
  const Rate_Controller::Time start = now;
  for (int i = 0; i < 1000; ++i) now += controller.take(100'000, now);
  const double seconds = std::chrono::duration<double>(now - start).count();
  EXPECT_NEAR(seconds, 100.0, 0.2);
}

TEST(Rate_Controller, What_Was_Not_Used_Is_Lost_But_For_One_Burst) {
  Rate_Controller controller;
  controller.limit(1000);
  EXPECT_EQ(controller.take(100, Rate_Controller::Time(100s)), 0ns) << "one tenth of a second at once";
  EXPECT_EQ(controller.take(1000, Rate_Controller::Time(100s)), 1s);
}

}  // namespace
