#include "backupd/restore/restore_target.h"

#include "scrt/loose_version.h"

namespace backupd {

namespace {

constexpr char system_database[] = "SYSTEMDB";
constexpr char first_with_catalog[] = "1.00.100";

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
  int best = -1;
  for (const json_spirit::Value& value : instances) {
    const json_spirit::Object& instance = value.get_obj();
    json_spirit::Object attributes;
    json_spirit::object_get(instance, "extended_attrs", attributes);
    const std::string host = text_of(instance, "host_uuid");
    const bool there = agents.is_connected(host);
    const int rank = (there ? 2 : 0) + (flag_of(attributes, "active_master") ? 1 : 0);
    if (rank <= best) continue;
    best = rank;
    host_uuid = host;
    connected = there;
    sid = text_of(attributes, "sid");
    instance_name = text_of(attributes, "instance_name");
    version = text_of(attributes, "version");
    multi_container = flag_of(attributes, "multi_container");
  }
  return {};
}

bool Restore_System::is_ancient() const {
  return !version.empty() && compare_loose_versions(version, first_with_catalog) < 0;
}

bool Restore_System::is_system_database(const std::string& database) const {
  return !multi_container || database == system_database;
}

}  // namespace backupd
