#pragma once

#include <map>
#include <string>
#include <vector>

#include "dorsal3/server/server_client.h"

namespace dorsal3 {

/// One backup resource as the server keeps it, with the agent that speaks for it.
struct Resource {
  std::string uuid;
  std::string name;
  std::string type;
  std::string host_uuid;  ///< the host that is asked: of its first instance, unless another one was chosen
  json_spirit::Object record;

  /// The hosts of all its instances: `host_uuid` first, then the others in the record's order.
  [[nodiscard]] std::vector<std::string> host_uuids() const;
  /// As its instances tell it; empty when none does.
  [[nodiscard]] std::string system_id() const;
  /// One of its instances says that it has no tenants.
  [[nodiscard]] bool is_single_container() const;
};

/// What the operator typed: INSTANCE or INSTANCE/DATABASE. INSTANCE is the name of a resource, or its uuid.
struct Backup_Subject {
  std::string instance;
  std::string database;  ///< empty: all databases
};

/// False with `failure` (usage) for anything else than the two forms. Whether the names exist is not looked at.
[[nodiscard]] bool parse_subject(const std::string& text, Backup_Subject& subject, Failure& failure);

[[nodiscard]] bool list_resources(Server_Client& server, std::vector<Resource>& resources, Failure& failure);
/// The resource of that name or uuid; a failure names the ones there are. A name that several systems have is refused
/// (usage) with the uuid and the hosts of each.
[[nodiscard]] bool find_resource(Server_Client& server, const std::string& name, Resource& resource, Failure& failure);
/// The same; of several systems of one name the one with a host that is called `host` (name or uuid; empty: not told).
[[nodiscard]] bool find_resource(Server_Client& server, const std::string& name, const std::string& host,
                                 Resource& resource, Failure& failure);

/// Sets resource.host_uuid to the host that is asked first for a backup: `wanted` (name or uuid of one of its hosts),
/// else the host that says that it is the active master of a scale-out system, else the first one.
[[nodiscard]] bool choose_host(Server_Client& server, const std::string& wanted, Resource& resource, Failure& failure);

/// Names of the hosts by their uuids, as their agents gave them.
[[nodiscard]] bool host_names(Server_Client& server, std::map<std::string, std::string>& names, Failure& failure);

/// One JSON-RPC call to the agent of `resource`.
[[nodiscard]] bool call_agent(Server_Client& server, const Resource& resource, const char* method,
                              const json_spirit::Object& params, json_spirit::Object& result, Failure& failure);

/// The databases of the resource's instance as HANA lists them, each {"name", "owner", "os_user", "os_group", "active",
/// "log_backup_mode"}. Where one host cannot tell, because its agent is away or its instance is down, the next one is
/// asked.
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
