#include <CLI/CLI.hpp>

#include "dorsal3/server/resources.h"
#include "dorsal3/terminal/format.h"
#include "dorsal3/verb.h"

namespace dorsal3 {

namespace {

/// Lists the databases of an instance.
class Databases_Verb : public Verb {
 public:
  CLI::App* declare(CLI::App& app) override {
    CLI::App* sub =
        app.add_subcommand("databases", "List the databases of an instance and how their logs are backed up");
    sub->add_option("INSTANCE", instance_, "The instance, as discover lists it, or its uuid")->required();
    sub->add_option("--host", host_, "Ask this host first (its name or uuid), where the system has several");
    return sub;
  }

  Outcome run(Context& context) override {
    Failure failure;
    Resource resource;
    std::vector<json_spirit::Object> databases;
    if (!find_resource(context.server, instance_, host_, resource, failure) ||
        !choose_host(context.server, host_, resource, failure) ||
        !list_databases(context.server, resource, databases, failure))
      return Outcome::failed(std::move(failure));
    Outcome outcome;
    outcome.model = {{"instance", resource.name}, {"databases", to_array(databases)}};
    return outcome;
  }

  void print(const json_spirit::Object& model, std::ostream& out) const override {
    Text_Table table({"NAME", "OWNER", "OS_USER", "OS_GROUP", "ACTIVE", "LOG_BACKUP_MODE"});
    for (const auto& database : object_rows(model, "databases"))
      table.add({one_line(text_member(database, "name")), one_line(text_member(database, "owner")),
                 one_line(text_member(database, "os_user")), one_line(text_member(database, "os_group")),
                 flag_member(database, "active") ? "yes" : "no", one_line(text_member(database, "log_backup_mode"))});
    out << table.text();
  }

 private:
  std::string instance_;
  std::string host_;
};

}  // namespace

std::unique_ptr<Verb> make_databases_verb() { return std::make_unique<Databases_Verb>(); }

}  // namespace dorsal3
