#pragma once

#include <ace/Log_Msg_Callback.h>

#include <ctime>
#include <memory>
#include <string>
#include <string_view>

class Job_Activity_Record;

using ACE_Log_Msg_Callback_var = std::shared_ptr<ACE_Log_Msg_Callback>;

/// One line of a job's log.
struct Job_Log_Line {
  std::string job_act_id;
  unsigned long priority = 0;  ///< an ACE_Log_Priority
  std::string text;            ///< without the line end
  std::time_t time = 0;
};

/// Takes the lines of jobs. Called on the thread that logged, several at once; must not block for long.
class Job_Log_Sink {
 public:
  virtual ~Job_Log_Sink() = default;
  virtual void write(const Job_Log_Line& line) = 0;
};

/// Sets the process-wide sink to which the lines of all jobs go, beside each job's own file; gives back the one before.
std::shared_ptr<Job_Log_Sink> set_job_log_sink(std::shared_ptr<Job_Log_Sink> sink);
[[nodiscard]] std::shared_ptr<Job_Log_Sink> job_log_sink();

/// "<activity directory>/<id>.log"
[[nodiscard]] std::string job_log_path(const std::string& job_act_id);

/// The callback of one job: hands each line to the job's file (when its activity has one) and to the process-wide sink,
/// and keeps the last error line as the activity's message. Safe from any thread, and after the job is gone.
[[nodiscard]] ACE_Log_Msg_Callback_var make_job_log_callback(std::shared_ptr<Job_Activity_Record> record);

/// Sends what the calling thread logs to `callback` as well, for the life of this object; an empty callback changes
/// nothing. Made and destroyed on one thread, properly nested.
class Scoped_Log_Callback {
 public:
  explicit Scoped_Log_Callback(ACE_Log_Msg_Callback_var callback);
  ~Scoped_Log_Callback();
  Scoped_Log_Callback(const Scoped_Log_Callback&) = delete;
  Scoped_Log_Callback& operator=(const Scoped_Log_Callback&) = delete;

 private:
  ACE_Log_Msg_Callback_var callback_;
  ACE_Log_Msg_Callback* previous_ = nullptr;
};
