#include "hana/job/lifeline_lock.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "platform/clock.h"

namespace {

constexpr const char* resource = "11111111-1111-4111-8111-111111111111";
/// Only a broken lock waits that long.
constexpr std::chrono::seconds real_limit{20};

TEST(Lifeline_Lock, Lets_Runs_Of_Two_Databases_Go_Side_By_Side) {
  sap_hana::Lifeline_Lock first;
  sap_hana::Lifeline_Lock second;
  first.acquire(resource, "TN1");
  second.acquire(resource, "TN2");
  EXPECT_EQ(Job_Mutex::count(), 2U);
}

TEST(Lifeline_Lock, Makes_A_Second_Run_Of_The_Database_Wait) {
  sap_hana::Lifeline_Lock first;
  first.acquire(resource, "TN1");
  platform::Wait_Event begun;
  platform::Wait_Event done;
  std::atomic<bool> released{false};
  std::atomic<bool> came_too_early{false};
  std::thread other([&] {
    begun.set();
    sap_hana::Lifeline_Lock second;
    second.acquire(resource, "TN1");
    came_too_early = !released.load();
    done.set();
  });
  EXPECT_TRUE(begun.wait_real(real_limit));
  EXPECT_FALSE(Job_Mutex::get(std::string(resource) + "/TN1")->tryacquire() == 0);
  EXPECT_FALSE(done.is_set());
  released = true;
  first.release();
  EXPECT_TRUE(done.wait_real(real_limit));
  other.join();
  EXPECT_FALSE(came_too_early);
}

TEST(Lifeline_Lock, Lets_Go_Of_One_Database_When_It_Takes_The_Next) {
  sap_hana::Lifeline_Lock lock;
  lock.acquire(resource, "TN1");
  lock.acquire(resource, "TN2");
  EXPECT_EQ(Job_Mutex::count(), 1U);
  lock.acquire(resource, "TN2");
  EXPECT_EQ(Job_Mutex::count(), 1U) << "its own lock is no obstacle";
}

TEST(Lifeline_Lock, Is_Gone_With_Its_Holder) {
  {
    sap_hana::Lifeline_Lock lock;
    lock.acquire(resource, "TN1");
  }
  EXPECT_EQ(Job_Mutex::count(), 0U);
  sap_hana::Lifeline_Lock never;
  never.release();
}

}  // namespace
