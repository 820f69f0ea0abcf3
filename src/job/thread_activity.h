#pragma once

#include <memory>

#include "job/job_activity_record.h"

/// Names the run that the calling thread works for, for the life of this object, so that what has no job at hand (the
/// runner of a user's script) can see when the run is to end. Made and destroyed on one thread, properly nested.
class Scoped_Thread_Activity {
 public:
  explicit Scoped_Thread_Activity(std::shared_ptr<const Job_Activity_Record> record);
  ~Scoped_Thread_Activity();
  Scoped_Thread_Activity(const Scoped_Thread_Activity&) = delete;
  Scoped_Thread_Activity& operator=(const Scoped_Thread_Activity&) = delete;

 private:
  std::shared_ptr<const Job_Activity_Record> record_;
  const Job_Activity_Record* previous_;
};

/// The run of the calling thread is being cancelled or aborted; false on a thread that works for no run.
[[nodiscard]] bool is_run_of_thread_ending();
/// It is being aborted.
[[nodiscard]] bool is_run_of_thread_aborting();
/// Its work is done and what comes after it runs; false on a thread that works for no run.
[[nodiscard]] bool is_run_of_thread_completing();
