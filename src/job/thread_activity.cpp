#include "job/thread_activity.h"

#include <algorithm>
#include <initializer_list>
#include <utility>

namespace {

thread_local const Job_Activity_Record* thread_record = nullptr;

bool is_run_in(std::initializer_list<Job_State> states) {
  if (thread_record == nullptr) return false;
  const Job_State state = thread_record->activity().load_state();
  return std::find(states.begin(), states.end(), state) != states.end();
}

}  // namespace

Scoped_Thread_Activity::Scoped_Thread_Activity(std::shared_ptr<const Job_Activity_Record> record)
    : record_(std::move(record)), previous_(std::exchange(thread_record, record_.get())) {}

Scoped_Thread_Activity::~Scoped_Thread_Activity() { thread_record = previous_; }

bool is_run_of_thread_ending() { return is_run_in({JOB_STATE_CANCELING, JOB_STATE_ABORTING}); }

bool is_run_of_thread_aborting() { return is_run_in({JOB_STATE_ABORTING}); }

bool is_run_of_thread_completing() { return is_run_in({JOB_STATE_COMPLETING}); }
