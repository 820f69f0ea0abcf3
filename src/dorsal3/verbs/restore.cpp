#include <CLI/CLI.hpp>

#include <algorithm>

#include "dorsal3/jobs/prefix_search.h"
#include "dorsal3/restore/restore_plan_text.h"
#include "dorsal3/restore/restore_run.h"
#include "dorsal3/restore/tenant_creation.h"
#include "dorsal3/server/resources.h"
#include "dorsal3/terminal/format.h"
#include "dorsal3/terminal/new_password.h"
#include "dorsal3/terminal/time_argument.h"
#include "dorsal3/verb.h"
#include "records/tenant_name.h"

namespace dorsal3 {

namespace {

constexpr const char* target_missing = "target_missing";
constexpr const char* target_exists = "target_exists";
constexpr const char* target_unknown = "target_unknown";
constexpr const char* no_tenant = "no_tenant";
constexpr const char* target_name_unfit = "target_name_unfit";

/// The logs, or what they begin at, do not give what is wanted.
bool is_about_chain(const std::string& code) {
  const char* const codes[] = {"log_gap", "log_overlap", "logs_too_short", "time_in_future", "no_full_backup"};
  return std::any_of(std::begin(codes), std::end(codes), [&](const char* known) { return code == known; });
}

Exit_Code exit_of_refusals(const json_spirit::Object& plan) {
  const auto refusals = object_rows(plan, "refusals");
  if (refusals.empty()) return exit_ok;
  return std::all_of(refusals.begin(), refusals.end(),
                     [](const auto& refusal) { return is_about_chain(text_member(refusal, "code")); })
             ? exit_gap
             : exit_failed;
}

/// Plans the restore of a database, and carries the plan out when that is confirmed.
class Restore_Verb : public Verb {
 public:
  CLI::App* declare(CLI::App& app) override {
    CLI::App* sub = app.add_subcommand("restore", "Restore a database: to a time, or from a backup set");
    sub->add_option("INSTANCE/DATABASE", subject_text_, "What was backed up; INSTANCE is a name or a uuid")->required();
    auto* to = sub->add_option("--to", to_, "Time to recover to: UTC, or with its zone, as 2026-11-22T10:00:00+05:30");
    auto* set = sub->add_option("--set", set_,
                                "Full, incremental or differential set to restore; its uuid's beginning will do");
    to->excludes(set);
    sub->add_option("--into", into_, "INSTANCE[/DATABASE] to restore into, when it is another one");
    sub->add_option("--as", as_, "Name of the database to restore into, when it is another one of that instance");
    auto* create = sub->add_flag("--create", create_, "Create the tenant to restore into, which does not exist yet");
    sub->add_option("--password-file", password_file_,
                    "With --create: file with the password of its user SYSTEM, which is asked for else")
        ->needs(create);
    sub->add_option("--host", host_, "Host to restore on, by name or uuid, where nobody can tell which one it is");
    sub->add_option("--lifeline", lifeline_, "Branch of the history, by its uuid, when a time lies on several");
    sub->add_flag("--ignore-delta", ignore_delta_, "Take logs from the full backup on instead of deltas");
    auto* plan = sub->add_flag("--plan", plan_only_,
                               "Show what would be read and done, and do nothing; so it is without --run too");
    auto* run = sub->add_flag("--run", run_, "Do it");
    plan->excludes(run);
    sub->add_option("--confirm", confirmed_,
                    "With --run: name of the database that is overwritten; of the instance, when that is stopped");
    return sub;
  }

