#include "backupd/restore/restore_planning.h"

#include <algorithm>
#include <map>

#include "backupd/http/body_reader.h"
#include "backupd/jobs/definition_check.h"
#include "backupd/log_backup/ondemand_rows.h"
#include "backupd/restore/restore_plan_json.h"
#include "platform/clock.h"
#include "records/recovery_statement.h"
#include "scrt/time_text.h"

namespace backupd {

namespace {

Outcome refuse(std::string message) { return Outcome::refuse(Outcome::invalid, std::move(message)); }

std::string statement_of(const Restore_Plan& plan, const Restore_Wish& wish, const Restore_System& source,
                         const Restore_System& target, const std::string& database) {
  Recovery_Statement statement;
  statement.origin_database = wish.database;
  statement.origin_sid = source.sid;
  statement.target_database = database;
  statement.target_sid = target.sid;
  statement.set_uuid = plan.full_only ? wish.set : std::string();
  statement.backup_id = static_cast<std::uint64_t>(plan.full->backup_id);
  statement.time = plan.time;
  statement.full_only = plan.full_only;
  statement.tenant = !target.is_system_database(database);
  statement.multi_container = target.multi_container;
  statement.ancient = target.is_ancient();
  statement.ignore_delta = wish.ignore_delta;
  return statement.text();
}

}  // namespace

struct Restore_Planning::Wish {
  Restore_Wish restore;
  Restore_System source;
  Restore_System target;
  std::string target_database;
  std::optional<Plan_Remark> no_host;  ///< why no host of the target can restore

