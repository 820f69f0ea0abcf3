#pragma once

#include <optional>
#include <string>
#include <utility>

#include "dorsal3/exit_codes.h"
#include "json/value.h"

namespace dorsal3 {

/// Why a command could not do its work.
struct Failure {
  Exit_Code exit_code = exit_failed;
  std::string code;     ///< one word for programs: the server's error code, or "usage", "configuration", "unreachable"
  std::string message;  ///< what, why, what to do next; no line end
};

/// What a verb hands back. The model is the whole result: text and JSON output are both made from it.
struct Outcome {
  Exit_Code exit_code = exit_ok;
  json_spirit::Object model;
  std::optional<Failure> failure;

  [[nodiscard]] static Outcome failed(Failure failure) {
    Outcome outcome;
    outcome.exit_code = failure.exit_code;
    outcome.failure = std::move(failure);
    return outcome;
  }
};

}  // namespace dorsal3
