#pragma once

#include <string>

#include "job/action_options.h"
#include "job/execute_script.h"
#include "job/job.h"
#include "job/job_definition.h"
#include "platform/clock.h"
#include "platform/log.h"

/// Base of every executor: binds it to its job and runs the fixed sequence of precondition, pre-action, work and
/// post-action. One executor serves one request on one thread; several may exist for a job at once. It owns nothing of
/// what it refers to: job, definition and activity outlive it.
///
/// A long execute_i watches the activity's state and ends its work when it finds CANCELING, PAUSING, SWITCHING or
/// ABORTING there: the requests only record it.
template <typename Source, typename Options, typename Event_Handler>
class Job_Executor_T {
 public:
  /// A source or options of another class than wanted count as missing.
  explicit Job_Executor_T(Job& job)
      : job_(job),
        def_(*job.definition()),
        tgt_(def_.target()),
        act_(job.activity()),
        evt_handler_(job),
        src_(def_.source.null() ? nullptr : dynamic_cast<Source*>(def_.source.get())),
        opts_(def_.options.null() ? nullptr : dynamic_cast<Options*>(def_.options.get())) {}
  virtual ~Job_Executor_T() = default;
  Job_Executor_T(const Job_Executor_T&) = delete;
  Job_Executor_T& operator=(const Job_Executor_T&) = delete;

  virtual bool remove() { return true; }
  virtual bool setup_ondemand() { return true; }
  virtual bool remove_ondemand() { return true; }
  virtual bool update(Job_Definition_Ptr) { return true; }
  virtual bool rollback() { return true; }
  virtual bool execute_i(const Action_Options* options) = 0;
  virtual bool execute_pre_action();
  virtual bool execute_post_action();
  virtual bool check_condition() { return true; }
  virtual bool is_active(const Action_Options*) { return true; }

  /// One run. True when it counts as done, also when it was skipped or its condition was not met; false on failure or
  /// cancellation, which the activity then tells.
  bool execute(const Action_Options* options);

 protected:
  Job& job_;
  Job_Definition& def_;
  Job_Target& tgt_;
  Job_Activity& act_;
  Event_Handler evt_handler_;
  Source* src_;
  Options* opts_;

 private:
  void skip_run();
  void leave_idle();
  [[nodiscard]] bool execute_precondition();
  [[nodiscard]] bool report_outcome(bool done);
};

template <typename Source, typename Options, typename Event_Handler>
bool Job_Executor_T<Source, Options, Event_Handler>::execute(const Action_Options* options) {
  if (src_ == nullptr) {
    D3_EMERGENCY("Unexpected error in %N:%l, src_ is NULL:\n%?\n");
    return false;
  }
  if (!is_active(options)) {
    skip_run();
    return true;
  }
  if (!execute_precondition() || !check_condition()) {
    leave_idle();
    return true;
  }
  evt_handler_.handle_start_job();
  const bool worked = execute_pre_action() && execute_i(options);
  const bool post_done = worked || def_.run_post_action_always() ? execute_post_action() : true;
  return report_outcome(worked && post_done);
}

template <typename Source, typename Options, typename Event_Handler>
void Job_Executor_T<Source, Options, Event_Handler>::skip_run() {
  Job_Activity::store(act_.last_run_time, platform::Clock::current().wall_seconds());
  act_.store_state(JOB_STATE_SKIPPED);
}

template <typename Source, typename Options, typename Event_Handler>
void Job_Executor_T<Source, Options, Event_Handler>::leave_idle() {
  const std::time_t now = platform::Clock::current().wall_seconds();
  Job_Activity::store(act_.start_time, now);
  Job_Activity::store(act_.last_run_time, now);
  act_.store_state(JOB_STATE_IDLE);
  job_.sync(nullptr);
}

template <typename Source, typename Options, typename Event_Handler>
bool Job_Executor_T<Source, Options, Event_Handler>::execute_precondition() {
  return execute_script(def_.precondition(), false, ACE_Log_Msg_Callback_var());
}

template <typename Source, typename Options, typename Event_Handler>
bool Job_Executor_T<Source, Options, Event_Handler>::execute_pre_action() {
  const bool succeeded = execute_script(def_.pre_action(), false, job_.log_msg_callback());
  if (!succeeded && !def_.ignore_pre_action_failure()) return false;
  // A job stopped during its pre-action does not begin its work.
  return act_.load_state() == JOB_STATE_RUNNING;
}

template <typename Source, typename Options, typename Event_Handler>
bool Job_Executor_T<Source, Options, Event_Handler>::execute_post_action() {
  if (def_.post_action().empty()) return true;
  if (act_.load_state() != JOB_STATE_COMPLETING) job_.state(JOB_STATE_COMPLETING);
  const bool succeeded = execute_script(def_.post_action(), false, job_.log_msg_callback());
  return succeeded || def_.ignore_post_action_failure();
}

template <typename Source, typename Options, typename Event_Handler>
bool Job_Executor_T<Source, Options, Event_Handler>::report_outcome(bool done) {
  if (done) {
    evt_handler_.handle_success();
    return true;
  }
  constexpr int failure_code = -1;
  // A post-action of a cancelled run has moved the state on to COMPLETING: that run reports failure.
  if (act_.load_state() == JOB_STATE_CANCELING)
    evt_handler_.handle_canceled();
  else
    evt_handler_.handle_failure(failure_code, nullptr);
  return false;
}
