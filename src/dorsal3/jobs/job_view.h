#pragma once

#include <string>

#include "json/value.h"

namespace dorsal3 {

/// How far a run is, in the words an operator needs.
enum class Run_Stage { waiting, running, done, failed, canceled, skipped };

/// Reads the stage out of a job record of the server.
[[nodiscard]] Run_Stage run_stage(const json_spirit::Object& record);
[[nodiscard]] bool has_ended(Run_Stage stage);
/// Bytes taken from the database so far, as the agent reported them.
[[nodiscard]] std::uint64_t bytes_done(const json_spirit::Object& record);
/// One line on how a run ended, without a line end: "The backup is complete." and the like, with the cause of a
/// failure.
[[nodiscard]] std::string ending_text(const json_spirit::Object& record);
/// "asked for incremental, made full: pool changed"; empty when the kind was not lifted.
[[nodiscard]] std::string lift_text(const std::string& requested_type, const std::string& lift_reason);
/// The error lines of a run's log, oldest first, each without its line end: the first of them mostly names the cause.
[[nodiscard]] json_spirit::Array error_lines(const json_spirit::Object& record);

}  // namespace dorsal3
