#include "job/job.h"

#include <exception>
#include <utility>

#include "job/activity_listener.h"
#include "job/activity_results.h"
#include "job/thread_activity.h"
#include "platform/log.h"
#include "scrt/uuid.h"

namespace {

constexpr int failed = -1;

/// What binds a thread to a job: goes with the thread at the latest. Holds log and record, not the job.
struct Thread_Binding {
  Scoped_Log_Callback log;
  Scoped_Thread_Activity activity;
};

thread_local std::unique_ptr<Thread_Binding> thread_binding;

}  // namespace

Job::Job(Job_Definition_Ptr definition)
    : record_(std::make_shared<Job_Activity_Record>()),
      log_callback_(make_job_log_callback(record_)),
      definition_(definition.null() ? Job_Definition_Ptr(new Job_Definition) : definition) {
  Job_Activity& record = record_->activity();
  uuid_string_to_binary(make_uuid().c_str(), record.id);
  uuid_string_to_binary(definition_->id().c_str(), record.def_id);
  record.type = definition_->type();
  record.enabled = true;
}

Job::~Job() = default;

int Job::handle_timeout(const ACE_Time_Value&, const void*) {
  static_cast<void>(start(nullptr));
  return 0;
}

int Job::setup_ondemand_by_job() { return setup_ondemand_i(); }
int Job::start_i(const Action_Options*) { return failed; }
int Job::stop_i(const Action_Options*) { return failed; }
int Job::enable_i(const Action_Options*) { return 0; }
int Job::disable_i(const Action_Options*) { return 0; }
int Job::pause_i(const Action_Options*) { return failed; }
int Job::resume_i(const Action_Options*) { return failed; }
int Job::abort_i(const Action_Options*) { return failed; }
int Job::switch_i(const Action_Options*) { return failed; }
int Job::remove_i(bool, const Action_Options*) { return 0; }
int Job::update_i(Job_Definition_Ptr) { return 0; }
int Job::rollback_i() { return failed; }
bool Job::can_update_i(Job_State state) { return !is_active(state); }
int Job::setup_ondemand_i() { return 0; }
int Job::run_i(const Action_Options*) { return failed; }
int Job::abort_i() { return failed; }

bool Job::refuse(const char* request) const {
  D3_ERROR("Cannot %C job %C, its state is %C\n", request, definition()->id().c_str(), job_state_to_string(state()));
  return false;
}

bool Job::begin_start() {
  const std::lock_guard guard(mutex_);
  const Job_State present = state();
  if (updating_ || run_under_way_ || !Job_Activity::load(activity().enabled) || is_active(present) ||
      !activity().change_state(present, JOB_STATE_STARTING))
    return false;
  run_under_way_ = true;
  completed_.reset();
  return true;
}

int Job::start(const Action_Options* options) {
  if (!begin_start()) return refuse("start") ? 0 : failed;
  // What the run before left is none of this one's, which may end without an outcome of its own.
  clear_activity_results(activity());
  message({});
  try {
    sync(nullptr);
    if (start_i(options) == 0) return 0;
    D3_ERROR("Failed to start job %C\n", definition()->id().c_str());
  } catch (const std::exception& error) {
    D3_ERROR("Failed to start job %C: %C\n", definition()->id().c_str(), error.what());
  }
  message("the job could not be started");
  Job_Activity::store(activity().code, failed);
  complete();
  return failed;
}

int Job::stop(const Action_Options* options) {
  if (!is_active(state())) return refuse("stop") ? 0 : failed;
  return stop_i(options);
}

int Job::enable(const Action_Options* options) {
  if (enable_i(options) != 0) return failed;
  Job_Activity::store(activity().enabled, true);
  sync(options);
  return 0;
}

int Job::disable(const Action_Options* options) {
  if (disable_i(options) != 0) return failed;
  Job_Activity::store(activity().enabled, false);
  sync(options);
  return 0;
}

int Job::pause(const Action_Options* options) {
  if (!is_active(state())) return refuse("pause") ? 0 : failed;
  return pause_i(options);
}

int Job::resume(const Action_Options* options) {
  const Job_State present = state();
  if (present != JOB_STATE_PAUSED && present != JOB_STATE_PAUSING && present != JOB_STATE_SWITCHING)
    return refuse("resume") ? 0 : failed;
  return resume_i(options);
}

