#include <CLI/CLI.hpp>

#include <set>

#include "dorsal3/chains/chains.h"
#include "dorsal3/chains/chains_text.h"
#include "dorsal3/chains/set_list.h"
#include "dorsal3/log_backup/log_chain_text.h"
#include "dorsal3/log_backup/log_report.h"
#include "dorsal3/server/resources.h"
#include "dorsal3/terminal/format.h"
#include "dorsal3/verb.h"

namespace dorsal3 {

namespace {

/// Of each kind; years of incremental backups every four hours.
constexpr std::uint64_t default_set_limit = 10000;

/// Instances with their databases and the chains of their backup sets.
class Info_Verb : public Verb {
 public:
  CLI::App* declare(CLI::App& app) override {
    CLI::App* sub = app.add_subcommand("info", "Show instances, their databases and the chains of their backup sets");
    sub->add_option("INSTANCE[/DATABASE]", subject_text_,
                    "Show this instance (its name or uuid), or this database, only");
    sub->add_option("--limit", limit_, "How many sets of each kind to show, the newest ones")
        ->check(CLI::PositiveNumber)
        ->capture_default_str();
    sub->add_flag("--logs", logs_, "Show the chain of log positions since the newest full backup instead");
    return sub;
  }

  Outcome run(Context& context) override {
    Failure failure;
    if (logs_) return show_logs(context);
    std::vector<Resource> resources;
    if (!choose_resources(context, resources, failure)) return Outcome::failed(std::move(failure));
    read_pool_names(context);
    json_spirit::Array instances;
    for (const Resource& resource : resources) {
      json_spirit::Object row{{"name", resource.name}, {"type", resource.type}, {"uuid", resource.uuid}};
      if (!add_instance(context, resource, row, failure)) return Outcome::failed(std::move(failure));
      instances.push_back(std::move(row));
    }
    Outcome outcome;
    outcome.model["instances"] = std::move(instances);
    return outcome;
  }

  void print(const json_spirit::Object& model, std::ostream& out) const override {
    if (logs_) {
      for (const auto& database : object_rows(model, "databases")) print_log_chain(database, out);
      return;
    }
    const auto instances = object_rows(model, "instances");
    if (instances.empty()) out << "No instance is registered. Run: dorsal3 discover\n";
    for (const auto& instance : instances) print_instance(instance, out);
  }

 private:
  Outcome show_logs(Context& context) {
    Failure failure{exit_usage, "usage", "--logs needs an instance or a database of one: INSTANCE[/DATABASE]"};
    if (subject_text_.empty() || !parse_subject(subject_text_, subject_, failure))
      return Outcome::failed(std::move(failure));
    return report_logs(context, subject_);
  }

  bool choose_resources(Context& context, std::vector<Resource>& resources, Failure& failure) {
    if (subject_text_.empty()) return list_resources(context.server, resources, failure);
    resources.resize(1);
    return parse_subject(subject_text_, subject_, failure) &&
           find_resource(context.server, subject_.instance, resources.front(), failure);
  }

  /// Without names the uuids of the pools must do.
  void read_pool_names(Context& context) {
    std::vector<json_spirit::Object> pools;
    Failure failure;
    if (!context.server.get_rows("/pools", pools, failure)) return;
    for (const auto& pool : pools) pool_names_[text_member(pool, "uuid")] = text_member(pool, "name");
  }

  bool add_instance(Context& context, const Resource& resource, json_spirit::Object& row, Failure& failure) const {
    Set_List list;
    if (!read_data_sets(context.server, resource.uuid, subject_.database, limit_, list, failure)) return false;
    std::vector<json_spirit::Object> databases = listed_databases(context, resource, row);
    add_unlisted(list, databases);
    if (!subject_.database.empty() && databases.empty()) {
      failure = {exit_not_found, "not_found",
                 "instance \"" + resource.name + "\" has no database \"" + subject_.database +
                     "\" and no backup set of one; see: dorsal3 info " + resource.name};
      return false;
    }
    const auto names = short_ids(ids_of(list));
    for (auto& database : databases) {
      add_chains(list, names, database);
      if (!add_counts(context, resource, database, failure)) return false;
    }
    row["databases"] = to_array(databases);
    json_spirit::Object left_out;
    for (const auto& [kind, count] : list.left_out) left_out[kind] = count;
    row["left_out"] = std::move(left_out);
    row["sets"] = to_array(list.sets);
    return true;
  }

