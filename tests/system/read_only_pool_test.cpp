// A pool that nobody may write to any more: what lies there comes back, and nothing is added.

#include <signal.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <linux/capability.h>

#include <filesystem>
#include <iostream>
#include <thread>

#include "restore_system.h"

using namespace system_tests;

namespace {

namespace fs = std::filesystem;

class Read_Only_Pools : public Restore_System {
 protected:
  /// False where root is not let give up what makes it pass over modes, as in some containers.
  static bool can_obey_modes() {
    bool dropped = true;
    if (::geteuid() == 0)
      std::thread([&] { dropped = ::prctl(PR_CAPBSET_DROP, CAP_DAC_OVERRIDE, 0, 0, 0) == 0; }).join();
    return dropped;
  }
  static void tell_not_shown() { std::cerr << "not shown: root cannot be made to obey the modes of files here\n"; }
  /// What these start obeys the modes of files, though a test may be run by root.
  template <typename Start>
  static void without_superuser(Start start) {
    std::thread starter([&] {
      if (::geteuid() == 0) {
        ASSERT_EQ(::prctl(PR_CAPBSET_DROP, CAP_DAC_OVERRIDE, 0, 0, 0), 0);
        ASSERT_EQ(::prctl(PR_CAPBSET_DROP, CAP_DAC_READ_SEARCH, 0, 0, 0), 0);
      }
      start();
    });
    starter.join();
  }
  void start_again_without_superuser() {
    (void)stop_agent();
    stop_hana();
    stop_backupd(SIGTERM);
    without_superuser([this] {
      start_backupd();
      start_hana();
      start_agent();
    });
  }
  void let_write(const std::string& folder, bool allowed) const {
    const auto write = fs::perms::owner_write | fs::perms::group_write | fs::perms::others_write;
    const auto set = [&](const fs::path& path) {
      fs::permissions(path, allowed ? fs::perms::owner_write : write,
                      allowed ? fs::perm_options::add : fs::perm_options::remove);
    };
    set(real(folder));
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(real(folder))) set(entry.path());
  }
  [[nodiscard]] Tool_Result full_backup(const std::string& pool) const {
    return backup(std::string(instance) + "/TN1", {"--type", "full", "--pool", pool});
  }
  void expect_saved(const std::string& pool) const {
    const Tool_Result done = full_backup(pool);
    EXPECT_EQ(done.code, 0) << done.out << done.err;
  }
  /// The command shows why.
  void expect_refused(const std::string& pool, const std::string& why) const {
    const Tool_Result refused = full_backup(pool);
    EXPECT_EQ(text_of(refused.json(), "state"), "error") << refused.out << refused.err;
    EXPECT_NE(refused.out.find(why), std::string::npos) << refused.out;
    EXPECT_NE(refused.out.find("Permission denied"), std::string::npos) << refused.out;
    EXPECT_EQ(alerts(), std::vector<std::string>{"7/8"});
  }
};

}  // namespace

TEST_F(Read_Only_Pools, Of_The_Server_Give_Back_What_They_Hold_And_Take_Nothing) {
  if (!can_obey_modes()) return tell_not_shown();
  start_with_a_past();
  start_again_without_superuser();
  let_write("/srv/pool", false);
  const std::vector<std::string> before = pool_files();
  EXPECT_EQ(restore({{.database = "TN1", .timepoint = wanted_}}), "completed") << agent_log();
  EXPECT_EQ(rows("TN1"), "a,1\n");
  expect_refused("main",
                 "the server is not allowed to in the pool \\\"main\\\" (Permission denied); see to the rights of");
  EXPECT_EQ(pool_files(), before);
  let_write("/srv/pool", true);
  expect_saved("main");
}

TEST_F(Read_Only_Pools, Of_The_Host_Give_Back_What_They_Hold_And_Take_Nothing) {
  if (!can_obey_modes()) return tell_not_shown();
  start_all();
  fs::create_directories(real("/srv/own"));
  ASSERT_EQ(dorsal3({"pools", "--add", "own", "--url", "file:///srv/own"}).code, 0);
  put("TN1", "a", "1");
  expect_saved("own");
  const std::string set = text_of(newest_set("TN1", "full"), "uuid");
  put("TN1", "a", "2");
  start_again_without_superuser();
  let_write("/srv/own", false);
  const std::vector<std::string> before = files_below(real("/srv/own"));
  EXPECT_FALSE(before.empty());
  EXPECT_EQ(restore({{.database = "TN1", .set = set}}), "completed") << agent_log();
  EXPECT_EQ(rows("TN1"), "a,1\n");
  expect_refused("own", "cannot make the directory /srv/own/");
  EXPECT_EQ(files_below(real("/srv/own")), before);
  let_write("/srv/own", true);
  expect_saved("own");
}
