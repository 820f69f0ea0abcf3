#pragma once

#include <cstddef>
#include <functional>
#include <mutex>

namespace hdbbackint {

/// The objects of a backup that HANA began by itself, told to backupd one after the other: with the record of the last
/// one backupd learns that the backup is complete. An object that fails has no turn, so that no record is the last:
/// HANA takes such a backup for failed. Any thread.
class Record_Turns {
 public:
  explicit Record_Turns(std::size_t objects) : left_(objects) {}

  /// Calls `record`, which stores the record of one object, while no other does. The lock is held over the call because
  /// all others must be stored before the last is sent. Returns what `record` does; true counts.
  [[nodiscard]] bool take(const std::function<bool(bool last)>& record) {
    const std::lock_guard lock(mutex_);
    if (!record(left_ == 1)) return false;
    --left_;
    return true;
  }

 private:
  std::mutex mutex_;
  std::size_t left_;  ///< guarded by mutex_
};

}  // namespace hdbbackint
