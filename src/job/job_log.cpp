#include "job/job_log.h"

#include <ace/Log_Msg.h>
#include <ace/Log_Record.h>
#include <fcntl.h>
#include <sys/uio.h>
#include <unistd.h>

#include <mutex>
#include <utility>

#include "job/job_activity_record.h"
#include "platform/clock.h"
#include "platform/file_root.h"
#include "platform/files.h"
#include "scrt/time_text.h"
#include "scrt/uuid.h"

namespace {

/// A job that logs without end must not fill the disk.
constexpr std::size_t log_file_limit_bytes = 16U << 20;

std::mutex sink_mutex;
std::shared_ptr<Job_Log_Sink> current_sink;  // guarded by sink_mutex

const char* priority_name(unsigned long priority) {
  if (priority >= LM_EMERGENCY) return "EMERGENCY";
  if (priority >= LM_ERROR) return "ERROR";
  return priority == LM_WARNING ? "WARNING" : "INFO";
}

/// The log file of one job, opened with its first line. Lines are appended whole.
class Job_Log_File : public Job_Log_Sink {
 public:
  Job_Log_File() = default;
  ~Job_Log_File() override {
    if (file_ >= 0) ::close(file_);
  }
  Job_Log_File(const Job_Log_File&) = delete;
  Job_Log_File& operator=(const Job_Log_File&) = delete;

  /// What cannot be written is dropped: the same line stands in the agent's log.
  void write(const Job_Log_Line& line) override {
    const std::string text =
        posix_time_to_utc_text(line.time) + ' ' + priority_name(line.priority) + ' ' + line.text + '\n';
    const std::lock_guard guard(mutex_);
    if (file_ < 0) file_ = open_file(line.job_act_id);
    if (file_ < 0 || written_ + text.size() > log_file_limit_bytes) return;
    const ssize_t done = ::write(file_, text.data(), text.size());
    if (done > 0) written_ += static_cast<std::size_t>(done);
  }

 private:
  static int open_file(const std::string& job_act_id) {
    return ::open(platform::File_Root::current().real(job_log_path(job_act_id)).c_str(),
                  O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOFOLLOW, platform::mode_private_file);
  }

  std::mutex mutex_;
  int file_ = -1;
  std::size_t written_ = 0;
};

/// A sink that logs must not come back here.
thread_local bool inside_callback = false;

class Job_Log_Callback : public ACE_Log_Msg_Callback {
 public:
  explicit Job_Log_Callback(std::shared_ptr<Job_Activity_Record> record) : record_(std::move(record)) {}

  void log(ACE_Log_Record& record) override {
    if (inside_callback || record.type() < LM_INFO) return;
    inside_callback = true;
    deliver(record);
    inside_callback = false;
  }

 private:
  void deliver(ACE_Log_Record& record) {
    Job_Log_Line line;
    line.job_act_id = uuid_binary_to_string(record_->activity().id);
    line.priority = record.type();
    line.text = record.msg_data();
    while (!line.text.empty() && line.text.back() == '\n') line.text.pop_back();
    line.time = platform::Clock::current().wall_seconds();
    if (line.priority >= LM_ERROR) record_->message(line.text);
    if (record_->attached()) file_.write(line);
    if (const std::shared_ptr<Job_Log_Sink> sink = job_log_sink()) sink->write(line);
  }

  std::shared_ptr<Job_Activity_Record> record_;
  Job_Log_File file_;
};

}  // namespace

std::shared_ptr<Job_Log_Sink> set_job_log_sink(std::shared_ptr<Job_Log_Sink> sink) {
  const std::lock_guard guard(sink_mutex);
  return std::exchange(current_sink, std::move(sink));
}

std::shared_ptr<Job_Log_Sink> job_log_sink() {
  const std::lock_guard guard(sink_mutex);
  return current_sink;
}

std::string job_log_path(const std::string& job_act_id) {
  return job_activity_directory() + '/' + platform::encode_file_name(job_act_id) + ".log";
}

ACE_Log_Msg_Callback_var make_job_log_callback(std::shared_ptr<Job_Activity_Record> record) {
  return std::make_shared<Job_Log_Callback>(std::move(record));
}

Scoped_Log_Callback::Scoped_Log_Callback(ACE_Log_Msg_Callback_var callback) : callback_(std::move(callback)) {
  if (!callback_) return;
  ACE_Log_Msg* const log = ACE_Log_Msg::instance();
  previous_ = log->msg_callback(callback_.get());
  // The flag is the process's and only allows callbacks: a thread without one is not touched by it.
  if ((log->flags() & ACE_Log_Msg::MSG_CALLBACK) == 0) log->set_flags(ACE_Log_Msg::MSG_CALLBACK);
}

Scoped_Log_Callback::~Scoped_Log_Callback() {
  if (callback_) ACE_Log_Msg::instance()->msg_callback(previous_);
}
