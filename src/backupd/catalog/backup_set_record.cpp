#include "backupd/catalog/backup_set_record.h"

#include <algorithm>
#include <set>

#include "backupd/http/body_reader.h"

namespace backupd {

namespace {

constexpr const char* set_types[] = {"full", "incremental", "differential", "log", "catalog"};
constexpr char module_hana[] = "hana";

Outcome refuse(std::string message) { return Outcome::refuse(Outcome::invalid, std::move(message)); }

Outcome read_file(const json_spirit::Value& value, Backup_Set_Record::File& file) {
  if (!value.is_object()) return Outcome::refuse(Outcome::bad_request, "an element of \"files\" is not an object");
  std::string ignored;
  std::int64_t number = 0;
  Body_Reader reader(value.get_obj(), "a file of the set");
  reader.text("filename", file.filename, Need::required);
  reader.text("extern_backup_id", file.extern_backup_id, Need::required);
  reader.text("origin_path", ignored);
  reader.text("storage_path", ignored);
  reader.text("source_type", ignored);
  reader.number("size", number);
  reader.number("storage_size", number);
  return reader.finish();
}

Outcome read_files(const json_spirit::Array& array, std::vector<Backup_Set_Record::File>& files) {
  std::set<std::pair<std::string, std::string>> seen;
  for (const json_spirit::Value& value : array) {
    Backup_Set_Record::File file;
    if (Outcome outcome = read_file(value, file); !outcome.ok()) return outcome;
    if (!seen.insert({file.filename, file.extern_backup_id}).second)
      return refuse("the set names the object " + file.filename + " (" + file.extern_backup_id + ") twice");
    files.push_back(std::move(file));
  }
  if (files.empty()) return refuse("the set names no object; a set without objects cannot be restored");
  return {};
}

Outcome read_storages(const json_spirit::Array& array, json_spirit::Array& storages) {
  for (const json_spirit::Value& value : array) {
    if (!value.is_object()) return Outcome::refuse(Outcome::bad_request, "an element of \"storages\" is not an object");
    json_spirit::Object storage = value.get_obj();
    std::string pool;
    std::int64_t size = 0;
    json_spirit::Array state{"online"};
    Body_Reader reader(storage, "a storage of the set");
    reader.uuid("pool_uuid", pool, Need::required);
    reader.number("size", size);
    reader.array("state", state);
    reader.allow("upstream_pool_uuid");
    if (Outcome outcome = reader.finish(); !outcome.ok()) return outcome;
    const json_spirit::Value* upstream = storage.find("upstream_pool_uuid");
    storages.emplace_back(
        json_spirit::Object{{"pool_uuid", pool},
                            {"upstream_pool_uuid", upstream == nullptr ? json_spirit::Value() : *upstream},
                            {"state", state},
                            {"size", size}});
  }
  return storages.empty() ? refuse("the set names no storage; say in which pool it lies") : Outcome();
}

/// Members that are kept as they are.
void allow_descriptive_members(Body_Reader& reader) {
  for (const char* key :
       {"id", "job_name", "job_uid", "host_uuid", "agent", "minor_resource_id", "source_name", "creation_time",
        "update_time", "incarnation", "metadata", "pieces", "expiration_id", "sequence_id"})
    reader.allow(key);
}

}  // namespace

Outcome Backup_Set_Record::read(const json_spirit::Object& body) {
  json_spirit::Array file_array;
  json_spirit::Array storage_array;
  std::string first_time;
  std::string last_time;
  Body_Reader reader(body, "the backup set");
  reader.uuid("uuid", uuid, Need::required);
  reader.text("module", module);
  reader.text("type", type, Need::required);
  reader.uuid("resource_uuid", resource_uuid, Need::required);
  reader.text("database", database, Need::required);
  reader.number("database_backup_id", database_backup_id, Need::required);
  reader.uuid("pool_uuid", pool_uuid, Need::required);
  reader.text("job_id", job_id);
  reader.text("job_act_id", job_act_id);
  reader.text("lifeline", lifeline, Need::required);
  reader.text("start_time", start_time, Need::required);
  reader.text("first_time", first_time);
  reader.text("last_time", last_time, Need::required);
  reader.number("source_size", source_size, Need::required);
  reader.number("total_size", total_size, Need::required);
  reader.text("requested_type", requested_type);
  reader.text("lift_reason", lift_reason);
  reader.array("files", file_array, Need::required);
  reader.array("storages", storage_array, Need::required);
  allow_descriptive_members(reader);
  if (Outcome outcome = reader.finish(); !outcome.ok()) return outcome;
  if (module.empty()) module = module_hana;
  if (first_time.empty()) first_time = start_time;
  if (std::find(std::begin(set_types), std::end(set_types), type) == std::end(set_types))
    return refuse("the type \"" + type +
                  "\" of the set is not known; it is full, incremental, differential, log or catalog");
  for (const std::string* time : {&start_time, &first_time, &last_time})
    if (!is_utc_time(*time)) return refuse("the time \"" + *time + "\" of the set does not read YYYY-MM-DD HH:MM:SS");
  json_spirit::Array storages;
  if (Outcome outcome = read_files(file_array, files); !outcome.ok()) return outcome;
  if (Outcome outcome = read_storages(storage_array, storages); !outcome.ok()) return outcome;
  document = body;
  document["module"] = module;
  document["first_time"] = first_time;
  document["storages"] = std::move(storages);
  return {};
}

}  // namespace backupd
