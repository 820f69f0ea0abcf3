#include "job/thread_activity.h"

#include <utility>

namespace {

thread_local const Job_Activity_Record* thread_record = nullptr;

}  // namespace

Scoped_Thread_Activity::Scoped_Thread_Activity(std::shared_ptr<const Job_Activity_Record> record)
    : record_(std::move(record)), previous_(std::exchange(thread_record, record_.get())) {}

Scoped_Thread_Activity::~Scoped_Thread_Activity() { thread_record = previous_; }

bool is_run_of_thread_ending() {
  if (thread_record == nullptr) return false;
  const Job_State state = thread_record->activity().load_state();
  return state == JOB_STATE_CANCELING || state == JOB_STATE_ABORTING;
}
