#include "backupd/agents/agent_requests.h"

#include <algorithm>

#include "backupd/jobs/run_starter.h"

namespace backupd {

namespace {

constexpr std::chrono::seconds probe_timeout{120};
// Every object of a set is read back, however large it is.
constexpr std::chrono::hours verify_timeout{24};
constexpr std::int64_t call_default_seconds = 120;
constexpr std::int64_t call_largest_seconds = 3600;
constexpr char system_database[] = "SYSTEMDB";

/// The user id under which HANA asks for objects: "<database>@<SID>", the plain SID for the system database.
std::string backint_user(const std::string& database, const std::string& sid) {
  return database == system_database || database.empty() ? sid : database + "@" + sid;
}

/// What the agent said of one object, put beside what it was asked.
json_spirit::Object verdict(const json_spirit::Object& asked, const json_spirit::Value* said) {
  std::string name;
  std::string message = "the agent said nothing of this object";
  std::uint64_t size = 0;
  std::uint64_t bytes = 0;
  bool ok = false;
  json_spirit::object_get(asked, "name", name);
  json_spirit::object_get(asked, "size", size);
  if (said != nullptr && said->is_object()) {
    message.clear();
    json_spirit::object_get(said->get_obj(), "ok", ok);
    json_spirit::object_get(said->get_obj(), "message", message);
    if (ok && json_spirit::object_get(said->get_obj(), "bytes", bytes) && bytes != size) {
      ok = false;
      message = "read " + std::to_string(bytes) + " bytes, stored were " + std::to_string(size);
    }
  }
  return {{"name", name}, {"size", size}, {"ok", ok}, {"message", message}};
}

json_spirit::Object verdicts(const json_spirit::Array& asked, const json_spirit::Value& answer) {
  json_spirit::Array said;
  json_spirit::Array rows;
  bool all = true;
  if (answer.is_object()) json_spirit::object_get(answer.get_obj(), "objects", said);
  for (std::size_t i = 0; i < asked.size(); ++i) {
    json_spirit::Object row = verdict(asked[i].get_obj(), i < said.size() ? &said[i] : nullptr);
    bool ok = false;
    json_spirit::object_get(row, "ok", ok);
    all = all && ok;
    rows.emplace_back(std::move(row));
  }
  return {{"objects", rows}, {"ok", all && !asked.empty()}};
}

}  // namespace

Outcome Agent_Requests::objects_of(const json_spirit::Object& set, json_spirit::Array& objects) {
  std::string database;
  json_spirit::Array files;
  json_spirit::object_get(set, "database", database);
  json_spirit::object_get(set, "files", files);
  for (const json_spirit::Value& file : files) {
    File_Filter filter;
    filter.database = database;
    json_spirit::object_get(file.get_obj(), "extern_backup_id", filter.extern_backup_id);
    json_spirit::object_get(file.get_obj(), "origin_path", filter.origin_path);
    List_Query newest;
    newest.descending = true;
    newest.limit = 1;
    List_Page page;
    if (!backint_.list_files(filter, newest, page))
      return Outcome::refuse(Outcome::internal, "the file records cannot be read now; see the server's log");
    std::string sid;
    std::uint64_t size = 0;
    if (!page.rows.empty()) json_spirit::object_get(page.rows.front().get_obj(), "sid", sid);
    json_spirit::object_get(file.get_obj(), "size", size);
    objects.emplace_back(json_spirit::Object{{"ebid", filter.extern_backup_id},
                                             {"name", filter.origin_path},
                                             {"user", backint_user(database, sid)},
                                             {"size", size}});
  }
  return {};
}

Outcome Agent_Requests::verify(const std::string& set_uuid, json_spirit::Object& result) {
  json_spirit::Object set;
  json_spirit::Array objects;
  std::string host_uuid;
  if (Outcome outcome = sets_.get(set_uuid, set); !outcome.ok()) return outcome;
  if (Outcome outcome = objects_of(set, objects); !outcome.ok()) return outcome;
  json_spirit::object_get(set, "host_uuid", host_uuid);
  const JSON_RPC_Answer answer =
      agents_.call(host_uuid, "backint.verify", json_spirit::Object{{"objects", objects}}, verify_timeout);
  if (!answer.ok) return refusal_of(answer);
  result = verdicts(objects, answer.result);
  return {};
}

Outcome Agent_Requests::probe(const std::string& host_uuid, json_spirit::Array& resources) {
  const JSON_RPC_Answer answer = agents_.call(host_uuid, "instance.probe", json_spirit::Object(), probe_timeout);
  if (!answer.ok) return refusal_of(answer);
  json_spirit::Array instances;
  if (!answer.result.is_object() || !json_spirit::object_get(answer.result.get_obj(), "instances", instances))
    return Outcome::refuse(Outcome::invalid, "the agent's answer holds no \"instances\"");
  for (const json_spirit::Value& value : instances) {
    Instance_Registration instance;
    json_spirit::Object resource;
    if (!value.is_object()) return Outcome::refuse(Outcome::invalid, "the agent's \"instances\" hold no objects");
    if (Outcome outcome = instance.read(value.get_obj(), host_uuid, Instance_Registration::Origin::agent);
        !outcome.ok())
      return outcome;
    instance.host_uuid = host_uuid;
    if (Outcome outcome = resources_.add(instance, resource); !outcome.ok()) return outcome;
    resources.emplace_back(std::move(resource));
  }
  return {};
}

Outcome Agent_Requests::discover(const std::string& host_uuid, json_spirit::Object& result) {
  const std::vector<std::string> hosts = host_uuid.empty() ? agents_.hosts() : std::vector<std::string>{host_uuid};
  if (hosts.empty()) return Outcome::refuse(Outcome::unavailable, "no agent is connected; start one and try again");
  json_spirit::Array rows;
  json_spirit::Array errors;
  for (const std::string& host : hosts) {
    const Outcome outcome = probe(host, rows);
    if (outcome.ok()) continue;
    if (!host_uuid.empty()) return outcome;
    errors.emplace_back(json_spirit::Object{{"host_uuid", host}, {"message", outcome.message}});
  }
  result = {{"total", rows.size()}, {"rows", rows}, {"errors", errors}};
  return {};
}

Outcome Agent_Requests::call(const Identity& who, const std::string& host_uuid, const std::string& method,
                             const json_spirit::Value& params, std::int64_t timeout_seconds,
                             json_spirit::Value& result) {
  const std::int64_t seconds =
      timeout_seconds == 0 ? call_default_seconds : std::min(timeout_seconds, call_largest_seconds);
  JSON_RPC_Answer answer;
  if (Outcome outcome = gate_.call(who, host_uuid, method, params, std::chrono::seconds(seconds), nullptr, answer);
      !outcome.ok())
    return outcome;
  if (!answer.ok) return refusal_of(answer);
  result = answer.result;
  return {};
}

}  // namespace backupd
