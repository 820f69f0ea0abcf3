#include "backupd/backint/backint_check.h"
#include "backupd/http/body_reader.h"
#include "backupd/http/routes.h"
#include "backupd/server_core.h"
#include "scrt/numbers.h"

namespace backupd {

namespace {

constexpr std::size_t most_files_at_once = 10000;
/// In the audit log.
constexpr char drop_action[] = "log_backup.drop";
constexpr char retry_action[] = "log_backup.retry";
const std::vector<std::pair<std::string, std::string>> sorts = {{"id", "id"}};

Reply get_jobs(Server_Core& core, const Request& request) {
  List_Query query;
  List_Page page;
  if (Outcome outcome = read_list_query(request, sorts, query); !outcome.ok()) return outcome;
  query.where_given("host_uuid", request.parameter("host_uuid"));
  query.where_given("job_act_id", request.parameter("job_act_id"));
  query.where_given("database_name", request.parameter("database"));
  if (!core.backint.list_jobs(query, page)) return store_unavailable();
  return page;
}

Reply post_job(Server_Core& core, const Request& request) {
  sap_hana::Backint_Backup_Job_Info job;
  if (Outcome outcome = read_backint_job(request.body, job); !outcome.ok()) return outcome;
  const Outcome outcome = core.backint.add_job(job);
  return stored_reply(outcome, job.to_json());
}

Reply post_ondemand_job(Server_Core& core, const Request& request) {
  sap_hana::Backint_Backup_Job_Info job;
  json_spirit::Object stored;
  if (Outcome outcome = read_ondemand_job(request.body, job); !outcome.ok()) return outcome;
  const Outcome outcome = core.backint.add_ondemand_job(std::move(job), stored);
  return stored_reply(outcome, std::move(stored));
}

Reply get_job(Server_Core& core, const Request& request) {
  json_spirit::Object record;
  if (Outcome outcome = core.backint.get_job(request.parameters.at(0), record); !outcome.ok()) return outcome;
  return json_spirit::Value(record);
}

Reply patch_job(Server_Core& core, const Request& request) {
  std::int64_t database_backup_id = 0;
  Body_Reader reader(request.body, "the change of a Backint job record");
  reader.number("database_backup_id", database_backup_id, Need::required);
  if (Outcome outcome = reader.finish(); !outcome.ok()) return outcome;
  if (Outcome outcome = core.backint.set_backup_id(request.parameters.at(0), database_backup_id); !outcome.ok())
    return outcome;
  return get_job(core, request);
}

Reply delete_job(Server_Core& core, const Request& request) {
  if (Outcome outcome = core.backint.take_job(request.parameters.at(0)); !outcome.ok()) return outcome;
  return get_job(core, request);
}

Reply get_job_files(Server_Core& core, const Request& request) {
  json_spirit::Array rows;
  if (Outcome outcome = core.backint.list_job_files(request.parameters.at(0), rows); !outcome.ok()) return outcome;
  const auto total = static_cast<std::int64_t>(rows.size());
  return List_Page{total, std::move(rows)};
}

Reply post_job_files(Server_Core& core, const Request& request) {
  json_spirit::Array array;
  json_spirit::Array stored;
  bool last = false;
  std::vector<sap_hana::Backup_File_Info> files;
  Body_Reader reader(request.body, "the list of file records");
  reader.array("files", array, Need::required);
  reader.flag("last", last);
  if (Outcome outcome = reader.finish(); !outcome.ok()) return outcome;
  if (array.empty() || array.size() > most_files_at_once)
    return Outcome::refuse(Outcome::invalid,
                           "\"files\" must hold 1 to " + std::to_string(most_files_at_once) + " records");
  for (const json_spirit::Value& value : array) {
    sap_hana::Backup_File_Info file;
    if (Outcome outcome = read_backint_file(value, request.parameters.at(0), file); !outcome.ok()) return outcome;
    files.push_back(std::move(file));
  }
  const Outcome outcome = core.backint.add_files(request.parameters.at(0), std::move(files), last, stored);
  if (last && outcome.ok()) core.starter.wake();
  const std::size_t total = stored.size();
  return stored_reply(outcome, json_spirit::Object{{"total", total}, {"rows", std::move(stored)}});
}

Reply get_files(Server_Core& core, const Request& request) {
  List_Query query;
  List_Page page;
  query.descending = true;
  if (Outcome outcome = read_list_query(request, sorts, query); !outcome.ok()) return outcome;
  const File_Filter filter{request.parameter("host_uuid"), request.parameter("sid"), request.parameter("database"),
                           request.parameter("origin_path"), request.parameter("extern_backup_id")};
  if (!core.backint.list_files(filter, query, page)) return store_unavailable();
  return page;
}

Reply delete_file(Server_Core& core, const Request& request) {
  std::uint64_t id = 0;
  if (!parse_uint64(request.parameters.at(0), id))
    return Outcome::refuse(Outcome::bad_request, "the id of a file record is a number");
  const std::string force = request.parameter("force");
  if (!force.empty() && force != "0" && force != "1")
    return Outcome::refuse(Outcome::bad_request, "the parameter \"force\" is 0 or 1");
  if (Outcome outcome = core.backint.remove_file(static_cast<std::int64_t>(id), force == "1"); !outcome.ok())
    return outcome;
  return json_spirit::Value(json_spirit::Object());
}

Reply get_owed_runs(Server_Core& core, const Request& request) {
  List_Query query;
  List_Page page;
  if (Outcome outcome = read_list_query(request, sorts, query); !outcome.ok()) return outcome;
  query.where_given("host_uuid", request.parameter("host_uuid"));
  query.where_given("sid", request.parameter("sid"));
  query.where_given("database_name", request.parameter("database"));
  if (!core.backint.list_owed_runs(query, page)) return store_unavailable();
  return page;
}

void read_database(Body_Reader& reader, Ondemand_Database& database) {
  reader.uuid("host_uuid", database.host_uuid, Need::required);
  reader.text("sid", database.sid, Need::required);
  reader.text("database", database.name, Need::required);
}

/// What stands in the audit log of a drop or a retry.
json_spirit::Value subject_of(const Ondemand_Database& database) {
  return json_spirit::Object{{"sid", database.sid}, {"database", database.name}};
}

Outcome store_failed() { return Outcome::refuse(Outcome::internal, "the server's database failed; see its log"); }

Reply drop_owed_runs(Server_Core& core, const Request& request) {
  Ondemand_Database database;
  List_Page page;
  Body_Reader reader(request.body, "the database whose log backups shall be dropped");
  read_database(reader, database);
  if (Outcome outcome = reader.finish(); !outcome.ok()) return outcome;
  const auto drop = [&](std::string& message) {
    if (!core.backint.drop_owed_runs(database, page)) return store_failed();
    message = std::to_string(page.total) + " dropped";
    return Outcome();
  };
  const Outcome outcome =
      core.audit.with_entry(request.identity, database.host_uuid, drop_action, subject_of(database), drop);
  if (!outcome.ok()) return outcome;
  return page;
}

Outcome drain(Server_Core& core, const Identity& who, const Ondemand_Database& database, bool retry, List_Page& page) {
  if (who.role == role_agent && who.host_uuid != database.host_uuid)
    return Outcome::refuse(Outcome::forbidden, "the key belongs to the host " + who.host_uuid +
                                                   ", which has no say over the log backups of another one");
  if (!core.backint.drain_owed_runs(database, retry, page)) return store_failed();
  core.starter.wake();
  return {};
}

Reply drain_owed_runs(Server_Core& core, const Request& request) {
  Ondemand_Database database;
  bool retry = false;
  Body_Reader reader(request.body, "the database whose log backups shall be recorded");
  read_database(reader, database);
  reader.flag("retry", retry);
  if (Outcome outcome = reader.finish(); !outcome.ok()) return outcome;
  List_Page page;
  const auto retry_all = [&](std::string& message) {
    Outcome outcome = drain(core, request.identity, database, retry, page);
    message = std::to_string(page.total) + " wait to be recorded";
    return outcome;
  };
  // A drain alone changes nothing but the hour.
  const Outcome outcome =
      retry ? core.audit.with_entry(request.identity, database.host_uuid, retry_action, subject_of(database), retry_all)
            : drain(core, request.identity, database, retry, page);
  if (!outcome.ok()) return outcome;
  return page;
}

Reply get_restores(Server_Core& core, const Request& request) {
  const Restore_Place place{request.parameter("host_uuid"), request.parameter("sid"), request.parameter("database")};
  if (place.sid.empty()) return Outcome::refuse(Outcome::bad_request, "the parameter \"sid\" is missing");
  if (request.identity.role == role_agent && request.identity.host_uuid != place.host_uuid)
    return Outcome::refuse(Outcome::forbidden, "the key belongs to the host " + request.identity.host_uuid +
                                                   ", which has no say over the restores of another one");
  List_Page page;
  if (!core.running_restores.list(place, page)) return store_unavailable();
  return page;
}

/// {"job_act_id"}: the restore that it counts for, "" without one.
Reply post_restored(Server_Core& core, const Request& request) {
  Restored_Report report;
  std::string job_act_id;
  Body_Reader reader(request.body, "the report of what was restored");
  reader.uuid("host_uuid", report.host_uuid, Need::required);
  reader.text("sid", report.sid, Need::required);
  reader.text("database", report.database);
  reader.uuid("call", report.call, Need::required);
  reader.number("bytes", report.bytes, Need::required);
  if (Outcome outcome = reader.finish(); !outcome.ok()) return outcome;
  if (request.identity.host_uuid != report.host_uuid)
    return Outcome::refuse(Outcome::forbidden, "the key belongs to the host " + request.identity.host_uuid +
                                                   ", which cannot tell what another one restores");
  if (Outcome outcome = core.restored.add(report, job_act_id); !outcome.ok()) return outcome;
  return json_spirit::Value(json_spirit::Object{{"job_act_id", job_act_id}});
}

/// A route that answers JSON.
struct Json_Route {
  const char* method;
  std::string path;
  unsigned roles;
  std::vector<std::string> query_keys;
  Body body;
  Reply (*answer)(Server_Core& core, const Request& request);
};

}  // namespace

void add_backint_routes(Router& router, Server_Core& core) {
  const std::string backint = std::string(rest_prefix) + "/backint";
  const std::string job = backint + "/jobs/<uuid>";
  const std::string runs = backint + "/ondemand-runs";
  const Json_Route routes[] = {
      {"GET", backint + "/jobs", all_roles, with_list_keys({"host_uuid", "job_act_id", "database"}), Body::none,
       get_jobs},
      {"POST", backint + "/jobs", role_agent, {}, Body::json, post_job},
      {"POST", backint + "/on-demand-jobs", role_agent, {}, Body::json, post_ondemand_job},
      {"GET", runs, all_roles, with_list_keys({"host_uuid", "sid", "database"}), Body::none, get_owed_runs},
      {"POST", runs + "/drain", role_agent | role_operator, {}, Body::json, drain_owed_runs},
      {"POST", runs + "/drop", role_operator, {}, Body::json, drop_owed_runs},
      {"GET", backint + "/restores", all_roles, {"host_uuid", "sid", "database"}, Body::none, get_restores},
      {"POST", backint + "/restored", role_agent, {}, Body::json, post_restored},
      {"GET", job, all_roles, {}, Body::none, get_job},
      {"PATCH", job, role_agent, {}, Body::json, patch_job},
      {"DELETE", job, role_agent, {}, Body::none, delete_job},
      {"GET", job + "/files", all_roles, {}, Body::none, get_job_files},
      {"POST", job + "/files", role_agent, {}, Body::json, post_job_files},
      {"GET", backint + "/files", all_roles,
       with_list_keys({"host_uuid", "sid", "database", "origin_path", "extern_backup_id"}), Body::none, get_files},
      {"DELETE", backint + "/files/<id>", role_agent | role_operator, {"force"}, Body::none, delete_file}};
  for (const Json_Route& route : routes)
    router.add({route.method,
                route.path,
                route.roles,
                route.query_keys,
                route.body,
                [&core, answer = route.answer](Request& request) { return answer(core, request); },
                {}});
}

}  // namespace backupd
