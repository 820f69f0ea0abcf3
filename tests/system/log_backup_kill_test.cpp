// Agent, backup server and hdbbackint die at random moments while HANA backs its logs up by itself.

#include <signal.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <iterator>
#include <random>
#include <set>

#include "log_backup_system.h"
#include "log_backup_trail.h"

using namespace system_tests;

namespace {

constexpr std::size_t wanted_backups = 200;
/// HANA closes each service's log so often.
constexpr int log_timeout_seconds = 8;
constexpr const char* seed_variable = "DORSAL3_TEST_SEED";
/// Far longer than the slowest machine needs.
constexpr std::chrono::seconds chaos_limit{300};
constexpr std::chrono::seconds recording_limit{300};

unsigned choose_seed() {
  const char* const given = std::getenv(seed_variable);
  return given != nullptr ? static_cast<unsigned>(std::strtoul(given, nullptr, 10)) : std::random_device()();
}

class Log_Backup_Kills : public Log_Backup_System {
 protected:
  Log_Backup_Kills() : seed_(choose_seed()), random_(seed_), trail_(host_, server_) {
    RecordProperty("seed", std::to_string(seed_));
    std::cout << "seed " << seed_ << "; " << seed_variable << " gives another one\n";
  }

  static void pause(std::chrono::nanoseconds span) {
    const auto end = std::chrono::steady_clock::now() + span;
    (void)eventually([&] { return std::chrono::steady_clock::now() >= end; });
  }
  /// Each length as likely as the other.
  void pause_up_to(int limit_ms) {
    pause(std::chrono::milliseconds(std::uniform_int_distribution<int>(0, limit_ms)(random_)));
  }

  void set_up() {
    start_all({.tenants = tenants, .data_mb = 1});
    fault("log_fallback = retry");
    fault("log_retry_ms = 300");
    ASSERT_EQ(backup(instance).code, 0);
    const json_spirit::Object setup = enable_log_backup();
    ASSERT_EQ(text_of(setup, "state"), "installed") << json_spirit::dump_json(setup);
    configure_hana("persistence", "log_backup_timeout_s", std::to_string(log_timeout_seconds));
  }
  void configure_hana(const std::string& section, const std::string& key, const std::string& value) const {
    const Tool_Result result = host_.sql("ALTER SYSTEM ALTER CONFIGURATION ('global.ini','SYSTEM') SET ('" + section +
                                         "','" + key + "') = '" + value + "' WITH RECONFIGURE");
    ASSERT_EQ(result.code, 0) << result.err;
  }

  void kill_hdbbackint() {
    const std::vector<pid_t> running = pids_below(root(), "hdbbackint");
    if (running.empty()) return;
    const std::size_t chosen = std::uniform_int_distribution<std::size_t>(0, running.size() - 1)(random_);
    if (::kill(running[chosen], SIGKILL) == 0) ++kills_["hdbbackint"];
  }
  void kill_agent() {
    EXPECT_EQ(host_.stop_agent(SIGKILL), 128 + SIGKILL) << "it had ended before\n" << agent_log();
    ++kills_["agent"];
  }
  void kill_backupd() {
    stop_backupd(SIGKILL);
    ++kills_["backupd"];
  }
  void kill_one_of_them() {
    constexpr int restart_limit_ms = 1000;
    switch (std::discrete_distribution<int>({10, 1, 1, 1})(random_)) {
      case 0:
        return kill_hdbbackint();
      case 1:
        kill_agent();
        pause_up_to(restart_limit_ms);
        return start_agent();
      case 2:
        kill_backupd();
        pause_up_to(restart_limit_ms);
        return server_.start();
      default:
        kill_agent();
        kill_backupd();
        pause_up_to(restart_limit_ms);
        server_.start();
        start_agent();
    }
  }

  void kill_until_enough_are_saved() {
    constexpr int kill_pause_ms = 400;
    constexpr int kills_between_looks = 4;
    const auto end = std::chrono::steady_clock::now() + chaos_limit;
    do {
      for (int i = 0; i < kills_between_looks; ++i) {
        pause_up_to(kill_pause_ms);
        kill_one_of_them();
      }
      ASSERT_LT(std::chrono::steady_clock::now(), end) << "HANA has saved " << trail_.saved().size();
      make_due(trail_.not_recorded());
    } while (trail_.saved().size() < wanted_backups || !all_were_killed());
    for (const char* program : programs) std::cout << program << " killed " << kills_[program] << " times\n";
  }
  /// On a quick machine the backups are there before each had its turn.
  [[nodiscard]] bool all_were_killed() const {
    return std::all_of(std::begin(programs), std::end(programs),
                       [this](const char* program) { return kills_.contains(program); });
  }

  /// HANA begins no more, and what it has begun has ended.
  void let_it_end() const {
    ASSERT_EQ(control({"log-writer", "off"}).code, 0);
    EXPECT_TRUE(eventually([&] {
      const std::vector<Log_Backup> all = trail_.listed();
      return std::none_of(all.begin(), all.end(), [](const Log_Backup& one) { return one.state == "running"; }) &&
             pids_below(root(), "hdbbackint").empty();
    }));
  }

  /// The runs that failed with the killed are due at once, not after minutes.
  void make_due(const std::vector<Log_Backup>& missing) const {
    std::set<std::string> databases;
    for (const Log_Backup& one : missing) databases.insert(one.database);
    for (const std::string& database : databases) (void)trail_.drain(database);
  }
  void wait_until_all_is_recorded() const {
    constexpr std::chrono::seconds drain_pause{2};
    const auto end = std::chrono::steady_clock::now() + recording_limit;
    for (std::vector<Log_Backup> missing; !(missing = trail_.not_recorded()).empty(); pause(drain_pause)) {
      ASSERT_LT(std::chrono::steady_clock::now(), end) << missing.front().name() << " and " << missing.size() - 1;
      make_due(missing);
    }
  }
  void tell(const char* what) const {
    const auto passed = std::chrono::steady_clock::now() - begun_;
    std::cout << std::chrono::duration_cast<std::chrono::seconds>(passed).count() << " s: " << what << '\n';
  }

  [[nodiscard]] static std::vector<std::string> databases() {
    std::vector<std::string> all = tenants;
    all.emplace_back("SYSTEMDB");
    return all;
  }

  static constexpr const char* programs[] = {"agent", "backupd", "hdbbackint"};
  inline static const std::vector<std::string> tenants = {"TN1", "TN2", "TN3", "TN4",  "TN5",  "TN6",
                                                          "TN7", "TN8", "TN9", "TN10", "TN11", "TN12"};
  const unsigned seed_;
  std::mt19937 random_;
  Log_Backup_Trail trail_;
  std::map<std::string, int> kills_;
  const std::chrono::steady_clock::time_point begun_ = std::chrono::steady_clock::now();
};

}  // namespace

TEST_F(Log_Backup_Kills, Lose_No_Log_That_HANA_Calls_Saved_And_Record_None_Twice) {
  set_up();
  if (HasFatalFailure()) return;
  tell("set up");
  kill_until_enough_are_saved();
  let_it_end();
  tell("saved");
  wait_until_all_is_recorded();
  tell("recorded");
  trail_.expect_recorded_once();
  EXPECT_GE(trail_.saved().size(), wanted_backups);
  trail_.expect_nothing_owed(databases());
  trail_.expect_readable();
  tell("read back");
}
