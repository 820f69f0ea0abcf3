#pragma once

#include "job/job.h"
#include "scrt/thread_helper.h"

/// A worker thread of a job: what it logs goes to the job's log too. The job must outlive the helper.
class Job_Thread_Helper : public Thread_Helper {
 public:
  Job_Thread_Helper(Job* job, int flags, int priority) : Thread_Helper(flags, priority), job_(job) {}
  ~Job_Thread_Helper() override { join(); }

  void handle_starting() override {
    if (job_ != nullptr) job_->set_job_thread();
  }

 private:
  Job* job_;
};
