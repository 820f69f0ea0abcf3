#include "backupd/catalog/resource_store.h"

#include "backupd/http/body_reader.h"
#include "platform/clock.h"
#include "scrt/time_text.h"
#include "scrt/uuid.h"

namespace backupd {

namespace {

constexpr char resource_type_hana[] = "hana";

json_spirit::Object resource_record(Sql_Session& session, const Sql_Row& row) {
  json_spirit::Array instances;
  for (const Sql_Row& instance : session.query("SELECT name, uuid, host_uuid, extended_attrs FROM instances "
                                               "WHERE resource_uuid = :a ORDER BY seq",
                                               {row.text(0)}, 4))
    instances.emplace_back(json_spirit::Object{{"name", instance.text(0)},
                                               {"uuid", instance.text(1)},
                                               {"host_uuid", instance.text(2)},
                                               {"extended_attrs", stored_object(instance.text(3))}});
  return {{"uuid", row.text(0)}, {"name", row.text(1)}, {"type", row.text(2)}, {"instances", instances}};
}

/// Hosts of one system share its landscape id. Without one a host stands alone, so that two systems of one name are
/// never taken for one.
std::string landscape_of(const Instance_Registration& instance) {
  std::string landscape;
  if (json_spirit::object_get(instance.extended_attrs, "landscape_id", landscape) && !landscape.empty())
    return landscape;
  return "host:" + instance.host_uuid;
}

std::string find_or_make_resource(Sql_Session& session, const Instance_Registration& instance) {
  const auto known =
      session.first("SELECT resource_uuid FROM instances WHERE host_uuid = :a AND type = :b AND name = :c",
                    {instance.host_uuid, instance.type, instance.name}, 1);
  if (known) return known->text(0);
  const std::string landscape = landscape_of(instance);
  const auto joined = session.first("SELECT uuid FROM resources WHERE name = :a AND type = :b AND landscape = :c",
                                    {instance.name, instance.type, landscape}, 1);
  if (joined) return joined->text(0);
  std::string made = make_uuid();
  session.execute("INSERT INTO resources (uuid, name, type, landscape) VALUES (:a, :b, :c, :d)",
                  {made, instance.name, instance.type, landscape});
  return made;
}

}  // namespace

Outcome Instance_Registration::read(const json_spirit::Object& body, const std::string& default_host, Origin origin) {
  host_uuid = default_host;
  if (origin == Origin::agent) type = resource_type_hana;
  Body_Reader reader(body, "the instance");
  reader.text("name", name, Need::required);
  reader.text("type", type, origin == Origin::agent ? Need::optional : Need::required);
  reader.uuid("host_uuid", host_uuid);
  reader.object("extended_attrs", extended_attrs, Need::required);
  const Outcome outcome = origin == Origin::agent ? reader.finish_known() : reader.finish();
  if (!outcome.ok()) return outcome;
  if (type != resource_type_hana)
    return Outcome::refuse(Outcome::invalid, "resources of type \"" + type + "\" are not known; the type is \"hana\"");
  if (host_uuid.empty())
    return Outcome::refuse(Outcome::bad_request, "the instance names no \"host_uuid\"; add the uuid of its host");
  return {};
}

Outcome Resource_Store::add(const Instance_Registration& instance, json_spirit::Object& resource) {
  const bool stored = database_.write([&](Sql_Session& session) {
    const std::string owner = find_or_make_resource(session, instance);
    const std::string attributes = json_spirit::dump_json(instance.extended_attrs);
    if (session.execute("UPDATE instances SET extended_attrs = :a WHERE host_uuid = :b AND type = :c AND name = :d",
                        {attributes, instance.host_uuid, instance.type, instance.name}) == 0)
      session.execute(
          "INSERT INTO instances (uuid, resource_uuid, host_uuid, name, type, extended_attrs, seq) "
          "VALUES (:a, :b, :c, :d, :e, :f, :g)",
          {make_uuid(), owner, instance.host_uuid, instance.name, instance.type, attributes,
           session.next_number("instance")});
    const auto row = session.first("SELECT uuid, name, type FROM resources WHERE uuid = :a", {owner}, 3);
    if (row) resource = resource_record(session, *row);
    return row.has_value();
  });
  if (!stored) return Outcome::refuse(Outcome::internal, "the instance cannot be registered; see the server's log");
  return {};
}

bool Resource_Store::list(const std::string& uuid, const std::string& name, List_Query query, List_Page& page) {
  query.where_given("uuid", uuid);
  query.where_given("name", name);
  return database_.read([&](Sql_Session& session) {
    page.total = count_rows(session, "resources", query);
    for (const Sql_Row& row : select_rows(session, "resources", "uuid, name, type", 3, query))
      page.rows.emplace_back(resource_record(session, row));
  });
}

bool Resource_Store::hosts_of(const std::string& uuid, std::vector<std::string>& hosts) {
  return database_.read([&](Sql_Session& session) {
    for (const Sql_Row& row :
         session.query("SELECT host_uuid FROM instances WHERE resource_uuid = :a ORDER BY seq", {uuid}, 1))
      hosts.push_back(row.text(0));
  });
}

bool Resource_Store::share_system(const std::string& host_uuid, const std::string& other_host_uuid,
                                  const std::string& sid, bool& shared) {
  return database_.read([&](Sql_Session& session) {
    for (const Sql_Row& row : session.query("SELECT theirs.extended_attrs FROM instances AS theirs, instances AS ours "
                                            "WHERE theirs.resource_uuid = ours.resource_uuid "
                                            "AND ours.host_uuid = :a AND theirs.host_uuid = :b",
                                            {host_uuid, other_host_uuid}, 1)) {
      std::string found;
      json_spirit::object_get(stored_object(row.text(0)), "sid", found);
      shared = shared || sid.empty() || found == sid;
    }
  });
}

Outcome Resource_Store::address(json_spirit::Object& definition, const std::string& host_uuid) {
  std::string own_host;
  json_spirit::object_get(definition, "host_uuid", own_host);
  if (own_host == host_uuid) return {};
  std::string name;
  if (!database_.read([&](Sql_Session& session) {
        const auto row = session.first("SELECT name FROM hosts WHERE uuid = :a", {host_uuid}, 1);
        if (row) name = row->text(0);
      }))
    return Outcome::refuse(Outcome::internal, "the hosts cannot be read now; see the server's log");
  definition["host_uuid"] = host_uuid;
  definition["agent"] = name;
  return {};
}

bool Resource_Store::lose_host(const std::string& uuid) {
  const std::string now = posix_time_to_utc_text(platform::Clock::current().wall_seconds());
  return database_.write([&](Sql_Session& session) {
    session.execute("UPDATE hosts SET last_seen = :a WHERE uuid = :b", {now, uuid});
    return true;
  });
}

bool Resource_Store::see_host(const std::string& uuid, const std::string& name, const std::string& version,
                              const json_spirit::Array& modules) {
  const std::string now = posix_time_to_utc_text(platform::Clock::current().wall_seconds());
  const std::string module_list = json_spirit::dump_json(modules);
  return database_.write([&](Sql_Session& session) {
    if (session.execute("UPDATE hosts SET name = :a, version = :b, last_seen = :c, modules = :d WHERE uuid = :e",
                        {name, version, now, module_list, uuid}) == 0)
      session.execute("INSERT INTO hosts (uuid, name, version, last_seen, modules) VALUES (:a, :b, :c, :d, :e)",
                      {uuid, name, version, now, module_list});
    return true;
  });
}

bool Resource_Store::knows_host(const std::string& uuid, bool& known) {
  return database_.read([&](Sql_Session& session) {
    known = session.first("SELECT uuid FROM hosts WHERE uuid = :a", {uuid}, 1).has_value();
  });
}

bool Resource_Store::list_hosts(const List_Query& query, List_Page& page) {
  return database_.read([&](Sql_Session& session) {
    page.total = count_rows(session, "hosts", query);
    for (const Sql_Row& row : select_rows(session, "hosts", "uuid, name, version, last_seen, modules", 5, query)) {
      json_spirit::Value modules;
      if (!json_spirit::load_json(row.text(4), modules)) modules = json_spirit::Array();
      page.rows.emplace_back(json_spirit::Object{{"uuid", row.text(0)},
                                                 {"name", row.text(1)},
                                                 {"version", row.text(2)},
                                                 {"last_seen", row.text(3)},
                                                 {"modules", modules}});
    }
  });
}

}  // namespace backupd
