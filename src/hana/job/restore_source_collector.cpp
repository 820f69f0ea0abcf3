#include "hana/job/restore_source_collector.h"

#include <algorithm>

#include "agent/backupd_client/catalog_operator.h"
#include "agent/backupd_client/get_pool_info.h"
#include "hana/common/resource_info_getter.h"
#include "platform/log.h"

namespace sap_hana {

namespace {

using json_spirit::object_require;

constexpr const char* module_name = "hana";
constexpr int default_retries = -1;

constexpr const char* type_full = "full";
constexpr const char* type_incremental = "incremental";
constexpr const char* type_differential = "differential";

/// The pool of the first storage that is no copy of another one: its upstream is there and null. Empty without one.
std::string primary_pool(const json_spirit::Array& storages) {
  for (const json_spirit::Value& storage : storages) {
    if (!storage.is_object()) continue;
    std::string pool;
    const json_spirit::Value* const upstream = storage.get_obj().find("upstream_pool_uuid");
    if (upstream != nullptr && upstream->is_null() && json_spirit::object_get(storage.get_obj(), "pool_uuid", pool))
      return pool;
  }
  return {};
}

bool get_pool(const std::string& uuid, Pool_Info& pool) {
  return !uuid.empty() && get_pool_info(uuid, nullptr, pool, true, 0, nullptr, true, nullptr, nullptr, false);
}

const json_spirit::Object* first_object(const json_spirit::Array& values) {
  const auto found =
      std::find_if(values.begin(), values.end(), [](const json_spirit::Value& value) { return value.is_object(); });
  return found == values.end() ? nullptr : &found->get_obj();
}

}  // namespace

Restore_Source_Collector::Restore_Source_Collector(const std::string& resource_uuid,
                                                   const Restore_Job_Source::Entry_Item& entry,
                                                   std::size_t max_seconds_retry, bool ignore_delta)
    : source_entry_(entry),
      resource_uuid_(resource_uuid),
      max_seconds_retry_(max_seconds_retry),
      ignore_delta_(ignore_delta) {}

bool Restore_Source_Collector::collect() {
  json_spirit::Object full;
  if (!read_entry(full) || !read_resource() || !find_full(full)) return false;
  if (!backup_set_info_.is_full_backup && !find_hana_catalog()) return false;
  (void)collect_sets_size();
  return true;
}

bool Restore_Source_Collector::read_entry(json_spirit::Object& set) {
  if (source_entry_.catalog_uuid.empty()) {
    backup_set_info_.is_full_backup = false;
    backup_set_info_.target_time = source_entry_.target.timepoint;
    backup_set_info_.lifeline = source_entry_.target.lifeline;
    return true;
  }
  if (!get_catalog(source_entry_.catalog_uuid, set) || !source_entry_catalog_parser(set)) {
    D3_ERROR("Failed to get and parse catalog by uuid\n");
    return false;
  }
  if (backup_set_info_.is_full_backup) backup_set_info_.catalog_uuid = source_entry_.catalog_uuid;
  return true;
}

bool Restore_Source_Collector::read_resource() {
  Resource_Info_Getter::Instances_Info instances;
  if (!Resource_Info_Getter(resource_uuid_).get_instances_info(instances) || instances.empty()) {
    D3_ERROR("Failed to get resource info\n");
    return false;
  }
  backup_set_info_.origin_mdc = instances.front().mdc;
  return true;
}

bool Restore_Source_Collector::find_full(json_spirit::Object& set) {
  if (!backup_set_info_.is_full_backup &&
      !get_full_backup(backup_set_info_.target_time, backup_set_info_.lifeline, set)) {
    D3_ERROR("Failed to get full backup catalog\n");
    return false;
  }
  if (!backup_set_catalog_parser(set, backup_set_info_)) {
    D3_ERROR("Failed to parse full backup catalog\n");
    return false;
  }
  if (source_entry_.catalog_uuid.empty() && backup_set_info_.backup_start_time == source_entry_.target.timepoint)
    backup_set_info_.is_full_backup = true;
  return true;
}

bool Restore_Source_Collector::find_hana_catalog() {
  const std::string& time = std::max(backup_set_info_.backup_end_time, backup_set_info_.target_time);
  json_spirit::Object catalog;
  if (get_hana_catalog(backup_set_info_.lifeline, backup_set_info_.database_backup_id, time, catalog) &&
      hana_catalog_parser(catalog, hana_catalog_info_))
    return true;
  D3_ERROR("Failed to collect and parse HANA database '%s' catalog\n", source_entry_.origin.database.c_str());
  return false;
}

bool Restore_Source_Collector::collect_sets_size() {
  const ACE_UINT64 start = backup_set_info_.database_backup_id;
  const ACE_UINT64 end = backup_set_info_.is_full_backup ? start : hana_catalog_info_.database_backup_id;
  if (start == 0 || end == 0) {
    D3_ERROR("Lack of database_backup_id\n");
    return false;
  }
  const json_spirit::Object params{{"lifeline", backup_set_info_.lifeline},
                                   {"ignore_delta", ignore_delta_},
                                   {"start_backup_id", start},
                                   {"end_backup_id", end}};
  json_spirit::Object sizes;
  if (!get_view("sets_size", params, sizes)) {
    D3_ERROR("Failed to get restorable backup set from backupd, params are '%s'\n",
             json_spirit::dump_json(params).c_str());
    return false;
  }
  try {
    const auto total_source_size = object_require<unsigned long>(sizes, "total_source_size");
    total_size_ = object_require<unsigned long>(sizes, "total_size");
    total_source_size_ = total_source_size;
    return true;
  } catch (const json_spirit::Error& error) {
    D3_ERROR("Failed to collet set size: %s\n", error.what());
    return false;
  }
}

bool Restore_Source_Collector::source_entry_catalog_parser(const json_spirit::Object& catalog) {
  try {
    const auto type = object_require<std::string>(catalog, "type");
    backup_set_info_.target_time = object_require<std::string>(catalog, "last_time");
    backup_set_info_.is_full_backup = type == type_full;
    if (type == type_full || type == type_incremental || type == type_differential) return true;
    D3_ERROR("Invalid backup type '%s'\n", platform::cut_for_log(type).c_str());
  } catch (const json_spirit::Error& error) {
    D3_ERROR("Failed to parser source entry catalog, %s\n", error.what());
  }
  return false;
}

bool Restore_Source_Collector::backup_set_catalog_parser(const json_spirit::Object& catalog,
                                                         Backup_Set_Info& info) const {
  info.origin_dbname = source_entry_.origin.database;
  info.origin_sid = source_entry_.origin.sid;
  info.target_dbname = source_entry_.target.database;
  try {
    info.backup_end_time = object_require<std::string>(catalog, "last_time");
    info.backup_start_time = object_require<std::string>(catalog, "first_time");
    info.lifeline = object_require<std::string>(catalog, "lifeline");
    info.database_backup_id = object_require<unsigned long>(catalog, "database_backup_id");
    return true;
  } catch (const json_spirit::Error& error) {
    D3_ERROR("Failed to parse backup set catalog, %s\n", error.what());
    return false;
  }
}

bool Restore_Source_Collector::hana_catalog_parser(const json_spirit::Object& catalog, HANA_Catalog_Info& info) const {
  try {
    const auto database = object_require<std::string>(catalog, "database");
    info.database_backup_id = object_require<unsigned long>(catalog, "database_backup_id");
    const auto files = object_require<json_spirit::Array>(catalog, "files");
    const auto storages = object_require<json_spirit::Array>(catalog, "storages");
    const std::string pool_uuid = primary_pool(storages);
    if (database != source_entry_.origin.database) {
      D3_ERROR("Database miss match\n");
      return false;
    }
    Pool_Info pool;
    if (!get_pool(pool_uuid, pool)) {
      D3_ERROR("Failed to get file location\n");
      return false;
    }
    info.location = pool.url;
    info.pool_uuid = pool_uuid;
    const json_spirit::Object* const file = first_object(files);
    if (file == nullptr) {
      D3_ERROR("Failed to get file detail\n");
      return false;
    }
    info.file_detail.size = object_require<unsigned long>(*file, "size");
    info.file_detail.storage_path = object_require<std::string>(*file, "storage_path");
    info.file_detail.extern_backup_id = object_require<std::string>(*file, "extern_backup_id");
    info.file_detail.source_type = object_require<std::string>(*file, "source_type");
    return true;
  } catch (const json_spirit::Error& error) {
    D3_ERROR("Failed to parse hana catalog, %s\n", error.what());
    return false;
  }
}

bool Restore_Source_Collector::get_catalog(const std::string& uuid, json_spirit::Object& result) const {
  if (uuid.empty()) {
    D3_ERROR("Lack of catalog uuid\n");
    return false;
  }
  if (get_view("set", {{"uuid", uuid}}, result)) return true;
  D3_ERROR("Failed to get backup set info from backupd, uuid is '%s'\n", platform::cut_for_log(uuid).c_str());
  return false;
}

bool Restore_Source_Collector::get_full_backup(const std::string& time, const std::string& lifeline,
                                               json_spirit::Object& result) const {
  return get_restore_set({{"type", "fullbackup"},
                          {"resource_uuid", resource_uuid_},
                          {"lifeline", lifeline},
                          {"database", source_entry_.origin.database},
                          {"time", time}},
                         result);
}

bool Restore_Source_Collector::get_hana_catalog(const std::string& lifeline, ACE_UINT64 database_backup_id,
                                                const std::string& time, json_spirit::Object& result) const {
  if (lifeline.empty() || database_backup_id == 0) {
    D3_ERROR("Lack of lifeline or database_backup_id\n");
    return false;
  }
  return get_restore_set({{"type", "catalog"},
                          {"resource_uuid", resource_uuid_},
                          {"lifeline", lifeline},
                          {"database", source_entry_.origin.database},
                          {"database_backup_id", database_backup_id},
                          {"time", time}},
                         result);
}

bool Restore_Source_Collector::get_restore_set(const json_spirit::Object& params, json_spirit::Object& result) const {
  json_spirit::Object reply;
  if (!get_view("rselect", params, reply)) {
    D3_ERROR("Failed to get restorable backup set from backupd, params are '%s'\n",
             json_spirit::dump_json(params).c_str());
    return false;
  }
  json_spirit::Array rows;
  // An answer without rows has none.
  (void)json_spirit::object_get(reply, "rows", rows);
  if (rows.empty()) {
    D3_ERROR("The rows are empty\n");
    return false;
  }
  if (!rows.front().is_object()) {
    D3_ERROR("Invalid catalog of restorable backup set, %s\n",
             platform::cut_for_log(json_spirit::dump_json(rows.front())).c_str());
    return false;
  }
  result = rows.front().get_obj();
  return true;
}

bool Restore_Source_Collector::get_view(const char* view, const json_spirit::Object& params,
                                        json_spirit::Object& result) const {
  const auto seconds = static_cast<int>(std::min<std::size_t>(max_seconds_retry_, Catalog_Operator::max_retry_seconds));
  json_spirit::Value reply;
  if (!Catalog_Operator(default_retries, seconds).get_view(module_name, view, params, reply) || !reply.is_object())
    return false;
  result = reply.get_obj();
  return true;
}

}  // namespace sap_hana
