#include "backupd/agents/audit_store.h"

#include "platform/clock.h"
#include "platform/log.h"
#include "scrt/time_text.h"

namespace backupd {

namespace {

/// The params that an entry keeps.
constexpr const char* subject_keys[] = {"sid",        "instance_name",   "action",     "database",
                                        "origin_sid", "origin_database", "target_sid", "target_database"};
constexpr std::size_t subject_bytes = 200;
constexpr std::size_t message_bytes = 1000;
constexpr const char* result_sent = "sent";

std::string now_text() { return posix_time_to_utc_text(platform::Clock::current().wall_seconds()); }

json_spirit::Object subject_of(const json_spirit::Value& params) {
  json_spirit::Object subject;
  if (!params.is_object()) return subject;
  for (const char* key : subject_keys) {
    std::string text;
    if (json_spirit::object_get(params.get_obj(), key, text)) subject[key] = platform::cut_for_log(text, subject_bytes);
  }
  return subject;
}

}  // namespace

bool Audit_Store::begin(const Identity& who, const std::string& host_uuid, const std::string& method,
                        const json_spirit::Value& params, std::int64_t& id) {
  return database_.write([&](Sql_Session& session) {
    id = session.next_number("audit");
    json_spirit::Object entry{{"id", id},
                              {"time", now_text()},
                              {"role", role_name(who.role)},
                              {"key_id", who.key_id},
                              {"from_host_uuid", who.host_uuid},
                              {"host_uuid", host_uuid},
                              {"method", platform::cut_for_log(method, subject_bytes)}};
    for (const auto& [key, value] : subject_of(params)) entry[key] = value;
    entry["result"] = result_sent;
    session.execute("INSERT INTO audit (id, host_uuid, document) VALUES (:a, :b, :c)",
                    {id, host_uuid, json_spirit::dump_json(entry)});
    session.execute("DELETE FROM audit WHERE id <= :a", {id - kept_entries});
    return true;
  });
}

bool Audit_Store::end(std::int64_t id, const char* result, const std::string& message) {
  return database_.write([&](Sql_Session& session) {
    const auto row = session.first("SELECT document FROM audit WHERE id = :a", {id}, 1);
    if (!row) return true;  // kept no more
    json_spirit::Object entry = stored_object(row->text(0));
    entry["result"] = result;
    entry["end_time"] = now_text();
    if (!message.empty()) entry["message"] = platform::cut_for_log(message, message_bytes);
    session.execute("UPDATE audit SET document = :a WHERE id = :b", {json_spirit::dump_json(entry), id});
    return true;
  });
}

Outcome Audit_Store::with_entry(const Identity& who, const std::string& host_uuid, const std::string& method,
                                const json_spirit::Value& params, const Action& action) {
  std::int64_t entry = 0;
  if (!begin(who, host_uuid, method, params, entry))
    return Outcome::refuse(Outcome::internal,
                           "nothing was done, for it cannot be written into the audit log; see the server's log");
  std::string message;
  Outcome outcome = action(message);
  const char* const result = outcome.ok() ? "done" : outcome.kind == Outcome::forbidden ? "refused" : "failed";
  if (!end(entry, result, outcome.ok() ? message : outcome.message))
    D3_WARNING("What came of the action %q stays out of the audit log\n", static_cast<ACE_INT64>(entry));
  return outcome;
}

bool Audit_Store::list(const List_Query& query, List_Page& page) {
  return database_.read([&](Sql_Session& session) {
    page.total = count_rows(session, "audit", query);
    for (const Sql_Row& row : select_rows(session, "audit", "document", 1, query))
      page.rows.emplace_back(stored_object(row.text(0)));
  });
}

}  // namespace backupd
