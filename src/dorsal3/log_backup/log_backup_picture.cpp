#include "dorsal3/log_backup/log_backup_picture.h"

#include <algorithm>

namespace dorsal3 {

namespace {

constexpr const char* subtype_log = "log";

std::string source_member(const json_spirit::Object& definition, const char* key) {
  json_spirit::Object source;
  (void)json_spirit::object_get(definition, "source", source);
  return text_member(source, key);
}

bool has_entry(const json_spirit::Object& definition, const std::string& entry) {
  json_spirit::Object source;
  json_spirit::Array entries;
  (void)json_spirit::object_get(definition, "source", source);
  (void)json_spirit::object_get(source, "entries", entries);
  return std::find(entries.begin(), entries.end(), json_spirit::Value(entry)) != entries.end();
}

bool read_definitions(Server_Client& server, Log_Backup_Picture& picture, Failure& failure) {
  std::vector<json_spirit::Object> rows;
  if (!server.get_rows("/job-definitions?limit=10000&" + query_pair("module", picture.resource.type), rows, failure))
    return false;
  for (auto& row : rows)
    if (text_member(row, "subtype") == subtype_log && source_member(row, "id") == picture.resource.uuid)
      picture.definitions.push_back(std::move(row));
  return true;
}

/// What the files name when the instance cannot be asked.
void take_databases_of_files(Log_Backup_Picture& picture) {
  for (const Log_Backup_Host& host : picture.hosts)
    for (const auto& file : object_rows(host.status, "files"))
      if (const std::string name = text_member(file, "database");
          !name.empty() &&
          std::find(picture.databases.begin(), picture.databases.end(), name) == picture.databases.end())
        picture.databases.push_back(name);
}

}  // namespace

bool Log_Backup_Host::open() const { return flag_member(status, "open"); }

bool Log_Backup_Host::find_file(const std::string& database, json_spirit::Object& file) const {
  for (const std::string& wanted : {database, std::string()})
    for (const auto& row : object_rows(status, "files"))
      if (flag_member(row, "live") && text_member(row, "database") == wanted) {
        file = row;
        return true;
      }
  return false;
}

std::string Log_Backup_Host::lacks(const std::string& database) const {
  for (const auto& row : object_rows(status, "databases"))
    if (text_member(row, "name") == database) return text_member(row, "lacks");
  return text_member(status, "lacks");
}

std::vector<std::string> Log_Backup_Host::copies() const {
  std::vector<std::string> paths;
  for (const auto& row : object_rows(status, "files"))
    if (!flag_member(row, "live")) paths.push_back(text_member(row, "path"));
  return paths;
}

std::vector<std::string> Log_Backup_Host::other_systems() const {
  json_spirit::Array systems;
  std::vector<std::string> names;
  (void)json_spirit::object_get(status, "other_systems", systems);
  for (const json_spirit::Value& system : systems)
    if (system.is_string()) names.push_back(system.get_str());
  return names;
}

const json_spirit::Object* Log_Backup_Picture::definition(const std::string& id) const {
  const auto found = std::find_if(definitions.begin(), definitions.end(),
                                  [&](const auto& row) { return text_member(row, "id") == id; });
  return found == definitions.end() ? nullptr : &*found;
}

std::vector<json_spirit::Object> Log_Backup_Picture::definitions_of(const std::string& entry,
                                                                    const std::string& host_uuid) const {
  std::vector<json_spirit::Object> found;
  for (const auto& row : definitions)
    if (has_entry(row, entry) && (host_uuid.empty() || text_member(row, "host_uuid") == host_uuid) &&
        !Setup_View(row).removed())
      found.push_back(row);
  return found;
}

void read_host(Server_Client& server, const Resource& resource, Log_Backup_Host& host) {
  Resource asked = resource;
  asked.host_uuid = host.uuid;
  Failure failure;
  host.error.clear();
  host.status.clear();
  const json_spirit::Object params{{"type", resource.type}, {"name", resource.name}};
  if (!call_agent(server, asked, "instance.log_backup", params, host.status, failure)) host.error = failure.message;
}

bool read_picture(Server_Client& server, const Resource& resource, const std::string& host_uuid,
                  Log_Backup_Picture& picture, Failure& failure) {
  std::map<std::string, std::string> names;
  picture.resource = resource;
  if (!host_names(server, names, failure) || !read_definitions(server, picture, failure)) return false;
  for (const std::string& uuid : resource.host_uuids()) {
    if (!host_uuid.empty() && uuid != host_uuid) continue;
    Log_Backup_Host host;
    host.uuid = uuid;
    host.name = names[uuid].empty() ? uuid : names[uuid];
    read_host(server, resource, host);
    picture.hosts.push_back(std::move(host));
  }
  std::vector<json_spirit::Object> databases;
  Failure not_listed;
  if (list_databases(server, resource, databases, not_listed)) {
    for (const auto& database : databases) picture.databases.push_back(text_member(database, "name"));
  } else {
    picture.databases_error = not_listed.message;
    take_databases_of_files(picture);
  }
  return true;
}

Setup_View::Setup_View(const json_spirit::Object& holder) {
  json_spirit::Object setup;
  (void)json_spirit::object_get(holder, "setup", setup);
  wanted = text_member(setup, "wanted");
  state = text_member(setup, "state");
  message = text_member(setup, "message");
}

}  // namespace dorsal3
