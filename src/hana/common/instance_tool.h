#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "platform/process_runner.h"

namespace sap_hana {

/// How to run a program of an instance: as the system's own user when the caller is root, with that user's environment
/// of the instance and nothing else. `program` is a documented path.
[[nodiscard]] platform::Process_Spec instance_tool(const std::string& sid, const std::string& instance_name,
                                                   const std::string& program, std::vector<std::string> arguments);

/// What a short-running tool gave.
struct Tool_Result {
  platform::Exit_Status status;
  std::string output;      ///< the first tool_output_limit_bytes of standard output
  std::string errors;      ///< the same of standard error
  bool timed_out = false;  ///< it was ended because the limit had passed
};

constexpr std::size_t tool_output_limit_bytes = 1U << 20;

/// Runs a tool and keeps what it prints; kills it once `limit` has passed. Logs nothing.
[[nodiscard]] Tool_Result run_tool(platform::Process_Spec spec, std::chrono::seconds limit);

/// One line on how it ended, with the last line it printed: for messages.
[[nodiscard]] std::string describe(const Tool_Result& result);

}  // namespace sap_hana
