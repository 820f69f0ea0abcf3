#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

#include "hdbbackint/call.h"
#include "hdbbackint/stream/byte_sink.h"

namespace hdbbackint {

/// Tells backupd how many bytes a restore's call has given HANA back: once a second while more come, and at the
/// end. A thread of its own does so, so that a server that is slow or away holds up no stream; what it cannot tell is
/// not needed for anything but to be looked at. Source of the format: docs/backupd-api.md.
class Restore_Progress {
 public:
  explicit Restore_Progress(const Call& call);
  /// Returns after the last report, some `report_limit` later at the latest.
  ~Restore_Progress();
  Restore_Progress(const Restore_Progress&) = delete;
  Restore_Progress& operator=(const Restore_Progress&) = delete;

  /// Any thread.
  void add(std::uint64_t bytes);

  static constexpr std::chrono::seconds report_interval{1};
  static constexpr std::chrono::seconds report_limit{5};

 private:
  void tell_all();
  enum class Told { yes, no, to_nobody };
  [[nodiscard]] Told tell(std::uint64_t bytes);

  const Call& call_;
  const std::string uuid_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::uint64_t bytes_ = 0;                     ///< guarded by mutex_
  bool due_ = false;                            ///< guarded by mutex_
  bool ended_ = false;                          ///< guarded by mutex_
  std::chrono::steady_clock::time_point last_;  ///< when a report was due; guarded by mutex_
  std::thread thread_;
};

/// Passes bytes on and counts those that were taken. Nothing is owned. One thread.
class Counting_Sink : public Byte_Sink {
 public:
  Counting_Sink(Byte_Sink& sink, Restore_Progress& progress) : sink_(sink), progress_(progress) {}
  bool write(const char* data, std::size_t size) override {
    if (!sink_.write(data, size)) return false;
    progress_.add(size);
    return true;
  }
  [[nodiscard]] const std::string& error() const override { return sink_.error(); }

 private:
  Byte_Sink& sink_;
  Restore_Progress& progress_;
};

}  // namespace hdbbackint
