#include <CLI/CLI.hpp>
#include <chrono>

#include "dorsal3/backup/backup_definition.h"
#include "dorsal3/chains/chains.h"
#include "dorsal3/jobs/interruption_question.h"
#include "dorsal3/jobs/job_view.h"
#include "dorsal3/jobs/run_follower.h"
#include "dorsal3/jobs/run_stopper.h"
#include "dorsal3/server/pool_choice.h"
#include "dorsal3/server/resources.h"
#include "dorsal3/terminal/format.h"
#include "dorsal3/verb.h"
#include "platform/clock.h"

namespace dorsal3 {

namespace {

constexpr const char* state_skipped = "skipped";

std::string going_on(const std::string& job) {
  return "; the backup goes on, follow it with: dorsal3 jobs " + job + ", stop it with: dorsal3 stop " + job;
}

/// Starts a backup and follows it to its end, over the hosts that decline it.
class Backup_Verb : public Verb {
 public:
  CLI::App* declare(CLI::App& app) override {
    CLI::App* sub = app.add_subcommand("backup", "Back up the databases of an instance, or one of them");
    sub->add_option("INSTANCE[/DATABASE]", subject_text_, "What to back up; without a database: all of the instance")
        ->required();
    sub->add_option("--type", request_.type, "Kind of backup; falls back to full where a chain would not hold")
        ->check(CLI::IsMember({"full", "incremental", "differential"}))
        ->capture_default_str();
    sub->add_option("--pool", pool_, "Storage pool, by name; may be left out when there is only one");
    sub->add_option("--compression", request_.compression, "Compression of the streams")
        ->check(CLI::IsMember({"none", "auto", "lzop", "zstd"}))
        ->capture_default_str();
    sub->add_option("--compression-level", request_.compression_level, "Level of the compression")
        ->check(CLI::Range(1, 19))
        ->capture_default_str();
    sub->add_option("--host", host_, "Host to ask first, by name or uuid; the others follow when it declines");
    sub->add_flag("--detach", detach_, "Start it and come back at once");
    return sub;
  }

  Outcome run(Context& context) override {
    Failure failure;
    std::string job;
    const auto begun = platform::Clock::current().steady_now();
    if (!prepare(context, failure) || !start(context, job, failure)) return Outcome::failed(std::move(failure));
    Outcome outcome;
    outcome.model = {{"instance", request_.resource.name}, {"job", job}, {"databases", database_names()}};
    if (detach_) {
      outcome.model["detached"] = true;
      return outcome;
    }
    Run_Follower follower(context, job, request_.resource.name);
    if (!follow(context, follower, failure)) return Outcome::failed(std::move(failure));
    add_result(context, follower, outcome);
    const auto took = platform::Clock::current().steady_now() - begun;
    outcome.model["milliseconds"] = std::chrono::duration_cast<std::chrono::milliseconds>(took).count();
    return outcome;
  }

  void print(const json_spirit::Object& model, std::ostream& out) const override {
    if (flag_member(model, "detached")) {
      out << "Started. Follow it with: dorsal3 jobs " << one_line(text_member(model, "job")) << "\n";
      return;
    }
    const auto sets = object_rows(model, "sets");
    if (!sets.empty()) {
      Text_Table table({"SET", "DATABASE", "TYPE", "SIZE", "STORED", "RATIO", "LIFELINE", "NOTE"});
      std::uint64_t bytes = 0;
      for (const auto& set : sets) {
        const std::uint64_t source = number_member(set, "source_size");
        bytes += source;
        table.add({one_line(text_member(set, "uuid")), one_line(text_member(set, "database")),
                   one_line(text_member(set, "type")), format_bytes(source), format_bytes(stored_size(set)),
                   format_ratio(source, stored_size(set)), one_line(text_member(set, "lifeline")),
                   one_line(lift_text(text_member(set, "requested_type"), text_member(set, "lift_reason")))});
      }
      out << table.text();
      print_speed(bytes, std::chrono::milliseconds(number_member(model, "milliseconds")), out);
    }
    out << one_line(text_member(model, "result")) << "\n";
    if (text_member(model, "state") == state_skipped) print_declined(object_rows(model, "declined"), out);
    json_spirit::Array errors;
    json_spirit::object_get(model, "errors", errors);
    for (const json_spirit::Value& line : errors) out << "  " << line.get_str() << "\n";
  }

 private:
  bool prepare(Context& context, Failure& failure) {
    Backup_Subject subject;
    return parse_subject(subject_text_, subject, failure) &&
           find_resource(context.server, subject.instance, host_, request_.resource, failure) &&
           choose_host(context.server, host_, request_.resource, failure) &&
           choose_databases(context, subject, failure) && choose_pool(context.server, pool_, request_.pool, failure);
  }

  bool choose_databases(Context& context, const Backup_Subject& subject, Failure& failure) {
    if (!subject.database.empty()) {
      request_.databases = {subject.database};
      return is_name_of_database(subject, failure);
    }
    std::vector<json_spirit::Object> databases;
    if (!list_databases(context.server, request_.resource, databases, failure)) return false;
    for (const auto& database : databases) request_.databases.push_back(text_member(database, "name"));
    if (!request_.databases.empty()) return true;
    failure = {exit_not_found, "no_database",
               "instance \"" + subject.instance +
                   "\" lists no database, so there is nothing to back up; name one: " + subject.instance + "/SYSTEMDB"};
    return false;
  }

