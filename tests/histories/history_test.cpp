// Random histories of a database, restored and compared with a model.

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <iostream>
#include <string>

#include "histories/history_runner.h"
#include "histories/history_system.h"
#include "histories/memory_folder.h"
#include "support/log_capture.h"

namespace histories {
namespace {

constexpr const char* count_variable = "DORSAL3_HISTORIES";
constexpr const char* parameters_variable = "RC_PARAMS";
constexpr unsigned choices = 1000;
/// Steps of a history at most.
constexpr int longest = 16;
/// Tenants that one HANA has had when a new system takes its place.
constexpr int histories_of_a_system = 50;
constexpr int histories_of_a_shard = 25;

/// Histories that run by themselves: several processes share the work. Without a wish each runs the same ones every
/// time, so that a change that breaks them is the one under test.
struct Shard {
  const char* name;
  const char* zone;
  std::time_t begin;
  std::uint64_t seed;
};

constexpr const char* kolkata = "Asia/Kolkata";
constexpr const char* berlin = "Europe/Berlin";
constexpr std::time_t any_day = 1'769'000'000;
/// Histories begin up to two hours before, many go on behind it.
constexpr std::time_t before_clocks_go_back = 1'761'440'400 - 7'200;
constexpr std::time_t before_clocks_go_forward = 1'774'746'000 - 7'200;

constexpr Shard shards[] = {{"In_Kolkata", kolkata, any_day, 7},
                            {"In_Kolkata_Too", kolkata, any_day, 11},
                            {"When_Clocks_Go_Back", berlin, before_clocks_go_back, 13},
                            {"When_Clocks_Have_Gone_Back", berlin, before_clocks_go_back, 17},
                            {"Around_The_Doubled_Hour", berlin, before_clocks_go_back, 19},
                            {"When_Clocks_Go_Forward", berlin, before_clocks_go_forward, 23},
                            {"When_Clocks_Have_Gone_Forward", berlin, before_clocks_go_forward, 29},
                            {"Around_The_Missing_Hour", berlin, before_clocks_go_forward, 31}};

std::string name_of(const testing::TestParamInfo<Shard>& info) { return info.param.name; }

rc::Gen<Step> a_step() {
  using What = Step::What;
  const auto what = rc::gen::weightedElement<What>({{8, What::commit},
                                                    {2, What::commit_at_begin},
                                                    {3, What::full},
                                                    {2, What::differential},
                                                    {3, What::incremental},
                                                    {5, What::logs},
                                                    {1, What::to_files},
                                                    {1, What::pool},
                                                    {1, What::lose_log},
                                                    {1, What::restore},
                                                    {1, What::copy}});
  return rc::gen::construct<Step>(what, rc::gen::inRange(0U, choices));
}

rc::Gen<Wish> a_wish() { return rc::gen::construct<Wish>(rc::gen::inRange(0U, choices), rc::gen::arbitrary<bool>()); }

rc::Gen<History> a_history() {
  return rc::gen::construct<History>(rc::gen::inRange(0U, choices), rc::gen::container<std::vector<Step>>(a_step()),
                                     rc::gen::container<std::vector<Wish>>(a_wish()), a_wish());
}

/// What the environment asks of RapidCheck goes before what is usual here.
rc::detail::TestParams parameters_of(const Shard& shard) {
  const char* const given = std::getenv(parameters_variable);
  const char* const count = std::getenv(count_variable);
  const auto asks = [&](const char* key) {
    return given != nullptr && std::string(given).find(key) != std::string::npos;
  };
  // Random seeds come from here, too.
  rc::detail::TestParams parameters = rc::detail::configuration().testParams;
  if (!asks("seed") && count == nullptr) parameters.seed = shard.seed;
  if (!asks("max_success"))
    parameters.maxSuccess = count == nullptr ? histories_of_a_shard
                                             : (std::atoi(count) + static_cast<int>(std::size(shards)) - 1) /
                                                   static_cast<int>(std::size(shards));
  if (!asks("max_size")) parameters.maxSize = longest;
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
      system_ = std::make_unique<History_System>(GetParam().zone, GetParam().begin);
    }
    History_Runner runner(*system_);
    try {
      runner.live(history);
    } catch (const std::exception& difference) {
      std::cerr << history << ": " << difference.what() << "\n" << tail_of(log_.dump());
      log_.claim_all();
      RC_FAIL(std::string(difference.what()));
    }
    // Before the first set backupd knows none.
    for (const std::string& tenant : runner.tenants())
      (void)log_.claim_containing("Failed to get " + tenant + " backup sets");
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
  metadata.id = GetParam().name;
  metadata.description = "a restored database is as it was, or its plan refuses";
  const rc::detail::TestResult result = rc::detail::checkTestable([this] { live(*a_history()); }, metadata, parameters);
  rc::detail::printResultMessage(result, std::cerr);
  std::cerr << std::endl;
  EXPECT_TRUE(result.is<rc::detail::SuccessResult>());
}

INSTANTIATE_TEST_SUITE_P(Random, Histories, testing::ValuesIn(shards), name_of);

}  // namespace
}  // namespace histories
