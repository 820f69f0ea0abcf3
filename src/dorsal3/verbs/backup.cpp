#include <CLI/CLI.hpp>

#include "dorsal3/backup_definition.h"
#include "dorsal3/format.h"
#include "dorsal3/job_view.h"
#include "dorsal3/progress.h"
#include "dorsal3/received_bytes.h"
#include "dorsal3/resources.h"
#include "dorsal3/verb.h"
#include "platform/clock.h"

namespace dorsal3 {

namespace {

constexpr std::chrono::milliseconds poll_interval{500};
/// For so long the server may be away before the command stops watching; the backup itself goes on.
constexpr std::chrono::seconds server_away_limit{120};

/// Starts a backup and follows it to its end.
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
    sub->add_flag("--detach", detach_, "Start it and come back at once");
    return sub;
  }

  Outcome run(Context& context) override {
    Failure failure;
    std::string job;
    if (!prepare(context, failure) || !start(context, job, failure)) return Outcome::failed(std::move(failure));
    Outcome outcome;
    outcome.model = {{"instance", request_.resource.name}, {"job", job}, {"databases", database_names()}};
    if (detach_) {
      outcome.model["detached"] = true;
      return outcome;
    }
    json_spirit::Object record;
    if (!follow(context, job, record, failure)) return Outcome::failed(std::move(failure));
    if (!add_result(context, job, record, outcome, failure)) return Outcome::failed(std::move(failure));
    return outcome;
  }

  void print(const json_spirit::Object& model, std::ostream& out) const override {
    if (flag_member(model, "detached")) {
      out << "Started. Follow it with: dorsal3 jobs " << one_line(text_member(model, "job")) << "\n";
      return;
    }
    const auto sets = object_rows(model, "sets");
    if (!sets.empty()) {
      Text_Table table({"SET", "DATABASE", "TYPE", "SIZE", "LIFELINE"});
      for (const auto& set : sets)
        table.add({one_line(text_member(set, "uuid")), one_line(text_member(set, "database")),
                   one_line(text_member(set, "type")), format_bytes(number_member(set, "source_size")),
                   one_line(text_member(set, "lifeline"))});
      out << table.text();
    }
    out << one_line(text_member(model, "result")) << "\n";
    json_spirit::Array errors;
    json_spirit::object_get(model, "errors", errors);
    for (const json_spirit::Value& line : errors) out << "  " << line.get_str() << "\n";
  }

 private:
  bool prepare(Context& context, Failure& failure) {
    Backup_Subject subject;
    return parse_subject(subject_text_, subject, failure) &&
           find_resource(context.server, subject.instance, request_.resource, failure) &&
           choose_databases(context, subject, failure) && choose_pool(context, failure);
  }

  bool choose_databases(Context& context, const Backup_Subject& subject, Failure& failure) {
    if (!subject.database.empty()) {
      request_.databases = {subject.database};
      return true;
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

  bool choose_pool(Context& context, Failure& failure) {
    std::vector<json_spirit::Object> pools;
    if (!context.server.get_rows("/pools", pools, failure)) return false;
    std::string known;
    for (const auto& pool : pools) {
      const std::string name = text_member(pool, "name");
      if (name == pool_ || (pool_.empty() && pools.size() == 1)) {
        request_.pool = pool;
        return true;
      }
      known += (known.empty() ? "" : ", ") + name;
    }
    failure = {pool_.empty() ? exit_usage : exit_not_found, pool_.empty() ? "usage" : "not_found",
               known.empty() ? "there is no storage pool yet; make one: dorsal3 pools --add NAME --directory DIRECTORY"
               : pool_.empty() ? "there are several storage pools, choose one with --pool: " + known
                               : "there is no pool \"" + pool_ + "\"; there are: " + known};
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

  /// Watches until the run has ended. A server that is away for a while does not end the watching.
  bool follow(Context& context, const std::string& job, json_spirit::Object& record, Failure& failure) {
    platform::Clock& clock = platform::Clock::current();
    Progress_Tracker tracker;
    Received_Bytes received;
    std::ostream& to = context.json ? context.notes : context.out;
    Progress_Display display(to, context.terminal.output_is_terminal && !context.json, context.terminal.width);
    auto last_answer = clock.steady_now();
    while (true) {
      if (context.server.get("/jobs/" + job, record, failure)) {
        last_answer = clock.steady_now();
        tracker.add(sample(record, received.count(context.server, job), clock));
        display.show(tracker, request_.resource.name);
        if (has_ended(run_stage(record))) break;
      } else if (failure.exit_code != exit_unreachable || clock.steady_now() - last_answer > server_away_limit) {
        display.finish();
        failure.message += "; the backup goes on, follow it with: dorsal3 jobs " + job;
        return false;
      }
      if (interrupted()) {
        display.finish();
        failure = {exit_interrupted, "interrupted",
                   "stopped watching; the backup goes on, follow it with: dorsal3 jobs " + job};
        return false;
      }
      clock.sleep_for(poll_interval);
    }
    display.finish();
    return true;
  }

  static Progress_Sample sample(const json_spirit::Object& record, std::uint64_t received, platform::Clock& clock) {
    Progress_Sample sample;
    sample.when = clock.steady_now();
    sample.percent = static_cast<int>(number_member(record, "progress"));
    sample.bytes = std::max(bytes_done(record), received);
    return sample;
  }

  bool add_result(Context& context, const std::string& job, const json_spirit::Object& record, Outcome& outcome,
                  Failure& failure) {
    std::vector<json_spirit::Object> sets;
    if (!context.server.get_rows("/sets?" + query_pair("resource_uuid", request_.resource.uuid), sets, failure))
      return false;
    std::erase_if(sets, [&](const json_spirit::Object& set) { return text_member(set, "job_act_id") != job; });
    const Run_Stage stage = run_stage(record);
    outcome.model["state"] = text_member(record, "state_name");
    outcome.model["message"] = text_member(record, "message");
    outcome.model["sets"] = to_array(sets);
    outcome.model["result"] = ending_text(record);
    if (stage == Run_Stage::failed) outcome.model["errors"] = error_lines(record);
    outcome.exit_code = stage == Run_Stage::done ? exit_ok : exit_failed;
    return true;
  }

  [[nodiscard]] json_spirit::Array database_names() const {
    return json_spirit::Array(request_.databases.begin(), request_.databases.end());
  }

  std::string subject_text_;
  std::string pool_;
  bool detach_ = false;
  Backup_Request request_;
};

}  // namespace

std::unique_ptr<Verb> make_backup_verb() { return std::make_unique<Backup_Verb>(); }

}  // namespace dorsal3