  [[nodiscard]] bool is_in_place() const {
    return source.resource_uuid == target.resource_uuid && restore.database == target_database;
  }
  [[nodiscard]] json_spirit::Object target_json() const {
    const bool system = target.is_system_database(target_database);
    json_spirit::Array others;
    for (const Restore_System::Host* host : target.others_to_restart(target_database))
      others.emplace_back(json_spirit::Object{{"host_uuid", host->uuid}, {"host", host->name}});
    return {{"resource_uuid", target.resource_uuid},
            {"name", target.name},
            {"instance_name", target.instance_name},
            {"sid", target.sid},
            {"database", target_database},
            {"version", target.version},
            {"host_uuid", target.host_uuid},
            {"host", target.host_name},
            {"other_hosts", std::move(others)},
            {"connected", target.connected},
            {"multi_container", target.multi_container},
            {"system_database", system},
            {"in_place", is_in_place()},
            {"stops", system ? "instance" : "database"}};
  }
};

struct Restore_Planning::Looks {
  Found_Objects found;
  std::map<std::string, Outcome> failed;  ///< by the pool's uuid: why nobody could look at it
};

Outcome Restore_Planning::read(const json_spirit::Object& body, Wish& wish) {
  json_spirit::Object target;
  std::string target_resource;
  std::string target_host;
  Restore_Wish& restore = wish.restore;
  Body_Reader reader(body, "the wish to restore");
  reader.uuid("resource_uuid", restore.resource_uuid, Need::required);
  reader.text("database", restore.database, Need::required);
  reader.text("time", restore.time);
  reader.uuid("set", restore.set);
  reader.uuid("lifeline", restore.lifeline);
  reader.flag("ignore_delta", restore.ignore_delta);
  reader.object("target", target);
  if (Outcome outcome = reader.finish(); !outcome.ok()) return outcome;
  Body_Reader target_reader(target, "the \"target\"");
  target_reader.uuid("resource_uuid", target_resource);
  target_reader.text("database", wish.target_database);
  target_reader.uuid("host_uuid", target_host);
  if (Outcome outcome = target_reader.finish(); !outcome.ok()) return outcome;
  if (restore.time.empty() == restore.set.empty())
    return Outcome::refuse(Outcome::bad_request, "name either a \"time\" or a \"set\" to restore to");
  if (!restore.time.empty() && !is_utc_time(restore.time))
    return refuse("the \"time\" does not read YYYY-MM-DD HH:MM:SS (UTC)");
  if (wish.target_database.empty()) wish.target_database = restore.database;
  for (const std::string* name : {&restore.database, &wish.target_database})
    if (!is_database_name(*name)) return refuse("\"" + *name + "\" is no plain name of a database");
  if (target_resource.empty()) target_resource = restore.resource_uuid;
  if (Outcome outcome = wish.source.load(resources_, agents_, restore.resource_uuid); !outcome.ok()) return outcome;
  if (Outcome outcome = wish.target.load(resources_, agents_, target_resource); !outcome.ok()) return outcome;
  if (!target_host.empty() && !wish.target.has_host(target_host))
    return refuse("the host " + target_host + " is none of " + wish.target.name + "; name one of its hosts");
  wish.no_host = wish.target.choose_host(agents_, target_host, wish.target_database);
  restore.ancient = wish.target.is_ancient();
  restore.copy = !wish.is_in_place();
  restore.now = posix_time_to_utc_text(platform::Clock::current().wall_seconds());
  return {};
}

void Restore_Planning::check_target(const Wish& wish, Restore_Plan& plan) const {
  // What the agents have just said of the target is newer than the record of the same system as a source.
  const Restore_System& source = wish.source.resource_uuid == wish.target.resource_uuid ? wish.target : wish.source;
  const bool from_system = source.is_system_database(wish.restore.database);
  const bool into_system = wish.target.is_system_database(wish.target_database);
  // A single container may become a tenant, and nothing else changes its kind.
  const bool fits = source.multi_container ? wish.target.multi_container && from_system == into_system
                                           : !wish.target.multi_container || !into_system;
  if (!fits)
    plan.refusals.push_back({refusal::target_unfit,
                             "a system database goes into a system database only, a tenant into a tenant, and a "
                             "system without tenants into such a system or a tenant: " +
                                 wish.source.name + "/" + wish.restore.database + " cannot become " + wish.target.name +
                                 "/" + wish.target_database +
                                 "; run dorsal3 discover where one of them was converted since it was discovered",
                             {}});
  // The statement follows from it, and the module takes an unknown version for an old one.
  if (wish.target.version.empty())
    plan.refusals.push_back({refusal::version_unknown,
                             "which version of HANA " + wish.target.name +
                                 " runs is not known, and the statement depends on it; run: dorsal3 discover",
                             {{"host_uuid", wish.target.host_uuid}}});
  if (wish.no_host) return plan.refusals.push_back(*wish.no_host);
  if (!wish.target.connected)
    plan.refusals.push_back(
        {refusal::agent_away,
         "the agent of the host of " + wish.target.name + " is not connected (" + wish.target.host_uuid + "); start it",
         {{"host_uuid", wish.target.host_uuid}}});
}

bool Restore_Planning::can_be_had(const Wish& wish, const Recoverable& point, Looks& looks) {
  Restore_Wish other = wish.restore;
  other.time = point.set.empty() ? point.time : std::string();
  other.set = point.set;
  Restore_History history;
  if (!history.load(database_, other).ok()) return false;
  // Its own nearest times are of no interest here.
  history.question.can_be_had = [](const Recoverable&) { return false; };
  Restore_Plan plan = plan_restore(history.question);
  if (!plan.ok()) return false;
  json_spirit::Object unused;
  look_at_objects(wish.target, plan, looks, unused);
  return std::all_of(plan.refusals.begin(), plan.refusals.end(),
                     [](const Plan_Remark& remark) { return remark.code == refusal::pool_unknown; });
}

Outcome Restore_Planning::plan(const json_spirit::Object& body, json_spirit::Object& result) {
  Wish wish;
  if (Outcome outcome = read(body, wish); !outcome.ok()) return outcome;
  Restore_History history;
  if (Outcome outcome = history.load(database_, wish.restore); !outcome.ok()) return outcome;
  List_Query waiting;
  List_Page page;
  waiting.where("sid", wish.source.sid);
  waiting.where("database_name", wish.restore.database);
  if (!list_ondemand_runs(database_, waiting, Given_Up::shown, page))
    return Outcome::refuse(Outcome::internal, "the queue of log backups cannot be read now; see the server's log");
  history.question.waiting_logs = static_cast<std::size_t>(page.total);
  Looks looks;
  history.question.can_be_had = [&](const Recoverable& point) { return can_be_had(wish, point, looks); };
  Restore_Plan plan = plan_restore(history.question);
  check_target(wish, plan);
  result = {{"resource_uuid", wish.restore.resource_uuid},
            {"name", wish.source.name},
            {"sid", wish.source.sid},
            {"database", wish.restore.database},
            {"kind", plan.full_only ? "full" : "point-in-time"},
            {"time", plan.time},
            {"set", wish.restore.set},
            {"ignore_delta", wish.restore.ignore_delta},
            {"lifeline", plan.lifeline},
            {"target", wish.target_json()}};
  if (plan.full != nullptr)
    result["statement"] = statement_of(plan, wish.restore, wish.source, wish.target, wish.target_database);
  look_at_objects(wish.target, plan, looks, result);
  result["ok"] = plan.ok();
  return {};
}

namespace {

/// One refusal for each set, however many of its objects are gone.
void refuse_missing(const Plan_Row& row, const Found_Objects& found, const std::string& pool, Restore_Plan& plan) {
  json_spirit::Array missing;
  json_spirit::Array wrong;
  for (const Plan_Object* object : row.objects) {
    const auto looked = found.find({row.set->pool_uuid, object->path});
    if (looked == found.end()) continue;
    if (looked->second.state == Pool_Inspector::State::missing) missing.emplace_back(object->name);
    if (looked->second.state == Pool_Inspector::State::wrong_size) wrong.emplace_back(object->name);
  }
  const auto refuse = [&](const char* code, const json_spirit::Array& names, const char* what) {
    if (names.empty()) return;
    std::string message = "the object " + names.front().get_str() +
                          (names.size() == 1 ? "" : " and " + std::to_string(names.size() - 1) + " more") + " of " +
                          set_label(*row.set) + " " + what + " the pool " + pool;
    if (row.set->is_delta())
      message += "; leave the deltas out (ignore_delta): logs from the full backup on take its place";
    plan.refusals.push_back({code, std::move(message), {{"set", row.set->uuid}, {"objects", names}}});
  };
  refuse(refusal::object_missing, missing, "is missing from");
  refuse(refusal::object_size, wrong, "has another size than it was stored with on");
}

}  // namespace

Outcome Restore_Planning::look(const Restore_System& target, const std::string& pool,
                               std::vector<Pool_Inspector::Object> objects, Looks& looks) {
  std::erase_if(objects, [&](const auto& object) { return looks.found.contains({pool, object.path}); });
  if (objects.empty()) return {};
  if (const auto failed = looks.failed.find(pool); failed != looks.failed.end()) return failed->second;
  Outcome outcome = inspector_.look(pool, target.host_uuid, objects);
  if (!outcome.ok()) looks.failed.emplace(pool, outcome);
  if (outcome.ok())
    for (const Pool_Inspector::Object& object : objects) looks.found[{pool, object.path}] = object;
  return outcome;
}

void Restore_Planning::look_at_objects(const Restore_System& target, Restore_Plan& plan, Looks& looks,
                                       json_spirit::Object& result) {
  std::map<std::string, std::vector<Pool_Inspector::Object>> by_pool;
  const std::vector<Plan_Row> rows = rows_of(plan);
  for (const Plan_Row& row : rows)
    if (!row.set->pool_uuid.empty())
      for (const Plan_Object* object : row.objects)
        by_pool[row.set->pool_uuid].push_back({object->path, object->stored_size});
  std::map<std::string, std::string> names;
  for (const auto& [uuid, objects] : by_pool) {
    std::optional<Pool> pool;
    names[uuid] = pools_.find(uuid, pool) && pool ? pool->name : uuid;
    if (const Outcome outcome = look(target, uuid, objects, looks); !outcome.ok())
      plan.refusals.push_back({refusal::pool_unknown,
                               "nobody could look at the pool " + names[uuid] + ": " + outcome.message,
                               {{"pool_uuid", uuid}}});
  }
  for (const Plan_Row& row : rows) refuse_missing(row, looks.found, names[row.set->pool_uuid], plan);
  add_to_json(plan, looks.found, names, result);
}

}  // namespace backupd
