#pragma once

#include <ace/Event_Handler.h>
#include <ace/Intrusive_Auto_Ptr.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <vector>

#include "job/action_options.h"
#include "job/job_activity_record.h"
#include "job/job_definition.h"
#include "job/job_log.h"
#include "platform/clock.h"

/// One job: a definition, its activity, and the requests that act on it. The agent calls the public request operations
/// on its own threads; each checks whether the request fits the state and calls the operation ending in _i that the
/// job's class provides. A run happens on a thread of its own. Results of requests: 0, or -1 with one line in the log.
///
/// Counted through ACE_Intrusive_Auto_Ptr<Job>: a started job is kept alive by its thread, so a job that is started
/// must have been made with new and be held by such a pointer.
class Job : public ACE_Event_Handler {
 public:
  explicit Job(Job_Definition_Ptr definition);
  ~Job() override;
  Job(const Job&) = delete;
  Job& operator=(const Job&) = delete;

  /// A timer of the schedule fell due: starts the job. Always 0, so that the timer stays.
  int handle_timeout(const ACE_Time_Value& current_time, const void* act = nullptr) override;

  /// Sets the job's on-demand schedule up at its source on behalf of the job itself.
  virtual int setup_ondemand_by_job();
  virtual int start_i(const Action_Options* options);
  virtual int stop_i(const Action_Options* options);
  virtual int enable_i(const Action_Options* options);
  virtual int disable_i(const Action_Options* options);
  virtual int pause_i(const Action_Options* options);
  virtual int resume_i(const Action_Options* options);
  virtual int abort_i(const Action_Options* options);
  virtual int switch_i(const Action_Options* options);
  virtual int remove_i(bool force, const Action_Options* options);
  virtual int update_i(Job_Definition_Ptr definition);
  virtual int rollback_i();
  virtual bool can_update_i(Job_State state);
  virtual int setup_ondemand_i();
  virtual int run_i(const Action_Options* options);
  virtual int abort_i();

  /// Requests. start: -1 while a run is active or an update is going on; a job that cannot be started ends in
  /// JOB_STATE_ERROR. stop, pause, abort: -1 unless a run is active. resume: -1 unless paused, pausing or switching.
  /// update: -1 while a run is active; otherwise the new definition takes the place of the old one, which executors
  /// that still hold it may go on using.
  int start(const Action_Options* options);
  int stop(const Action_Options* options);
  int enable(const Action_Options* options);
  int disable(const Action_Options* options);
  int pause(const Action_Options* options);
  int resume(const Action_Options* options);
  int switch_over(const Action_Options* options);
  int abort(const Action_Options* options);
  int abort();
  int remove(bool force, const Action_Options* options);
  int update(Job_Definition_Ptr definition);
  int rollback();
  /// Does nothing, with success, unless the definition's schedule is JOB_SCHEDULE_ONDEMAND.
  int setup_ondemand();

  [[nodiscard]] Job_Definition_Ptr definition() const;
  /// Good for the life of the job; it never moves.
  [[nodiscard]] Job_Activity& activity() { return record_->activity(); }
  [[nodiscard]] const Job_Activity& activity() const { return record_->activity(); }

  /// Gives the activity the id that backupd chose for this run and puts it on disk, in the activity directory. Once,
  /// before the first request; without it the job has an id of its own and its activity stays in memory. False, with
  /// one error line, when the id is not a uuid or the file cannot be made.
  [[nodiscard]] bool open_activity(const std::string& job_act_id);
  /// Textual id of the activity.
  [[nodiscard]] std::string job_act_id() const;

  [[nodiscard]] Job_State state() const { return activity().load_state(); }
  /// Sets the state from the running job, and publishes it.
  void state(Job_State value);
  /// Sets the state from inside a request. 0; -1 when the run has finished, so that a late request cannot bring a
  /// finished job back into a state that nobody would end.
  int state_i(Job_State value);

  /// Marks the calling thread as one of this job's: what it logs goes to the job's log too, until complete is called
  /// on it or it ends.
  void set_job_thread();
  /// Publishes the activity: brings it to disk and tells the listener.
  void sync(const Action_Options* options);
  /// Ends the run after the executor returned: CANCELING becomes CANCELED, another unfinished state ERROR; then
  /// publishes, and frees the calling thread of the job. Only now may the job be started or updated again: the state
  /// alone tells a finished run while its executor is still at work.
  void complete();
  /// Set when a run has been completed; reset by start.
  [[nodiscard]] platform::Wait_Event& completed() { return completed_; }

  /// Why the run failed, or what it does: kept in the activity.
  void message(std::string_view text) { record_->message(text); }
  [[nodiscard]] std::string message() const { return record_->message(); }
  [[nodiscard]] Job_Activity_Snapshot snapshot() const { return record_->snapshot(); }

  /// Safe from any thread; never empty.
  [[nodiscard]] ACE_Log_Msg_Callback_var log_msg_callback() const { return log_callback_; }

  static void intrusive_add_ref(Job* job);
  static void intrusive_remove_ref(Job* job);

 protected:
  /// Notes on whose behalf the job runs, in the activity; what is no uuid leaves it alone.
  void note_user(const std::string& uid) { record_->uid(uid); }

 private:
  [[nodiscard]] bool begin_start();
  [[nodiscard]] bool begin_update();
  /// Lets runs start again; with the new definition, unless it is null.
  void end_update(const Job_Definition_Ptr* definition);
  [[nodiscard]] bool refuse(const char* request) const;

  std::atomic<long> references_{0};
  std::shared_ptr<Job_Activity_Record> record_;
  ACE_Log_Msg_Callback_var log_callback_;
  platform::Wait_Event completed_;

  mutable std::mutex mutex_;  ///< guards the members below
  Job_Definition_Ptr definition_;
  std::vector<Job_Definition_Ptr> former_definitions_;  ///< executors hold plain references into them
  bool updating_ = false;
  bool run_under_way_ = false;  ///< from start until complete
};

using Job_Ptr = ACE_Intrusive_Auto_Ptr<Job>;
