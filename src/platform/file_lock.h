#pragma once

#include <string>

#include "platform/unique_descriptor.h"

namespace platform {

/// A lock that processes, and threads of one process, take by a file. The file exists while somebody holds the lock: it
/// is made with mode 0600 (its directory with 0700) and removed while it is still held. One object belongs to one
/// thread; it lets go with its destructor.
class File_Lock {
 public:
  /// `path`: documented path of the lock file.
  explicit File_Lock(std::string path) : path_(std::move(path)) {}
  ~File_Lock() { release(); }
  File_Lock(const File_Lock&) = delete;
  File_Lock& operator=(const File_Lock&) = delete;

  /// Blocks until the lock is held. False and errno when the file cannot be made or locked.
  [[nodiscard]] bool acquire();
  void release();
  [[nodiscard]] bool held() const { return file_.valid(); }

 private:
  /// The path still names the open file: its last holder has not removed it meanwhile.
  [[nodiscard]] bool is_named(int file) const;

  std::string path_;
  Unique_Descriptor file_;
};

}  // namespace platform