  Outcome run(Context& context) override {
    Failure failure;
    Outcome outcome;
    json_spirit::Object plan;
    secure_string password;
    if (run_ && !password_file_.empty() && !read_password_file(password_file_, password, failure))
      return Outcome::failed(std::move(failure));
    if (!make_wish(context, failure) ||
        !context.server.post("/restore/plan", wish_, plan, failure, Server_Client::agent_timeout))
      return Outcome::failed(std::move(failure));
    look_at_target(context, plan);
    outcome.exit_code = exit_of_refusals(plan);
    outcome.model = {{"plan", plan}};
    if (!run_) return outcome;
    if (outcome.exit_code != exit_ok) {
      outcome.model["result"] = "Nothing was restored: the plan is refused.";
      return outcome;
    }
    if (!is_confirmed(plan, failure)) return Outcome::failed(std::move(failure));
    print_restore_plan(plan, context.live());
    if (plans_creation(plan) && !create(context, plan, password, failure)) return Outcome::failed(std::move(failure));
    Outcome done = Restore_Run(context, plan).run();
    if (plans_creation(plan)) mention_creation(plan, done);
    if (done.failure) return done;
    for (const auto& [key, value] : done.model) outcome.model[key] = value;
    outcome.exit_code = done.exit_code;
    return outcome;
  }

  void print(const json_spirit::Object& model, std::ostream& out) const override {
    json_spirit::Object plan;
    (void)json_spirit::object_get(model, "plan", plan);
    // A restore that ran has shown its plan before.
    if (model.find("job") == nullptr) print_restore_plan(plan, out);
    if (!run_ && flag_member(plan, "ok"))
      out << "Nothing was done. To do it: the same with --run --confirm " << one_line(name_to_confirm(plan)) << "\n";
    if (const std::string result = text_member(model, "result"); !result.empty()) out << one_line(result) << "\n";
    json_spirit::Array errors;
    json_spirit::object_get(model, "errors", errors);
    for (const json_spirit::Value& line : errors) out << "  " << one_line(line.get_str()) << "\n";
  }

 private:
  bool make_wish(Context& context, Failure& failure) {
    Backup_Subject subject;
    Backup_Subject into;
    Resource source;
    if (!parse_subject(subject_text_, subject, failure) || !check_arguments(subject, failure)) return false;
    std::string time;
    if (!to_.empty() && !parse_time_argument(to_, time, failure)) return false;
    if (!into_.empty() && !parse_subject(into_, into, failure)) return false;
    if (!as_.empty() && !into.database.empty()) {
      failure = {exit_usage, "usage", "name the database to restore into once: behind --into INSTANCE/ or with --as"};
      return false;
    }
    if (!find_resource(context.server, subject.instance, into_.empty() ? host_ : "", source, failure)) return false;
    target_ = source;
    if (!into_.empty() && !find_resource(context.server, into.instance, host_, target_, failure)) return false;
    if (!host_.empty() && !choose_host(context.server, host_, target_, failure)) return false;
    if (!set_.empty() && !find_set(context.server, set_, set_, failure)) return false;
    std::string database = into.database.empty() ? subject.database : into.database;
    if (!as_.empty()) database = as_;
    json_spirit::Object target{{"resource_uuid", target_.uuid}, {"database", database}};
    if (!host_.empty()) target["host_uuid"] = target_.host_uuid;
    wish_ = {{"resource_uuid", source.uuid},
             {"database", subject.database},
             {"target", std::move(target)},
             {"ignore_delta", ignore_delta_}};
    if (!time.empty()) wish_["time"] = time;
    if (!set_.empty()) wish_["set"] = set_;
    if (!lifeline_.empty()) wish_["lifeline"] = lifeline_;
    return true;
  }

  bool check_arguments(const Backup_Subject& subject, Failure& failure) const {
    std::string wrong;
    if (subject.database.empty()) wrong = "name the database to restore: " + subject.instance + "/DATABASE";
    if (to_.empty() && set_.empty()) wrong = "say what to restore to: --to TIME or --set SET; info shows the sets";
    if (run_ && confirmed_.empty())
      wrong = "--run overwrites a database; name it with --confirm NAME, look at --plan before";
    if (wrong.empty()) return true;
    failure = {exit_usage, "usage", wrong};
    return false;
  }

