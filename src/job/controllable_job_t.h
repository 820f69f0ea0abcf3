#pragma once

#include "job/default_job_t.h"

/// A job whose requests only change its state: the running executor notices and reacts.
template <typename Executor>
class Controllable_Job_T : public Default_Job_T<Executor> {
 public:
  using Default_Job_T<Executor>::Default_Job_T;
  using Default_Job_T<Executor>::abort_i;

  int stop_i(const Action_Options*) override { return this->state_i(JOB_STATE_CANCELING); }
  int pause_i(const Action_Options*) override { return this->state_i(JOB_STATE_PAUSING); }
  int resume_i(const Action_Options*) override { return this->state_i(JOB_STATE_RUNNING); }
  int switch_i(const Action_Options*) override { return this->state_i(JOB_STATE_SWITCHING); }
  int abort_i() override { return this->state_i(JOB_STATE_ABORTING); }
};
