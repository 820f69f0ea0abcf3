#include <CLI/CLI.hpp>

#include "dorsal3/server/resources.h"
#include "dorsal3/terminal/format.h"
#include "dorsal3/verb.h"

namespace dorsal3 {

namespace {

/// Lists the storage pools, or makes one.
class Pools_Verb : public Verb {
 public:
  CLI::App* declare(CLI::App& app) override {
    CLI::App* sub = app.add_subcommand("pools", "List the storage pools, or make one with --add");
    sub->add_option("--add", name_, "Name of the pool to make");
    auto* directory =
        sub->add_option("--directory", directory_, "Directory on the server's host, served by the server");
    auto* url = sub->add_option("--url", url_, "file:///directory that the database's host writes to itself");
    directory->excludes(url);
    return sub;
  }

  Outcome run(Context& context) override {
    if (name_.empty() && (!directory_.empty() || !url_.empty()))
      return Outcome::failed({exit_usage, "usage", "--directory and --url belong to --add NAME"});
    if (!name_.empty() && directory_.empty() && url_.empty())
      return Outcome::failed({exit_usage, "usage", "a new pool needs --directory or --url"});
    return name_.empty() ? list(context) : add(context);
  }

  void print(const json_spirit::Object& model, std::ostream& out) const override {
    const auto pools = object_rows(model, "pools");
    if (pools.empty()) {
      out << "There is no pool yet. Make one: dorsal3 pools --add NAME --directory DIRECTORY\n";
      return;
    }
    Text_Table table({"POOL", "UUID", "PLACE"});
    for (const auto& pool : pools) {
      const std::string directory = text_member(pool, "directory");
      table.add({one_line(text_member(pool, "name")), one_line(text_member(pool, "uuid")),
                 one_line(directory.empty() ? text_member(pool, "url") : directory + " (on the server)")});
    }
    out << table.text();
  }

 private:
  Outcome list(Context& context) const {
    std::vector<json_spirit::Object> rows;
    Failure failure;
    if (!context.server.get_rows("/pools", rows, failure)) return Outcome::failed(std::move(failure));
    Outcome outcome;
    outcome.model["pools"] = to_array(rows);
    return outcome;
  }

  Outcome add(Context& context) const {
    json_spirit::Object body{{"name", name_}};
    if (!url_.empty()) body["url"] = url_;
    if (!directory_.empty()) body["directory"] = directory_;
    json_spirit::Object answer;
    Failure failure;
    if (!context.server.post("/pools", body, answer, failure)) return Outcome::failed(std::move(failure));
    Outcome outcome;
    outcome.model["pools"] = json_spirit::Array{answer};
    return outcome;
  }

  std::string name_;
  std::string directory_;
  std::string url_;
};

}  // namespace

std::unique_ptr<Verb> make_pools_verb() { return std::make_unique<Pools_Verb>(); }

}  // namespace dorsal3
