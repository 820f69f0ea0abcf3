#include <map>

#include <CLI/CLI.hpp>

#include "dorsal3/jobs/job_view.h"
#include "dorsal3/jobs/prefix_search.h"
#include "dorsal3/server/resources.h"
#include "dorsal3/terminal/format.h"
#include "dorsal3/verb.h"

namespace dorsal3 {

namespace {

constexpr unsigned default_limit = 20;
constexpr const char* kind_member = "kind";
constexpr std::size_t databases_shown = 3;

/// What runs do, as the command line and the server name it.
const std::map<std::string, std::string>& kinds() {
  static const std::map<std::string, std::string> names{
      {"backup", "data backup"}, {"log", "log backup"}, {"restore", "restore"}};
  return names;
}

/// "TN1, TN2", the first of them when there are many.
std::string databases_text(const json_spirit::Object& run) {
  const auto databases = object_rows(run, "databases");
  std::string text;
  for (std::size_t i = 0; i < databases.size() && i < databases_shown; ++i)
    text += (i == 0 ? "" : ", ") + one_line(text_member(databases[i], "name"));
  return databases.size() <= databases_shown
             ? text
             : text + " and " + std::to_string(databases.size() - databases_shown) + " more";
}

/// Lists runs, newest first, or shows one with its log.
class Jobs_Verb : public Verb {
 public:
  CLI::App* declare(CLI::App& app) override {
    CLI::App* sub = app.add_subcommand("jobs", "List the runs of jobs, or show one with its log");
    sub->add_option("JOB", job_, "Id of the run to show, or its beginning");
    sub->add_option("--kind", kind_, "List runs of this kind only")->check(CLI::IsMember(kinds()));
    sub->add_option("--state", state_, "List runs in this state only, by its name: error, completed, running, ...");
    sub->add_option("--limit", limit_, "How many runs to list")->check(CLI::PositiveNumber);
    return sub;
  }

  Outcome run(Context& context) override {
    Failure failure;
    Outcome outcome;
    if (!job_.empty()) {
      json_spirit::Object job;
      if (!find_run(context.server, job_, job, failure)) return Outcome::failed(std::move(failure));
      outcome.model["job"] = std::move(job);
      return outcome;
    }
    std::vector<json_spirit::Object> rows;
    if (!context.server.get_rows("/jobs?order=desc&limit=" + std::to_string(limit_) + filters(), rows, failure))
      return Outcome::failed(std::move(failure));
    outcome.model["jobs"] = to_array(rows);
    return outcome;
  }

  void print(const json_spirit::Object& model, std::ostream& out) const override {
    json_spirit::Object job;
    if (json_spirit::object_get(model, "job", job)) {
      print_one(job, out);
      return;
    }
    const auto jobs = object_rows(model, "jobs");
    if (jobs.empty()) {
      out << (filters().empty() ? "No job has run yet.\n" : "There is no such run.\n");
      return;
    }
    Text_Table table({"JOB", "KIND", "NAME", "DATABASES", "STATE", "DONE", "SIZE", "START (UTC)", "MESSAGE"});
    for (const auto& row : jobs)
      table.add({one_line(text_member(row, "id")), one_line(text_member(row, kind_member)),
                 one_line(text_member(row, "name")), databases_text(row), one_line(text_member(row, "state_name")),
                 text_member(row, "progress") + "%", format_bytes(bytes_done(row)),
                 one_line(text_member(row, "start_time")), one_line(text_member(row, "message"))});
    out << table.text();
  }

 private:
  [[nodiscard]] std::string filters() const {
    std::string text;
    if (!kind_.empty()) text += '&' + query_pair("kind", kinds().at(kind_));
    if (!state_.empty()) text += '&' + query_pair("state", state_);
    return text;
  }

  static void print_one(const json_spirit::Object& job, std::ostream& out) {
    out << "job       " << one_line(text_member(job, "id")) << "\n"
        << "kind      " << one_line(text_member(job, kind_member)) << "\n"
        << "name      " << one_line(text_member(job, "name")) << "\n"
        << "host      " << one_line(text_member(job, "host_uuid")) << "\n"
        << "state     " << one_line(text_member(job, "state_name")) << "\n"
        << "done      " << text_member(job, "progress") << "%, " << format_bytes(bytes_done(job)) << "\n"
        << "started   " << one_line(text_member(job, "start_time")) << " UTC\n";
    const std::string message = one_line(text_member(job, "message"));
    if (!message.empty()) out << "message   " << message << "\n";
    print_other_run("follows   ", "follows", job, out);
    print_other_run("followed  ", "followed_by", job, out);
    for (const auto& database : object_rows(job, "databases")) {
      out << "database  " << one_line(text_member(database, "name")) << ": " << one_line(text_member(database, "kind"));
      const std::string lifted = lift_text(text_member(database, "requested"), text_member(database, "lift_reason"));
      out << (lifted.empty() ? "" : ", " + one_line(lifted)) << "\n";
    }
    for (const auto& line : object_rows(job, "log"))
      out << one_line(text_member(line, "time")) << "  " << one_line(text_member(line, "text")) << "\n";
  }

  static void print_other_run(const char* label, const char* key, const json_spirit::Object& job, std::ostream& out) {
    const std::string other = one_line(text_member(job, key));
    if (!other.empty()) out << label << other << "\n";
  }

  std::string job_;
  std::string kind_;
  std::string state_;
  unsigned limit_ = default_limit;
};

}  // namespace

std::unique_ptr<Verb> make_jobs_verb() { return std::make_unique<Jobs_Verb>(); }

}  // namespace dorsal3
