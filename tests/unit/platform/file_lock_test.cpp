#include "platform/file_lock.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "platform/clock.h"
#include "platform/file_root.h"
#include "support/temp_root.h"

namespace {

constexpr const char* path = "/var/opt/tarvex/dorsal3/agent/lock/restore_HDB_TN1";
constexpr const char* directory = "/var/opt/tarvex/dorsal3/agent/lock";
/// Only a broken lock waits that long.
constexpr std::chrono::seconds real_limit{20};
constexpr mode_t permission_bits = 07777;

mode_t mode_of(const char* documented) {
  struct stat status {};
  EXPECT_EQ(::stat(platform::File_Root::current().real(documented).c_str(), &status), 0) << documented;
  return status.st_mode & permission_bits;
}

TEST(File_Lock, Has_A_Private_File_While_It_Is_Held) {
  const support::Temp_Root root;
  platform::File_Lock lock(path);
  EXPECT_FALSE(lock.held());
  ASSERT_TRUE(lock.acquire());
  EXPECT_TRUE(lock.held());
  EXPECT_EQ(mode_of(path), 0600U);
  EXPECT_EQ(mode_of(directory), 0700U);
  EXPECT_TRUE(lock.acquire()) << "held already";
  lock.release();
  EXPECT_FALSE(lock.held());
  EXPECT_FALSE(root.exists(path));
}

TEST(File_Lock, Goes_With_Its_Object) {
  const support::Temp_Root root;
  {
    platform::File_Lock lock(path);
    ASSERT_TRUE(lock.acquire());
  }
  EXPECT_FALSE(root.exists(path));
}

TEST(File_Lock, Cannot_Be_Had_Where_No_File_Can_Be_Made) {
  const support::Temp_Root root;
  root.write("/var/opt/tarvex/dorsal3/agent/lock", "a file where the directory should be");
  platform::File_Lock lock(path);
  EXPECT_FALSE(lock.acquire());
  EXPECT_NE(errno, 0);
  EXPECT_FALSE(lock.held());
}

TEST(File_Lock, Keeps_Out_Other_Threads_Of_The_Process) {
  const support::Temp_Root root;
  platform::File_Lock lock(path);
  ASSERT_TRUE(lock.acquire());
  std::atomic<bool> released{false};
  std::atomic<bool> came_too_early{false};
  platform::Wait_Event begun;
  platform::Wait_Event done;
  std::thread other([&] {
    platform::File_Lock second(path);
    begun.set();
    EXPECT_TRUE(second.acquire());
    came_too_early = !released.load();
    done.set();
  });
  EXPECT_TRUE(begun.wait_real(real_limit));
  EXPECT_FALSE(done.is_set());
  released = true;
  lock.release();
  EXPECT_TRUE(done.wait_real(real_limit));
  other.join();
  EXPECT_FALSE(came_too_early);
}

TEST(File_Lock, Is_Held_By_One_At_A_Time_Though_Each_Holder_Removes_The_File) {
  const support::Temp_Root root;
  constexpr int threads = 4;
  constexpr int rounds = 200;
  std::atomic<int> inside{0};
  std::atomic<int> overlaps{0};
  std::vector<std::thread> workers;
  for (int i = 0; i < threads; ++i)
    workers.emplace_back([&] {
      for (int round = 0; round < rounds; ++round) {
        platform::File_Lock lock(path);
        ASSERT_TRUE(lock.acquire());
        if (inside.fetch_add(1) != 0) ++overlaps;
        std::this_thread::yield();
        --inside;
      }
    });
  for (std::thread& worker : workers) worker.join();
  EXPECT_EQ(overlaps, 0);
  EXPECT_FALSE(root.exists(path));
}

}  // namespace
