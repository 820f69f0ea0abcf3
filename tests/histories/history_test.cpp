// Random histories of a database, restored and compared with a model.

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <chrono>
#include <cstdlib>
#include <iostream>
#include <string>

#include "histories/history_runner.h"
#include "histories/history_system.h"
#include "support/log_capture.h"

namespace histories {
namespace {

constexpr const char* count_variable = "DORSAL3_HISTORIES";
constexpr const char* parameters_variable = "RC_PARAMS";
constexpr const char* usual_count = "20";
/// Without a wish the same histories run each time, so that a change that breaks them is the one under test.
constexpr const char* usual_seed = "seed=7";
constexpr unsigned choices = 1000;
/// Tenants that one HANA has had when a new system takes its place.
constexpr int histories_of_a_system = 50;

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
                                                    {1, What::restore}});
  return rc::gen::construct<Step>(what, rc::gen::inRange(0U, choices));
}

rc::Gen<Wish> a_wish() { return rc::gen::construct<Wish>(rc::gen::inRange(0U, choices), rc::gen::arbitrary<bool>()); }

rc::Gen<History> a_history() {
  return rc::gen::construct<History>(rc::gen::container<std::vector<Step>>(a_step()),
                                     rc::gen::container<std::vector<Wish>>(a_wish()), a_wish());
}

/// What the environment asks of RapidCheck goes before what is usual here.
void set_parameters() {
  const char* const given = std::getenv(parameters_variable);
  const char* const count = std::getenv(count_variable);
  std::string parameters = given != nullptr ? given : count == nullptr ? usual_seed : "";
  if (parameters.find("max_success") == std::string::npos)
    parameters += std::string(" max_success=") + (count == nullptr ? usual_count : count);
  if (parameters.find("max_size") == std::string::npos) parameters += " max_size=16";
  ::setenv(parameters_variable, parameters.c_str(), 1);
}

/// What was logged last.
std::string tail_of(const std::string& log) {
  constexpr std::size_t enough = 3000;
  return log.size() <= enough ? log : log.substr(log.size() - enough);
}

class Histories : public testing::Test {
 protected:
  void live(const History& history) {
    if (!system_ || system_->tenants() >= histories_of_a_system) {
      system_.reset();
      system_ = std::make_unique<History_System>();
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
    (void)log_.claim_containing("Failed to get " + runner.tenant() + " backup sets");
  }

  support::Log_Capture log_;
  std::unique_ptr<History_System> system_;
};

TEST_F(Histories, Can_Be_Gone_Back_To_Or_Are_Refused_For_A_Reason) {
  set_parameters();
  const bool held = rc::check("a restored database is as it was, or its plan refuses", [this] { live(*a_history()); });
  EXPECT_TRUE(held);
}

}  // namespace
}  // namespace histories
