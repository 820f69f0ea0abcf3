#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>

#include "platform/unique_descriptor.h"

namespace hdbbackint {

/// The output file. Each answer is one line, handed to the system before the call returns, so that HANA sees what was
/// done even when the process dies. Every operation may be called from any thread.
class Answer_File {
 public:
  /// Writes to `path` (documented; empty: standard output). False with a reason when it cannot be written.
  [[nodiscard]] bool open(const std::string& path, std::string& error);

  void software_id(std::string_view interface, std::string_view tool);
  void saved(std::string_view ebid, std::string_view name, std::uint64_t bytes);
  void restored(std::string_view ebid, std::string_view name);
  /// `timestamp` may be empty.
  void backup(std::string_view ebid, std::string_view name, std::string_view timestamp);
  void deleted(std::string_view ebid, std::string_view name);
  /// Empty parameters are left out.
  void not_found(std::string_view ebid, std::string_view name);
  void error(std::string_view ebid, std::string_view name);

  /// An "#ERROR" was answered, or an answer could not be written.
  [[nodiscard]] bool failed() const { return failed_; }

 private:
  void write_line(std::string line);

  std::mutex mutex_;
  platform::Unique_Descriptor file_;  ///< writes guarded by mutex_
  std::atomic<bool> failed_ = false;
};

}  // namespace hdbbackint
