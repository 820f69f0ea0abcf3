#include <CLI/CLI.hpp>

#include "dorsal3/format.h"
#include "dorsal3/resources.h"
#include "dorsal3/verb.h"

namespace dorsal3 {

namespace {

/// Instances with their databases and backup sets.
class Info_Verb : public Verb {
 public:
  CLI::App* declare(CLI::App& app) override {
    CLI::App* sub = app.add_subcommand("info", "Show instances, their databases and backup sets");
    sub->add_option("INSTANCE", instance_, "Show this instance only");
    return sub;
  }

  Outcome run(Context& context) override {
    Failure failure;
    std::vector<Resource> resources;
    if (!choose_resources(context, resources, failure)) return Outcome::failed(std::move(failure));
    json_spirit::Array instances;
    for (const Resource& resource : resources) {
      json_spirit::Object row{{"name", resource.name}, {"type", resource.type}, {"uuid", resource.uuid}};
      add_databases(context, resource, row);
      std::vector<json_spirit::Object> sets;
      if (!context.server.get_rows("/sets?" + query_pair("resource_uuid", resource.uuid), sets, failure))
        return Outcome::failed(std::move(failure));
      row["sets"] = to_array(sets);
      instances.push_back(std::move(row));
    }
    Outcome outcome;
    outcome.model["instances"] = std::move(instances);
    return outcome;
  }

  void print(const json_spirit::Object& model, std::ostream& out) const override {
    const auto instances = object_rows(model, "instances");
    if (instances.empty()) out << "No instance is registered. Run: dorsal3 discover\n";
    for (const auto& instance : instances) {
      out << "instance " << one_line(text_member(instance, "name")) << " (" << one_line(text_member(instance, "type"))
          << ")\n";
      print_databases(instance, out);
      print_sets(instance, out);
    }
  }

 private:
  bool choose_resources(Context& context, std::vector<Resource>& resources, Failure& failure) const {
    if (instance_.empty()) return list_resources(context.server, resources, failure);
    resources.resize(1);
    return find_resource(context.server, instance_, resources.front(), failure);
  }

  /// The sets are worth showing while the agent is away: then the reason stands in place of the databases.
  static void add_databases(Context& context, const Resource& resource, json_spirit::Object& row) {
    std::vector<json_spirit::Object> databases;
    Failure failure;
    const bool listed = list_databases(context.server, resource, databases, failure);
    row["databases"] = to_array(databases);
    if (!listed) row["databases_error"] = failure.message;
  }

  static void print_databases(const json_spirit::Object& instance, std::ostream& out) {
    const std::string error = one_line(text_member(instance, "databases_error"));
    if (!error.empty()) out << "  databases: not known: " << error << "\n";
    for (const auto& database : object_rows(instance, "databases"))
      out << "  database " << one_line(text_member(database, "name"))
          << (flag_member(database, "active") ? " (active)" : " (not active)") << "\n";
  }

  static void print_sets(const json_spirit::Object& instance, std::ostream& out) {
    const auto sets = object_rows(instance, "sets");
    if (sets.empty()) {
      out << "  no backup set yet\n";
      return;
    }
    Text_Table table({"SET", "DATABASE", "TYPE", "START (UTC)", "SIZE", "STORED", "RATIO", "BACKUP ID", "LIFELINE"});
    for (const auto& set : sets) {
      const std::uint64_t source = number_member(set, "source_size");
      const std::uint64_t stored = stored_size(set);
      table.add({one_line(text_member(set, "uuid")), one_line(text_member(set, "database")),
                 one_line(text_member(set, "type")), one_line(text_member(set, "start_time")), format_bytes(source),
                 format_bytes(stored), format_ratio(source, stored), one_line(text_member(set, "database_backup_id")),
                 one_line(text_member(set, "lifeline"))});
    }
    out << table.text();
  }

  static std::uint64_t stored_size(const json_spirit::Object& set) {
    std::uint64_t stored = 0;
    for (const auto& file : object_rows(set, "files")) stored += number_member(file, "storage_size");
    return stored > 0 ? stored : number_member(set, "total_size");
  }

  std::string instance_;
};

}  // namespace

std::unique_ptr<Verb> make_info_verb() { return std::make_unique<Info_Verb>(); }

}  // namespace dorsal3
