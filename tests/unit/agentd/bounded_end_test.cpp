#include "agentd/bounded_end.h"

#include <ace/Thread_Manager.h>
#include <gtest/gtest.h>

#include <memory>

#include "platform/clock.h"
#include "support/virtual_clock.h"

namespace {

/// Passes at once on a virtual clock; on the real one only a broken wait takes that long.
constexpr std::chrono::seconds limit{20};

ACE_THR_FUNC_RETURN wait_to_go_on(void* event) {
  static_cast<platform::Wait_Event*>(event)->wait_real(limit);
  return nullptr;
}

/// A thread like that of a stop: detached, and known to the manager of the jobs' threads alone.
void spawn_detached(platform::Wait_Event& go_on) {
  ASSERT_NE(ACE_Thread_Manager::instance()->spawn(wait_to_go_on, &go_on, THR_NEW_LWP | THR_DETACHED), -1);
}

TEST(Bounded_End, Waits_For_Work_That_Ends) {
  bool done = false;
  EXPECT_TRUE(agentd::ends_within(limit, [&] { done = true; }));
  EXPECT_TRUE(done);
}

TEST(Bounded_End, Leaves_Work_That_Does_Not_End_In_Time) {
  const auto go_on = std::make_shared<platform::Wait_Event>();
  const auto done = std::make_shared<platform::Wait_Event>();
  {
    const support::Virtual_Clock clock;
    EXPECT_FALSE(agentd::ends_within(limit, [go_on, done] {
      go_on->wait_real(limit);
      done->set();
    }));
    EXPECT_FALSE(done->is_set());
  }
  go_on->set();
  EXPECT_TRUE(done->wait_real(limit)) << "it goes on, nothing that it needs is gone";
}

TEST(Bounded_End, Waits_For_Detached_Threads_Of_Jobs) {
  platform::Wait_Event go_on;
  spawn_detached(go_on);
  {
    const support::Virtual_Clock clock;
    EXPECT_FALSE(agentd::job_threads_end_within(limit)) << "a stop that still polls";
  }
  go_on.set();
  EXPECT_TRUE(agentd::job_threads_end_within(limit));
  EXPECT_EQ(ACE_Thread_Manager::instance()->count_threads(), 0U);
}

}  // namespace
