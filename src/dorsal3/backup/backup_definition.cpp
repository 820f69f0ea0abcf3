#include "dorsal3/backup/backup_definition.h"

#include "scrt/uuid.h"

namespace dorsal3 {

namespace {

/// How long hdbbackint keeps at a broken transfer, and what it keeps in memory to take it up again.
constexpr int default_max_seconds_retry = 300;
constexpr int default_resumption_buffer_bytes = 4 << 20;

/// The name of the instance on its host ("HDB00"), which the entries begin with.
std::string instance_name(const Resource& resource) {
  json_spirit::Object attributes;
  const auto instances = object_rows(resource.record, "instances");
  if (!instances.empty()) (void)json_spirit::object_get(instances.front(), "extended_attrs", attributes);
  for (const auto& instance : instances)
    if (text_member(instance, "host_uuid") == resource.host_uuid)
      (void)json_spirit::object_get(instance, "extended_attrs", attributes);
  return text_member(attributes, "instance_name");
}

json_spirit::Array entries(const Backup_Request& request) {
  const std::string prefix = request.resource.type + "/" + path_segment(instance_name(request.resource)) + "/";
  json_spirit::Array list;
  for (const std::string& database : request.databases) list.emplace_back(prefix + path_segment(database));
  return list;
}

std::string definition_name(const Backup_Request& request) {
  const std::string what =
      request.databases.size() == 1 ? request.resource.name + "/" + request.databases.front() : request.resource.name;
  return what + " " + request.type + " to " + text_member(request.pool, "name");
}

}  // namespace

json_spirit::Object backup_definition(const Backup_Request& request) {
  json_spirit::Object definition{{"name", definition_name(request)},
                                 {"type", "backup"},
                                 {"subtype", request.type},
                                 {"module", request.resource.type},
                                 {"host_uuid", request.resource.host_uuid},
                                 {"uid", ""},
                                 {"source", json_spirit::Object{{"id", request.resource.uuid},
                                                                {"name", request.resource.name},
                                                                {"entries", entries(request)}}},
                                 {"options", json_spirit::Object{{"compression", request.compression},
                                                                 {"compression_level", request.compression_level}}},
                                 {"target", json_spirit::Object{{"pool_uuid", text_member(request.pool, "uuid")}}},
                                 {"max_seconds_retry", default_max_seconds_retry},
                                 {"resumption_buffer_size", default_resumption_buffer_bytes},
                                 {"write_to_history", true}};
  definition["id"] = uuid_v5(request.resource.uuid, json_spirit::dump_json(definition));
  return definition;
}

std::string log_backup_entry(const Resource& resource, const std::string& database) {
  const std::string entry = resource.type + "/" + path_segment(instance_name(resource));
  return database.empty() ? entry : entry + "/" + path_segment(database);
}

json_spirit::Object log_backup_definition(const Log_Backup_Request& request) {
  const Resource& resource = request.resource;
  const std::string entry = log_backup_entry(resource, request.database);
  const std::string what = request.database.empty() ? resource.name : resource.name + "/" + request.database;
  return {{"id", uuid_v5(resource.uuid, "log backup of " + entry + " on " + resource.host_uuid)},
          {"name", what + " logs on " + request.host_name + " to " + text_member(request.pool, "name")},
          {"type", "backup"},
          {"subtype", "log"},
          {"module", resource.type},
          {"host_uuid", resource.host_uuid},
          {"uid", ""},
          {"source",
           json_spirit::Object{{"id", resource.uuid}, {"name", resource.name}, {"entries", json_spirit::Array{entry}}}},
          {"options",
           json_spirit::Object{{"compression", request.compression}, {"compression_level", request.compression_level}}},
          {"target", json_spirit::Object{{"pool_uuid", text_member(request.pool, "uuid")}}},
          {"max_seconds_retry", default_max_seconds_retry},
          {"resumption_buffer_size", default_resumption_buffer_bytes},
          {"write_to_history", true}};
}

}  // namespace dorsal3
