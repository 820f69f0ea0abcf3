// What every clock promises: the system's, and those by which tests move time.

#include "platform/clock.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "support/shifted_clock.h"
#include "support/standing_clock.h"
#include "support/virtual_clock.h"

namespace {

using namespace std::chrono_literals;
using platform::Clock;
using std::chrono::steady_clock;
using std::chrono::system_clock;

/// A clock that is the process's for its life; null for the system's own.
struct Clock_Side {
  const char* name;
  std::unique_ptr<Clock> (*make)();
};

void PrintTo(const Clock_Side& side, std::ostream* out) { *out << side.name; }

class Clock_Contract : public testing::TestWithParam<Clock_Side> {
 protected:
  Clock& former = Clock::current();
  std::unique_ptr<Clock> made = GetParam().make();
  Clock& clock = Clock::current();
  platform::Wait_Event event;
};

TEST_P(Clock_Contract, Is_The_Clock_Of_The_Process_For_Its_Life) {
  EXPECT_EQ(&clock, made ? made.get() : &former);
  made.reset();
  EXPECT_EQ(&Clock::current(), &former);
}

TEST_P(Clock_Contract, Steady_Time_Never_Goes_Back_And_Passes_By_A_Sleep_At_Least) {
  steady_clock::time_point last = clock.steady_now();
  for (const auto span : {1us, 500us, 3000us}) {
    const steady_clock::time_point before = clock.steady_now();
    EXPECT_GE(before, last);
    clock.sleep_for(span);
    last = clock.steady_now();
    EXPECT_GE(last - before, span);
  }
}

TEST_P(Clock_Contract, A_Sleep_Of_Nothing_Or_Less_Moves_No_Time_Back) {
  for (const std::chrono::nanoseconds span : {std::chrono::nanoseconds(0s), std::chrono::nanoseconds(-1h)}) {
    const steady_clock::time_point before = clock.steady_now();
    const system_clock::time_point date = clock.now();
    clock.sleep_for(span);
    EXPECT_GE(clock.steady_now(), before);
    EXPECT_LT(clock.steady_now() - before, 1h);
    EXPECT_GT(clock.now() - date, -1h);
  }
}

TEST_P(Clock_Contract, Seconds_Are_Those_Of_The_Date) {
  const std::time_t before = system_clock::to_time_t(clock.now());
  const std::time_t seconds = clock.wall_seconds();
  const std::time_t after = system_clock::to_time_t(clock.now());
  EXPECT_LE(before, seconds);
  EXPECT_LE(seconds, after);
  EXPECT_GT(seconds, 1'600'000'000);
}

TEST_P(Clock_Contract, Waits_The_Whole_Limit_For_An_Event_That_Nobody_Sets) {
  const steady_clock::time_point before = clock.steady_now();
  EXPECT_FALSE(clock.wait_for(event, 2ms));
  EXPECT_GE(clock.steady_now() - before, 2ms);
  EXPECT_FALSE(event.is_set());
}

TEST_P(Clock_Contract, Does_Not_Wait_For_An_Event_That_Is_Set) {
  event.set();
  const steady_clock::time_point before = clock.steady_now();
  EXPECT_TRUE(clock.wait_for(event, 1h));
  EXPECT_TRUE(clock.wait_for(event, 1h)) << "it stays set";
  EXPECT_LT(clock.steady_now() - before, 1h);
  event.reset();
  EXPECT_FALSE(clock.wait_for(event, 1ms));
}

TEST_P(Clock_Contract, A_Limit_Of_Nothing_Or_Less_Only_Asks) {
  for (const std::chrono::nanoseconds limit : {std::chrono::nanoseconds(0s), std::chrono::nanoseconds(-1h)}) {
    event.reset();
    EXPECT_FALSE(clock.wait_for(event, limit));
    event.set();
    EXPECT_TRUE(clock.wait_for(event, limit));
  }
}

TEST_P(Clock_Contract, All_That_Wait_See_An_Event_Of_Another_Thread) {
  constexpr int waiters = 4;
  std::vector<std::thread> waiting;
  for (int i = 0; i < waiters; ++i)
    waiting.emplace_back([this] {
      // By a clock that a test moves, a limit may pass before another thread gets to run.
      while (!clock.wait_for(event, 50ms)) continue;
    });
  event.set();
  for (std::thread& waiter : waiting) waiter.join();
  EXPECT_TRUE(event.is_set());
}

constexpr std::time_t some_second = 1'700'000'000;

INSTANTIATE_TEST_SUITE_P(
    Sides, Clock_Contract,
    testing::Values(Clock_Side{"System", []() -> std::unique_ptr<Clock> { return nullptr; }},
                    Clock_Side{"Virtual",
                               []() -> std::unique_ptr<Clock> { return std::make_unique<support::Virtual_Clock>(); }},
                    Clock_Side{"Shifted",
                               []() -> std::unique_ptr<Clock> {
                                 return std::make_unique<support::Shifted_Clock>([](std::chrono::seconds) {});
                               }},
                    Clock_Side{"Standing",
                               []() -> std::unique_ptr<Clock> {
                                 return std::make_unique<support::Standing_Clock>(some_second,
                                                                                  [](system_clock::time_point) {});
                               }}),
    [](const auto& tested) { return std::string(tested.param.name); });

}  // namespace
