// Random histories of databases, restored and compared with a model.

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <initializer_list>
#include <iostream>
#include <ostream>
#include <string>
#include <utility>

#include "histories/history_runner.h"
#include "histories/history_system.h"
#include "histories/memory_folder.h"
#include "support/log_capture.h"

namespace histories {
namespace {

constexpr const char* count_variable = "DORSAL3_HISTORIES";
constexpr const char* parameters_variable = "RC_PARAMS";
constexpr unsigned choices = 1000;
/// Steps of a history at most. Of the other kinds there are fewer, and each has more to tell.
constexpr int longest = 16;
constexpr int longest_of_few = 32;
/// Histories that one host has had when a new one takes its place.
constexpr int histories_of_a_system = 50;
/// Each takes many times as long under a sanitizer.
#ifdef HISTORIES_UNDER_SANITIZER
constexpr int one_in = 10;
#else
constexpr int one_in = 1;
#endif

/// Where and when histories happen.
struct Setting {
  const char* name;
  const char* zone;
  std::time_t begin;
  unsigned shards;
  int histories = 50;  ///< of each shard
  Landscape landscape = Landscape::tenants;
};

constexpr const char* berlin = "Europe/Berlin";
/// Histories begin up to two hours before, many go on behind it.
constexpr std::time_t before_clocks_change = 7'200;
constexpr std::time_t clocks_go_back = 1'761'440'400;
constexpr std::time_t clocks_go_forward = 1'774'746'000;

constexpr Setting settings[] = {
    {"In_Kolkata", "Asia/Kolkata", 1'769'000'000, 12},
    {"When_Clocks_Go_Back", berlin, clocks_go_back - before_clocks_change, 14},
    {"When_Clocks_Go_Forward", berlin, clocks_go_forward - before_clocks_change, 14},
    {"Without_Tenants", berlin, clocks_go_back - before_clocks_change, 2, 25, Landscape::single_containers},
    {"Of_System_Databases", berlin, clocks_go_forward - before_clocks_change, 2, 25, Landscape::system_databases},
    {"Into_Another_System", "Asia/Kolkata", 1'769'000'000, 2, 25, Landscape::two_systems},
    {"Of_Old_Systems", "Asia/Kolkata", 1'769'000'000, 2, 25, Landscape::old_systems}};

/// A share of the histories, in a test by itself: several processes share the work. Without a wish each runs the same
/// ones every time, so that a change that breaks them is the one under test.
struct Shard {
  const Setting* setting;
  unsigned number;  ///< from 1
  std::uint64_t seed;
};

std::vector<Shard> all_shards() {
  std::vector<Shard> shards;
  for (const Setting& setting : settings)
    for (unsigned number = 1; number <= setting.shards; ++number) shards.push_back({&setting, number, shards.size()});
  return shards;
}

/// "In_Kolkata_03"
std::string name_of(const Shard& shard) {
  constexpr unsigned first_of_two_digits = 10;
  return std::string(shard.setting->name) + (shard.number < first_of_two_digits ? "_0" : "_") +
         std::to_string(shard.number);
}
void PrintTo(const Shard& shard, std::ostream* out) { *out << shard.setting->zone << ", seed " << shard.seed; }
std::string name_of_case(const testing::TestParamInfo<Shard>& info) { return name_of(info.param); }

using Weights = std::initializer_list<std::pair<std::size_t, Step::What>>;
constexpr Weights usual_weights{{8, Step::What::commit},      {2, Step::What::commit_at_begin},
                                {3, Step::What::full},        {2, Step::What::differential},
                                {3, Step::What::incremental}, {5, Step::What::logs},
                                {1, Step::What::to_files},    {1, Step::What::pool},
                                {1, Step::What::lose_log},    {1, Step::What::restore},
                                {1, Step::What::other},       {1, Step::What::copy}};
/// More of what the other kinds differ in.
constexpr Weights weights_of_few{{6, Step::What::commit},      {1, Step::What::commit_at_begin},
                                 {4, Step::What::full},        {1, Step::What::differential},
                                 {2, Step::What::incremental}, {6, Step::What::logs},
                                 {1, Step::What::to_files},    {1, Step::What::pool},
                                 {2, Step::What::lose_log},    {2, Step::What::restore},
                                 {1, Step::What::other},       {2, Step::What::copy}};

rc::Gen<Step> a_step(Landscape landscape) {
  return rc::gen::construct<Step>(
      rc::gen::weightedElement<Step::What>(landscape == Landscape::tenants ? usual_weights : weights_of_few),
      rc::gen::inRange(0U, choices));
}

rc::Gen<Wish> a_wish() { return rc::gen::construct<Wish>(rc::gen::inRange(0U, choices), rc::gen::arbitrary<bool>()); }

rc::Gen<History> a_history(Landscape landscape) {
  return rc::gen::construct<History>(rc::gen::inRange(0U, choices),
                                     rc::gen::container<std::vector<Step>>(a_step(landscape)),
                                     rc::gen::container<std::vector<Wish>>(a_wish()), a_wish());
}

/// Of all histories, as many as the shard has of those that run without a wish, rounded up.
int share_of(int own, int wanted) {
  int all = 0;
  for (const Shard& shard : all_shards()) all += shard.setting->histories;
  return (wanted * own + all - 1) / all;
}

/// What the environment asks of RapidCheck goes before what is usual here.
rc::detail::TestParams parameters_of(const Shard& shard) {
  const char* const given = std::getenv(parameters_variable);
  const char* const count = std::getenv(count_variable);
  const auto asks = [&](const char* key) {
    return given != nullptr && std::string(given).find(key) != std::string::npos;
  };
  const int own = shard.setting->histories;
  // Random seeds come from here, too.
  rc::detail::TestParams parameters = rc::detail::configuration().testParams;
  if (!asks("seed") && count == nullptr) parameters.seed = shard.seed;
  if (!asks("max_success"))
    parameters.maxSuccess = count == nullptr ? (own + one_in - 1) / one_in : share_of(own, std::atoi(count));
  if (!asks("max_size")) parameters.maxSize = shard.setting->landscape == Landscape::tenants ? longest : longest_of_few;
  return parameters;
}

/// What was logged last.
std::string tail_of(const std::string& log) {
  constexpr std::size_t enough = 3000;
  return log.size() <= enough ? log : log.substr(log.size() - enough);
}

class Histories : public testing::TestWithParam<Shard> {
 protected:
  static void SetUpTestSuite() { keep_temporary_folders_in_memory(); }

  void live(const History& history) {
    if (lived_++ % histories_of_a_system == 0) {
      system_.reset();
      system_ = std::make_unique<History_System>(GetParam().setting->landscape, GetParam().setting->zone,
                                                 GetParam().setting->begin);
    }
    History_Runner runner(*system_);
    try {
      runner.live(history);
    } catch (const std::exception& difference) {
      std::cerr << history << ": " << difference.what() << "\n" << tail_of(log_.dump());
      log_.claim_all();
      RC_FAIL(std::string(difference.what()));
    }
    for (const Database& database : runner.databases()) claim_expected_lines(database);
  }

  void claim_expected_lines(const Database& database) {
    // Before the first set backupd knows none.
    (void)log_.claim_containing("Failed to get " + database.name + " backup sets");
    // Behind a system database comes the tenant that a system may have been made with.
    (void)log_.claim_containing("HANA system " + database.sid + " has no database '" + database.sid + "'");
    if (GetParam().setting->landscape != Landscape::old_systems) return;
    for (const char* line : {"refused 'BACKUP DATA INCREMENTAL ", "refused 'BACKUP DATA DIFFERENTIAL ",
                             "Failed to execute backup", "Failed to backup HANA database"})
      (void)log_.claim_containing(line);
  }

  support::Log_Capture log_;
  std::unique_ptr<History_System> system_;
  int lived_ = 0;
};

TEST_P(Histories, Can_Be_Gone_Back_To_Or_Are_Refused_For_A_Reason) {
  const rc::detail::TestParams parameters = parameters_of(GetParam());
  std::cerr << "Again: RC_PARAMS=\"seed=" << parameters.seed << " max_success=" << parameters.maxSuccess
            << "\" test_histories --gtest_filter=*." << testing::UnitTest::GetInstance()->current_test_info()->name()
            << std::endl;
  rc::detail::TestMetadata metadata;
  metadata.id = name_of(GetParam());
  metadata.description = "a restored database is as it was, or its plan refuses";
  const rc::detail::TestResult result =
      rc::detail::checkTestable([this] { live(*a_history(GetParam().setting->landscape)); }, metadata, parameters);
  rc::detail::printResultMessage(result, std::cerr);
  std::cerr << std::endl;
  EXPECT_TRUE(result.is<rc::detail::SuccessResult>());
}

INSTANTIATE_TEST_SUITE_P(Random, Histories, testing::ValuesIn(all_shards()), name_of_case);

}  // namespace
}  // namespace histories
