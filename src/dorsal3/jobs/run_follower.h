#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "dorsal3/backup/received_bytes.h"
#include "dorsal3/jobs/job_view.h"
#include "dorsal3/jobs/progress.h"
#include "dorsal3/verb.h"

namespace dorsal3 {

/// Watches a run to its end, look by look, and goes on with the run that the server starts on the next host when one
/// host has declined. A server that is away for a while does not end the watching. Writes progress and notes to
/// context.live(). One thread.
class Run_Follower {
 public:
  enum class Look { goes_on, ended, lost };

  /// `label` stands before the progress; without one no progress is shown. `total_bytes`: how much the run is expected
  /// to move, 0 when that is not known.
  Run_Follower(Context& context, std::string job, std::string label, std::uint64_t total_bytes = 0);

  /// Asks the server once. `ended`: record() tells how; the server has no further host to ask. `lost`: the watching
  /// is over, not the run, and `failure` tells why.
  [[nodiscard]] Look look(Failure& failure);
  /// Waits until the next look is due.
  void pause();
  /// Before something else is written to context.live().
  void end_progress_line();

  /// The run that is watched now: the last one of those that followed each other.
  [[nodiscard]] const std::string& job() const { return job_; }
  [[nodiscard]] const json_spirit::Object& record() const { return record_; }
  /// The hosts that declined, in order: {"job", "host_uuid", "host", "reasons": [text]}.
  [[nodiscard]] const json_spirit::Array& declined() const { return declined_; }

  static constexpr std::chrono::milliseconds poll_interval{500};
  /// For so long the server may be away before the watching ends.
  static constexpr std::chrono::seconds server_away_limit{120};

 private:
  Look away(const Failure& failure);
  void show_progress();
  [[nodiscard]] int percent_of(std::uint64_t bytes) const;
  Look after_decline();
  void note_decline(bool last);
  void move_on(const std::string& next);
  [[nodiscard]] bool is_known(const std::string& job) const;
  [[nodiscard]] std::string host_name(const std::string& uuid);

  Context& context_;
  std::string job_;
  const std::string label_;
  const std::uint64_t total_bytes_;
  json_spirit::Object record_;
  json_spirit::Array declined_;
  Progress_Tracker tracker_;
  Received_Bytes received_;
  Progress_Display display_;
  std::chrono::steady_clock::time_point last_answer_;
  std::optional<std::map<std::string, std::string>> host_names_;
  bool announce_ = false;  ///< the run has moved to a host that was not named yet
};

}  // namespace dorsal3