int Job::switch_over(const Action_Options* options) {
  if (!is_active(state())) return refuse("switch") ? 0 : failed;
  return switch_i(options);
}

int Job::abort(const Action_Options* options) {
  if (!is_active(state())) return refuse("abort") ? 0 : failed;
  return abort_i(options);
}

int Job::abort() {
  if (!is_active(state())) return refuse("abort") ? 0 : failed;
  return abort_i();
}

int Job::remove(bool force, const Action_Options* options) {
  if (is_active(state()) && !force) return refuse("remove") ? 0 : failed;
  return remove_i(force, options);
}

bool Job::begin_update() {
  {
    const std::lock_guard guard(mutex_);
    if (updating_ || run_under_way_) return false;
    updating_ = true;
  }
  // From here on no run can be started, so the answer holds.
  if (can_update_i(state())) return true;
  end_update(nullptr);
  return false;
}

void Job::end_update(const Job_Definition_Ptr* definition) {
  const std::lock_guard guard(mutex_);
  updating_ = false;
  if (definition == nullptr) return;
  former_definitions_.push_back(definition_);
  definition_ = *definition;
}

int Job::update(Job_Definition_Ptr definition) {
  if (definition.null()) return refuse("update without a definition") ? 0 : failed;
  if (!begin_update()) return refuse("update") ? 0 : failed;
  int result = failed;
  try {
    result = update_i(definition);
  } catch (...) {
    end_update(nullptr);
    throw;
  }
  end_update(result == 0 ? &definition : nullptr);
  return result;
}

int Job::rollback() {
  if (is_active(state())) return refuse("roll back") ? 0 : failed;
  return rollback_i();
}

int Job::setup_ondemand() {
  const Job_Definition_Ptr present = definition();
  if (present->schedule.null() || present->schedule->type() != JOB_SCHEDULE_ONDEMAND) return 0;
  return setup_ondemand_by_job();
}

Job_Definition_Ptr Job::definition() const {
  const std::lock_guard guard(mutex_);
  return definition_;
}

bool Job::open_activity(const std::string& job_act_id) {
  if (!uuid_string_to_binary(job_act_id.c_str(), activity().id)) {
    D3_ERROR("Failed to make a job activity, '%C' is not a uuid\n", platform::cut_for_log(job_act_id).c_str());
    return false;
  }
  return record_->attach();
}

std::string Job::job_act_id() const { return uuid_binary_to_string(activity().id); }

void Job::state(Job_State value) {
  activity().store_state(value);
  sync(nullptr);
}

int Job::state_i(Job_State value) {
  Job_State present = state();
  do {
    if (is_finished(present)) return refuse("change") ? 0 : failed;
  } while (!activity().change_state(present, value) && (present = state(), true));
  sync(nullptr);
  return 0;
}

void Job::set_job_thread() {
  thread_binding.reset();  // first, as each puts back what it found
  thread_binding.reset(new Thread_Binding{Scoped_Log_Callback(log_callback_), Scoped_Thread_Activity(record_)});
}

void Job::sync(const Action_Options* /*options*/) {
  record_->flush();
  if (const std::shared_ptr<Activity_Listener> listener = activity_listener()) listener->activity_changed(snapshot());
}

void Job::complete() {
  Job_State present = state();
  while (!is_finished(present)) {
    const Job_State ended = present == JOB_STATE_CANCELING ? JOB_STATE_CANCELED : JOB_STATE_ERROR;
    if (activity().change_state(present, ended)) {
      if (ended == JOB_STATE_ERROR && Job_Activity::load(activity().code) == 0)
        Job_Activity::store(activity().code, failed);
      hold_progress_below_done(activity());
      break;
    }
    present = state();
  }
  sync(nullptr);
  thread_binding.reset();
  // Together, so that a run that starts at once is not taken for completed.
  const std::lock_guard guard(mutex_);
  run_under_way_ = false;
  completed_.set();
}

void Job::intrusive_add_ref(Job* job) {
  if (job != nullptr) job->references_.fetch_add(1, std::memory_order_relaxed);
}

void Job::intrusive_remove_ref(Job* job) {
  if (job != nullptr && job->references_.fetch_sub(1, std::memory_order_acq_rel) == 1) delete job;
}
