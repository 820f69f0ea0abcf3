#pragma once

/// What a job is doing. The values are fixed: they stand in activity records and in reports.
enum Job_State : int {
  JOB_STATE_NONE = 0,
  JOB_STATE_IDLE = 1,
  JOB_STATE_STARTING = 2,
  JOB_STATE_RUNNING = 3,
  JOB_STATE_PAUSING = 4,
  JOB_STATE_PAUSED = 5,
  JOB_STATE_COMPLETING = 6,
  JOB_STATE_COMPLETED = 7,
  JOB_STATE_CANCELING = 8,
  JOB_STATE_CANCELED = 9,
  JOB_STATE_ERROR = 10,
  JOB_STATE_CREATED = 11,
  JOB_STATE_UPDATED = 12,
  JOB_STATE_DELETING = 13,
  JOB_STATE_DELETED = 14,
  JOB_STATE_COMPLETED_WITH_ERRORS = 15,
  JOB_STATE_DISPATCHING = 16,
  JOB_STATE_SKIPPED = 17,
  JOB_STATE_EXPIRED = 18,
  JOB_STATE_DISABLED = 19,
  JOB_STATE_ABORTING = 20,
  JOB_STATE_CREATING = 21,
  JOB_STATE_SYNCING = 22,
  JOB_STATE_SWITCHING = 23,
  JOB_STATE_ACTIVATING = 24,
  JOB_STATE_OPENING = 25
};

/// "running", "completed with errors" and so on; "unknown" for a value that is no state.
[[nodiscard]] const char* job_state_to_string(Job_State state);
/// True for the values above.
[[nodiscard]] bool is_job_state(int value);
/// The run of a job in this state has ended, or none was begun because its condition was not met: IDLE, COMPLETED,
/// CANCELED, ERROR, DELETED, COMPLETED_WITH_ERRORS, SKIPPED, EXPIRED, DISABLED.
[[nodiscard]] bool is_finished(Job_State state);
/// A run is under way: neither finished nor never begun (NONE, CREATED, UPDATED).
[[nodiscard]] bool is_active(Job_State state);
