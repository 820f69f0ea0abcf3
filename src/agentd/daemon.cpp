#include "agentd/daemon.h"

#include <algorithm>

#include "agent/backupd_client/access_key_file.h"
#include "agentd/backupd_link/alert_tap.h"
#include "agentd/bounded_end.h"
#include "agentd/jobs/former_runs.h"
#include "agentd/log_backup/log_queue_drain.h"
#include "agentd/pools/backint_verifier.h"
#include "agentd/pools/pool_listing.h"
#include "agentd/restore/recovery_log.h"
#include "job/job_activity_record.h"
#include "platform/log.h"
#include "platform/product_paths.h"
#include "records/agent_method_names.h"

extern "C" const char* dorsal3_version();

namespace agentd {

namespace {

constexpr std::chrono::seconds hello_limit{30};
constexpr std::chrono::seconds completion_limit{5};
/// What closing may take after the jobs have ended.
constexpr std::chrono::seconds close_limit{10};

JSON_RPC_Answer verify(const json_spirit::Object& params) {
  std::vector<Verify_Object> objects;
  std::string error;
  if (!read_verify_request(params, objects, error)) return refusal_answer(JSON_RPC_E_INVALID_PARAMS, error);
  json_spirit::Array results;
  for (const Verify_Object& object : objects) results.emplace_back(to_json(verify_object(object)));
  JSON_RPC_Answer answer;
  answer.ok = true;
  answer.result = json_spirit::Object{{"objects", std::move(results)}};
  return answer;
}

JSON_RPC_Answer with_job_id(const json_spirit::Object& params,
                            const std::function<JSON_RPC_Answer(const std::string& job_act_id)>& action) {
  std::string job_act_id;
  if (!json_spirit::object_get(params, "job_act_id", job_act_id) || job_act_id.empty())
    return refusal_answer(JSON_RPC_E_INVALID_PARAMS, "\"job_act_id\" is needed");
  return action(job_act_id);
}

}  // namespace

/// Answered by the module; it leaves the description of another host's restore here.
constexpr const char* staging_method = "hana.file.download";

std::string outbox_directory() { return platform::product_paths::agent_state("outbox"); }

Daemon::Daemon(Agent_Configuration configuration)
    : configuration_(std::move(configuration)),
      instance_service_(modules_, instances_),
      log_backups_(modules_, instances_),
      maker_(modules_, configuration_.host_uuid),
      jobs_(maker_, [this](const json_spirit::Value& definition) { return prepare(definition); }),
      ondemand_(maker_, log_backups_),
      staged_([this](const std::vector<Staged_Name>& names) { staged_elsewhere_.restore_over(names); }),
      router_(modules_),
      link_(
          configuration_, [this](const JSON_RPC_Message& message) { return router_.call(message); },
          [this] {
            reporter_->connected();
            staged_elsewhere_.connected();
          },
          {Method_Router::is_for_modules, Method_Router::module_workers}),
      staged_elsewhere_(configuration_.host_uuid, {[this] { return link_.connection() != 0; },
                                                   [this](const Staged_Name& name) { return staged_.in_use(name); }}),
      outbox_(outbox_directory()),
      messages_(link_) {
  Reporter::Callbacks callbacks;
  callbacks.send = [this](const Message& message, std::string& reason) { return messages_.send(message, reason); };
  callbacks.connection = [this] { return link_.connection(); };
  callbacks.greet = [this] { return greet(); };
  callbacks.ended = [this](const std::string& job_act_id) { job_ended(job_act_id); };
  reporter_ =
      std::make_shared<Reporter>(outbox_, std::move(callbacks), std::chrono::seconds(configuration_.heartbeat_seconds));
}

Daemon::~Daemon() {
  set_activity_listener(nullptr);
  set_job_log_sink(nullptr);
  set_alert_sink(nullptr);
}

/// A restore waits until the logs of its databases are recorded.
Prepared_Starts::Work Daemon::prepare(const json_spirit::Value& definition) const {
  Restored_Databases restored = Restored_Databases::of(definition);
  if (restored.databases.empty()) return {};
  return [restored = std::move(restored), host_uuid = configuration_.host_uuid](platform::Wait_Event& stop) {
    drain_log_backups(restored, host_uuid, stop);
  };
}

JSON_RPC_Answer Daemon::start_job(const json_spirit::Value& definition, const json_spirit::Object& options,
                                  const std::string& job_act_id) {
  const bool begun = staged_.begin(job_act_id, definition);
  JSON_RPC_Answer answer = jobs_.start(definition, options, job_act_id);
  if (begun && !answer.ok) staged_.end(job_act_id);
  return answer;
}

bool Daemon::start() {
  if (!outbox_.open()) return false;
  (void)modules_.load(configuration_.modules);  // each that fails is logged; the others work
  (void)instances_.open();                      // logged; what cannot be read is refused when it is asked for
  (void)generate_access_key_file();             // logged; the backup itself needs it and fails with words of its own
  add_methods();
  connect_jobs();
  end_former_runs();
  reporter_->start();
  link_.start();
  staged_elsewhere_.start();
  D3_INFO("The agent of host %C (%C) is ready\n", configuration_.host_name.c_str(), configuration_.host_uuid.c_str());
  return true;
}

/// What is staged here may be another host's too; it is over on other hosts when a restore of this one was cut off.
void Daemon::end_former_runs() {
  const std::vector<Staged_Name> staged = staged_.remove_all();
  bool restored = false;
  settle_former_runs([&](const Job_Activity_Snapshot& activity) {
    restored = restored || activity.type == JOB_DEFINITION_RESTORE;
    reporter_->activity_changed(activity);
  });
  if (restored) staged_elsewhere_.restore_over(staged);
}

void Daemon::staged_by(const json_spirit::Object& params, const Requester& by) {
  Staged_Name name;
  std::string error;
  // Without such a name the module refuses the request.
  if (!Staged_Name::from_params(params, name, error)) return;
  staged_.staged_by(name, by.host_uuid == configuration_.host_uuid ? std::string() : by.host_uuid);
}

JSON_RPC_Answer Daemon::remove_staged(const json_spirit::Object& params, const Requester& by) {
  Staged_Name name;
  std::string error;
  int removed = 0;
  if (!Staged_Name::from_params(params, name, error)) return refusal_answer(JSON_RPC_E_INVALID_PARAMS, error);
  if (!staged_.remove(name, by.host_uuid, removed))
    return refusal_answer(JSON_RPC_E_SERVER, "a file cannot be removed; the log of this host's agent names it");
  JSON_RPC_Answer answer;
  answer.ok = true;
  answer.result = json_spirit::Object{{"removed", removed}};
  return answer;
}

void Daemon::connect_jobs() {
  set_activity_listener(std::make_shared<Restore_End_Tap>(staged_, reporter_));
  set_job_log_sink(reporter_);
  set_alert_sink(std::make_shared<Alert_Tap>(reporter_));
}

void Daemon::add_methods() {
  using Params = json_spirit::Object;
  router_.add("job.start", [this](const Params& params) {
    const json_spirit::Value* const definition = params.find("definition");
    json_spirit::Object options;
    (void)json_spirit::object_get(params, "options", options);
    return with_job_id(params, [&](const std::string& job_act_id) {
      if (definition == nullptr) return refusal_answer(JSON_RPC_E_INVALID_PARAMS, "\"definition\" is needed");
      return start_job(*definition, options, job_act_id);
    });
  });
  router_.add("job.stop", [this](const Params& params) {
    return with_job_id(params, [this](const std::string& id) { return jobs_.stop(id); });
  });
  router_.add("job.remove", [this](const Params& params) {
    return with_job_id(params, [this](const std::string& id) { return jobs_.remove(id); });
  });
  router_.add(
      "job.setup", [this](const Params& params) { return ondemand_.setup(params); }, Method_Router::Pace::slow);
  router_.add(
      "job.unsetup", [this](const Params& params) { return ondemand_.unsetup(params); }, Method_Router::Pace::slow);
  router_.add_for_requesters(staged_remove_method,
                             [this](const Params& params, const Requester& by) { return remove_staged(params, by); });
  router_.watch(staging_method, [this](const Params& params, const Requester& by) { staged_by(params, by); });
  router_.add("pool.list", list_pool, Method_Router::Pace::slow);
  router_.add("instance.recovery", tell_last_recovery);
  router_.add("instance.probe", [this](const Params&) { return instance_service_.probe(); });
  router_.add(
      "instance.state", [this](const Params& params) { return instance_service_.state(params); },
      Method_Router::Pace::asking);
  router_.add(
      "instance.logon", [this](const Params& params) { return instance_service_.logon(params); },
      Method_Router::Pace::asking);
  router_.add(
      "instance.log_backup", [this](const Params& params) { return log_backups_.status(params); },
      Method_Router::Pace::asking);
  router_.add(
      "instance.check", [this](const Params& params) { return instance_service_.check(params); },
      Method_Router::Pace::asking);
  router_.add(
      "backint.verify", [](const Params& params) { return verify(params); }, Method_Router::Pace::slow);
}

/// Tells backupd who is there and which runs are still this agent's to report.
bool Daemon::greet() {
  std::vector<Job_Activity_Snapshot> known;
  (void)list_job_activities(known);
  json_spirit::Array activities;
  for (const Job_Activity_Snapshot& activity : known) activities.emplace_back(activity.id);
  const auto names = modules_.names();
  const json_spirit::Object hello{{"host_uuid", configuration_.host_uuid},
                                  {"name", configuration_.host_name},
                                  {"version", dorsal3_version()},
                                  {"modules", json_spirit::Array(names.begin(), names.end())},
                                  {"activities", std::move(activities)}};
  const JSON_RPC_Answer answer = link_.call("agent.hello", hello, hello_limit);
  if (answer.ok) {
    D3_INFO("Backupd has accepted this agent\n");
    return true;
  }
  D3_WARNING("Backupd does not accept this agent, %C; trying again\n", platform::cut_for_log(answer.message).c_str());
  link_.reconnect();
  return false;
}

void Daemon::job_ended(const std::string& job_act_id) {
  jobs_.wait_completed(job_act_id, completion_limit);
  jobs_.ended(job_act_id);
  (void)remove_job_activity(job_act_id);
}

bool Daemon::stop() {
  D3_INFO("The agent stops, it waits up to %u second(s) for running jobs\n", configuration_.stop_limit_seconds);
  const std::chrono::seconds limit(configuration_.stop_limit_seconds);
  const auto end = platform::Clock::current().steady_now() + limit;
  const bool drained = jobs_.drain(limit);
  for (const std::string& id : jobs_.running()) D3_WARNING("Job %C is cut off, the agent ends\n", id.c_str());
  reporter_->stop();
  staged_elsewhere_.finish(close_limit);
  const bool closed = close_link(close_limit);
  if (!drained || !closed) return false;
  staged_elsewhere_.stop();
  // Code of the modules is gone from every thread before it is unloaded.
  if (!wait_for_requests(end)) return false;
  jobs_.clear();
  modules_.unload();
  D3_INFO("The agent has ended\n");
  return true;
}

/// A request of backupd that still runs (reading a set back takes hours) must not hold the end up.
bool Daemon::close_link(std::chrono::seconds limit) {
  if (ends_within(limit, [this] { link_.stop(); })) return true;
  D3_WARNING("A request of backupd still runs, the agent ends without its answer\n");
  return false;
}

/// Nor must the stop of a job that has ended, which asks HANA on for minutes; what it leaves is backupd's to remove.
bool Daemon::wait_for_requests(std::chrono::steady_clock::time_point end) {
  const auto left = end - platform::Clock::current().steady_now();
  if (job_threads_end_within(std::max<std::chrono::nanoseconds>(left, close_limit))) return true;
  D3_WARNING("The stop of a job that has ended still runs, it is cut off, the agent ends\n");
  return false;
}

}  // namespace agentd
