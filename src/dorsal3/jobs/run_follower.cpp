#include "dorsal3/jobs/run_follower.h"

#include <algorithm>

#include "dorsal3/server/resources.h"
#include "dorsal3/terminal/format.h"
#include "platform/clock.h"

namespace dorsal3 {

namespace {

constexpr const char* usual_reason = "it is a replication secondary or its instance does not run there";

std::string joined(const json_spirit::Array& texts) {
  std::string line;
  for (const json_spirit::Value& text : texts) line += (line.empty() ? "" : "; ") + text.get_str();
  return line;
}

}  // namespace

Run_Follower::Run_Follower(Context& context, std::string job, std::string label, std::uint64_t total_bytes)
    : context_(context),
      job_(std::move(job)),
      label_(std::move(label)),
      total_bytes_(total_bytes),
      display_(context.live(), context.terminal.output_is_terminal && !context.json, context.terminal.width),
      last_answer_(platform::Clock::current().steady_now()) {}

Run_Follower::Look Run_Follower::look(Failure& failure) {
  json_spirit::Object record;
  if (!context_.server.get("/jobs/" + job_, record, failure)) return away(failure);
  last_answer_ = platform::Clock::current().steady_now();
  record_ = std::move(record);
  const Run_Stage stage = run_stage(record_);
  if (announce_) {
    context_.live() << "The backup goes to " << one_line(host_name(text_member(record_, "host_uuid"))) << " as run "
                    << one_line(job_) << "." << std::endl;
    announce_ = false;
  }
  if (stage == Run_Stage::skipped) return after_decline();
  show_progress();
  if (!has_ended(stage)) return Look::goes_on;
  end_progress_line();
  return Look::ended;
}

/// A module that tells of whole databases only is outdone by the bytes; the end is the run's to tell.
int Run_Follower::percent_of(std::uint64_t bytes) const {
  constexpr std::uint64_t almost_all = 99;
  constexpr std::uint64_t all = 100;
  const auto told = static_cast<int>(number_member(record_, "progress"));
  if (total_bytes_ == 0) return told;
  const auto moved = static_cast<std::uint64_t>(static_cast<double>(bytes) / static_cast<double>(total_bytes_) * all);
  return std::max(told, static_cast<int>(std::min(moved, almost_all)));
}

Run_Follower::Look Run_Follower::away(const Failure& failure) {
  const bool patient = failure.exit_code == exit_unreachable &&
                       platform::Clock::current().steady_now() - last_answer_ <= server_away_limit;
  if (patient) return Look::goes_on;
  end_progress_line();
  return Look::lost;
}

void Run_Follower::show_progress() {
  if (label_.empty()) return;
  Progress_Sample sample;
  sample.when = platform::Clock::current().steady_now();
  sample.bytes = std::max(bytes_done(record_), received_.count(context_.server, job_));
  // HANA may read something twice.
  if (total_bytes_ != 0) sample.bytes = std::min(sample.bytes, total_bytes_);
  sample.total_bytes = total_bytes_;
  sample.percent = percent_of(sample.bytes);
  tracker_.add(sample);
  display_.show(tracker_, label_);
}

/// A skipped run that no other one follows is the end.
Run_Follower::Look Run_Follower::after_decline() {
  const std::string next = text_member(record_, "followed_by");
  if (!next.empty() && !is_known(next)) {
    move_on(next);
    return Look::goes_on;
  }
  end_progress_line();
  note_decline(true);
  return Look::ended;
}

void Run_Follower::note_decline(bool last) {
  if (is_known(job_)) return;
  json_spirit::Array reasons = error_lines(record_);
  if (reasons.empty()) reasons.emplace_back(usual_reason);
  const std::string host_uuid = text_member(record_, "host_uuid");
  const std::string host = host_name(host_uuid);
  if (!last)
    context_.live() << one_line(host) << " declined the backup: " << one_line(joined(reasons)) << "." << std::endl;
  declined_.emplace_back(
      json_spirit::Object{{"job", job_}, {"host_uuid", host_uuid}, {"host", host}, {"reasons", reasons}});
}

void Run_Follower::move_on(const std::string& next) {
  end_progress_line();
  note_decline(false);
  job_ = next;
  tracker_ = Progress_Tracker();
  received_ = Received_Bytes();
  announce_ = true;
}

void Run_Follower::pause() { platform::Clock::current().sleep_for(poll_interval); }

void Run_Follower::end_progress_line() { display_.finish(); }

/// A run that was left already is not gone back to, whatever the server says.
bool Run_Follower::is_known(const std::string& job) const {
  return std::any_of(declined_.begin(), declined_.end(),
                     [&](const json_spirit::Value& host) { return text_member(host.get_obj(), "job") == job; });
}

std::string Run_Follower::host_name(const std::string& uuid) {
  if (!host_names_) {
    Failure failure;
    host_names_.emplace();
    (void)host_names(context_.server, *host_names_, failure);  // without names the uuids must do
  }
  const std::string name = (*host_names_)[uuid];
  if (name.empty()) return uuid;
  const auto namesakes =
      std::count_if(host_names_->begin(), host_names_->end(), [&](const auto& host) { return host.second == name; });
  return namesakes > 1 ? name + " (" + uuid + ")" : name;
}

}  // namespace dorsal3
