#include "backupd/restore/restore_target.h"

#include <algorithm>

#include "scrt/loose_version.h"

namespace backupd {

namespace {

constexpr char system_database[] = "SYSTEMDB";
constexpr char first_with_catalog[] = "1.00.100";
constexpr char master_key[] = "active_master";

std::string text_of(const json_spirit::Object& object, const char* key) {
  std::string text;
  json_spirit::object_get(object, key, text);
  return text;
}

bool flag_of(const json_spirit::Object& object, const char* key) {
  bool flag = false;
  return json_spirit::object_get(object, key, flag) && flag;
}

}  // namespace

bool Restore_System::Host::tells_master() const {
  bool master = false;
  return json_spirit::object_get(attributes, master_key, master);
}

bool Restore_System::Host::is_master() const { return flag_of(attributes, master_key); }

void Restore_System::Host::forget_master() { attributes.erase(master_key); }

std::string Restore_System::Host::label() const { return name.empty() ? uuid : name + " (" + uuid + ")"; }

Outcome Restore_System::load(Resource_Store& resources, const Agent_Registry& agents, const std::string& uuid) {
  List_Page page;
  List_Query query;
  query.order_column = "name";
  if (!resources.list(uuid, {}, query, page))
    return Outcome::refuse(Outcome::internal, "the resources cannot be read now; see the server's log");
  json_spirit::Array instances;
  if (!page.rows.empty()) json_spirit::object_get(page.rows.front().get_obj(), "instances", instances);
  if (instances.empty())
    return Outcome::refuse(Outcome::not_found,
                           "there is no system " + uuid + " with an instance; let it be discovered");
  resource_uuid = uuid;
  name = text_of(page.rows.front().get_obj(), "name");
  for (const json_spirit::Value& value : instances) {
    const json_spirit::Object& instance = value.get_obj();
    Host host;
    json_spirit::object_get(instance, "extended_attrs", host.attributes);
    host.uuid = text_of(instance, "host_uuid");
    host.name = text_of(host.attributes, "localhost");
    host.connected = agents.is_connected(host.uuid);
    hosts.push_back(std::move(host));
  }
  const auto rank = [](const Host& host) { return (host.connected ? 2 : 0) + (host.is_master() ? 1 : 0); };
  take(*std::max_element(hosts.begin(), hosts.end(),
                         [&](const Host& left, const Host& right) { return rank(left) < rank(right); }));
  return {};
}

void Restore_System::take(const Host& host) {
  host_uuid = host.uuid;
  host_name = host.name;
  connected = host.connected;
  sid = text_of(host.attributes, "sid");
  instance_name = text_of(host.attributes, "instance_name");
  version = text_of(host.attributes, "version");
  multi_container = flag_of(host.attributes, "multi_container");
}

bool Restore_System::has_host(const std::string& uuid) const {
  return std::any_of(hosts.begin(), hosts.end(), [&](const Host& host) { return host.uuid == uuid; });
}

std::vector<const Restore_System::Host*> Restore_System::others_to_restart(const std::string& database) const {
  std::vector<const Host*> others;
  const bool several = std::any_of(hosts.begin(), hosts.end(),
                                   [&](const Host& host) { return host.uuid == host_uuid && host.tells_master(); });
  if (!several || !is_system_database(database)) return others;
  for (const Host& host : hosts)
    if (host.uuid != host_uuid) others.push_back(&host);
  return others;
}

bool Restore_System::is_ancient() const {
  return !version.empty() && compare_loose_versions(version, first_with_catalog) < 0;
}

bool Restore_System::is_system_database(const std::string& database) const {
  return !multi_container || database == system_database;
}

}  // namespace backupd