  /// A tenant must be there before HANA recovers it. Where nobody can tell, HANA will.
  void look_at_target(Context& context, json_spirit::Object& plan) const {
    json_spirit::Object target;
    (void)json_spirit::object_get(plan, "target", target);
    if (create_ && flag_member(target, "system_database")) {
      refuse(plan, no_tenant,
             text_member(target, "name") + "/" + text_member(target, "database") +
                 " is no tenant that could be created: it is there with its system; leave --create out");
      return;
    }
    std::vector<json_spirit::Object> databases;
    Failure failure;
    Resource asked = target_;
    asked.host_uuid = text_member(target, "host_uuid");
    if (flag_member(target, "system_database")) return;
    const std::string name = text_member(target, "database");
    if (!flag_member(target, "connected")) return judge_new_name(name, plan);
    if (!list_databases(context.server, asked, databases, failure)) {
      if (create_) refuse(plan, target_unknown, "whether the database exists cannot be told: " + failure.message);
      return judge_new_name(name, plan);
    }
    const auto found = std::find_if(databases.begin(), databases.end(),
                                    [&](const auto& database) { return text_member(database, "name") == name; });
    const bool exists = found != databases.end();
    target["exists"] = exists;
    if (exists) target["active"] = flag_member(*found, "active");
    if (create_) target["create"] = !exists;
    plan["target"] = target;
    judge_target(exists, name, text_member(target, "name"), plan);
  }

  void judge_target(bool exists, const std::string& name, const std::string& instance,
                    json_spirit::Object& plan) const {
    if (exists && create_)
      refuse(plan, target_exists,
             "the database " + name + " exists in " + instance + " already; leave --create out to overwrite it");
    if (!exists && create_) judge_new_name(name, plan);
    if (!exists && !create_)
      refuse(plan, target_missing,
             "there is no database " + name + " in " + instance + " to restore into; " +
                 (is_tenant_name(name) ? "have it created with --create, or in HANA: CREATE DATABASE " + name +
                                             " SYSTEM USER PASSWORD ..."
                                       : std::string("look at its name; a new tenant's has ") + tenant_name_rule));
  }

  /// The agent would refuse it, but only after the password was asked for.
  void judge_new_name(const std::string& name, json_spirit::Object& plan) const {
    if (create_ && !is_tenant_name(name))
      refuse(plan, target_name_unfit,
             "no tenant can be created with the name " + name + ", for HANA would not take it or read it as another: " +
                 "it has " + tenant_name_rule + "; choose such a name with --as");
  }

  bool create(Context& context, const json_spirit::Object& plan, secure_string& password, Failure& failure) const {
    json_spirit::Object target;
    (void)json_spirit::object_get(plan, "target", target);
    const std::string prompt = "Password of the user SYSTEM of the new database " +
                               one_line(text_member(target, "name") + "/" + text_member(target, "database")) + ": ";
    return (!password.empty() || ask_new_password(context.terminal, prompt, password, failure)) &&
           create_tenant(context, plan, password, failure);
  }

  static void refuse(json_spirit::Object& plan, const char* code, const std::string& message) {
    auto refusals = object_rows(plan, "refusals");
    refusals.push_back({{"code", code}, {"message", message}});
    plan["refusals"] = to_array(refusals);
    plan["ok"] = false;
  }

  static std::string name_to_confirm(const json_spirit::Object& plan) {
    json_spirit::Object target;
    (void)json_spirit::object_get(plan, "target", target);
    return text_member(target, text_member(target, "stops") == "instance" ? "name" : "database");
  }

  bool is_confirmed(const json_spirit::Object& plan, Failure& failure) const {
    const std::string wanted = name_to_confirm(plan);
    if (confirmed_ == wanted) return true;
    failure = {exit_usage, "not_confirmed",
               (plans_creation(plan) ? "" : what_stops(plan) + " ") + what_is_overwritten(plan) +
                   " Confirm it with: --confirm " + wanted};
    return false;
  }

  std::string subject_text_;
  std::string to_;
  std::string set_;
  std::string into_;
  std::string as_;
  std::string password_file_;
  std::string host_;
  std::string lifeline_;
  std::string confirmed_;
  bool ignore_delta_ = false;
  bool create_ = false;
  bool plan_only_ = false;
  bool run_ = false;
  Resource target_;
  json_spirit::Object wish_;
};

}  // namespace

std::unique_ptr<Verb> make_restore_verb() { return std::make_unique<Restore_Verb>(); }

}  // namespace dorsal3
