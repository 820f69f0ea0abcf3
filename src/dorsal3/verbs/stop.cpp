#include <CLI/CLI.hpp>

#include "dorsal3/jobs/prefix_search.h"
#include "dorsal3/jobs/run_stopper.h"
#include "dorsal3/server/resources.h"
#include "dorsal3/terminal/format.h"

namespace dorsal3 {

namespace {

/// Stops a running backup and waits until it has ended.
class Stop_Verb : public Verb {
 public:
  CLI::App* declare(CLI::App& app) override {
    CLI::App* sub = app.add_subcommand("stop", "Stop a running backup");
    sub->add_option("JOB", job_, "Id of the run, or its beginning, as jobs shows it")->required();
    sub->add_flag("--no-wait", no_wait_, "Ask once and come back at once");
    return sub;
  }

  Outcome run(Context& context) override {
    Failure failure;
    json_spirit::Object record;
    if (!find_run(context.server, job_, record, failure)) return Outcome::failed(std::move(failure));
    // A record without an id is no run: what was typed may at least be asked for.
    const std::string id = text_member(record, "id");
    Run_Follower follower(context, id.empty() ? job_ : id, "");
    Run_Stopper stopper(context, follower);
    if (no_wait_) return ask_and_leave(follower, stopper);
    if (!stopper.stop(failure)) return Outcome::failed(std::move(failure));
    return ended(follower, stopper.requests());
  }

  void print(const json_spirit::Object& model, std::ostream& out) const override {
    out << one_line(text_member(model, "result")) << "\n";
    json_spirit::Array errors;
    json_spirit::object_get(model, "errors", errors);
    for (const json_spirit::Value& line : errors) out << "  " << line.get_str() << "\n";
  }

 private:
  static Outcome ask_and_leave(Run_Follower& follower, Run_Stopper& stopper) {
    Failure failure;
    switch (follower.look(failure)) {
      case Run_Follower::Look::ended:
        return ended(follower, stopper.requests());
      case Run_Follower::Look::lost:
        return Outcome::failed(std::move(failure));
      case Run_Follower::Look::goes_on:
        break;
    }
    if (!stopper.ask_once(failure)) return Outcome::failed(std::move(failure));
    Outcome outcome;
    outcome.model = {{"job", follower.job()},
                     {"requests", stopper.requests()},
                     {"ended", false},
                     {"result", "The stop of the run " + follower.job() +
                                    " was asked for; whether it ends shows: dorsal3 jobs " + follower.job()}};
    return outcome;
  }

  static Outcome ended(const Run_Follower& follower, unsigned requests) {
    const json_spirit::Object& record = follower.record();
    const Run_Stage stage = run_stage(record);
    const bool canceled = requests > 0 && stage == Run_Stage::canceled;
    Outcome outcome;
    outcome.exit_code = canceled ? exit_ok : exit_failed;
    outcome.model = {{"job", follower.job()},
                     {"requests", requests},
                     {"ended", true},
                     {"canceled", stage == Run_Stage::canceled},
                     {"state", text_member(record, "state_name")},
                     {"message", text_member(record, "message")},
                     {"declined", follower.declined()},
                     {"result", result_text(follower, stage, requests)}};
    if (stage == Run_Stage::failed) outcome.model["errors"] = error_lines(record);
    return outcome;
  }

  static std::string result_text(const Run_Follower& follower, Run_Stage stage, unsigned requests) {
    const std::string& job = follower.job();
    const std::string ending = ending_text(follower.record());
    if (requests == 0) return "There is nothing to stop, the run " + job + " has ended already. " + ending;
    switch (stage) {
      case Run_Stage::canceled:
        return "The run " + job + " is canceled.";
      case Run_Stage::done:
        return "The run " + job + " was complete before the stop came through: its backup is kept.";
      default:
        return "The run " + job + " has ended, but was not canceled. " + ending;
    }
  }

  std::string job_;
  bool no_wait_ = false;
};

}  // namespace

std::unique_ptr<Verb> make_stop_verb() { return std::make_unique<Stop_Verb>(); }

}  // namespace dorsal3
