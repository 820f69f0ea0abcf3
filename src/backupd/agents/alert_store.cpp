#include "backupd/agents/alert_store.h"

#include "backupd/http/body_reader.h"
#include "platform/clock.h"
#include "scrt/time_text.h"
#include "scrt/uuid.h"

namespace backupd {

namespace {

struct Alert {
  std::string uuid;
  std::string job_act_id;
  std::string job_id;
  json_spirit::Object document;
};

Outcome read_alert(const json_spirit::Object& body, Alert& alert) {
  std::int64_t alert_class = 0;
  std::int64_t code = 0;
  std::int64_t flags = 0;
  std::int64_t level = 0;
  std::string job_name;
  std::string host_uuid;
  std::string time;
  Body_Reader reader(body, "the alert");
  reader.uuid("uuid", alert.uuid);
  reader.number("class", alert_class, Need::required);
  reader.number("code", code, Need::required);
  reader.number("flags", flags);
  reader.number("level", level);
  reader.allow("parameters");
  reader.text("job_act_id", alert.job_act_id);
  reader.text("job_id", alert.job_id);
  reader.text("job_name", job_name);
  reader.text("host_uuid", host_uuid);
  reader.text("time", time);
  if (Outcome outcome = reader.finish(); !outcome.ok()) return outcome;
  if (time.empty()) time = posix_time_to_utc_text(platform::Clock::current().wall_seconds());
  if (!is_utc_time(time))
    return Outcome::refuse(Outcome::invalid, "the \"time\" of the alert does not read YYYY-MM-DD HH:MM:SS");
  if (alert.uuid.empty()) alert.uuid = make_uuid();
  const json_spirit::Value* parameters = body.find("parameters");
  const bool none = parameters == nullptr || parameters->is_null();
  alert.document = {{"uuid", alert.uuid},
                    {"time", time},
                    {"class", alert_class},
                    {"code", code},
                    {"flags", flags},
                    {"parameters", none ? json_spirit::Value(json_spirit::Object()) : *parameters},
                    {"level", level},
                    {"job_id", alert.job_id},
                    {"job_act_id", alert.job_act_id},
                    {"job_name", job_name},
                    {"host_uuid", host_uuid}};
  return {};
}

}  // namespace

Outcome Alert_Store::add(const json_spirit::Object& body, json_spirit::Object& stored) {
  Alert alert;
  if (Outcome outcome = read_alert(body, alert); !outcome.ok()) return outcome;
  Outcome outcome;
  const bool committed = database_.write([&](Sql_Session& session) {
    if (const auto known = session.first("SELECT document FROM alerts WHERE uuid = :a", {alert.uuid}, 1)) {
      stored = stored_object(known->text(0));
      outcome.kind = Outcome::already_done;
      return true;
    }
    const std::int64_t id = session.next_number("alert");
    alert.document["id"] = id;
    session.execute("INSERT INTO alerts (id, uuid, job_act_id, job_id, document) VALUES (:a, :b, :c, :d, :e)",
                    {id, alert.uuid, alert.job_act_id, alert.job_id, json_spirit::dump_json(alert.document)});
    stored = alert.document;
    return true;
  });
  if (!committed) return Outcome::refuse(Outcome::internal, "the alert cannot be stored; see the server's log");
  return outcome;
}

bool Alert_Store::list(const List_Query& query, List_Page& page) {
  return database_.read([&](Sql_Session& session) {
    page.total = count_rows(session, "alerts", query);
    for (const Sql_Row& row : select_rows(session, "alerts", "document", 1, query))
      page.rows.emplace_back(stored_object(row.text(0)));
  });
}

}  // namespace backupd
