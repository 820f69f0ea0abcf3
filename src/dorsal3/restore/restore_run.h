#pragma once

#include <string>

#include "dorsal3/outcome.h"
#include "dorsal3/verb.h"
#include "json/value.h"

namespace dorsal3 {

/// Carries a plan out that the server has not refused: starts the restore, follows it to its end and asks the target's
/// host how far HANA has come. One thread.
class Restore_Run {
 public:
  Restore_Run(Context& context, const json_spirit::Object& plan) : context_(context), plan_(plan) {}

  /// Adds "job", "state", "result", "errors"?, "reached_time"?, "wanted_time"? to the outcome's model. An outcome with
  /// a failure when it could not be started or watched.
  [[nodiscard]] Outcome run();

 private:
  [[nodiscard]] bool start(std::string& job, Failure& failure);
  [[nodiscard]] bool follow(const std::string& job, json_spirit::Object& record, Failure& failure);
  void judge(const json_spirit::Object& record, Outcome& outcome);
  void compare_times(Outcome& outcome);
  /// What HANA's own log says; empty when it could not be had or is about another recovery.
  [[nodiscard]] json_spirit::Object logged_recovery(std::string& why_not);

  Context& context_;
  const json_spirit::Object& plan_;
};

}  // namespace dorsal3
