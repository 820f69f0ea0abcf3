#include "backupd/jobs/job_dispatch.h"

#include <algorithm>

#include "job/job_state.h"
#include "scrt/uuid.h"

namespace backupd {

namespace {

constexpr std::chrono::seconds stop_timeout{60};
constexpr char state_unknown[] = "unknown";
constexpr char type_backup[] = "backup";
constexpr const char* data_subtypes[] = {"full", "incremental", "differential"};

bool is_data_backup(const json_spirit::Object& definition) {
  std::string type;
  std::string subtype;
  json_spirit::object_get(definition, "type", type);
  json_spirit::object_get(definition, "subtype", subtype);
  return type == type_backup &&
         std::find(std::begin(data_subtypes), std::end(data_subtypes), subtype) != std::end(data_subtypes);
}

Outcome nobody_connected(const std::vector<std::string>& hosts) {
  if (hosts.size() == 1)
    return Outcome::refuse(Outcome::unavailable,
                           "the agent of the host " + hosts.front() + " is not connected; start it and try again");
  std::string names;
  for (const std::string& host : hosts) names += (names.empty() ? "" : ", ") + host;
  return Outcome::refuse(Outcome::unavailable,
                         "no agent of the hosts " + names + " of the system is connected; start one and try again");
}

Job_State state_of(const json_spirit::Object& record) {
  int state = JOB_STATE_NONE;
  json_spirit::object_get(record, "state", state);
  return static_cast<Job_State>(state);
}

}  // namespace

Outcome Job_Dispatch::candidates_of(const json_spirit::Object& definition, std::vector<std::string>& hosts) {
  std::string own_host;
  std::string resource;
  json_spirit::Object source;
  json_spirit::object_get(definition, "host_uuid", own_host);
  hosts = {own_host};
  if (!is_data_backup(definition)) return {};
  json_spirit::object_get(definition, "source", source);
  json_spirit::object_get(source, "id", resource);
  std::vector<std::string> others;
  if (!parts_.resources.hosts_of(resource, others))
    return Outcome::refuse(Outcome::internal, "the hosts of the system cannot be read now; see the server's log");
  for (const std::string& host : others)
    if (std::find(hosts.begin(), hosts.end(), host) == hosts.end()) hosts.push_back(host);
  return {};
}

Outcome Job_Dispatch::start(const std::string& definition_id, const json_spirit::Object& options,
                            std::string& job_act_id) {
  json_spirit::Object definition;
  std::vector<std::string> hosts;
  if (Outcome outcome = parts_.definitions.get(definition_id, definition); !outcome.ok()) return outcome;
  if (Outcome outcome = candidates_of(definition, hosts); !outcome.ok()) return outcome;
  const auto chosen = std::find_if(hosts.begin(), hosts.end(),
                                   [this](const std::string& host) { return parts_.agents.is_connected(host); });
  if (chosen == hosts.end()) return nobody_connected(hosts);
  const std::string host = *chosen;
  Activity_Store::New_Run run{make_uuid(), definition_id, {}, host, {}, {hosts.begin(), chosen}};
  json_spirit::object_get(definition, "name", run.name);
  hosts.erase(chosen);
  if (is_data_backup(definition)) run.chain = Run_Chain{options, hosts, Run_Chain::sent, false};
  // The run is known before the agent hears of it, so that no report comes for a run that is not.
  if (Outcome outcome = parts_.activities.begin(run); !outcome.ok()) return outcome;
  if (Outcome outcome = parts_.starter.hand_over(run.id, definition, host, options); !outcome.ok()) return outcome;
  job_act_id = run.id;
  return {};
}

Outcome Job_Dispatch::last_of_chain(const std::string& job_act_id, json_spirit::Object& record) {
  std::string id = job_act_id;
  do {
    record.clear();
    if (Outcome outcome = parts_.activities.get(id, record); !outcome.ok()) return outcome;
  } while (json_spirit::object_get(record, followed_by_key, id));
  return {};
}

Outcome Job_Dispatch::stop(const std::string& job_act_id, json_spirit::Value& answer) {
  json_spirit::Object record;
  std::string id;
  std::string host_uuid;
  if (Outcome outcome = last_of_chain(job_act_id, record); !outcome.ok()) return outcome;
  json_spirit::object_get(record, "id", id);
  json_spirit::object_get(record, "host_uuid", host_uuid);
  if (is_finished(state_of(record)))
    return Outcome::refuse(Outcome::conflict,
                           "the run " + id + " has ended already, it is " + job_state_to_string(state_of(record)));
  bool ended = false;
  if (!parts_.activities.stop(id, ended))
    return Outcome::refuse(Outcome::internal, "the stop cannot be noted now; see the server's log");
  if (ended) {
    answer = json_spirit::Object{{"code", 0}, {"message", "the run is canceled, its agent had not been asked yet"}};
    return {};
  }
  const json_spirit::Object params{{"job_act_id", id}};
  const JSON_RPC_Answer said = parts_.agents.call(host_uuid, "job.stop", params, stop_timeout);
  if (!said.ok) return refusal_of(said);
  answer = said.result;
  return {};
}

void Job_Dispatch::show(json_spirit::Object& record) const {
  std::string host_uuid;
  int state = JOB_STATE_NONE;
  json_spirit::object_get(record, "host_uuid", host_uuid);
  json_spirit::object_get(record, "state", state);
  record.erase("end_assumed");
  record.erase(run_chain_key);
  const bool unknown = !is_finished(static_cast<Job_State>(state)) && !parts_.agents.is_connected(host_uuid);
  record["last_known_state"] = job_state_to_string(static_cast<Job_State>(state));
  if (!unknown) return;
  record["state"] = static_cast<int>(JOB_STATE_NONE);
  record["state_name"] = state_unknown;
}

}  // namespace backupd
