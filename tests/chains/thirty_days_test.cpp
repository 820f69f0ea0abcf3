// A month of schedules, compared with a model of what must come of them.

#include <gtest/gtest.h>

#include <functional>
#include <iterator>
#include <map>

#include "chains/chain_model.h"
#include "chains/chain_system.h"
#include "chains/set_checker.h"
#include "chains/way_back.h"
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

/// One of the days of the test, by the calendar.
constexpr std::time_t march(int of_month) { return first_day + (of_month - 4) * day; }
constexpr std::time_t april(int of_month) { return march(31 + of_month); }

class Thirty_Days : public testing::Test {
 protected:
  Thirty_Days() {
    for (const char* database : databases) models_[database];
  }

  /// Something that happens between two runs, at a moment of its own.
  void at(std::time_t moment, std::function<void()> action) { events_.emplace(moment, std::move(action)); }
  void live();

  // Events
  void recover(const std::string& database, std::time_t moment, const std::string& outcome = "finished");
  void back_up_to_files(const std::string& database, std::time_t moment);
  void change_data(int number);
  /// The next run fails at this database.
  void let_fail(const std::string& database);

  /// HANA's data, as a full backup to files shows it at this moment, against what the newest sets give.
  enum class Records { suffice, do_not_suffice };
  void compare_way_back(const std::string& database, std::time_t moment, Records records);

  void expect_lifts(const std::string& reason, std::ptrdiff_t times) const;
  [[nodiscard]] std::ptrdiff_t count(const std::string& database,
                                     const std::function<bool(const Chain_Model&, std::size_t)>& condition) const;

  support::Log_Capture log_;
  Chain_System system_;
  std::map<std::string, Chain_Model> models_;
  Set_Checker checker_{models_};
  std::string pool_ = "first";

 private:
  [[nodiscard]] static Kind due(std::time_t moment);
  void run(std::time_t moment);
  void run_to_failure(Kind kind);

  std::multimap<std::time_t, std::function<void()>> events_;
  std::string failing_;
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
  for (const std::string database : databases) {
    if (database == failing_) {
      models_[database].failed(moment, kind, pool_);
      break;  // the run ends here, the databases behind it get no backup
    }
    models_[database].scheduled(moment, kind, pool_);
  }
  if (!failing_.empty()) return run_to_failure(kind);
  EXPECT_EQ(system_.run(kind, pool_), JOB_STATE_COMPLETED);
}

void Thirty_Days::run_to_failure(Kind kind) {
  EXPECT_EQ(system_.run(kind, pool_), JOB_STATE_ERROR);
  EXPECT_EQ(log_.claim_containing("refused 'BACKUP DATA  FOR " + failing_), 1U);
  EXPECT_TRUE(log_.claim("Failed to execute backup\n"));
  EXPECT_TRUE(log_.claim("Failed to backup HANA database\n"));
  EXPECT_EQ(log_.claim_containing("Alert 7/8 ", LM_WARNING), 1U);
  system_.control({"no-faults"});
  failing_.clear();
}

void Thirty_Days::live() {
  for (std::time_t moment = first_day; moment < first_day + days * day && !HasFailure(); moment += between_runs) {
    for (; !events_.empty() && events_.begin()->first <= moment; events_.erase(events_.begin())) {
      system_.move_to(events_.begin()->first);
      events_.begin()->second();
    }
    run(moment);
    const bool day_ends = (moment + between_runs) % day == 0;
    if (day_ends) checker_.check(system_);
  }
  if (!HasFailure()) {
    EXPECT_TRUE(events_.empty()) << "something is planned for later than the last run";
  }
}

void Thirty_Days::recover(const std::string& database, std::time_t moment, const std::string& outcome) {
  at(moment, [=, this] {
    system_.control({"recovery", database, std::to_string(moment), outcome});
    models_[database].recovered(moment);
  });
}

void Thirty_Days::back_up_to_files(const std::string& database, std::time_t moment) {
  const std::string target = database == databases[0] ? "" : "FOR " + database;
  (void)system_.sql("BACKUP DATA " + target + " USING FILE ('by_hand_" + std::to_string(moment) + "')");
  models_[database].made_to_files(moment);
}

void Thirty_Days::compare_way_back(const std::string& database, std::time_t moment, Records records) {
  SCOPED_TRACE(database);
  const std::vector<std::uint64_t> ids = checker_.recorded_chain(database);
  std::vector<json_spirit::Object> chain;
  for (const json_spirit::Object& set : system_.sets())
    for (const std::uint64_t id : ids)
      if (text_of(set, "database_backup_id") == std::to_string(id) && text_of(set, "database") == database)
        chain.push_back(set);
  EXPECT_EQ(chain.size(), ids.size());
  back_up_to_files(database, moment);
  const Pages in_hana = read_from_files(system_, database, system_.catalog().back().id);
  EXPECT_FALSE(in_hana.empty());
  EXPECT_EQ(restored_from(system_, chain) == in_hana, records == Records::suffice);
}

