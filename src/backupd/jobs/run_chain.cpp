#include "backupd/jobs/run_chain.h"

#include "backupd/jobs/activity_report.h"
#include "platform/clock.h"
#include "platform/log.h"
#include "scrt/uuid.h"

namespace backupd {

namespace {

constexpr char options_key[] = "options";
constexpr char left_key[] = "left";
constexpr char hand_over_key[] = "hand_over";
constexpr char stopped_key[] = "stopped";

bool is_defined(Sql_Session& session, const std::string& def_id) {
  return session.first("SELECT id FROM job_definitions WHERE id = :a", {def_id}, 1).has_value();
}

}  // namespace

std::optional<Run_Chain> Run_Chain::of(const json_spirit::Object& document) {
  json_spirit::Object object;
  if (!json_spirit::object_get(document, run_chain_key, object)) return std::nullopt;
  Run_Chain chain;
  json_spirit::Array hosts;
  int hand_over = waiting;
  json_spirit::object_get(object, options_key, chain.options);
  json_spirit::object_get(object, left_key, hosts);
  json_spirit::object_get(object, hand_over_key, hand_over);
  json_spirit::object_get(object, stopped_key, chain.stopped);
  for (const json_spirit::Value& host : hosts)
    if (host.is_string()) chain.left.push_back(host.get_str());
  chain.hand_over = static_cast<Hand_Over>(hand_over);
  return chain;
}

void Run_Chain::keep_in(json_spirit::Object& document) const {
  document[run_chain_key] = json_spirit::Object{{options_key, options},
                                                {left_key, json_spirit::Array(left.begin(), left.end())},
                                                {hand_over_key, static_cast<int>(hand_over)},
                                                {stopped_key, stopped}};
}

Activity_Row new_activity(const std::string& id, const std::string& def_id, const std::string& name,
                          const std::string& host_uuid) {
  Activity_Report report;
  const Outcome read = report.read(json_spirit::Object{{"id", id},
                                                       {"def_id", def_id},
                                                       {"state", static_cast<int>(JOB_STATE_DISPATCHING)},
                                                       {"start_time", platform::Clock::current().wall_seconds()}});
  if (!read.ok()) D3_EMERGENCY("Unexpected error in %N:%l, a new run cannot be noted: %C\n", read.message.c_str());
  report.document["name"] = name;
  report.document["host_uuid"] = host_uuid;
  return {id, def_id, host_uuid, report.state, std::move(report.document)};
}

void tell_passed_over(Sql_Session& session, const std::string& run, const std::vector<std::string>& hosts,
                      std::size_t count) {
  for (std::size_t i = 0; i < count; ++i)
    log_to_activity(session, run, Log_Level::warning,
                    "The agent of the host " + hosts[i] + " is not connected, the host is passed over\n");
}

bool follow_declined_run(Sql_Session& session, Activity_Row& declined, const Choose_Host& choose) {
  std::optional<Run_Chain> chain = Run_Chain::of(declined.document);
  if (!chain || chain->stopped || chain->left.empty()) return false;
  const std::optional<std::size_t> chosen = choose(chain->left);
  tell_passed_over(session, declined.id, chain->left, chosen.value_or(chain->left.size()));
  if (!chosen) return false;
  if (!is_defined(session, declined.def_id)) {
    log_to_activity(session, declined.id, Log_Level::warning,
                    "The job definition was removed meanwhile, no further host is asked\n");
    return false;
  }
  const std::string host = chain->left[*chosen];
  std::string name;
  json_spirit::object_get(declined.document, "name", name);
  Activity_Row next = new_activity(make_uuid(), declined.def_id, name, host);
  chain->left.erase(chain->left.begin() + static_cast<std::ptrdiff_t>(*chosen));
  chain->hand_over = Run_Chain::waiting;
  chain->keep_in(next.document);
  next.document[follows_key] = declined.id;
  declined.document[followed_by_key] = next.id;
  insert_activity(session, next);
  log_to_activity(
      session, declined.id, Log_Level::info,
      "The host " + declined.host_uuid + " declined, the host " + host + " is asked in the run " + next.id + "\n");
  log_to_activity(
      session, next.id, Log_Level::info,
      "The host " + declined.host_uuid + " declined in the run " + declined.id + ", the host " + host + " is asked\n");
  return true;
}

}  // namespace backupd
