#pragma once

#include <gtest/gtest.h>

#include <string>

namespace system_tests {

/// A temporary folder for all that a test starts; a program that is left when the test has ended is a failure.
class Root_Fixture : public ::testing::Test {
 protected:
  Root_Fixture();
  ~Root_Fixture() override;
  /// No process is left, and none that a sanitizer watched was reported: an agent goes on after a race, and how it ends
  /// is no matter to most tests.
  void expect_nothing_left() const;
  [[nodiscard]] const std::string& root() const { return root_; }
  /// Whether the programs' logs are to be shown.
  [[nodiscard]] static bool wants_logs();

 private:
  void expect_no_reports() const;
  std::string root_;
};

}  // namespace system_tests
