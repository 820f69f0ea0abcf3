#include "scrt/thread_helper.h"

#include <gtest/gtest.h>

#include <functional>
#include <semaphore>
#include <stdexcept>

#include "support/log_capture.h"

namespace {

constexpr int joinable = THR_NEW_LWP | THR_JOINABLE | THR_INHERIT_SCHED;
constexpr int detached = THR_NEW_LWP | THR_DETACHED | THR_INHERIT_SCHED;

TEST(Thread_Helper, Runs_The_Bound_Call_Once_And_Tells_That_It_Runs) {
  std::binary_semaphore go(0);
  int calls = 0;
  Thread_Helper helper(joinable, ACE_DEFAULT_THREAD_PRIORITY);
  EXPECT_FALSE(helper.exists());
  EXPECT_FALSE(helper.running());
  ASSERT_GE(helper.spawn(
                [&go, &calls](int step) {
                  go.acquire();
                  calls += step;
                },
                3),
            0);
  EXPECT_TRUE(helper.exists());
  EXPECT_TRUE(helper.running()) << "spawn returns only when the thread has started";
  go.release();
  EXPECT_TRUE(helper.finished().wait_real(std::chrono::seconds(30)));
  EXPECT_FALSE(helper.running());
  helper.join();
  EXPECT_FALSE(helper.exists());
  EXPECT_EQ(calls, 3);
}

TEST(Thread_Helper, A_Second_Spawn_Is_Refused_While_The_Thread_Exists) {
  Thread_Helper helper(joinable, ACE_DEFAULT_THREAD_PRIORITY);
  ASSERT_GE(helper.spawn([] {}), 0);
  EXPECT_EQ(helper.spawn([] {}), -1);
  helper.join();
  EXPECT_GE(helper.spawn([] {}), 0) << "after the join there is room again";
}

TEST(Thread_Helper, Copies_Arguments_Unless_A_Reference_Is_Bound) {
  const auto fail = [](bool& ok) { ok = false; };
  bool copied = true;
  bool bound = true;
  Thread_Helper first(joinable, ACE_DEFAULT_THREAD_PRIORITY);
  Thread_Helper second(joinable, ACE_DEFAULT_THREAD_PRIORITY);
  ASSERT_GE(first.spawn(fail, copied), 0);
  ASSERT_GE(second.spawn(fail, std::ref(bound)), 0);
  first.join();
  second.join();
  EXPECT_TRUE(copied);
  EXPECT_FALSE(bound);
}

TEST(Thread_Helper, An_Exception_Ends_The_Thread_And_Not_The_Process) {
  support::Log_Capture log;
  Thread_Helper helper(joinable, ACE_DEFAULT_THREAD_PRIORITY);
  ASSERT_GE(helper.spawn([] { throw std::runtime_error("no memory"); }), 0);
  EXPECT_TRUE(helper.finished().wait_real(std::chrono::seconds(30)));
  EXPECT_FALSE(helper.running());
  helper.join();
  EXPECT_EQ(log.claim_containing(", a thread was left by an exception: no memory\n", LM_EMERGENCY), 1U) << log.dump();
  EXPECT_EQ(log.lines().back().priority, LM_EMERGENCY);
  ASSERT_GE(helper.spawn([] { throw 42; }), 0);
  helper.join();
  EXPECT_EQ(log.claim_containing(", a thread was left by an exception of unknown type\n", LM_EMERGENCY), 1U)
      << log.dump();
}

TEST(Thread_Helper, Calls_The_Hook_Before_The_Bound_Call) {
  class Hooked : public Thread_Helper {
   public:
    Hooked() : Thread_Helper(joinable, ACE_DEFAULT_THREAD_PRIORITY) {}
    ~Hooked() override { join(); }
    void handle_starting() override { order += "hook "; }
    std::string order;
  };
  Hooked helper;
  ASSERT_GE(helper.spawn([&helper] { helper.order += "call"; }), 0);
  helper.join();
  EXPECT_EQ(helper.order, "hook call");
}

TEST(Thread_Helper, A_Detached_Thread_Is_Not_Kept) {
  std::binary_semaphore go(0);
  std::binary_semaphore done(0);
  {
    Thread_Helper helper(detached, ACE_DEFAULT_THREAD_PRIORITY);
    ASSERT_GE(helper.spawn([&go, &done] {
      go.acquire();
      done.release();
    }),
              0);
    EXPECT_FALSE(helper.exists());
    EXPECT_FALSE(helper.running());
  }
  go.release();
  done.acquire();
  // The thread has left the semaphores once the manager knows it has ended.
  ACE_Thread_Manager::instance()->wait();
}

}  // namespace
