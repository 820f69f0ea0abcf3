#include "dorsal3/log_backup/log_report.h"

#include <algorithm>

#include "dorsal3/chains/chains.h"
#include "dorsal3/chains/set_list.h"
#include "dorsal3/log_backup/log_chain.h"

namespace dorsal3 {

namespace {

/// Of each kind: the newest full backup that is still on its pool is among them, unless a pool was lost.
constexpr std::uint64_t data_set_limit = 1000;

bool database_names(Context& context, const Resource& resource, const Backup_Subject& subject,
                    std::vector<std::string>& names, Failure& failure) {
  if (!subject.database.empty()) {
    names.push_back(subject.database);
    return true;
  }
  std::vector<json_spirit::Object> databases;
  if (!list_databases(context.server, resource, databases, failure)) {
    failure.message += "; name one database to see its logs without the agent: " + resource.name + "/DATABASE";
    return false;
  }
  for (const auto& database : databases) names.push_back(text_member(database, "name"));
  return true;
}

std::map<std::string, std::string> names_of(const Log_Chain_Source& source) {
  std::vector<std::string> ids;
  for (const auto* sets : {&source.data_sets, &source.log_sets})
    for (const auto& set : *sets)
      for (const char* key : {"uuid", "lifeline"}) ids.push_back(text_member(set, key));
  return short_ids(ids);
}

/// A database without any set may be new; one that the instance does not list either was mistyped. While the agent is
/// away there is no telling.
bool may_exist(Context& context, const Resource& resource, const std::string& name, Failure& failure) {
  std::vector<json_spirit::Object> databases;
  Failure not_listed;
  if (!list_databases(context.server, resource, databases, not_listed)) return true;
  if (std::any_of(databases.begin(), databases.end(),
                  [&](const auto& database) { return text_member(database, "name") == name; }))
    return true;
  failure = {exit_not_found, "not_found",
             "instance \"" + resource.name + "\" has no database \"" + name +
                 "\" and no backup set of one; see: dorsal3 info " + resource.name};
  return false;
}

bool read_chain(Context& context, const Resource& resource, const std::string& name, json_spirit::Object& database,
                Failure& failure) {
  Log_Chain_Source source;
  Set_List list;
  if (!read_data_sets(context.server, resource.uuid, name, data_set_limit, list, failure)) return false;
  source.data_sets = std::move(list.sets);
  const json_spirit::Object* full = newest_full(source.data_sets);
  const std::uint64_t since = full == nullptr ? 0 : number_member(*full, "database_backup_id");
  if (!read_log_sets(context.server, resource.uuid, name, since, source.log_sets, failure)) return false;
  if (source.data_sets.empty() && source.log_sets.empty() && !may_exist(context, resource, name, failure)) return false;
  // What waits explains the end of a chain, and the chain can be told without it.
  Failure no_queue;
  (void)context.server.get_rows(
      "/backint/ondemand-runs?" + query_pair("sid", resource.system_id()) + "&" + query_pair("database", name),
      source.waiting_runs, no_queue);
  source.short_ids = names_of(source);
  database = log_chain(source);
  database["name"] = name;
  return true;
}

}  // namespace

Outcome report_logs(Context& context, const Backup_Subject& subject) {
  Failure failure;
  Resource resource;
  std::vector<std::string> names;
  if (!find_resource(context.server, subject.instance, resource, failure) ||
      !database_names(context, resource, subject, names, failure))
    return Outcome::failed(std::move(failure));
  Outcome outcome;
  json_spirit::Array databases;
  for (const std::string& name : names) {
    json_spirit::Object database;
    if (!read_chain(context, resource, name, database, failure)) return Outcome::failed(std::move(failure));
    if (text_member(database, "state") != "complete") outcome.exit_code = exit_gap;
    databases.emplace_back(std::move(database));
  }
  outcome.model = {{"instance", resource.name}, {"databases", std::move(databases)}};
  return outcome;
}

}  // namespace dorsal3
