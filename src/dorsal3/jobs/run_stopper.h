#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "dorsal3/jobs/run_follower.h"
#include "dorsal3/verb.h"

namespace dorsal3 {

/// Asks the server to stop the run that a follower watches, again and again until the run has ended: a stop finds
/// nothing to cancel before HANA lists the backup, between two databases and while a set is being saved, and the run
/// then goes on. A run that another one follows is left for that one. Notes go to context.notes. One thread.
class Run_Stopper {
 public:
  Run_Stopper(Context& context, Run_Follower& follower) : context_(context), follower_(follower) {}

  /// True when the run has ended, in whatever way: the follower's record tells. False with `failure`: the server
  /// refuses or is away, the agent is away, or SIGINT or SIGTERM came; the run goes on then.
  [[nodiscard]] bool stop(Failure& failure);
  /// One request, without waiting for anything. False also when the agent did not take it.
  [[nodiscard]] bool ask_once(Failure& failure);
  /// Requests that an agent took.
  [[nodiscard]] unsigned requests() const { return requests_; }

  /// Between a request that came to nothing and the next one.
  static constexpr std::chrono::seconds repeat_pause{5};
  /// A stop waits up to 300 seconds for HANA and tells nothing when that was in vain: then it is asked for again.
  static constexpr std::chrono::seconds silence_limit{360};
  /// Requests in a row that the server or the agent may refuse; those that the agent takes later are not counted.
  static constexpr unsigned refusal_limit = 60;

 private:
  using Time = std::chrono::steady_clock::time_point;

  bool attend(Failure& failure);
  bool ask(Failure& failure);
  bool refused(Failure& failure, const std::string& why);
  bool agent_away(Failure& failure);
  void look_for_alert();
  void note_before_request();
  [[nodiscard]] bool newest_alert(std::uint64_t& id, std::string& database);
  [[nodiscard]] std::string news_of_log() const;
  bool given_up(Failure& failure);
  void say(const std::string& text);
  void ask_again_later();

  Context& context_;
  Run_Follower& follower_;
  std::string asked_job_;  ///< the run that the members below are about
  unsigned requests_ = 0;
  unsigned refusals_ = 0;             ///< in a row
  bool later_told_ = false;           ///< that the agent takes the stop later
  std::uint64_t seen_alert_ = 0;      ///< newest alert before the request
  std::size_t seen_error_lines_ = 0;  ///< of the run's log before the request
  Time asked_at_;
  std::optional<Time> due_;  ///< when to ask again
  std::optional<Time> away_since_;
};

}  // namespace dorsal3
