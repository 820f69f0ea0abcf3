#pragma once

#include <string>

class Job;

/// Reports the course of one run: writes the activity and publishes it. May be used from any thread of the job.
class Job_Event_Handler {
 public:
  static constexpr int progress_done = 100;

  explicit Job_Event_Handler(Job& job) : job_(job) {}

  /// The run begins: STARTING becomes RUNNING (a job stopped meanwhile keeps its state); times set, counters, code and
  /// message cleared.
  void handle_start_job();
  /// COMPLETED, progress 100, no message.
  void handle_success();
  /// CANCELED.
  void handle_canceled();
  /// ERROR with `code` and a printf message; a null format keeps the last message, which is the last error line that
  /// the job logged.
  void handle_failure(int code, const char* format, ...) __attribute__((format(printf, 3, 4)));
  /// Progress in per cent, bytes processed, bytes a second and bytes in all; zero leaves the last three as they are.
  /// Never touches the state.
  void handle_progress(int percent, unsigned long processed_size = 0, unsigned long speed = 0, unsigned long size = 0);

  /// Textual id of the running activity.
  [[nodiscard]] std::string job_act_id() const;

 private:
  Job& job_;
};
