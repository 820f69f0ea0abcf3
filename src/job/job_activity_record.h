#pragma once

#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "job/job_activity.h"

/// Owns the mapping of one activity record. Made in memory, so that a job has its activity from the start; attach puts
/// a file under it without moving it, so references to the activity stay good for the life of this object.
/// The operations on message, uid and snapshot are safe from any thread; attach is for one thread, before the job is
/// started.
class Job_Activity_Record {
 public:
  static constexpr std::size_t file_bytes = 4096;
  static constexpr std::size_t message_offset = 512;
  static constexpr std::size_t message_bytes = 2048;  ///< with the ending null byte; longer text is cut

  /// An empty record with magic and version set. Throws std::bad_alloc when there is no memory to map.
  Job_Activity_Record();
  ~Job_Activity_Record();
  Job_Activity_Record(const Job_Activity_Record&) = delete;
  Job_Activity_Record& operator=(const Job_Activity_Record&) = delete;

  [[nodiscard]] Job_Activity& activity() { return *activity_; }
  [[nodiscard]] const Job_Activity& activity() const { return *activity_; }

  /// Creates the record's file, named after the activity's id, in the activity directory, and maps it in place of the
  /// memory. False, with one error line, when the file exists or cannot be made; the record then stays in memory.
  [[nodiscard]] bool attach();
  [[nodiscard]] bool attached() const { return attached_; }

  /// Textual uuid of the user; the field stays as it is when `text` is none.
  void uid(const std::string& text);
  void message(std::string_view text);
  [[nodiscard]] std::string message() const;
  [[nodiscard]] Job_Activity_Snapshot snapshot() const;
  /// Brings the record to disk when it has a file.
  void flush();

 private:
  Job_Activity* activity_;
  bool attached_ = false;
  mutable std::mutex mutex_;  ///< guards message and uid, which are no atomics
};

/// "/var/opt/tarvex/dorsal3/agent/act"
[[nodiscard]] std::string job_activity_directory();
/// "<activity directory>/<id>.act"
[[nodiscard]] std::string job_activity_path(const std::string& id);

/// Every record in the activity directory, by id. A file that is no whole record of this version, or whose name is not
/// its id, is left out with one error line that names it and says why. True, with none, when there is no directory.
[[nodiscard]] bool list_job_activities(std::vector<Job_Activity_Snapshot>& activities);
/// Ends a record that a former process left: state, code and message, on disk before it returns. False with one error
/// line when there is no such sound record.
[[nodiscard]] bool finish_job_activity(const std::string& id, Job_State state, int code, std::string_view message);
/// Removes the file of a record and its job log. True when they are gone, also when they were not there.
[[nodiscard]] bool remove_job_activity(const std::string& id);