  /// The sets are worth showing while the agent is away: then the reason stands in place of the databases.
  [[nodiscard]] std::vector<json_spirit::Object> listed_databases(Context& context, const Resource& resource,
                                                                  json_spirit::Object& row) const {
    std::vector<json_spirit::Object> databases;
    Failure failure;
    if (!list_databases(context.server, resource, databases, failure)) row["databases_error"] = failure.message;
    std::erase_if(databases, [this](const json_spirit::Object& database) {
      return !subject_.database.empty() && text_member(database, "name") != subject_.database;
    });
    for (auto& database : databases) database["listed"] = true;
    return databases;
  }

  /// A database that the instance does not list, or not now, may have sets all the same.
  static void add_unlisted(const Set_List& list, std::vector<json_spirit::Object>& databases) {
    std::set<std::string> known;
    for (const auto& database : databases) known.insert(text_member(database, "name"));
    for (const auto& set : list.sets)
      if (const std::string name = text_member(set, "database"); known.insert(name).second)
        databases.push_back({{"name", name}, {"listed", false}});
  }

  static std::vector<std::string> ids_of(const Set_List& list) {
    std::vector<std::string> ids;
    for (const auto& set : list.sets) {
      ids.push_back(text_member(set, "uuid"));
      ids.push_back(text_member(set, "lifeline"));
    }
    return ids;
  }

  void add_chains(const Set_List& list, const std::map<std::string, std::string>& names,
                  json_spirit::Object& database) const {
    Chain_Source source{{}, &list, pool_names_, names};
    for (const auto& set : list.sets)
      if (text_member(set, "database") == text_member(database, "name")) source.sets.push_back(&set);
    for (const auto& [key, value] : database_chains(source)) database[key] = value;
  }

  static bool add_counts(Context& context, const Resource& resource, json_spirit::Object& database, Failure& failure) {
    const std::string name = text_member(database, "name");
    std::uint64_t logs = 0;
    std::uint64_t catalogs = 0;
    if (!count_sets(context.server, resource.uuid, name, kind_log, logs, failure) ||
        !count_sets(context.server, resource.uuid, name, kind_catalog, catalogs, failure))
      return false;
    database["log_sets"] = logs;
    database["catalog_sets"] = catalogs;
    return true;
  }

  static void print_instance(const json_spirit::Object& instance, std::ostream& out) {
    out << "instance " << one_line(text_member(instance, "name")) << " (" << one_line(text_member(instance, "type"))
        << ")\n";
    const std::string error = one_line(text_member(instance, "databases_error"));
    if (!error.empty()) out << "  databases: not known: " << error << "\n";
    json_spirit::Object left_out;
    (void)json_spirit::object_get(instance, "left_out", left_out);
    for (const auto& [kind, count] : left_out)
      out << "  " << json_spirit::dump_json_for_log(count) << " older " << one_line(kind)
          << " sets are left out; --limit shows more\n";
    for (const auto& database : object_rows(instance, "databases")) {
      out << "  database " << one_line(text_member(database, "name")) << state_of(database, error.empty()) << "\n";
      print_chains(database, out);
    }
  }

  static std::string state_of(const json_spirit::Object& database, bool list_is_known) {
    if (flag_member(database, "listed")) return flag_member(database, "active") ? " (active)" : " (not active)";
    return list_is_known ? " (not in the instance's list)" : "";
  }

  std::string subject_text_;
  Backup_Subject subject_;
  bool logs_ = false;
  std::uint64_t limit_ = default_set_limit;
  std::map<std::string, std::string> pool_names_;
};

}  // namespace

std::unique_ptr<Verb> make_info_verb() { return std::make_unique<Info_Verb>(); }

}  // namespace dorsal3
