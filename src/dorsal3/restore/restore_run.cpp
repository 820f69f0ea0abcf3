#include "dorsal3/restore/restore_run.h"

#include "dorsal3/jobs/job_view.h"
#include "dorsal3/jobs/run_follower.h"
#include "dorsal3/restore/restore_definition.h"
#include "dorsal3/server/resources.h"
#include "dorsal3/terminal/format.h"
#include "dorsal3/terminal/time_argument.h"

namespace dorsal3 {

namespace {

constexpr const char* recovery_method = "instance.recovery";

json_spirit::Object target_of(const json_spirit::Object& plan) {
  json_spirit::Object target;
  (void)json_spirit::object_get(plan, "target", target);
  return target;
}

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
  if (!start(job, failure) || !follow(job, record, failure)) return Outcome::failed(std::move(failure));
  Outcome outcome;
  outcome.model["job"] = job;
  judge(record, outcome);
  if (outcome.exit_code == exit_ok) compare_times(outcome);
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

json_spirit::Object Restore_Run::logged_recovery(std::string& why_not) {
  const json_spirit::Object target = target_of(plan_);
  const bool tenant = !flag_member(target, "system_database");
  Resource resource;
  resource.host_uuid = text_member(target, "host_uuid");
  json_spirit::Object said;
  Failure failure;
  if (!call_agent(context_.server, resource, recovery_method,
                  {{"name", text_member(target, "name")}, {"database", tenant ? text_member(target, "database") : ""}},
                  said, failure)) {
    why_not = failure.message;
    return {};
  }
  if (text_member(said, "command") == text_member(plan_, "statement")) return said;
  why_not = "the last recovery in it is another one: " + text_member(said, "command");
  return {};
}

void Restore_Run::compare_times(Outcome& outcome) {
  const std::string wanted = time_to_reach(plan_);
  if (wanted.empty()) return;
  std::string why_not;
  const std::string reached = text_member(logged_recovery(why_not), "reached_time");
  outcome.model["wanted_time"] = wanted;
  if (reached.empty()) {
    outcome.exit_code = exit_failed;
    outcome.model["result"] = "The restore ended, but how far HANA has come could not be read" +
                              (why_not.empty() ? "" : " (" + why_not + ")") +
                              "; look for \"reached timestamp\" in HANA's backup.log.";
    return;
  }
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
