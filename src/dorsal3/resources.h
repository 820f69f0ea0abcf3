#pragma once

#include <string>
#include <vector>

#include "dorsal3/server_client.h"

namespace dorsal3 {

/// One backup resource as the server keeps it, with the agent that speaks for it.
struct Resource {
  std::string uuid;
  std::string name;
  std::string type;
  std::string host_uuid;  ///< of its first instance
  json_spirit::Object record;
};

/// What the operator typed: INSTANCE or INSTANCE/DATABASE.
struct Backup_Subject {
  std::string instance;
  std::string database;  ///< empty: all databases
};

/// False with `failure` (usage) for anything else than the two forms. Whether the names exist is not looked at.
[[nodiscard]] bool parse_subject(const std::string& text, Backup_Subject& subject, Failure& failure);

[[nodiscard]] bool list_resources(Server_Client& server, std::vector<Resource>& resources, Failure& failure);
/// The resource of that name; a failure names the ones there are.
[[nodiscard]] bool find_resource(Server_Client& server, const std::string& name, Resource& resource, Failure& failure);

/// One JSON-RPC call to the agent of `resource`.
[[nodiscard]] bool call_agent(Server_Client& server, const Resource& resource, const char* method,
                              const json_spirit::Object& params, json_spirit::Object& result, Failure& failure);

/// The databases of the resource's instance, each {"name", "active", "description"}.
[[nodiscard]] bool list_databases(Server_Client& server, const Resource& resource,
                                  std::vector<json_spirit::Object>& databases, Failure& failure);

/// Members of a record for people: text as it is, numbers as text, "" when missing.
[[nodiscard]] std::string text_member(const json_spirit::Object& object, const char* key);
[[nodiscard]] std::uint64_t number_member(const json_spirit::Object& object, const char* key);
[[nodiscard]] bool flag_member(const json_spirit::Object& object, const char* key);
/// The objects of an array member; empty when it is missing.
[[nodiscard]] std::vector<json_spirit::Object> object_rows(const json_spirit::Object& object, const char* key);
/// The same the other way round.
[[nodiscard]] json_spirit::Array to_array(const std::vector<json_spirit::Object>& rows);

}  // namespace dorsal3
