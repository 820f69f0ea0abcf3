#include "backupd/jobs/run_starter.h"

#include <algorithm>

#include "platform/log.h"

namespace backupd {

namespace {

constexpr std::chrono::seconds start_timeout{60};
constexpr std::chrono::seconds poll_for_agents{1};

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

/// A run that is being sent, for the life of this object.
class Run_Starter::Sending {
 public:
  Sending(Run_Starter& starter, const std::string& id) : starter_(starter), id_(id) {
    const std::lock_guard lock(starter_.mutex_);
    starter_.being_sent_.insert(id_);
  }
  ~Sending() {
    const std::lock_guard lock(starter_.mutex_);
    starter_.being_sent_.erase(id_);
  }
  Sending(const Sending&) = delete;
  Sending& operator=(const Sending&) = delete;

 private:
  Run_Starter& starter_;
  const std::string id_;
};

Run_Starter::Run_Starter(Definition_Store& definitions, Activity_Store& activities, Resource_Store& resources,
                         Agent_Registry& agents, Ondemand_Queue& queue, Sweeper& sweeper, History_Keeper& history)
    : definitions_(definitions),
      activities_(activities),
      resources_(resources),
      agents_(agents),
      queue_(queue),
      sweeper_(sweeper),
      history_(history),
      begun_(platform::Clock::current().steady_now()),
      next_sweep_(begun_) {}

Run_Starter::~Run_Starter() {
  stopping_.set();
  work_.set();
  if (thread_.joinable()) thread_.join();
}

void Run_Starter::start() {
  thread_ = std::thread([this] { run(); });
}

void Run_Starter::run() {
  for (;;) {
    work_.reset();
    // Looked at after the reset, which may have taken back the last wake.
    if (stopping_.is_set()) return;
    sweep();
    const std::chrono::nanoseconds next =
        queue_.work([this](const std::string& host_uuid) { return agents_.is_connected(host_uuid); });
    const std::chrono::nanoseconds longest = std::min<std::chrono::nanoseconds>(next, sweep_interval);
    const std::chrono::nanoseconds pause = work() ? std::min<std::chrono::nanoseconds>(poll_for_agents, next) : longest;
    static_cast<void>(platform::Clock::current().wait_for(work_, pause));
  }
}

void Run_Starter::sweep() {
  const Time now = platform::Clock::current().steady_now();
  if (now < next_sweep_) return;
  next_sweep_ = now + sweep_interval;
  Sweep_Result result;
  std::int64_t queued = 0;
  // What fails is logged by the store, and looked for again.
  static_cast<void>(sweeper_.sweep_abandoned(result, queued));
  std::int64_t removed = 0;
  static_cast<void>(history_.remove_old(removed));
  if (removed > 0) D3_INFO("Removed %Q old runs\n", static_cast<ACE_UINT64>(removed));
}

bool Run_Starter::work() {
  std::vector<Activity_Store::Waiting_Run> runs;
  if (!activities_.waiting(runs)) return true;
  std::map<std::string, Time> deadlines;
  for (const Activity_Store::Waiting_Run& run : runs)
    if (const auto known = deadlines_.find(run.id); known != deadlines_.end()) deadlines.insert(*known);
  deadlines_.swap(deadlines);
  for (const Activity_Store::Waiting_Run& run : runs) {
    if (stopping_.is_set()) return false;
    if (agents_.is_connected(run.host_uuid))
      try_one(run);
    else if (run.may_pass_over && is_due(run.id))
      pass_over(run);
  }
  return !runs.empty();
}

void Run_Starter::try_one(const Activity_Store::Waiting_Run& run) {
  json_spirit::Object definition;
  const Outcome found = definitions_.get(run.def_id, definition);
  if (found.kind == Outcome::not_found) {
    if (!activities_.fail(run.id, "the job definition was removed before this run began"))
      D3_ERROR("The run %C has no definition any more and its state could not be stored\n", run.id.c_str());
    return;
  }
  if (!found.ok() || !activities_.send_begins(run.id)) return;
  const Outcome outcome = ask(run.id, std::move(definition), run.host_uuid, run.options);
  if (outcome.ok()) return;
  // Whether the agent has heard of the run is open: it is asked again when it is back, and nobody else is.
  const bool unsure = outcome.kind == Outcome::unavailable;
  const bool stored =
      unsure ? activities_.send_ended(run.id, Run_Chain::unsure) : activities_.fail(run.id, outcome.message);
  if (!stored) D3_ERROR("The run %C was not started and its state could not be stored\n", run.id.c_str());
  D3_WARNING("The run %C was not started on the host %C: %C\n", run.id.c_str(), run.host_uuid.c_str(),
             platform::cut_for_log(outcome.message).c_str());
}

bool Run_Starter::is_due(const std::string& id) {
  const Time now = platform::Clock::current().steady_now();
  return deadlines_.emplace(id, now + agent_return_limit).first->second <= now;
}

void Run_Starter::pass_over(const Activity_Store::Waiting_Run& run) {
  Activity_Store::Ended ended;
  const auto choose = [this](const std::vector<std::string>& hosts) { return choose_next(hosts); };
  if (activities_.pass_over(run.id, choose, ended) && ended.followed) wake();
}

std::optional<std::size_t> Run_Starter::choose_next(const std::vector<std::string>& hosts) const {
  for (std::size_t i = 0; i < hosts.size(); ++i)
    if (agents_.is_connected(hosts[i])) return i;
  const bool just_begun = platform::Clock::current().steady_now() - begun_ < agent_return_limit;
  return just_begun && !hosts.empty() ? std::optional<std::size_t>(0) : std::nullopt;
}

Outcome Run_Starter::hand_over(const std::string& id, json_spirit::Object definition, const std::string& host_uuid,
                               const json_spirit::Object& options) {
  const Outcome outcome = ask(id, std::move(definition), host_uuid, options);
  if (!outcome.ok() && !activities_.fail(id, outcome.message))
    D3_ERROR("The run %C was not started and its state could not be stored\n", id.c_str());
  return outcome;
}

Outcome Run_Starter::ask(const std::string& id, json_spirit::Object definition, const std::string& host_uuid,
                         const json_spirit::Object& options) {
  if (Outcome outcome = definitions_.for_agent(definition); !outcome.ok()) return outcome;
  if (Outcome outcome = resources_.address(definition, host_uuid); !outcome.ok()) return outcome;
  const Sending sending(*this, id);
  const json_spirit::Object params{{"definition", definition}, {"options", options}, {"job_act_id", id}};
  const JSON_RPC_Answer answer = agents_.call(host_uuid, "job.start", params, start_timeout);
  if (!answer.ok) return refusal_of(answer);
  // What cannot be stored now shows itself with the agent's first report.
  static_cast<void>(activities_.send_ended(id, Run_Chain::taken));
  return {};
}

std::set<std::string> Run_Starter::being_sent() const {
  const std::lock_guard lock(mutex_);
  return being_sent_;
}

}  // namespace backupd
