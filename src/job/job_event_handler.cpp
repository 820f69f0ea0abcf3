#include "job/job_event_handler.h"

#include <cstdarg>
#include <cstdio>

#include "job/activity_listener.h"
#include "job/activity_results.h"
#include "job/job.h"
#include "platform/clock.h"

void Job_Event_Handler::handle_start_job() {
  Job_Activity& activity = job_.activity();
  const std::time_t now = platform::Clock::current().wall_seconds();
  Job_Activity::store(activity.start_time, now);
  Job_Activity::store(activity.last_run_time, now);
  clear_activity_results(activity);
  job_.message({});
  // A job that was stopped meanwhile keeps its state, so that its pre-action check ends it.
  activity.change_state(JOB_STATE_STARTING, JOB_STATE_RUNNING);
  job_.sync(nullptr);
}

void Job_Event_Handler::handle_success() {
  Job_Activity::store(job_.activity().progress, progress_done);
  Job_Activity::store(job_.activity().code, 0);
  // An error line on the way to a good end is no outcome; it stays in the job's log.
  job_.message({});
  job_.state(JOB_STATE_COMPLETED);
}

void Job_Event_Handler::handle_canceled() {
  hold_progress_below_done(job_.activity());
  job_.state(JOB_STATE_CANCELED);
}

void Job_Event_Handler::handle_failure(int code, const char* format, ...) {
  Job_Activity::store(job_.activity().code, code);
  hold_progress_below_done(job_.activity());
  if (format != nullptr) {
    char text[Job_Activity_Record::message_bytes];
    std::va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    job_.message(text);
  }
  job_.state(JOB_STATE_ERROR);
}

void Job_Event_Handler::handle_progress(int percent, unsigned long processed_size, unsigned long speed,
                                        unsigned long size) {
  Job_Activity& activity = job_.activity();
  Job_Activity::store(activity.progress, percent < 0 ? 0 : percent > progress_done ? progress_done : percent);
  if (processed_size != 0) Job_Activity::store(activity.processed_size, processed_size);
  if (speed != 0) Job_Activity::store(activity.speed, speed);
  if (size != 0) Job_Activity::store(activity.size, size);
  // Not to disk: progress that a crash loses is of no use afterwards.
  if (const std::shared_ptr<Activity_Listener> listener = activity_listener())
    listener->activity_changed(job_.snapshot());
}

std::string Job_Event_Handler::job_act_id() const { return job_.job_act_id(); }
