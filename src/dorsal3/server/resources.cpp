#include "dorsal3/server/resources.h"

#include <algorithm>
#include <functional>

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

struct Host {
  std::string uuid;
  std::string name;
  bool active_master = false;
};

/// The hosts of the resource's instances by what the instances say of them.
std::vector<Host> hosts_of(const Resource& resource) {
  std::vector<Host> hosts;
  for (const auto& instance : object_rows(resource.record, "instances")) {
    json_spirit::Object attributes;
    (void)json_spirit::object_get(instance, "extended_attrs", attributes);
    hosts.push_back({text_member(instance, "host_uuid"), text_member(attributes, "localhost"),
                     flag_member(attributes, "active_master")});
  }
  return hosts;
}

/// An agent's name may differ from what the instance calls its host: both are good.
bool names_host(const Host& host, const std::string& agent_name, const std::string& wanted) {
  return wanted == host.uuid || wanted == host.name || (!agent_name.empty() && wanted == agent_name);
}

/// Leaves those of the systems that have a host so called; all of them when none has.
bool keep_those_on(Server_Client& server, const std::string& wanted, std::vector<Resource>& resources,
                   Failure& failure) {
  std::map<std::string, std::string> agents;
  if (!host_names(server, agents, failure)) return false;
  const auto has = [&](const Resource& resource) {
    const std::vector<Host> hosts = hosts_of(resource);
    return std::any_of(hosts.begin(), hosts.end(),
                       [&](const Host& host) { return names_host(host, agents[host.uuid], wanted); });
  };
  if (std::any_of(resources.begin(), resources.end(), has))
    resources.erase(std::remove_if(resources.begin(), resources.end(), std::not_fn(has)), resources.end());
  return true;
}

Failure no_such_resource(const std::string& name, const std::vector<Resource>& resources) {
  std::string known;
  for (const Resource& r : resources) known += (known.empty() ? "" : ", ") + r.name;
  return {exit_not_found, "not_found",
          "there is no instance \"" + name + "\"; " +
              (known.empty() ? "none is registered yet, run: dorsal3 discover" : "registered are: " + known)};
}

/// A system and its copy have one name; taking the first could overwrite the wrong one.
Failure several_resources(const std::string& name, const std::vector<Resource>& meant) {
  std::string known;
  for (const Resource& resource : meant) {
    std::string hosts;
    for (const Host& host : hosts_of(resource))
      hosts += (hosts.empty() ? "" : ", ") + (host.name.empty() ? host.uuid : host.name + " (" + host.uuid + ")");
    known += (known.empty() ? "" : "; ") + resource.uuid + " on " + (hosts.empty() ? "no host" : hosts);
  }
  return {exit_usage, "usage",
          "several systems are called \"" + name + "\"; give the uuid of the one that is meant in its place: " + known};
}

}  // namespace

std::vector<std::string> Resource::host_uuids() const {
  std::vector<std::string> hosts{host_uuid};
  for (const auto& instance : object_rows(record, "instances")) {
    std::string host = text_member(instance, "host_uuid");
    if (std::find(hosts.begin(), hosts.end(), host) == hosts.end()) hosts.push_back(std::move(host));
  }
  return hosts;
}

bool choose_host(Server_Client& server, const std::string& wanted, Resource& resource, Failure& failure) {
  const std::vector<Host> hosts = hosts_of(resource);
  if (wanted.empty()) {
    const auto master = std::find_if(hosts.begin(), hosts.end(), [](const Host& host) { return host.active_master; });
    if (master != hosts.end()) resource.host_uuid = master->uuid;
    return true;
  }
  std::map<std::string, std::string> agents;
  if (!host_names(server, agents, failure)) return false;
  std::vector<std::string> meant;
  std::string known;
  for (const Host& host : hosts) {
    const std::string agent = agents[host.uuid];
    if (names_host(host, agent, wanted)) meant.push_back(host.uuid);
    known += (known.empty() ? "" : ", ") + (agent.empty() ? host.uuid : agent + " (" + host.uuid + ")");
  }
  if (meant.size() == 1) {
    resource.host_uuid = meant.front();
    return true;
  }
  const bool none = meant.empty();
  failure = {none ? exit_not_found : exit_usage, none ? "not_found" : "usage",
             "\"" + wanted + "\" " + (none ? "is no host of " : "names several hosts (give the uuid instead) of ") +
                 resource.name + "; its hosts are: " + known};
  return false;
}

bool host_names(Server_Client& server, std::map<std::string, std::string>& names, Failure& failure) {
  std::vector<json_spirit::Object> rows;
  if (!server.get_rows("/hosts", rows, failure)) return false;
  for (const auto& row : rows) names[text_member(row, "uuid")] = text_member(row, "name");
  return true;
}

std::string Resource::system_id() const {
  for (const auto& instance : object_rows(record, "instances")) {
    json_spirit::Object attributes;
    (void)json_spirit::object_get(instance, "extended_attrs", attributes);
    if (std::string sid = text_member(attributes, "sid"); !sid.empty()) return sid;
  }
  return {};
}

bool Resource::is_single_container() const {
  const auto instances = object_rows(record, "instances");
  return std::any_of(instances.begin(), instances.end(), [](const json_spirit::Object& instance) {
    json_spirit::Object attributes;
    bool multi = true;
    (void)json_spirit::object_get(instance, "extended_attrs", attributes);
    return json_spirit::object_get(attributes, "multi_container", multi) && !multi;
  });
}

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
  return find_resource(server, name, {}, resource, failure);
}

bool find_resource(Server_Client& server, const std::string& name, const std::string& host, Resource& resource,
                   Failure& failure) {
  std::vector<Resource> resources;
  if (!list_resources(server, resources, failure)) return false;
  std::vector<Resource> meant;
  std::copy_if(resources.begin(), resources.end(), std::back_inserter(meant),
               [&](const Resource& r) { return r.name == name || r.uuid == name; });
  if (meant.size() > 1 && !host.empty() && !keep_those_on(server, host, meant, failure)) return false;
  if (meant.size() == 1) {
    resource = meant.front();
    return true;
  }
  failure = meant.empty() ? no_such_resource(name, resources) : several_resources(name, meant);
  return false;
}

bool call_agent(Server_Client& server, const Resource& resource, const char* method, const json_spirit::Object& params,
                json_spirit::Object& result, Failure& failure) {
  const json_spirit::Object body{{"method", method}, {"params", params}};
  return server.post("/agents/" + resource.host_uuid + "/call", body, result, failure, Server_Client::agent_timeout);
}

bool list_databases(Server_Client& server, const Resource& resource, std::vector<json_spirit::Object>& databases,
                    Failure& failure) {
  const json_spirit::Object params{{"uid", ""}, {"instance", resource.name}};
  Failure first;
  for (const std::string& host_uuid : resource.host_uuids()) {
    Resource asked = resource;
    asked.host_uuid = host_uuid;
    json_spirit::Object result;
    if (call_agent(server, asked, "hana.database.list", params, result, failure)) {
      databases = object_rows(result, "databases");
      return true;
    }
    if (first.message.empty()) first = failure;
    if (failure.exit_code == exit_refused) break;
  }
  failure = first;  // of the host that was meant
  if (failure.code == "invalid")
    failure.message += "; the instance must run, and an account is needed (dorsal3 logon " + resource.name +
                       " --user USER); a database can also be named: " + resource.name + "/DATABASE";
  return false;
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
