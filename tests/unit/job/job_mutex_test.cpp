#include "job/job_mutex.h"

#include <ace/Guard_T.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <thread>
#include <vector>

namespace {

TEST(Job_Mutex, Is_One_Per_Resource) {
  const std::shared_ptr<Job_Mutex> first = Job_Mutex::get("a");
  EXPECT_EQ(first, Job_Mutex::get("a"));
  EXPECT_NE(first, Job_Mutex::get("b"));
}

TEST(Job_Mutex, Leaves_No_Entry_Behind) {
  const std::size_t before = Job_Mutex::count();
  for (int i = 0; i < 1000; ++i) {
    const std::shared_ptr<Job_Mutex> lock = Job_Mutex::get("resource " + std::to_string(i));
    const ACE_Guard<Job_Mutex> guard(*lock);
  }
  EXPECT_EQ(Job_Mutex::count(), before);
}

TEST(Job_Mutex, Refuses_A_Thread_That_Holds_It_Already) {
  const std::shared_ptr<Job_Mutex> lock = Job_Mutex::get("a");
  ACE_Guard<Job_Mutex> held(*lock);
  ASSERT_TRUE(held.locked());
  errno = 0;
  ACE_Guard<Job_Mutex> again(*lock);
  EXPECT_FALSE(again.locked());
  EXPECT_EQ(errno, EDEADLK);
}

TEST(Job_Mutex, Can_Be_Tried) {
  const std::shared_ptr<Job_Mutex> lock = Job_Mutex::get("a");
  ACE_Guard<Job_Mutex> held(*lock);
  std::thread([&] {
    EXPECT_EQ(lock->tryacquire(), -1);
    EXPECT_EQ(errno, EBUSY);
    EXPECT_EQ(lock->release(), -1);
    EXPECT_EQ(errno, EPERM);
  }).join();
  held.release();
  EXPECT_EQ(lock->tryacquire(), 0);
  EXPECT_EQ(lock->release(), 0);
}

TEST(Job_Mutex, Tells_Who_Holds_It) {
  const std::shared_ptr<Job_Mutex> lock = Job_Mutex::get("a");
  lock->holder("nobody");
  EXPECT_EQ(lock->holder(), "");
  ASSERT_EQ(lock->acquire(), 0);
  EXPECT_EQ(lock->holder(), "") << "it has not said";
  lock->holder("me");
  std::thread([&] { lock->holder("another"); }).join();
  EXPECT_EQ(Job_Mutex::get("a")->holder(), "me");
  ASSERT_EQ(lock->release(), 0);
  EXPECT_EQ(lock->holder(), "");
}

TEST(Job_Mutex, Makes_A_Second_Run_Wait) {
  const std::shared_ptr<Job_Mutex> lock = Job_Mutex::get("a");
  ACE_Guard<Job_Mutex> guard(*lock);
  std::atomic<bool> second_is_in = false;
  std::thread second([&] {
    const std::shared_ptr<Job_Mutex> same = Job_Mutex::get("a");
    const ACE_Guard<Job_Mutex> waiting(*same);
    second_is_in = true;
  });
  while (lock->waiting() == 0 && !second_is_in) std::this_thread::yield();
  EXPECT_FALSE(second_is_in);
  EXPECT_EQ(lock->waiting(), 1U);
  guard.release();
  second.join();
  EXPECT_TRUE(second_is_in);
  EXPECT_EQ(lock->waiting(), 0U);
}

TEST(Job_Mutex, Never_Lets_Two_Threads_In) {
  constexpr int threads = 4;
  constexpr int rounds = 500;
  int counter = 0;
  std::vector<std::thread> workers;
  for (int i = 0; i < threads; ++i)
    workers.emplace_back([&counter] {
      for (int round = 0; round < rounds; ++round) {
        const std::shared_ptr<Job_Mutex> lock = Job_Mutex::get("shared");
        const ACE_Guard<Job_Mutex> guard(*lock);
        ++counter;
      }
    });
  for (std::thread& worker : workers) worker.join();
  EXPECT_EQ(counter, threads * rounds);
}

}  // namespace
