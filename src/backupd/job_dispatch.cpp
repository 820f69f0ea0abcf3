#include "backupd/job_dispatch.h"

#include "job/job_state.h"
#include "platform/log.h"
#include "scrt/uuid.h"

namespace backupd {

namespace {

constexpr std::chrono::seconds start_timeout{60};
constexpr std::chrono::seconds stop_timeout{60};
constexpr char state_unknown[] = "unknown";

}  // namespace

Outcome refusal_of(const JSON_RPC_Answer& answer) {
  switch (answer.code) {
    case JSON_RPC_E_NOT_CONNECTED:
      return Outcome::refuse(Outcome::unavailable, answer.message + "; start the agent and try again");
    case JSON_RPC_E_TIMEOUT:
      return Outcome::refuse(Outcome::timed_out, "the agent did not answer in time: " + answer.message);
    default:
      return Outcome::refuse(Outcome::invalid, "the agent refused: " + answer.message);
  }
}

Outcome Job_Dispatch::start(const std::string& definition_id, const json_spirit::Object& options,
                            std::string& job_act_id) {
  json_spirit::Object definition;
  std::string host_uuid;
  if (Outcome outcome = definitions_.get(definition_id, definition); !outcome.ok()) return outcome;
  if (Outcome outcome = definitions_.for_agent(definition); !outcome.ok()) return outcome;
  json_spirit::object_get(definition, "host_uuid", host_uuid);
  if (!agents_.is_connected(host_uuid))
    return Outcome::refuse(Outcome::unavailable,
                           "the agent of the host " + host_uuid + " is not connected; start it and try again");
  // The run is known before the agent hears of it, so that no report comes for a run that is not.
  const std::string id = make_uuid();
  if (Outcome outcome = activities_.begin(id, definition); !outcome.ok()) return outcome;
  const json_spirit::Object params{{"definition", definition}, {"options", options}, {"job_act_id", id}};
  const JSON_RPC_Answer answer = agents_.call(host_uuid, "job.start", params, start_timeout);
  if (!answer.ok) {
    const Outcome refusal = refusal_of(answer);
    if (!activities_.fail(id, refusal.message))
      D3_ERROR("The run %C was not started and its state could not be stored\n", id.c_str());
    return refusal;
  }
  job_act_id = id;
  return {};
}

Outcome Job_Dispatch::stop(const std::string& job_act_id, json_spirit::Value& answer) {
  json_spirit::Object record;
  std::string host_uuid;
  int state = JOB_STATE_NONE;
  if (Outcome outcome = activities_.get(job_act_id, record); !outcome.ok()) return outcome;
  json_spirit::object_get(record, "host_uuid", host_uuid);
  json_spirit::object_get(record, "state", state);
  if (is_finished(static_cast<Job_State>(state)))
    return Outcome::refuse(Outcome::conflict, "the run " + job_act_id + " has ended already, it is " +
                                                  job_state_to_string(static_cast<Job_State>(state)));
  const json_spirit::Object params{{"job_act_id", job_act_id}};
  const JSON_RPC_Answer said = agents_.call(host_uuid, "job.stop", params, stop_timeout);
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
  const bool unknown = !is_finished(static_cast<Job_State>(state)) && !agents_.is_connected(host_uuid);
  record["last_known_state"] = job_state_to_string(static_cast<Job_State>(state));
  if (!unknown) return;
  record["state"] = static_cast<int>(JOB_STATE_NONE);
  record["state_name"] = state_unknown;
}

}  // namespace backupd
