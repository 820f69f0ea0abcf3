#pragma once

#include <ace/Thread_Manager.h>
#include <cxxabi.h>

#include <atomic>
#include <cstdint>
#include <exception>
#include <memory>
#include <new>

#include "job/job.h"
#include "job/job_event_handler.h"
#include "job/run_options.h"
#include "platform/log.h"
#include "scrt/thread_helper.h"

/// A job that runs one `Executor` on a detached thread of its own. Every request makes an executor of its own, which
/// does not outlive the request.
///
/// `Executor` is constructed from Job& and derives from Job_Executor_T.
template <typename Executor>
class Default_Job_T : public Job {
 public:
  using Job::abort_i;

  explicit Default_Job_T(Job_Definition_Ptr definition) : Job(definition) {}

  int handle_exception(ACE_HANDLE = ACE_INVALID_HANDLE) override { return 0; }

  /// Returns as soon as the job's thread exists.
  int start_i(const Action_Options* options) override;
  /// Not supported here.
  int stop_i(const Action_Options*) override { return -1; }
  int resume_i(const Action_Options*) override { return -1; }
  /// Cooperative: marks the job and its last thread as to be cancelled, and no more.
  int abort_i(const Action_Options* options) override;
  int remove_i(bool force, const Action_Options* options) override;
  int update_i(Job_Definition_Ptr definition) override;
  /// Returns as soon as the rollback has begun.
  int rollback_i() override;
  int setup_ondemand_i() override;
  /// The whole run, on the calling thread. An exception of the executor passes on.
  int run_i(const Action_Options* options) override;

 protected:
  static constexpr long thread_flags = THR_NEW_LWP | THR_DETACHED | THR_INHERIT_SCHED;
  static constexpr int no_thread_group = -1;

  /// Spawns a detached thread for this job; `argument` becomes the thread's. The thread's id is kept on success only.
  [[nodiscard]] bool spawn_thread(ACE_THR_FUNC function, std::unique_ptr<Run_Options> argument);
  /// Run_Options for this job with a copy of `options`; null, with an emergency line, when there is no memory.
  [[nodiscard]] std::unique_ptr<Run_Options> make_run_options(const Action_Options* options);

  std::atomic<ACE_thread_t> thr_id_{0};

 private:
  static ACE_THR_FUNC_RETURN run(void* argument);
  static int run_rollback(Job& job);
  static void end_broken_run(Job& job, const char* what);
  static void log_broken_rollback(const Job& job, const char* what);
};

template <typename Executor>
std::unique_ptr<Run_Options> Default_Job_T<Executor>::make_run_options(const Action_Options* options) {
  std::unique_ptr<Run_Options> opt(new (std::nothrow) Run_Options);
  if (!opt) {
    D3_EMERGENCY("Unexpected error in %N:%l, opt is NULL:\n%?\n");
    return opt;
  }
  opt->job.reset(this);
  if (options != nullptr) opt->opts = *options;
  return opt;
}

template <typename Executor>
bool Default_Job_T<Executor>::spawn_thread(ACE_THR_FUNC function, std::unique_ptr<Run_Options> argument) {
  ACE_thread_t id = 0;
  const int result = ACE_Thread_Manager::instance()->spawn(function, argument.get(), thread_flags, &id, nullptr,
                                                           ACE_DEFAULT_THREAD_PRIORITY, no_thread_group);
  if (result == -1) {
    D3_ERROR("Failed to spawn a thread for job %C: %m\n", definition()->id().c_str());
    return false;
  }
  thr_id_.store(id);
  static_cast<void>(argument.release());  // the thread's now
  return true;
}

template <typename Executor>
int Default_Job_T<Executor>::start_i(const Action_Options* options) {
  std::unique_ptr<Run_Options> opt = make_run_options(options);
  if (!opt) return -1;
  return spawn_thread(run, std::move(opt)) ? 0 : -1;
}

template <typename Executor>
ACE_THR_FUNC_RETURN Default_Job_T<Executor>::run(void* argument) {
  const std::unique_ptr<Run_Options> opt(static_cast<Run_Options*>(argument));
  Job& job = *opt->job;
  int result = -1;
  try {
    result = job.run_i(opt->opts.empty() ? nullptr : &opt->opts);
  } catch (const abi::__forced_unwind&) {
    throw;
  } catch (const std::exception& error) {
    end_broken_run(job, error.what());
  } catch (...) {
    end_broken_run(job, "an exception of unknown type");
  }
  return reinterpret_cast<ACE_THR_FUNC_RETURN>(static_cast<std::intptr_t>(result));
}

template <typename Executor>
void Default_Job_T<Executor>::end_broken_run(Job& job, const char* what) {
  D3_EMERGENCY("Unexpected error in %N:%l, job %C was left by an exception: %C\n", job.definition()->id().c_str(),
               platform::cut_for_log(what).c_str());
  Job_Event_Handler(job).handle_failure(-1, "Unexpected error: %s", what);
  job.complete();
}

template <typename Executor>
int Default_Job_T<Executor>::run_i(const Action_Options* options) {
  set_job_thread();
  note_user(definition()->uid());
  {
    Executor executor(static_cast<Job&>(*this));
    static_cast<void>(executor.execute(options));  // the activity tells the outcome
  }
  complete();
  return 0;
}

template <typename Executor>
int Default_Job_T<Executor>::abort_i(const Action_Options*) {
  constexpr int cooperative = 0;
  const int result = state_i(JOB_STATE_CANCELING);
  static_cast<void>(ACE_Thread_Manager::instance()->cancel(thr_id_.load(), cooperative));
  return result;
}

template <typename Executor>
int Default_Job_T<Executor>::remove_i(bool, const Action_Options*) {
  const Job_Definition_Ptr def = definition();
  if (!def->schedule.null() && def->schedule->type() == JOB_SCHEDULE_ONDEMAND) {
    Executor executor(static_cast<Job&>(*this));
    static_cast<void>(executor.remove_ondemand());
  }
  Executor executor(static_cast<Job&>(*this));
  static_cast<void>(executor.remove());
  return 0;
}

template <typename Executor>
int Default_Job_T<Executor>::update_i(Job_Definition_Ptr definition) {
  Executor executor(static_cast<Job&>(*this));
  static_cast<void>(executor.update(definition));
  return 0;
}

template <typename Executor>
int Default_Job_T<Executor>::rollback_i() {
  Thread_Helper thread(thread_flags, ACE_DEFAULT_THREAD_PRIORITY);
  // The thread is not joined: the copy of the pointer keeps the job for it.
  return thread.spawn([job = Job_Ptr(this)] { static_cast<void>(run_rollback(*job)); }) < 0 ? -1 : 0;
}

template <typename Executor>
int Default_Job_T<Executor>::run_rollback(Job& job) {
  try {
    Executor executor(job);
    static_cast<void>(executor.rollback());
  } catch (const abi::__forced_unwind&) {
    throw;
  } catch (const std::exception& error) {
    log_broken_rollback(job, error.what());
  } catch (...) {
    log_broken_rollback(job, "an exception of unknown type");
  }
  return 0;
}

template <typename Executor>
void Default_Job_T<Executor>::log_broken_rollback(const Job& job, const char* what) {
  D3_EMERGENCY("Unexpected error in %N:%l, the rollback of job %C was left by an exception: %C\n",
               job.definition()->id().c_str(), platform::cut_for_log(what).c_str());
}

template <typename Executor>
int Default_Job_T<Executor>::setup_ondemand_i() {
  Executor executor(static_cast<Job&>(*this));
  return executor.setup_ondemand() ? 0 : -1;
}
