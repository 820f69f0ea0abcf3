#include "backupd/restore/restore_plan_json.h"

#include <algorithm>

#include "records/log_positions.h"

namespace backupd {

namespace {

json_spirit::Object object_json(const Plan_Set& set, const Plan_Object& object, const Found_Objects& found) {
  json_spirit::Object json{{"name", object.name},
                           {"ebid", object.ebid},
                           {"path", object.path},
                           {"size", object.size},
                           {"stored_size", object.stored_size}};
  const auto looked = found.find({set.pool_uuid, object.path});
  const bool known = looked != found.end();
  json["state"] = to_text(known ? looked->second.state : Pool_Inspector::State::unknown);
  if (known && looked->second.state == Pool_Inspector::State::wrong_size)
    json["found_size"] = looked->second.found_size;
  return json;
}

json_spirit::Object row_json(const Plan_Row& row, const Found_Objects& found,
                             const std::map<std::string, std::string>& pool_names) {
  const Plan_Set& set = *row.set;
  const auto pool = pool_names.find(set.pool_uuid);
  json_spirit::Array objects;
  std::int64_t size = 0;
  std::int64_t stored = 0;
  for (const Plan_Object* object : row.objects) {
    objects.emplace_back(object_json(set, *object, found));
    size += object->size;
    stored += object->stored_size;
  }
  json_spirit::Object json{{"uuid", set.uuid},
                           {"type", set.type},
                           {"database_backup_id", set.backup_id},
                           {"first_time", set.first_time},
                           {"last_time", set.last_time},
                           {"pool_uuid", set.pool_uuid},
                           {"pool", pool == pool_names.end() ? std::string() : pool->second}};
  if (row.log != nullptr) {
    json["volume"] = row.log->volume;
    json["partition"] = row.log->partition;
    json["first_position"] = row.log->first;
    json["last_position"] = row.log->last;
  }
  json["size"] = size;
  json["stored_size"] = stored;
  json["objects"] = std::move(objects);
  return json;
}

json_spirit::Array remarks_json(const std::vector<Plan_Remark>& remarks) {
  json_spirit::Array rows;
  for (const Plan_Remark& remark : remarks) {
    json_spirit::Object row = remark.details;
    json_spirit::Object json{{"code", remark.code}, {"message", remark.message}};
    for (const auto& [key, value] : row) json[key] = value;
    rows.emplace_back(std::move(json));
  }
  return rows;
}

json_spirit::Object point_json(const Recoverable& point) {
  json_spirit::Object json{{"time", point.time}};
  if (!point.set.empty()) json["set"] = point.set;
  return json;
}

std::vector<const Plan_Object*> all_of(const Plan_Set& set) {
  std::vector<const Plan_Object*> objects;
  for (const Plan_Object& object : set.objects) objects.push_back(&object);
  return objects;
}

/// The object that holds the catalog; the first one where none is called so.
std::vector<const Plan_Object*> catalog_of(const Plan_Set& set) {
  const auto found = std::find_if(set.objects.begin(), set.objects.end(),
                                  [](const Plan_Object& object) { return is_catalog_name(object.name); });
  if (found != set.objects.end()) return {&*found};
  return set.objects.empty() ? std::vector<const Plan_Object*>() : std::vector{&set.objects.front()};
}

}  // namespace

std::vector<Plan_Row> rows_of(const Restore_Plan& plan) {
  std::vector<Plan_Row> rows;
  if (plan.full != nullptr) rows.push_back({plan.full, nullptr, false, all_of(*plan.full)});
  for (const Plan_Set* set : plan.deltas) rows.push_back({set, nullptr, false, all_of(*set)});
  for (const Plan_Log& log : plan.logs) rows.push_back({log.set, &log, false, {log.object}});
  if (plan.catalog != nullptr) rows.push_back({plan.catalog, nullptr, true, catalog_of(*plan.catalog)});
  return rows;
}

void add_to_json(const Restore_Plan& plan, const Found_Objects& found,
                 const std::map<std::string, std::string>& pool_names, json_spirit::Object& result) {
  json_spirit::Array sets;
  std::int64_t objects = 0;
  std::int64_t size = 0;
  std::int64_t stored = 0;
  for (const Plan_Row& row : rows_of(plan)) {
    for (const Plan_Object* object : row.objects) {
      ++objects;
      size += object->size;
      stored += object->stored_size;
    }
    json_spirit::Object json = row_json(row, found, pool_names);
    if (row.catalog) {
      json["staged"] = plan.staged;
      result["catalog"] = std::move(json);
    } else {
      sets.emplace_back(std::move(json));
    }
  }
  result["sets"] = std::move(sets);
  result["totals"] = json_spirit::Object{{"objects", objects}, {"size", size}, {"stored_size", stored}};
  result["refusals"] = remarks_json(plan.refusals);
  result["notes"] = remarks_json(plan.notes);
  if (plan.before) result["before"] = point_json(*plan.before);
  if (plan.after) result["after"] = point_json(*plan.after);
}

}  // namespace backupd
