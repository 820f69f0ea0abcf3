#include "platform/file_lock.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <new>
#include <thread>
#include <vector>

#include "platform/clock.h"
#include "platform/file_root.h"
#include "platform/unique_descriptor.h"
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

/// The descriptors of a process that are open on the lock file; one whose file was removed does not count.
std::size_t descriptors_on_lock(pid_t process) {
  const std::string wanted = platform::File_Root::current().real(path);
  std::size_t found = 0;
  std::error_code gone;
  const std::filesystem::directory_iterator all("/proc/" + std::to_string(process) + "/fd", gone);
  if (gone) return 0;
  for (const auto& entry : all)
    if (std::filesystem::read_symlink(entry, gone) == wanted) ++found;
  return found;
}

template <typename Condition>
bool eventually(Condition condition) {
  const auto end = std::chrono::steady_clock::now() + real_limit;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::yield();
  }
  return true;
}

/// A child process that runs `work` and leaves without running any destructor, like one that is killed.
class Child {
 public:
  template <typename Work>
  explicit Child(Work work) : pid_(::fork()) {
    if (pid_ == 0) ::_exit(work() ? 0 : 1);
  }
  ~Child() { EXPECT_EQ(wait(), 0); }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;
  int wait() {
    if (pid_ > 0 && ::waitpid(pid_, &status_, 0) != pid_) status_ = -1;
    pid_ = -1;
    return status_;
  }

 private:
  pid_t pid_;
  int status_ = 0;
};

/// A flag that a child process shares.
class Shared_Flag {
 public:
  Shared_Flag()
      : value_(new (::mmap(nullptr, sizeof(std::atomic<bool>), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1,
                           0)) std::atomic<bool>(false)) {}
  ~Shared_Flag() { ::munmap(value_, sizeof *value_); }
  Shared_Flag(const Shared_Flag&) = delete;
  Shared_Flag& operator=(const Shared_Flag&) = delete;
  void set() { *value_ = true; }
  [[nodiscard]] bool is_set() const { return *value_; }

 private:
  std::atomic<bool>* value_;
};

TEST(File_Lock, Keeps_Out_Other_Processes) {
  const support::Temp_Root root;
  const pid_t here = ::getpid();
  Shared_Flag held;
  Shared_Flag released;
  Child holder([&] {
    platform::File_Lock lock(path);
    if (!lock.acquire()) return false;
    held.set();
    const bool other_waits = eventually([&] { return descriptors_on_lock(here) != 0; });
    released.set();
    lock.release();
    return other_waits;
  });
  ASSERT_TRUE(eventually([&] { return held.is_set(); }));
  platform::File_Lock lock(path);
  ASSERT_TRUE(lock.acquire());
  EXPECT_TRUE(released.is_set()) << "held by two at once";
}

TEST(File_Lock, Of_A_Process_That_Died_Is_Free_Though_Its_File_Is_Left) {
  const support::Temp_Root root;
  Child holder([] { return (new platform::File_Lock(path))->acquire(); });
  ASSERT_EQ(holder.wait(), 0);
  ASSERT_TRUE(root.exists(path)) << "nobody removed it";
  platform::File_Lock lock(path);
  ASSERT_TRUE(lock.acquire());
  lock.release();
  EXPECT_FALSE(root.exists(path));
}

TEST(File_Lock, Is_Taken_Of_The_File_That_The_Path_Names_When_It_Is_Had) {
  const support::Temp_Root root;
  root.write(path, "");
  const std::string real = root.real(path);
  const platform::Unique_Descriptor first(::open(real.c_str(), O_RDWR | O_CLOEXEC));
  ASSERT_EQ(::flock(first.get(), LOCK_EX), 0);
  std::atomic<bool> freed{false};
  std::atomic<bool> came_too_early{false};
  std::atomic<bool> done{false};
  std::thread waiting([&] {
    platform::File_Lock lock(path);
    EXPECT_TRUE(lock.acquire());
    came_too_early = !freed;
    done = true;
  });
  EXPECT_TRUE(eventually([] { return descriptors_on_lock(::getpid()) == 2; })) << "it waits for the first file";
  // The holder removes the file and lets go; another one makes the next file before the waiting one is awake.
  EXPECT_EQ(::unlink(real.c_str()), 0);
  platform::Unique_Descriptor second(::open(real.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
  EXPECT_EQ(::flock(second.get(), LOCK_EX), 0);
  EXPECT_EQ(::flock(first.get(), LOCK_UN), 0);
  EXPECT_TRUE(eventually([&] { return done || descriptors_on_lock(::getpid()) == 2; })) << "it opens the next file";
  freed = true;
  EXPECT_EQ(::flock(second.get(), LOCK_UN), 0);
  waiting.join();
  EXPECT_FALSE(came_too_early) << "it took the lock of a file that nobody else can find";
}

TEST(File_Lock, Does_Not_Follow_A_Link) {
  const support::Temp_Root root;
  root.write("/etc/victim", "content");
  root.make_directory(directory);
  ASSERT_EQ(::symlink(root.real("/etc/victim").c_str(), root.real(path).c_str()), 0);
  platform::File_Lock lock(path);
  EXPECT_FALSE(lock.acquire());
  EXPECT_EQ(errno, ELOOP);
  EXPECT_TRUE(root.exists("/etc/victim"));
}

}  // namespace
