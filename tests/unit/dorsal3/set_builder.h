#pragma once

#include <string>

#include "json/value.h"

/// A backup set's record as the server lists it, online on pool p1. Ids grow with `id`; a full backup begins its own
/// incarnation when none is named.
inline json_spirit::Object backup_set(int id, const std::string& type, const std::string& uuid,
                                      const std::string& incarnation = "", const std::string& lifeline = "life-1",
                                      const std::string& database = "TN1") {
  constexpr int first_backup_id = 1700000000;
  return {{"id", id},
          {"uuid", uuid},
          {"resource_uuid", "0d0c1a4e-16f3-4f0a-8d5c-2f9f0a5b7e21"},
          {"type", type},
          {"database", database},
          {"database_backup_id", first_backup_id + id},
          {"lifeline", lifeline},
          {"incarnation", incarnation.empty() ? uuid : incarnation},
          {"pool_uuid", "p1"},
          {"start_time", "2026-11-21 08:00:01"},
          {"last_time", "2026-11-21 08:00:05"},
          {"source_size", 2048},
          {"total_size", 1024},
          {"storages",
           json_spirit::Array{json_spirit::Object{{"pool_uuid", "p1"}, {"state", json_spirit::Array{"online"}}}}}};
}

/// The same, gone from its pool.
inline json_spirit::Object missing(json_spirit::Object set) {
  set["storages"] = json_spirit::Array{json_spirit::Object{{"pool_uuid", "p1"}, {"state", json_spirit::Array()}}};
  return set;
}
