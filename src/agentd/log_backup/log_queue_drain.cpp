#include "agentd/log_backup/log_queue_drain.h"

#include <algorithm>
#include <iterator>

#include "agent/backupd_client/common_http_session_factory.h"
#include "agent/backupd_client/json_http_session.h"
#include "platform/log.h"
#include "scrt/http_query_string_builder.h"

namespace agentd {

namespace {

constexpr const char* drain_path = "/q5/r/v2/backint/ondemand-runs/drain";
constexpr const char* resources_path = "/q5/r/v2/resources?";
constexpr int request_retries = 2;
constexpr int request_seconds = 30;
constexpr std::size_t named_at_most = 10;

std::string text_of(const json_spirit::Object& object, const char* key) {
  std::string text;
  (void)json_spirit::object_get(object, key, text);
  return text;
}

json_spirit::Object object_of(const json_spirit::Object& object, const char* key) {
  json_spirit::Object inner;
  (void)json_spirit::object_get(object, key, inner);
  return inner;
}

json_spirit::Array rows_of(const json_spirit::Value& reply) {
  json_spirit::Array rows;
  if (reply.is_object()) (void)json_spirit::object_get(reply.get_obj(), "rows", rows);
  return rows;
}

/// The system id of the resource; `otherwise` when backupd does not tell.
std::string system_id(const JSON_HTTP_Session& session, const std::string& resource_uuid, std::string otherwise) {
  std::string path = resources_path;
  HTTP_Query_String_Builder_T(std::back_inserter(path))("uuid", resource_uuid);
  json_spirit::Value reply;
  JSON_HTTP_Failure failure;
  if (resource_uuid.empty() || !session.get(path, reply, &failure)) return otherwise;
  for (const json_spirit::Value& row : rows_of(reply)) {
    json_spirit::Array instances;
    if (!row.is_object() || !json_spirit::object_get(row.get_obj(), "instances", instances)) continue;
    for (const json_spirit::Value& instance : instances)
      if (instance.is_object())
        if (std::string sid = text_of(object_of(instance.get_obj(), "extended_attrs"), "sid"); !sid.empty()) return sid;
  }
  return otherwise;
}

/// One database; the time is that of all of them.
class Drain {
 public:
  Drain(const JSON_HTTP_Session& session, json_spirit::Object database, platform::Wait_Event& stop)
      : session_(session), database_(std::move(database)), name_(text_of(database_, "database")), stop_(stop) {}

  void run(std::chrono::steady_clock::time_point end) {
    platform::Clock& clock = platform::Clock::current();
    if (!ask() || waiting_.empty()) return;
    D3_INFO("%q log backups of %C are recorded before it is restored\n", static_cast<std::int64_t>(waiting_.size()),
            name_.c_str());
    std::chrono::nanoseconds pause = drain_first_poll;
    while (!waiting_.empty() && clock.steady_now() < end) {
      if (clock.wait_for(stop_, std::min<std::chrono::nanoseconds>(pause, end - clock.steady_now())) || !ask()) return;
      pause = std::min<std::chrono::nanoseconds>(2 * pause, drain_poll);
    }
    tell_left();
  }

 private:
  /// What is due is asked for each time: a backup that was tried meanwhile would have its pause again.
  bool ask() {
    json_spirit::Value reply;
    JSON_HTTP_Failure failure;
    if (!session_.post(drain_path, database_, reply, &failure)) {
      D3_WARNING(
          "Whether log backups of %C wait to be recorded is not known, backupd does not tell: %C; the restore goes "
          "on\n",
          name_.c_str(), platform::cut_for_log(failure.message).c_str());
      return false;
    }
    waiting_ = rows_of(reply);
    return true;
  }

  void tell_left() const {
    for (std::size_t i = 0; i < std::min(waiting_.size(), named_at_most); ++i) {
      const json_spirit::Object row = waiting_[i].is_object() ? waiting_[i].get_obj() : json_spirit::Object();
      D3_WARNING("A log backup of %C is not recorded yet, the Backint job is %C: %C; the restore goes on\n",
                 name_.c_str(), platform::cut_for_log(text_of(row, "backint_job_uuid")).c_str(),
                 platform::cut_for_log(text_of(row, "message")).c_str());
    }
    if (waiting_.size() > named_at_most)
      D3_WARNING("%q more log backups of %C are not recorded yet\n",
                 static_cast<std::int64_t>(waiting_.size() - named_at_most), name_.c_str());
  }

  const JSON_HTTP_Session& session_;
  const json_spirit::Object database_;
  const std::string name_;
  platform::Wait_Event& stop_;
  json_spirit::Array waiting_;
};

}  // namespace

Restored_Databases Restored_Databases::of(const json_spirit::Value& definition) {
  Restored_Databases restored;
  if (!definition.is_object() || text_of(definition.get_obj(), "type") != "restore") return restored;
  restored.resource_uuid = text_of(object_of(definition.get_obj(), "target"), "resource_uuid");
  json_spirit::Array entries;
  (void)json_spirit::object_get(object_of(definition.get_obj(), "source"), "entries", entries);
  for (const json_spirit::Value& entry : entries) {
    if (!entry.is_object()) continue;
    const json_spirit::Object original = object_of(entry.get_obj(), "original");
    std::string name = text_of(object_of(entry.get_obj(), "restore_as"), "database");
    if (name.empty()) name = text_of(original, "database");
    if (restored.sid.empty()) restored.sid = text_of(original, "sid");
    auto& known = restored.databases;
    if (!name.empty() && std::find(known.begin(), known.end(), name) == known.end()) known.push_back(std::move(name));
  }
  return restored;
}

void drain_log_backups(const Restored_Databases& restored, const std::string& host_uuid, platform::Wait_Event& stop) {
  if (restored.databases.empty()) return;
  const JSON_HTTP_Session session(Common_HTTP_Session_Factory::configured(), request_retries, request_seconds);
  if (!session) return;  // the cause is logged; the restore needs the server and will say so
  const std::string sid = system_id(session, restored.resource_uuid, restored.sid);
  const auto end = platform::Clock::current().steady_now() + drain_limit;
  for (const std::string& database : restored.databases) {
    if (stop.is_set()) return;
    Drain(session, {{"host_uuid", host_uuid}, {"sid", sid}, {"database", database}}, stop).run(end);
  }
}

}  // namespace agentd
