#pragma once

#include <gtest/gtest.h>

#include <string>

#include "support/log_capture.h"
#include "support/scripted_process_runner.h"
#include "support/temp_root.h"
#include "support/virtual_clock.h"

namespace hana_test {

/// A file of tests/data.
[[nodiscard]] std::string test_data(const std::string& name);

inline constexpr const char* password = "Tr1cky \"pass\\word";

/// HANA system HDB with tenants, instance HDB00 on host "hanahost", below a temporary root; scripted tools, virtual
/// time.
class HANA_System : public testing::Test {
 protected:
  HANA_System();

  /// Another instance: directories, manifest and the line in the list of start services.
  void install(const std::string& sid, const std::string& instance_name, const std::string& host,
               const std::string& fullversion);
  /// The system layer of a configuration file.
  void configure(const std::string& file, const std::string& text, const std::string& sid = "HDB");
  /// What a tool, by the end of its path, does from now on; the last answer stays.
  void script(const std::string& program, std::vector<support::Scripted_Child> children);
  /// One line of `priority` that holds `part`, and no more of them.
  void expect_error(const std::string& part, ACE_Log_Priority priority = LM_ERROR);

  support::Temp_Root root_;
  support::Virtual_Clock clock_;
  support::Log_Capture log_;
  support::Scripted_Process_Runner runner_;
};

/// A child that prints and ends.
[[nodiscard]] support::Scripted_Child child(const std::string& output, int code = 0, const std::string& errors = {});
[[nodiscard]] support::Scripted_Child not_started(int error);

}  // namespace hana_test
