#include "agentd/jobs/prepared_starts.h"

#include <utility>
#include <vector>

#include "platform/log.h"

namespace agentd {

void Prepared_Starts::add(const std::string& job_act_id, const Job_Ptr& job, const json_spirit::Object& options,
                          Work work) {
  join_done();
  const auto waiting = std::make_shared<Waiting>();
  waiting->job_act_id = job_act_id;
  waiting->job = job;
  waiting->options = options;
  waiting->work = std::move(work);
  const std::lock_guard lock(mutex_);
  waiting_.push_back(waiting);
  waiting->thread = std::thread([this, waiting] { run(*waiting); });
}

void Prepared_Starts::run(Waiting& waiting) {
  Job& job = *waiting.job;
  job.set_job_thread();
  waiting.work(waiting.stop);
  bool canceled = false;
  bool cut_off = false;
  {
    const std::lock_guard lock(mutex_);
    waiting.done = true;
    canceled = waiting.canceled;
    cut_off = waiting.cut_off;
  }
  if (!canceled && !cut_off) {
    // What cannot be started ends with its reason by itself.
    (void)job.start(waiting.options.empty() ? nullptr : &waiting.options);
    return;
  }
  job.message(canceled ? "stopped before it began" : "the agent ended before this job began; start the job again");
  if (canceled) job.state(JOB_STATE_CANCELING);
  job.complete();
}

bool Prepared_Starts::cancel(const std::string& job_act_id) {
  const std::lock_guard lock(mutex_);
  for (const auto& waiting : waiting_) {
    if (waiting->job_act_id != job_act_id || waiting->done) continue;
    waiting->canceled = true;
    waiting->stop.set();
    return true;
  }
  return false;
}

void Prepared_Starts::end_all() {
  std::list<std::shared_ptr<Waiting>> ended;
  {
    const std::lock_guard lock(mutex_);
    ended.swap(waiting_);
    for (const auto& waiting : ended) {
      waiting->cut_off = !waiting->done;
      waiting->stop.set();
    }
  }
  for (const auto& waiting : ended) waiting->thread.join();
}

void Prepared_Starts::join_done() {
  std::vector<std::shared_ptr<Waiting>> done;
  {
    const std::lock_guard lock(mutex_);
    for (auto it = waiting_.begin(); it != waiting_.end();) {
      if ((*it)->done) done.push_back(*it);
      it = (*it)->done ? waiting_.erase(it) : std::next(it);
    }
  }
  for (const auto& waiting : done) waiting->thread.join();
}

}  // namespace agentd
