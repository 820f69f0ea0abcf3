#include "agentd/jobs/job_table.h"

#include <algorithm>

#include "job/job_mutex.h"
#include "platform/clock.h"
#include "platform/log.h"

namespace agentd {

namespace {

/// Runs that are remembered after their end: a start of one of them that was under way twice comes soon or never.
constexpr std::size_t ended_limit = 100;

/// Later: nothing is wrong, the same request may be taken when what the message names is over.
enum Request_Code { request_taken = 0, request_later = 1, request_refused = -1 };

JSON_RPC_Answer done(json_spirit::Object result) {
  JSON_RPC_Answer answer;
  answer.ok = true;
  answer.result = std::move(result);
  return answer;
}

JSON_RPC_Answer refused(const std::string& why, Request_Code code = request_refused) {
  return done({{"code", static_cast<int>(code)}, {"message", why}});
}

JSON_RPC_Answer unknown_job(const std::string& job_act_id) {
  return refusal_answer(JSON_RPC_E_SERVER, "this agent runs no job " + platform::cut_for_log(job_act_id));
}

bool is_data_backup(const Job_Definition& definition) {
  const Job_Definition_Subtype subtype = definition.subtype();
  return definition.type() == JOB_DEFINITION_BACKUP &&
         (subtype == JOB_DEFINITION_SUBTYPE_FULL || subtype == JOB_DEFINITION_SUBTYPE_INCREMENTAL ||
          subtype == JOB_DEFINITION_SUBTYPE_CUMULATIVE);
}

/// The other run whose data backup of the same resource goes on now; empty when there is none. A stop knows its backup
/// by what the database system lists alone, and would take that one for its own.
std::string other_backup_of_resource(const Job& job, const std::string& job_act_id) {
  const Job_Definition_Ptr definition = job.definition();
  if (!is_data_backup(*definition) || definition->source.null()) return {};
  const std::string holder = Job_Mutex::get(definition->source->id())->holder();
  return holder == job_act_id ? std::string() : holder;
}

}  // namespace

JSON_RPC_Answer refusal_answer(int code, const std::string& message) {
  JSON_RPC_Answer answer;
  answer.code = code;
  answer.message = message;
  return answer;
}

JSON_RPC_Answer Job_Table::start(const json_spirit::Value& definition, const json_spirit::Object& options,
                                 const std::string& job_act_id) {
  if (find(job_act_id).get() != nullptr || has_ended(job_act_id)) return done({{"job_act_id", job_act_id}});
  std::string refusal;
  const Job_Ptr job = maker_.make(definition, refusal);
  if (job.get() == nullptr) return refusal_answer(JSON_RPC_E_INVALID_PARAMS, refusal);
  if (!job->open_activity(job_act_id))
    return refusal_answer(JSON_RPC_E_SERVER, "the activity record of the run cannot be made; see the agent's log");
  if (!take(job_act_id, job, refusal)) {
    (void)remove_job_activity(job_act_id);
    return refusal_answer(JSON_RPC_E_SERVER, refusal);
  }
  D3_INFO("Start job %C '%C'\n", job_act_id.c_str(), platform::cut_for_log(job->definition()->name()).c_str());
  if (Prepared_Starts::Work work = preparation_ ? preparation_(definition) : nullptr) {
    prepared_.add(job_act_id, job, options, std::move(work));
    return done({{"job_act_id", job_act_id}});
  }
  if (job->start(options.empty() ? nullptr : &options) == 0) return done({{"job_act_id", job_act_id}});
  forget(job_act_id);
  return refusal_answer(JSON_RPC_E_SERVER, "the job's thread cannot be started; see the agent's log");
}

bool Job_Table::take(const std::string& job_act_id, const Job_Ptr& job, std::string& refusal) {
  const std::lock_guard lock(mutex_);
  if (stopping_) {
    refusal = "the agent is stopping and starts no job; start it again when the agent is back";
    return false;
  }
  if (!jobs_.emplace(job_act_id, job).second) {
    refusal = "job " + job_act_id + " is being started already";
    return false;
  }
  return true;
}

JSON_RPC_Answer Job_Table::stop(const std::string& job_act_id) {
  const Job_Ptr job = find(job_act_id);
  if (job.get() == nullptr)
    return has_ended(job_act_id) ? refused("the job has ended already") : unknown_job(job_act_id);
  if (prepared_.cancel(job_act_id)) return done({{"code", static_cast<int>(request_taken)}, {"message", ""}});
  if (const Job_State state = job->state(); is_finished(state))
    return refused(std::string("the job has ended already, it is ") + job_state_to_string(state));
  if (const std::string other = other_backup_of_resource(*job, job_act_id); !other.empty())
    return refused("the job " + other +
                       " holds this system now and this backup waits for it; a stop would reach that job's backup; ask "
                       "again when that job has ended",
                   request_later);
  D3_INFO("Stop job %C\n", job_act_id.c_str());
  const int code = job->stop(nullptr);
  const char* const message = code == request_taken ? "" : "the job cannot be stopped now; the agent's log tells why";
  return done({{"code", code}, {"message", message}});
}

JSON_RPC_Answer Job_Table::remove(const std::string& job_act_id) {
  const Job_Ptr job = find(job_act_id);
  if (job.get() == nullptr) return unknown_job(job_act_id);
  if (is_active(job->state())) return refused("the job runs; stop it first");
  const int code = job->remove(false, nullptr);
  if (code == 0) forget(job_act_id);
  return done({{"code", code}, {"message", code == 0 ? "" : "the job cannot be removed; the agent's log tells why"}});
}

void Job_Table::wait_completed(const std::string& job_act_id, std::chrono::seconds limit) const {
  const Job_Ptr job = find(job_act_id);
  if (job.get() != nullptr) (void)platform::Clock::current().wait_for(job->completed(), limit);
}

void Job_Table::ended(const std::string& job_act_id) {
  const Job_Ptr job = find(job_act_id);
  if (job.get() == nullptr) return;
  D3_INFO("Job %C '%C' has ended, it is %C\n", job_act_id.c_str(),
          platform::cut_for_log(job->definition()->name()).c_str(), job_state_to_string(job->state()));
  {
    const std::lock_guard lock(mutex_);
    ended_.push_back(job_act_id);
    if (ended_.size() > ended_limit) ended_.pop_front();
  }
  forget(job_act_id);
}

bool Job_Table::has_ended(const std::string& job_act_id) const {
  const std::lock_guard lock(mutex_);
  return std::find(ended_.begin(), ended_.end(), job_act_id) != ended_.end();
}

void Job_Table::forget(const std::string& job_act_id) {
  Job_Ptr last;  // destroyed after the lock is released
  const std::lock_guard lock(mutex_);
  const auto found = jobs_.find(job_act_id);
  if (found == jobs_.end()) return;
  last = found->second;
  jobs_.erase(found);
}

std::vector<std::string> Job_Table::running() const {
  const std::lock_guard lock(mutex_);
  std::vector<std::string> ids;
  for (const auto& [id, job] : jobs_)
    if (is_active(job->state())) ids.push_back(id);
  return ids;
}

bool Job_Table::drain(std::chrono::seconds limit) {
  std::vector<Job_Ptr> waited;
  {
    const std::lock_guard lock(mutex_);
    stopping_ = true;
    for (const auto& [id, job] : jobs_) waited.push_back(job);
  }
  prepared_.end_all();
  platform::Clock& clock = platform::Clock::current();
  const auto end = clock.steady_now() + limit;
  bool all = true;
  for (const Job_Ptr& job : waited) {
    if (!is_active(job->state())) continue;
    const auto left = std::max(end - clock.steady_now(), std::chrono::steady_clock::duration::zero());
    all = clock.wait_for(job->completed(), left) && all;
  }
  return all;
}

void Job_Table::clear() {
  std::map<std::string, Job_Ptr> dropped;
  const std::lock_guard lock(mutex_);
  dropped.swap(jobs_);
}

Job_Ptr Job_Table::find(const std::string& job_act_id) const {
  const std::lock_guard lock(mutex_);
  const auto found = jobs_.find(job_act_id);
  return found == jobs_.end() ? Job_Ptr() : found->second;
}

}  // namespace agentd
