#include "backupd/restore/restored_bytes.h"

#include "backupd/jobs/activity_rows.h"
#include "backupd/store/list_query.h"

namespace backupd {

namespace {

std::string text_of(const json_spirit::Object& object, const char* key) {
  std::string text;
  json_spirit::object_get(object, key, text);
  return text;
}

json_spirit::Object member_of(const json_spirit::Object& object, const char* key) {
  json_spirit::Object member;
  json_spirit::object_get(object, key, member);
  return member;
}

/// Under its own name unless it says otherwise.
bool restores_into(const json_spirit::Object& definition, const std::string& database) {
  json_spirit::Array entries;
  json_spirit::object_get(member_of(definition, "source"), "entries", entries);
  for (const json_spirit::Value& value : entries) {
    if (!value.is_object()) continue;
    const std::string as = text_of(member_of(value.get_obj(), "restore_as"), "database");
    const std::string original = text_of(member_of(value.get_obj(), "original"), "database");
    if ((as.empty() ? original : as) == database) return true;
  }
  return false;
}

/// Whether the system has an instance `sid` on the host.
bool runs_on(Sql_Session& session, const std::string& resource, const std::string& host_uuid, const std::string& sid) {
  for (const Sql_Row& row :
       session.query("SELECT extended_attrs FROM instances WHERE resource_uuid = :a AND host_uuid = :b",
                     {resource, host_uuid}, 1))
    if (text_of(stored_object(row.text(0)), "sid") == sid) return true;
  return false;
}

/// HANA gives a system without tenants one database that is called like it.
std::string run_into(Sql_Session& session, const Restored_Report& report) {
  const std::string& database = report.database.empty() ? report.sid : report.database;
  for (const Sql_Row& row :
       session.query("SELECT a.id, d.document FROM activities AS a JOIN job_definitions AS d ON d.id = a.def_id "
                     "WHERE a.ended = 0 AND a.kind = :a ORDER BY a.seq DESC",
                     {std::string(kind_of_restore)}, 2)) {
    const json_spirit::Object definition = stored_object(row.text(1));
    const std::string resource = text_of(member_of(definition, "target"), "resource_uuid");
    if (restores_into(definition, database) && runs_on(session, resource, report.host_uuid, report.sid))
      return row.text(0);
  }
  return {};
}

/// Reports are handled side by side, so an older one may come after a newer one.
void note(Sql_Session& session, const std::string& run, const Restored_Report& report) {
  const auto known =
      session.first("SELECT bytes FROM restored WHERE job_act_id = :a AND call_uuid = :b", {run, report.call}, 1);
  if (!known)
    session.execute("INSERT INTO restored (job_act_id, call_uuid, bytes) VALUES (:a, :b, :c)",
                    {run, report.call, report.bytes});
  else if (known->number(0) < report.bytes)
    session.execute("UPDATE restored SET bytes = :a WHERE job_act_id = :b AND call_uuid = :c",
                    {report.bytes, run, report.call});
}

}  // namespace

Outcome Restored_Bytes::add(const Restored_Report& report, std::string& job_act_id) {
  std::string run;
  const bool stored = database_.write([&](Sql_Session& session) {
    run = run_into(session, report);
    if (!run.empty()) note(session, run, report);
    return true;
  });
  if (!stored) return Outcome::refuse(Outcome::internal, "what was restored cannot be noted now; see the server's log");
  job_act_id = run;
  return {};
}

std::int64_t restored_bytes_of(Sql_Session& session, const std::string& job_act_id) {
  const auto row = session.first("SELECT coalesce(sum(bytes), 0) FROM restored WHERE job_act_id = :a", {job_act_id}, 1);
  return row ? row->number(0) : 0;
}

}  // namespace backupd
