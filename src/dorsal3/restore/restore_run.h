#pragma once

#include <string>

#include "dorsal3/outcome.h"
#include "dorsal3/verb.h"
#include "json/value.h"

namespace dorsal3 {

/// Carries a plan out that the server has not refused: starts the restore, follows it to its end and asks the target's
/// host what HANA's log says of it. One thread.
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
  void compare_with_log(Outcome& outcome);
  /// Asks the target's host for the last recovery in HANA's own log.
  [[nodiscard]] bool ask_log(json_spirit::Object& said, Failure& failure);
  /// Whether it began after this run did.
  [[nodiscard]] bool is_new(const json_spirit::Object& said) const;
  /// What HANA's own log says of this run; empty, with `why_not`, when it tells no recovery of it that ended well.
  [[nodiscard]] json_spirit::Object logged_recovery(std::string& why_not);

  Context& context_;
  const json_spirit::Object& plan_;
  json_spirit::Object before_;  ///< the last recovery before this run
  bool before_known_ = false;
  std::string begun_;  ///< UTC, by the clock of the host
};

}  // namespace dorsal3
