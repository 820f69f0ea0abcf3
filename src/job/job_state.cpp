#include "job/job_state.h"

#include <array>

namespace {

constexpr std::array names{
    "none",        "idle",     "starting", "running",  "pausing",  "paused",   "completing", "completed",
    "canceling",   "canceled", "error",    "created",  "updated",  "deleting", "deleted",    "completed with errors",
    "dispatching", "skipped",  "expired",  "disabled", "aborting", "creating", "syncing",    "switching",
    "activating",  "opening"};
static_assert(names.size() == JOB_STATE_OPENING + 1);

}  // namespace

const char* job_state_to_string(Job_State state) {
  return is_job_state(state) ? names[static_cast<std::size_t>(state)] : "unknown";
}

bool is_job_state(int value) { return value >= JOB_STATE_NONE && value <= JOB_STATE_OPENING; }

bool is_finished(Job_State state) {
  switch (state) {
    case JOB_STATE_IDLE:
    case JOB_STATE_COMPLETED:
    case JOB_STATE_CANCELED:
    case JOB_STATE_ERROR:
    case JOB_STATE_DELETED:
    case JOB_STATE_COMPLETED_WITH_ERRORS:
    case JOB_STATE_SKIPPED:
    case JOB_STATE_EXPIRED:
    case JOB_STATE_DISABLED:
      return true;
    default:
      return false;
  }
}

bool is_active(Job_State state) {
  return !is_finished(state) && state != JOB_STATE_NONE && state != JOB_STATE_CREATED && state != JOB_STATE_UPDATED;
}
