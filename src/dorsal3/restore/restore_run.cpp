#include "dorsal3/restore/restore_run.h"

#include "dorsal3/jobs/job_view.h"
#include "dorsal3/jobs/run_follower.h"
#include "dorsal3/restore/restore_definition.h"
#include "dorsal3/server/resources.h"
#include "dorsal3/terminal/format.h"
#include "dorsal3/terminal/time_argument.h"
#include "platform/clock.h"

namespace dorsal3 {

namespace {

constexpr const char* recovery_method = "instance.recovery";

json_spirit::Object target_of(const json_spirit::Object& plan) {
  json_spirit::Object target;
  (void)json_spirit::object_get(plan, "target", target);
  return target;
}

/// HANA may write a statement down without its end.
std::string statement_of(const std::string& text) { return text.substr(0, text.find_last_not_of("; ") + 1); }

std::string going_on(const std::string& job) { return "; the restore goes on, follow it with: dorsal3 jobs " + job; }

std::string state_text(const json_spirit::Object& record) {
  switch (run_stage(record)) {
    case Run_Stage::done:
      return "The restore is complete.";
    case Run_Stage::canceled:
      return "The restore was canceled; the database is not usable until it is restored.";
    case Run_Stage::skipped:
      return "Nothing was restored: the host declined.";
    default: {
      const std::string message = text_member(record, "message");
      return "The restore FAILED" + (message.empty() ? "" : ": " + message) +
             ". The database may be down; see the lines below and HANA's backup.log, and restore again.";
    }
  }
}

}  // namespace

Outcome Restore_Run::run() {
  Failure failure;
  std::string job;
  json_spirit::Object record;
  before_known_ = ask_log(before_, failure);
  if (!start(job, failure) || !follow(job, record, failure)) return Outcome::failed(std::move(failure));
  Outcome outcome;
  outcome.model["job"] = job;
  begun_ = text_member(record, "start_time");
  judge(record, outcome);
  if (outcome.exit_code == exit_ok) compare_with_log(outcome);
  return outcome;
}

bool Restore_Run::start(std::string& job, Failure& failure) {
  const json_spirit::Object definition = restore_definition(plan_);
  const std::string id = text_member(definition, "id");
  json_spirit::Object answer;
  if (!context_.server.post("/job-definitions", definition, answer, failure) ||
      !context_.server.post("/job-definitions/" + id + "/start", json_spirit::Object(), answer, failure,
                            Server_Client::agent_timeout))
    return false;
  job = text_member(answer, "job_act_id");
  if (!job.empty()) return true;
  failure = {exit_protocol, "protocol", "the server started the restore but told no job id; see: dorsal3 jobs"};
  return false;
}

bool Restore_Run::follow(const std::string& job, json_spirit::Object& record, Failure& failure) {
  const json_spirit::Object target = target_of(plan_);
  json_spirit::Object totals;
  (void)json_spirit::object_get(plan_, "totals", totals);
  Run_Follower follower(context_, job, text_member(target, "name") + "/" + text_member(target, "database"),
                        number_member(totals, "size"));
  while (true) {
    const Run_Follower::Look look = follower.look(failure);
    if (look == Run_Follower::Look::ended) {
      record = follower.record();
      return true;
    }
    if (look == Run_Follower::Look::lost) {
      failure.message += going_on(job);
      return false;
    }
    if (interrupted()) {
      follower.end_progress_line();
      // A recovery that is cut leaves no database behind, so it is not stopped from here.
      failure = {exit_interrupted, "interrupted", "stopped watching" + going_on(job)};
      return false;
    }
    follower.pause();
  }
}

void Restore_Run::judge(const json_spirit::Object& record, Outcome& outcome) {
  const bool done = run_stage(record) == Run_Stage::done;
  outcome.model["state"] = text_member(record, "state_name");
  outcome.model["result"] = state_text(record);
  if (!done) outcome.model["errors"] = error_lines(record);
  outcome.exit_code = done ? exit_ok : exit_failed;
}

bool Restore_Run::ask_log(json_spirit::Object& said, Failure& failure) {
  const json_spirit::Object target = target_of(plan_);
  const bool tenant = !flag_member(target, "system_database");
  Resource resource;
  resource.host_uuid = text_member(target, "host_uuid");
  return call_agent(
      context_.server, resource, recovery_method,
      {{"name", text_member(target, "name")}, {"database", tenant ? text_member(target, "database") : ""}}, said,
      failure);
}

/// What the log said before tells best, for no two clocks are compared then, and two recoveries may begin within a
/// second. Else HANA writes down the time of the host, and the run's begin is the agent's there.
bool Restore_Run::is_new(const json_spirit::Object& said) const {
  const std::string started = text_member(said, "started");
  if (!before_known_) return started >= begun_;
  if (!flag_member(before_, "found")) return true;
  const std::string id = text_member(said, "id");
  const std::string old_id = text_member(before_, "id");
  return id.empty() || old_id.empty() ? started > text_member(before_, "started") : id != old_id;
}

json_spirit::Object Restore_Run::logged_recovery(std::string& why_not) {
  json_spirit::Object said;
  Failure failure;
  constexpr int tries = 6;
  constexpr std::chrono::seconds pause{10};
  bool asked = ask_log(said, failure);
  // The restore is done; an agent that connects again just now is waited for.
  for (int i = 1; i < tries && !asked; ++i) {
    platform::Clock::current().sleep_for(pause);
    asked = ask_log(said, failure);
  }
  if (!asked) {
    why_not = "HANA's log could not be read: " + failure.message;
    return {};
  }
  const std::string command = text_member(said, "command");
  if (!flag_member(said, "found") || !is_new(said))
    why_not = "HANA's log shows no such recovery";
  else if (statement_of(command) != statement_of(text_member(plan_, "statement")))
    why_not = "HANA's log shows no such recovery, the last one in it is another one: " + command;
  else if (!flag_member(said, "successful"))
    why_not = text_member(said, "ended").empty() ? "HANA's log does not show the end of the recovery"
                                                 : "HANA's log says: " + text_member(said, "message");
  return why_not.empty() ? said : json_spirit::Object();
}

void Restore_Run::compare_with_log(Outcome& outcome) {
  std::string why_not;
  const json_spirit::Object said = logged_recovery(why_not);
  const std::string wanted = time_to_reach(plan_);
  const std::string reached = text_member(said, "reached_time");
  if (!wanted.empty()) outcome.model["wanted_time"] = wanted;
  if (why_not.empty() && !wanted.empty() && reached.empty()) why_not = "HANA's log does not tell how far it has come";
  if (!why_not.empty()) {
    outcome.exit_code = exit_failed;
    outcome.model["result"] =
        "The restore ended, but " + why_not +
        ". Whether the database is as wanted is not known; look for RECOVERY in HANA's backup.log.";
    return;
  }
  if (wanted.empty()) return;
  outcome.model["reached_time"] = reached;
  if (reached >= wanted) {
    outcome.model["result"] = "The restore is complete; HANA has reached " + time_for_people(reached) + ".";
    return;
  }
  outcome.exit_code = exit_failed;
  outcome.model["result"] = "The restore ended TOO EARLY: HANA has reached " + time_for_people(reached) +
                            ", wanted was " + time_for_people(wanted) + ". What was committed in between is missing.";
}

}  // namespace dorsal3
