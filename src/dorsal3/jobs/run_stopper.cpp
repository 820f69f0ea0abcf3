#include "dorsal3/jobs/run_stopper.h"

#include "dorsal3/server/resources.h"
#include "dorsal3/terminal/format.h"
#include "platform/clock.h"

namespace dorsal3 {

namespace {

// The alert of a stop that found nothing to cancel (docs/formats/alert.md).
constexpr std::uint64_t hana_alert_class = 7;
constexpr std::uint64_t stop_alert_code = 20;
/// The last line of every vain stop; it says no more than the alert.
constexpr const char* stop_failed_line = "Failed to stop HANA backup job";

/// The agent's code of a stop that it may take later, and what is made of it here.
constexpr int stop_later = 1;
constexpr const char* not_now = "not_now";

std::chrono::steady_clock::time_point now() { return platform::Clock::current().steady_now(); }

std::string seconds_text(std::chrono::seconds span) { return std::to_string(span.count()) + " seconds"; }

}  // namespace

bool Run_Stopper::stop(Failure& failure) {
  while (true) {
    const Run_Follower::Look look = follower_.look(failure);
    if (look == Run_Follower::Look::ended) return true;
    if (look == Run_Follower::Look::lost) {
      failure.message += "; the run " + follower_.job() + " goes on, unless the stop that was asked for ends it";
      return false;
    }
    if (interrupted()) return given_up(failure);
    // A run whose host has just declined is not asked: the next look shows the one that follows it.
    if (run_stage(follower_.record()) != Run_Stage::skipped && !attend(failure)) return false;
    follower_.pause();
  }
}

bool Run_Stopper::ask_once(Failure& failure) {
  json_spirit::Object answer;
  if (!context_.server.post("/jobs/" + follower_.job() + "/stop", {}, answer, failure, Server_Client::agent_timeout))
    return false;
  int code = -1;
  if (json_spirit::object_get(answer, "code", code) && code == 0) {
    ++requests_;
    return true;
  }
  const std::string message = text_member(answer, "message");
  failure = {exit_failed, code == stop_later ? not_now : "not_stopped",
             "the agent did not take the stop" + (message.empty() ? "" : ": " + message)};
  return false;
}

/// Does what is due for the run that is watched now.
bool Run_Stopper::attend(Failure& failure) {
  if (asked_job_ != follower_.job()) {
    asked_job_ = follower_.job();
    refusals_ = 0;
    later_told_ = false;
    away_since_.reset();
    return ask(failure);
  }
  if (due_) return now() < *due_ || ask(failure);
  if (now() - asked_at_ >= silence_limit) {
    say("The stop has led to nothing in " + seconds_text(silence_limit) + "; asking again.");
    return ask(failure);
  }
  look_for_alert();
  return true;
}

bool Run_Stopper::ask(Failure& failure) {
  note_before_request();
  if (ask_once(failure)) {
    if (requests_ == 1) say("Asked to stop the run " + asked_job_ + "; waiting for its end.");
    refusals_ = 0;
    away_since_.reset();
    asked_at_ = now();
    due_.reset();
    return true;
  }
  switch (failure.exit_code) {
    case exit_busy:  // it has ended meanwhile: the next look shows how
      ask_again_later();
      return true;
    case exit_refused:
    case exit_not_found:
    case exit_protocol:
      return false;
    case exit_unreachable:
      return agent_away(failure);
    default:
      return refused(failure, failure.message);
  }
}

bool Run_Stopper::refused(Failure& failure, const std::string& why) {
  // A run whose turn has not come is asked for as long as the user likes.
  if (failure.code == not_now) {
    if (!later_told_)
      say("The stop cannot be taken yet: " + why + ". Asking every " + seconds_text(repeat_pause) +
          "; Ctrl-C leaves the run alone.");
    later_told_ = true;
    ask_again_later();
    return true;
  }
  if (++refusals_ >= refusal_limit) {
    failure.message += "; asked " + std::to_string(refusals_) + " times in vain, the run " + asked_job_ + " goes on";
    return false;
  }
  if (refusals_ == 1)
    say("The stop was not taken: " + why + ". Asking every " + seconds_text(repeat_pause) +
        "; Ctrl-C leaves the run alone.");
  ask_again_later();
  return true;
}

/// Away before the first request is an answer; afterwards it is waited for as for the server itself.
bool Run_Stopper::agent_away(Failure& failure) {
  if (!away_since_) away_since_ = now();
  const bool patient = requests_ > 0 && now() - *away_since_ <= Run_Follower::server_away_limit;
  if (!patient) {
    failure.message += "; the run " + asked_job_ + " goes on as far as is known";
    return false;
  }
  ask_again_later();
  return true;
}

void Run_Stopper::ask_again_later() { due_ = now() + repeat_pause; }

void Run_Stopper::note_before_request() {
  std::string database;
  std::uint64_t id = 0;
  if (newest_alert(id, database)) seen_alert_ = id;
  seen_error_lines_ = error_lines(follower_.record()).size();
}

void Run_Stopper::look_for_alert() {
  std::string database;
  std::uint64_t id = 0;
  if (!newest_alert(id, database) || id <= seen_alert_) return;
  seen_alert_ = id;
  const std::string where = database.empty() ? "" : " (at database " + database + ")";
  const std::string news = news_of_log();
  if (news.empty())
    say("HANA lists no running backup of this run now" + where + ": it has not begun yet, or a set is being saved. " +
        "Asking again in " + seconds_text(repeat_pause) + "; Ctrl-C leaves the run alone.");
  else
    say("The stop found no running backup that it could cancel" + where + ": " + news + ". Asking again in " +
        seconds_text(repeat_pause) + "; Ctrl-C leaves the run alone.");
  ask_again_later();
}

/// The newest alert of a vain stop of this run; id 0 when there is none. False when the server cannot be asked.
bool Run_Stopper::newest_alert(std::uint64_t& id, std::string& database) {
  std::vector<json_spirit::Object> alerts;
  Failure failure;
  const std::string path = "/alerts?" + query_pair("job_act_id", follower_.job()) + "&order=desc";
  if (!context_.server.get_rows(path, alerts, failure)) return false;
  id = 0;
  for (const auto& alert : alerts) {
    if (number_member(alert, "class") != hana_alert_class || number_member(alert, "code") != stop_alert_code) continue;
    if (number_member(alert, "id") <= id) continue;
    id = number_member(alert, "id");
    json_spirit::Object parameters;
    (void)json_spirit::object_get(alert, "parameters", parameters);
    database = text_member(parameters, "database");
  }
  return true;
}

/// What the run's log says since the request, where it says more than that the stop failed.
std::string Run_Stopper::news_of_log() const {
  const json_spirit::Array lines = error_lines(follower_.record());
  std::string news;
  for (std::size_t i = seen_error_lines_; i < lines.size(); ++i) {
    const std::string& line = lines[i].get_str();
    if (line != stop_failed_line) news += (news.empty() ? "" : "; ") + line;
  }
  return news;
}

bool Run_Stopper::given_up(Failure& failure) {
  follower_.end_progress_line();
  failure = {exit_interrupted, "interrupted",
             "the stop is not asked for any more; the run " + follower_.job() + " goes on" +
                 (requests_ > 0 ? ", unless the last request still ends it" : "") + "; follow it with: dorsal3 jobs " +
                 follower_.job()};
  return false;
}

void Run_Stopper::say(const std::string& text) {
  follower_.end_progress_line();
  context_.notes << one_line(text) << std::endl;
}

}  // namespace dorsal3
