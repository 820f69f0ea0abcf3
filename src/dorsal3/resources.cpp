#include "dorsal3/resources.h"

#include <algorithm>

namespace dorsal3 {

namespace {

Resource to_resource(const json_spirit::Object& record) {
  Resource resource;
  resource.record = record;
  resource.uuid = text_member(record, "uuid");
  resource.name = text_member(record, "name");
  resource.type = text_member(record, "type");
  const auto instances = object_rows(record, "instances");
  if (!instances.empty()) resource.host_uuid = text_member(instances.front(), "host_uuid");
  return resource;
}

}  // namespace

bool parse_subject(const std::string& text, Backup_Subject& subject, Failure& failure) {
  const std::size_t slash = text.find('/');
  subject.instance = text.substr(0, slash);
  subject.database = slash == std::string::npos ? "" : text.substr(slash + 1);
  const bool bad = subject.instance.empty() || (slash != std::string::npos && subject.database.empty()) ||
                   subject.database.find('/') != std::string::npos;
  if (!bad) return true;
  failure = {exit_usage, "usage",
             "\"" + text + "\" is neither INSTANCE nor INSTANCE/DATABASE; an example: PRD_HDB00/TN1"};
  return false;
}

bool list_resources(Server_Client& server, std::vector<Resource>& resources, Failure& failure) {
  std::vector<json_spirit::Object> rows;
  if (!server.get_rows("/resources", rows, failure)) return false;
  resources.clear();
  std::transform(rows.begin(), rows.end(), std::back_inserter(resources), to_resource);
  return true;
}

bool find_resource(Server_Client& server, const std::string& name, Resource& resource, Failure& failure) {
  std::vector<Resource> resources;
  if (!list_resources(server, resources, failure)) return false;
  const auto found =
      std::find_if(resources.begin(), resources.end(), [&](const Resource& r) { return r.name == name; });
  if (found != resources.end()) {
    resource = *found;
    return true;
  }
  std::string known;
  for (const Resource& r : resources) known += (known.empty() ? "" : ", ") + r.name;
  failure = {exit_not_found, "not_found",
             "there is no instance \"" + name + "\"; " +
                 (known.empty() ? "none is registered yet, run: dorsal3 discover" : "registered are: " + known)};
  return false;
}

bool call_agent(Server_Client& server, const Resource& resource, const char* method, const json_spirit::Object& params,
                json_spirit::Object& result, Failure& failure) {
  const json_spirit::Object body{{"method", method}, {"params", params}};
  return server.post("/agents/" + resource.host_uuid + "/call", body, result, failure, Server_Client::agent_timeout);
}

bool list_databases(Server_Client& server, const Resource& resource, std::vector<json_spirit::Object>& databases,
                    Failure& failure) {
  json_spirit::Object result;
  const json_spirit::Object params{{"type", resource.type}, {"name", resource.name}};
  if (!call_agent(server, resource, "database.list", params, result, failure)) return false;
  databases = object_rows(result, "databases");
  return true;
}

std::string text_member(const json_spirit::Object& object, const char* key) {
  const json_spirit::Value* value = object.find(key);
  if (value == nullptr || value->is_null()) return {};
  return value->is_string() ? value->get_str() : json_spirit::dump_json_for_log(*value);
}

std::uint64_t number_member(const json_spirit::Object& object, const char* key) {
  unsigned long number = 0;
  return json_spirit::object_get(object, key, number) ? number : 0;
}

bool flag_member(const json_spirit::Object& object, const char* key) {
  bool flag = false;
  return json_spirit::object_get(object, key, flag) && flag;
}

std::vector<json_spirit::Object> object_rows(const json_spirit::Object& object, const char* key) {
  std::vector<json_spirit::Object> rows;
  const json_spirit::Value* list = object.find(key);
  if (list == nullptr || !list->is_array()) return rows;
  for (const json_spirit::Value& row : list->get_array())
    if (row.is_object()) rows.push_back(row.get_obj());
  return rows;
}

json_spirit::Array to_array(const std::vector<json_spirit::Object>& rows) {
  return json_spirit::Array(rows.begin(), rows.end());
}

}  // namespace dorsal3
