// A month of schedules, compared with a model of what must come of them.

#include <gtest/gtest.h>

#include <functional>
#include <map>

#include "chains/chain_model.h"
#include "chains/chain_system.h"
#include "chains/set_checker.h"
#include "support/log_capture.h"

namespace chains {
namespace {

constexpr std::time_t minute = 60;
constexpr std::time_t hour = 60 * minute;
constexpr std::time_t day = 24 * hour;
/// Wednesday, 4 March 2026, 00:00 UTC. Summer time begins on Sunday the 29th, at 01:00 UTC.
constexpr std::time_t first_day = 1'772'582'400;
constexpr int days = 30;
constexpr std::time_t between_runs = 4 * hour;
constexpr int days_to_first_sunday = 4;
constexpr int days_of_week = 7;

class Thirty_Days : public testing::Test {
 protected:
  Thirty_Days() {
    for (const char* database : databases) models_[database];
  }

  /// Something that happens between two runs.
  void at(std::time_t moment, std::function<void()> action) { events_.emplace(moment, std::move(action)); }
  void live(int days_to_live);

  void recover(const std::string& database, std::time_t moment) {
    system_.control({"recovery", database, std::to_string(moment)});
    models_[database].recovered(moment);
  }

  support::Log_Capture log_;
  Chain_System system_;
  std::map<std::string, Chain_Model> models_;
  Set_Checker checker_{models_};
  std::string pool_ = "first";

 private:
  [[nodiscard]] static Kind due(std::time_t moment);
  void run(std::time_t moment);

  std::multimap<std::time_t, std::function<void()>> events_;
};

/// Full on Sundays, differential on the other days, incremental between.
Kind Thirty_Days::due(std::time_t moment) {
  const std::time_t since = moment - first_day;
  if (since % day != 0) return Kind::incremental;
  return since / day % days_of_week == days_to_first_sunday ? Kind::full : Kind::differential;
}

void Thirty_Days::run(std::time_t moment) {
  system_.move_to(moment);
  const Kind kind = due(moment);
  for (const char* database : databases) models_[database].scheduled(moment, kind, pool_);
  EXPECT_EQ(system_.run(kind, pool_), JOB_STATE_COMPLETED) << log_.dump();
}

void Thirty_Days::live(int days_to_live) {
  for (std::time_t moment = first_day; moment < first_day + days_to_live * day; moment += between_runs) {
    for (; !events_.empty() && events_.begin()->first <= moment; events_.erase(events_.begin())) {
      system_.move_to(events_.begin()->first);
      events_.begin()->second();
    }
    run(moment);
    const bool day_ends = (moment + between_runs) % day == 0;
    if (day_ends) checker_.check(system_);
    if (HasFailure()) return;
  }
}

TEST_F(Thirty_Days, Keep_The_Chains_Of_Every_Database) {
  live(2);
  for (const char* database : databases)
    EXPECT_EQ(log_.claim_containing(std::string("Failed to get ") + database + " backup sets"), 1U)
        << "before the first set backupd knows none";
}

}  // namespace
}  // namespace chains
