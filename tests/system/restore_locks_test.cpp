// Restores of one tenant that are asked for at the same time, in one process and in several.

#include <glob.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "platform/file_lock.h"
#include "platform/file_root.h"
#include "restore_system.h"

using namespace system_tests;

namespace {

class Restore_Locks : public Restore_System {
 protected:
  static constexpr const char* lock_file = "/var/opt/tarvex/dorsal3/agent/lock/restore_HDB_TN1";

  std::string start_wanted() { return start_restore({{.database = "TN1", .timepoint = wanted_}}); }
  /// Processes, or threads, that wait for the tenant's lock now.
  [[nodiscard]] int waiting_for_lock() const {
    struct stat status {};
    if (::stat(real(lock_file).c_str(), &status) != 0) return 0;
    const std::string inode = ":" + std::to_string(status.st_ino) + " ";
    std::ifstream locks("/proc/locks");
    int waiting = 0;
    for (std::string line; std::getline(locks, line);)
      if (line.find("-> FLOCK") != std::string::npos && line.find(inode) != std::string::npos) ++waiting;
    return waiting;
  }
  /// Whether HANA began each recovery of the tenant when the one before it had ended; how many there were.
  [[nodiscard]] int recoveries_one_by_one() const {
    // The folder is called like the host.
    glob_t found{};
    const std::string pattern = real("/usr/sap/HDB/HDB00") + "/*/trace/DB_TN1/backup.log";
    const std::string log = ::glob(pattern.c_str(), 0, nullptr, &found) == 0 ? slurp(found.gl_pathv[0]) : "";
    ::globfree(&found);
    int count = 0;
    bool runs = false;
    std::istringstream lines(log);
    for (std::string line; std::getline(lines, line);) {
      if (line.find("RECOVER DATA started") != std::string::npos) {
        EXPECT_FALSE(runs) << log;
        runs = true;
        ++count;
      } else if (line.find("RECOVER DATA finished") != std::string::npos) {
        runs = false;
      }
    }
    return count;
  }
};

}  // namespace

TEST_F(Restore_Locks, A_Restore_Waits_For_The_Lock_Of_Another_Process_And_Touches_Nothing) {
  start_with_a_past();
  const platform::Scoped_File_Root here(real(""));
  platform::File_Lock lock(lock_file);
  ASSERT_TRUE(lock.acquire());
  const std::string run = start_wanted();
  ASSERT_TRUE(eventually([this] { return waiting_for_lock() == 1; })) << agent_log();
  EXPECT_TRUE(rows("TN1").starts_with("a,2\n")) << "it is not even stopped";
  EXPECT_TRUE(eventually([&] { return text_of(job(run), "state_name") == "running"; }));
  lock.release();
  EXPECT_EQ(wait_for_end(run), "completed") << agent_log();
  EXPECT_EQ(rows("TN1"), "a,1\n");
}

TEST_F(Restore_Locks, Two_Restores_And_Another_Process_Come_One_After_The_Other) {
  start_with_a_past();
  const std::string held = "hang_statement = 0 | match=RECOVER";
  fault(held);
  const std::string first = start_wanted();
  ASSERT_TRUE(meets(held)) << agent_log();
  const std::string second = start_wanted();
  bool taken = false;
  const platform::Scoped_File_Root here(real(""));
  std::thread other([&] {
    platform::File_Lock lock(lock_file);
    taken = lock.acquire();
  });
  EXPECT_TRUE(eventually([this] { return waiting_for_lock() == 1; })) << agent_log();
  EXPECT_TRUE(eventually([&] { return text_of(job(second), "state_name") == "running"; }));
  EXPECT_TRUE(eventually([&] { return text_of(job(first), "state_name") == "running"; }));
  no_faults();
  other.join();
  EXPECT_TRUE(taken);
  EXPECT_EQ(wait_for_end(first), "completed") << agent_log();
  EXPECT_EQ(wait_for_end(second), "completed") << agent_log();
  EXPECT_EQ(rows("TN1"), "a,1\n");
  EXPECT_EQ(recoveries_one_by_one(), 2);
  EXPECT_FALSE(std::filesystem::exists(real(lock_file)));
  EXPECT_TRUE(staged_files().empty());
  EXPECT_TRUE(alerts().empty());
}
