#pragma once

#include <sys/types.h>

#include <streambuf>
#include <string>

#include "platform/unique_descriptor.h"

namespace platform {

/// What is behind the stream of a log file that several processes may write at once. What was collected goes out at
/// each flush, which ends a line: with one appending write, so that the lines of two processes never mix. A file that
/// was moved away (rotation) is begun anew under its name; where that is not possible, the old one goes on. A line
/// that cannot be written is dropped; the next one is tried again.
///
/// Not locked: ACE writes one line at a time.
class Log_File_Buffer : public std::streambuf {
 public:
  /// `path` is a documented one.
  explicit Log_File_Buffer(const std::string& path);
  [[nodiscard]] bool is_open() const { return file_.valid(); }

 protected:
  int_type overflow(int_type c) override;
  std::streamsize xsputn(const char* data, std::streamsize size) override;
  /// Never fails: a stream that has failed once would drop all that follows.
  int sync() override;

 private:
  [[nodiscard]] bool still_named() const;
  void write_out();

  std::string real_path_;
  Unique_Descriptor file_;
  std::string line_;
  bool cut_ = false;  ///< the file ends within a line of ours
};

/// Lets ACE write this process's lines into the file `path` (documented), besides setting ACE_Log_Msg::OSTREAM. False,
/// with nothing changed, when it cannot be opened. Called once, at start.
[[nodiscard]] bool log_to_file(const std::string& path);

}  // namespace platform
