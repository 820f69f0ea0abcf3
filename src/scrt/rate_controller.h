#pragma once

#include <chrono>
#include <cstdint>

/// A byte budget over time: take says how long to wait so that no more than `bytes_per_second` pass on average, with
/// bursts of at most one tenth of a second. Pure arithmetic on the times it is given: the caller waits. Not shared
/// between threads without a lock.
class Rate_Controller {
 public:
  using Time = std::chrono::steady_clock::time_point;

  /// 0: no limit.
  void limit(std::uint64_t bytes_per_second) { bytes_per_second_ = bytes_per_second; }

  /// Books `bytes` at `now` and returns how long the taker has to wait before it moves them.
  [[nodiscard]] std::chrono::nanoseconds take(std::uint64_t bytes, Time now);

 private:
  std::uint64_t bytes_per_second_ = 0;
  Time free_at_{};  ///< when everything booked so far has been paid for
};
