#include "dorsal3/log_backup/log_queue.h"

#include <algorithm>

#include "dorsal3/terminal/format.h"
#include "platform/clock.h"

namespace dorsal3 {

namespace {

constexpr std::uint64_t rows_at_once = 10000;
constexpr const char* queue_path = "/backint/ondemand-runs";

/// A database of the subject with something in the queue.
struct Queued {
  std::string host;
  std::string host_uuid;
  std::string database;
  Log_Queue queue;
};

void add(Log_Queue& queue, const json_spirit::Object& row, std::chrono::milliseconds now) {
  // In the order of the queue: the first row is the oldest.
  if (queue.empty()) {
    const std::chrono::milliseconds stored(number_member(row, "stored_ms"));
    if (stored.count() != 0) queue.oldest = std::chrono::duration_cast<std::chrono::seconds>(now - stored);
    queue.oldest = std::max(queue.oldest, std::chrono::seconds(0));
    queue.message = text_member(row, "message");
  }
  ++(text_member(row, "state") == "given up" ? queue.given_up : queue.waiting);
}

bool queued_of(Context& context, const Log_Backup_Picture& picture, const Backup_Subject& subject,
               std::vector<Queued>& found, Failure& failure) {
  for (const Log_Backup_Host& host : picture.hosts) {
    Log_Queues queues;
    if (!read_log_queues(context.server, picture.resource, host.uuid, queues, failure)) return false;
    for (const auto& [database, queue] : queues)
      if (subject.database.empty() || database == subject.database)
        found.push_back({host.name, host.uuid, database, queue});
  }
  return true;
}

json_spirit::Object result_row(const Queued& one, const char* state, std::uint64_t count) {
  return {{"host", one.host},         {"host_uuid", one.host_uuid},
          {"database", one.database}, {"state", state},
          {"count", count},           {"message", one.database + ": " + std::to_string(count) + " log backups"}};
}

json_spirit::Object model_of(const Log_Backup_Picture& picture, const Backup_Subject& subject, json_spirit::Array rows,
                             const std::string& result) {
  return {{"instance", picture.resource.name},
          {"database", subject.database},
          {"hosts", std::move(rows)},
          {"notes", json_spirit::Array()},
          {"result", result}};
}

json_spirit::Object place_of(const Log_Backup_Picture& picture, const Queued& one) {
  return {{"host_uuid", one.host_uuid}, {"sid", picture.resource.system_id()}, {"database", one.database}};
}

}  // namespace

std::string Log_Queue::text() const {
  std::string text = std::to_string(waiting) + " wait";
  if (oldest.count() != 0) text += ", the oldest for " + format_span(oldest);
  if (!message.empty()) text += ": " + message;
  if (given_up != 0) text += "; " + std::to_string(given_up) + " given up";
  return text;
}

bool read_log_queues(Server_Client& server, const Resource& resource, const std::string& host_uuid, Log_Queues& queues,
                     Failure& failure) {
  const auto now =
      std::chrono::duration_cast<std::chrono::milliseconds>(platform::Clock::current().now().time_since_epoch());
  const std::string path = std::string(queue_path) + "?limit=" + std::to_string(rows_at_once) + "&" +
                           query_pair("host_uuid", host_uuid) + "&" + query_pair("sid", resource.system_id());
  std::uint64_t offset = 0;
  std::uint64_t total = 0;
  do {
    std::vector<json_spirit::Object> rows;
    const std::string from = offset == 0 ? "" : "&offset=" + std::to_string(offset);
    if (!server.get_page(path + from, rows, total, failure)) return false;
    if (rows.empty()) break;
    for (const auto& row : rows) add(queues[text_member(row, "database")], row, now);
    offset += rows.size();
  } while (offset < total);
  return true;
}

Outcome retry_log_backups(Context& context, const Log_Backup_Picture& picture, const Backup_Subject& subject) {
  Failure failure;
  std::vector<Queued> all;
  if (!queued_of(context, picture, subject, all, failure)) return Outcome::failed(std::move(failure));
  json_spirit::Array rows;
  for (const Queued& one : all) {
    json_spirit::Object answer;
    json_spirit::Object body = place_of(picture, one);
    body["retry"] = true;
    if (!context.server.post(std::string(queue_path) + "/drain", body, answer, failure))
      return Outcome::failed(std::move(failure));
    rows.emplace_back(result_row(one, "retried", one.queue.waiting + one.queue.given_up));
  }
  Outcome outcome;
  outcome.model = model_of(
      picture, subject, std::move(rows),
      all.empty() ? "No log backup waits to be recorded."
                  : "They are recorded now, one after the other; see: dorsal3 log-backup status " + subject.instance);
  return outcome;
}

Outcome drop_log_backups(Context& context, const Log_Backup_Picture& picture, const Backup_Subject& subject, bool yes) {
  Failure failure;
  std::vector<Queued> all;
  if (!queued_of(context, picture, subject, all, failure)) return Outcome::failed(std::move(failure));
  std::erase_if(all, [](const Queued& one) { return one.queue.given_up == 0; });
  std::uint64_t count = 0;
  for (const Queued& one : all) count += one.queue.given_up;
  if (count != 0 && !yes) {
    failure = {exit_usage, "usage",
               std::to_string(count) +
                   " log backups that were given up would be in no set: where HANA calls them saved, the chain of logs "
                   "has a gap there. Nothing was changed. Say --yes to drop them, or try them again: dorsal3 "
                   "log-backup retry " +
                   subject.instance};
    return Outcome::failed(std::move(failure));
  }
  json_spirit::Array rows;
  for (const Queued& one : all) {
    json_spirit::Object answer;
    if (!context.server.post(std::string(queue_path) + "/drop", place_of(picture, one), answer, failure))
      return Outcome::failed(std::move(failure));
    rows.emplace_back(result_row(one, "dropped", number_member(answer, "total")));
  }
  Outcome outcome;
  outcome.model = model_of(picture, subject, std::move(rows),
                           all.empty() ? "No log backup was given up: nothing was dropped."
                                       : "They are out of the queue; their objects stay on the pool.");
  return outcome;
}

}  // namespace dorsal3
