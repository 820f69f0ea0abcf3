#include "dorsal3/restore/restore_definition.h"

#include "dorsal3/server/resources.h"
#include "scrt/time_text.h"
#include "scrt/uuid.h"

namespace dorsal3 {

namespace {

constexpr int default_max_seconds_retry = 300;
/// A set's "first_time" is so much later than HANA's own begin.
constexpr std::time_t start_shift_seconds = 1;
constexpr const char* kind_of_full = "full";

json_spirit::Object member(const json_spirit::Object& object, const char* key) {
  json_spirit::Object found;
  (void)json_spirit::object_get(object, key, found);
  return found;
}

json_spirit::Object entry_of(const json_spirit::Object& plan, const json_spirit::Object& target) {
  const std::string set = text_member(plan, "set");
  json_spirit::Object restore_as{{"database", text_member(target, "database")}};
  if (set.empty()) {
    restore_as["timepoint"] = text_member(plan, "time");
    restore_as["lifeline"] = text_member(plan, "lifeline");
  }
  json_spirit::Object entry;
  if (!set.empty()) entry["catalog_uuid"] = set;
  entry["original"] =
      json_spirit::Object{{"sid", text_member(plan, "sid")}, {"database", text_member(plan, "database")}};
  entry["restore_as"] = std::move(restore_as);
  return entry;
}

}  // namespace

json_spirit::Object restore_definition(const json_spirit::Object& plan) {
  const json_spirit::Object target = member(plan, "target");
  const std::string resource = text_member(plan, "resource_uuid");
  json_spirit::Object definition{
      {"name", "restore " + text_member(plan, "name") + "/" + text_member(plan, "database") + " of " +
                   text_member(plan, "time") + " into " + text_member(target, "name") + "/" +
                   text_member(target, "database")},
      {"type", "restore"},
      {"subtype", "point-in-time"},
      {"module", "hana"},
      {"host_uuid", text_member(target, "host_uuid")},
      {"uid", ""},
      {"source", json_spirit::Object{{"id", resource},
                                     {"name", text_member(plan, "name")},
                                     {"entries", json_spirit::Array{entry_of(plan, target)}}}},
      {"options", json_spirit::Object{{"ignore_delta", flag_member(plan, "ignore_delta")}}},
      {"target", json_spirit::Object{{"resource_uuid", text_member(target, "resource_uuid")}}},
      {"max_seconds_retry", default_max_seconds_retry},
      {"write_to_history", true}};
  definition["id"] = uuid_v5(resource, json_spirit::dump_json(definition));
  return definition;
}

std::string time_to_reach(const json_spirit::Object& plan) {
  if (text_member(plan, "kind") == kind_of_full) return {};
  const std::string set = text_member(plan, "set");
  std::time_t time = 0;
  for (const auto& row : object_rows(plan, "sets"))
    if (!set.empty() && text_member(row, "uuid") == set &&
        iso8601_to_posix_time(text_member(row, "first_time").c_str(), time))
      return posix_time_to_utc_text(time - start_shift_seconds);
  return text_member(plan, "time");
}

}  // namespace dorsal3