  /// HANA backs up a system without tenants whatever database is named: it would be kept under a name that it has not.
  [[nodiscard]] bool is_name_of_database(const Backup_Subject& subject, Failure& failure) const {
    const std::string sid = request_.resource.system_id();
    if (subject.database == sid || !request_.resource.is_single_container()) return true;
    failure = {exit_not_found, "not_found",
               "system " + sid + " has no tenants: its one database is called like it; back it up by: dorsal3 backup " +
                   subject.instance};
    return false;
  }

  bool start(Context& context, std::string& job, Failure& failure) {
    json_spirit::Object definition = backup_definition(request_);
    const std::string id = text_member(definition, "id");
    json_spirit::Object answer;
    if (!context.server.get("/job-definitions/" + id, answer, failure)) {
      if (failure.exit_code != exit_not_found) return false;
      if (!context.server.post("/job-definitions", definition, answer, failure)) return false;
    }
    if (!context.server.post("/job-definitions/" + id + "/start", json_spirit::Object(), answer, failure,
                             Server_Client::agent_timeout))
      return false;
    job = text_member(answer, "job_act_id");
    if (!job.empty()) return true;
    failure = {exit_protocol, "protocol", "the server started the backup but told no job id; see: dorsal3 jobs"};
    return false;
  }

  /// Watches until the run has ended; Ctrl-C may stop it.
  static bool follow(Context& context, Run_Follower& follower, Failure& failure) {
    while (true) {
      switch (follower.look(failure)) {
        case Run_Follower::Look::ended:
          return true;
        case Run_Follower::Look::lost:
          failure.message += going_on(follower.job());
          return false;
        case Run_Follower::Look::goes_on:
          break;
      }
      if (interrupted()) {
        follower.end_progress_line();
        const Interruption_Wish wish = ask_about_interruption(context);
        if (wish == Interruption_Wish::stop) return Run_Stopper(context, follower).stop(failure);
        if (wish == Interruption_Wish::leave) {
          failure = {exit_interrupted, "interrupted", "stopped watching" + going_on(follower.job())};
          return false;
        }
      }
      follower.pause();
    }
  }

  static void add_result(Context& context, const Run_Follower& follower, Outcome& outcome) {
    const json_spirit::Object& record = follower.record();
    const Run_Stage stage = run_stage(record);
    outcome.model["job"] = follower.job();
    outcome.model["state"] = text_member(record, "state_name");
    outcome.model["message"] = text_member(record, "message");
    outcome.model["sets"] = sets_of(context, record);
    outcome.model["declined"] = follower.declined();
    const bool all_declined = stage == Run_Stage::skipped && follower.declined().size() > 1;
    outcome.model["result"] = all_declined ? "Nothing was backed up: every host declined." : ending_text(record);
    if (stage == Run_Stage::failed) outcome.model["errors"] = error_lines(record);
    outcome.exit_code = stage == Run_Stage::done ? exit_ok : exit_failed;
  }

  /// The sets of the run. One that cannot be read now is told with what the run says of it: the backup is as good.
  static json_spirit::Array sets_of(Context& context, const json_spirit::Object& record) {
    json_spirit::Array sets;
    for (const auto& database : object_rows(record, "databases")) {
      const std::string uuid = text_member(database, "set");
      std::vector<json_spirit::Object> rows;
      Failure failure;
      if (context.server.get_rows("/sets?" + query_pair("uuid", uuid), rows, failure) && !rows.empty())
        sets.emplace_back(rows.front());
      else
        sets.emplace_back(json_spirit::Object{
            {"uuid", uuid}, {"database", text_member(database, "name")}, {"type", text_member(database, "kind")}});
    }
    return sets;
  }

  /// From the request to the end, as the operator has waited for it.
  static void print_speed(std::uint64_t bytes, std::chrono::milliseconds took, std::ostream& out) {
    constexpr std::uint64_t milliseconds_a_second = 1000;
    if (bytes == 0 || took.count() <= 0) return;
    out << format_bytes(bytes) << " in " << format_span(std::chrono::ceil<std::chrono::seconds>(took)) << ", "
        << format_speed(bytes * milliseconds_a_second / static_cast<std::uint64_t>(took.count())) << "\n";
  }

  static void print_declined(const std::vector<json_spirit::Object>& hosts, std::ostream& out) {
    for (const auto& host : hosts) {
      json_spirit::Array reasons;
      (void)json_spirit::object_get(host, "reasons", reasons);
      for (const json_spirit::Value& reason : reasons)
        out << "  " << one_line(text_member(host, "host")) << ": " << one_line(reason.get_str()) << "\n";
    }
  }

  [[nodiscard]] json_spirit::Array database_names() const {
    return json_spirit::Array(request_.databases.begin(), request_.databases.end());
  }

  std::string subject_text_;
  std::string pool_;
  std::string host_;
  bool detach_ = false;
  Backup_Request request_;
};

}  // namespace

std::unique_ptr<Verb> make_backup_verb() { return std::make_unique<Backup_Verb>(); }

}  // namespace dorsal3