/// So that every delta has something to hold, each database in its turn.
void Thirty_Days::change_data(int number) {
  const std::string database = databases[static_cast<std::size_t>(number) % std::size(databases)];
  system_.control({"change", "--database", database, "--mb", "1"});
  (void)system_.sql("UPSERT KV VALUES ('day','" + std::to_string(number) + "')", database);
}

void Thirty_Days::let_fail(const std::string& database) {
  system_.control({"fault", "kill_hdbbackint_after_bytes = 1 | database=" + database});
  failing_ = database;
}

std::ptrdiff_t Thirty_Days::count(const std::string& database,
                                  const std::function<bool(const Chain_Model&, std::size_t)>& condition) const {
  const Chain_Model& model = models_.at(database);
  std::ptrdiff_t found = 0;
  for (std::size_t place = 0; place < model.backups().size(); ++place)
    if (condition(model, place)) ++found;
  return found;
}

void Thirty_Days::expect_lifts(const std::string& reason, std::ptrdiff_t times) const {
  std::ptrdiff_t lifts = 0;
  for (const char* database : databases)
    lifts += count(database, [&](const Chain_Model& model, std::size_t place) {
      return model.backups()[place].lift_reason == reason;
    });
  EXPECT_EQ(lifts, times) << reason;
}

TEST_F(Thirty_Days, Keep_The_Chains_Of_Every_Database) {
  // Not the product's: it counts for HANA, but it is no base for the product.
  at(march(3) + 22 * hour, [this] { back_up_to_files("TN2", march(3) + 22 * hour); });
  recover("TN1", march(6) + 10 * hour);
  recover("SYSTEMDB", march(12) + 9 * hour);
  at(march(14) + 23 * hour, [this] { let_fail("TN1"); });  // the full backup of Sunday
  at(march(17) + 10 * hour, [this] { back_up_to_files("TN2", march(17) + 10 * hour); });
  at(march(24) + 6 * hour, [this] { pool_ = "second"; });
  at(march(26) + 6 * hour, [this] { pool_ = "first"; });
  // Before a full backup by the clock of the world, after it by the clock on HANA's wall.
  recover("TN1", march(28) + 23 * hour + 30 * minute);
  recover("TN2", march(29) + 2 * hour + 30 * minute);
  // HANA has begun to replace the data: what became of it does not matter.
  recover("SYSTEMDB", april(1) + 9 * hour, "failed");
  for (int number = 0; number < days; ++number)
    at(first_day + number * day + 2 * hour, [this, number] { change_data(number); });
  // Pages that are written once, before the full backup to files: no delta behind it holds them.
  at(march(16) + 2 * hour + 30 * minute, [this] {
    constexpr std::size_t some_pages = 20'000;
    (void)system_.sql("UPSERT KV VALUES ('once','" + std::string(some_pages, 'x') + "')", "TN2");
  });
  const std::time_t before_full_backup = march(21) + 22 * hour;
  at(before_full_backup, [=, this] {
    compare_way_back("TN1", before_full_backup, Records::suffice);
    compare_way_back("TN2", before_full_backup, Records::do_not_suffice);
  });

  live();
  ASSERT_FALSE(HasFailure()) << log_.dump();
  for (const char* database : databases) compare_way_back(database, april(2) + 22 * hour, Records::suffice);

  // The model's own sums, worked out by hand from the calendar.
  EXPECT_EQ(checker_.sets(), 538U) << "180 runs over three databases, without two backups of 15 March";
  EXPECT_EQ(checker_.lifelines("SYSTEMDB"), 3U);
  EXPECT_EQ(checker_.lifelines("TN1"), 3U);
  EXPECT_EQ(checker_.lifelines("TN2"), 2U);
  expect_lifts("no full backup", 3);
  expect_lifts("restored", 4);
  expect_lifts("pool changed", 6);
  const auto beyond_records = [](const Chain_Model& model, std::size_t place) {
    return model.backups()[place].is_set() && !model.is_recorded_whole(place);
  };
  EXPECT_EQ(count("SYSTEMDB", beyond_records), 0);
  EXPECT_EQ(count("TN1", beyond_records), 0);
  EXPECT_EQ(count("TN2", beyond_records), 27) << "from the full backup to files until the next full backup of its own";
  for (const char* database : databases)
    EXPECT_EQ(log_.claim_containing(std::string("Failed to get ") + database + " backup sets"), 1U)
        << "before the first set backupd knows none";
  EXPECT_FALSE(log_.has_containing("Alert 7/45"));
  EXPECT_EQ(system_.slept(), std::chrono::seconds(0)) << "nothing had to be waited for";
}

}  // namespace
}  // namespace chains
