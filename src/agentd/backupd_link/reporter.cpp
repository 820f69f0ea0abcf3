#include "agentd/backupd_link/reporter.h"

#include <algorithm>

#include "platform/log.h"
#include "scrt/time_text.h"
#include "scrt/uuid.h"

namespace agentd {

namespace {

constexpr const char* activities_key = "activities";
constexpr const char* logs_key = "logs";

/// One document of a list as a message of its own: a log is one, a state is in a list.
json_spirit::Object alone(const char* key, const json_spirit::Object& document) {
  if (key == logs_key) return document;
  return {{key, json_spirit::Array{document}}};
}

json_spirit::Object log_document(const std::string& job_act_id, json_spirit::Array lines) {
  return {{"job_act_id", job_act_id}, {"lines", std::move(lines)}};
}

json_spirit::Object line_document(unsigned long priority, const std::string& text, std::time_t time) {
  return {{"priority", priority}, {"text", text}, {"time", posix_time_to_utc_text(time)}};
}

/// Ids of the runs a report tells of.
std::vector<std::string> reported_ids(const json_spirit::Object& document) {
  std::vector<std::string> ids;
  json_spirit::Array activities;
  (void)json_spirit::object_get(document, activities_key, activities);
  for (const json_spirit::Value& activity : activities) {
    std::string id;
    if (activity.is_object() && json_spirit::object_get(activity.get_obj(), "id", id)) ids.push_back(std::move(id));
  }
  return ids;
}

}  // namespace

json_spirit::Object activity_document(const Job_Activity_Snapshot& activity) {
  return {{"id", activity.id},
          {"def_id", activity.def_id},
          {"state", static_cast<int>(activity.state)},
          {"progress", activity.progress},
          {"size", activity.size},
          {"set_size", activity.set_size},
          {"set_storage_size", activity.set_storage_size},
          {"processed_size", activity.processed_size},
          {"speed", activity.speed},
          {"code", activity.code},
          {"message", activity.message},
          {"type", static_cast<int>(activity.type)},
          {"start_time", activity.start_time},
          {"last_run_time", activity.last_run_time},
          {"next_run_time", activity.next_run_time}};
}

json_spirit::Object alert_document(const Job_Alert& alert) {
  return {{"uuid", make_uuid()},
          {"time", posix_time_to_utc_text(alert.time)},
          {"class", alert.alert_class},
          {"code", alert.code},
          {"flags", alert.flags},
          {"parameters", alert.parameters},
          {"level", alert.level},
          {"job_id", alert.job_id},
          {"job_act_id", alert.job_act_id},
          {"job_name", alert.job_name},
          {"host_uuid", alert.host_id}};
}

Reporter::Reporter(Outbox& outbox, Callbacks callbacks, std::chrono::seconds heartbeat)
    : outbox_(outbox), callbacks_(std::move(callbacks)), heartbeat_(heartbeat) {}

Reporter::~Reporter() { stop(); }

void Reporter::start() {
  thread_ = std::thread([this] { run(); });
}

void Reporter::stop() {
  stopping_ = true;
  work_.set();
  if (thread_.joinable()) thread_.join();
}

void Reporter::activity_changed(const Job_Activity_Snapshot& activity) {
  {
    const std::lock_guard lock(mutex_);
    pending_.activities[activity.id] = activity;
  }
  work_.set();
}

void Reporter::write(const Job_Log_Line& line) {
  {
    const std::lock_guard lock(mutex_);
    if (pending_.lines.size() >= log_limit_lines) {
      pending_.lines.erase(pending_.lines.begin());
      ++pending_.lost_lines;
    }
    pending_.lines.push_back(line);
  }
  work_.set();
}

void Reporter::raise(const Job_Alert& alert) {
  outbox_.put(Message_Kind::alert, alert_document(alert));
  work_.set();
}

void Reporter::run() {
  while (!stopping_) {
    platform::Clock& clock = platform::Clock::current();
    if (clock.wait_for(work_, heartbeat_) && !stopping_) clock.sleep_for(gathering);
    work_.reset();
    work();
  }
  work();
}

void Reporter::work() {
  away_ = !ready() || !send_kept();
  send_or_keep(take_pending());
}

bool Reporter::ready() {
  const std::uint64_t connection = callbacks_.connection();
  if (connection == 0) return false;
  if (connection == greeted_) return true;
  if (!callbacks_.greet()) return false;
  greeted_ = connection;
  return true;
}

Reporter::Pending Reporter::take_pending() {
  const std::lock_guard lock(mutex_);
  return std::exchange(pending_, {});
}

/// Lines before states: when a run is told to have ended, its log is there.
void Reporter::send_or_keep(const Pending& pending) {
  if (pending.lost_lines > 0)
    D3_WARNING("%Q lines of job logs were not sent to backupd, there were too many at once\n", pending.lost_lines);
  std::map<std::string, json_spirit::Array> batches;
  std::vector<json_spirit::Object> logs;
  const auto flush = [&](const std::string& id, json_spirit::Array& lines) {
    if (!lines.empty()) logs.push_back(log_document(id, std::exchange(lines, {})));
  };
  for (const Job_Log_Line& line : pending.lines) {
    json_spirit::Array& batch = batches[line.job_act_id];
    batch.emplace_back(line_document(line.priority, line.text, line.time));
    if (batch.size() >= log_batch_lines) flush(line.job_act_id, batch);
  }
  for (auto& [id, lines] : batches) flush(id, lines);
  offer_all(Message_Kind::log, logs_key, logs);
  std::vector<json_spirit::Object> under_way;
  std::vector<json_spirit::Object> ended;
  for (const auto& [id, activity] : pending.activities)
    (is_finished(activity.state) ? ended : under_way).push_back(activity_document(activity));
  offer_all(Message_Kind::progress, activities_key, under_way);
  offer_all(Message_Kind::final_state, activities_key, ended);
}

void Reporter::offer_all(Message_Kind kind, const char* key, const std::vector<json_spirit::Object>& documents) {
  for (std::size_t begin = 0; begin < documents.size(); begin += jobs_in_message) {
    const std::size_t end = std::min(begin + jobs_in_message, documents.size());
    const auto first = documents.begin() + static_cast<std::ptrdiff_t>(begin);
    const auto last = documents.begin() + static_cast<std::ptrdiff_t>(end);
    if (!away_ && end - begin > 1 && deliver_together(kind, key, json_spirit::Array(first, last))) continue;
    for (auto document = first; document != last; ++document) offer(kind, alone(key, *document));
  }
}

/// False when they are to be offered one by one: backupd is away, or one of them is refused, which must not cost the
/// others.
bool Reporter::deliver_together(Message_Kind kind, const char* key, json_spirit::Array documents) {
  const Message message{0, kind, {{key, std::move(documents)}}};
  std::string reason;
  const Delivery delivery = callbacks_.send(message, reason);
  if (delivery == Delivery::done) tell_ended(message);
  away_ = delivery == Delivery::away;
  return delivery == Delivery::done;
}

void Reporter::offer(Message_Kind kind, json_spirit::Object document) {
  const Message message{0, kind, std::move(document)};
  if (!away_) {
    if (deliver(message) != Delivery::away) return;
    away_ = true;
  }
  outbox_.put(kind, message.document);
}

bool Reporter::send_kept() {
  Message message;
  while (outbox_.oldest(message)) {
    if (deliver(message) == Delivery::away) return false;
    outbox_.remove(message.sequence);
  }
  return true;
}

Reporter::Delivery Reporter::deliver(const Message& message) {
  std::string reason;
  const Delivery delivery = callbacks_.send(message, reason);
  if (delivery == Delivery::refused)
    D3_ERROR("Backupd refused a message of this agent, %C\n", platform::cut_for_log(reason).c_str());
  if (delivery == Delivery::done) tell_ended(message);
  return delivery;
}

void Reporter::tell_ended(const Message& message) const {
  if (message.kind != Message_Kind::final_state) return;
  for (const std::string& id : reported_ids(message.document)) callbacks_.ended(id);
}

}  // namespace agentd
