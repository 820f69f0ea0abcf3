#pragma once

#include <chrono>

#include "hdbbackint/stop_source.h"

namespace hdbbackint {

/// How long a broken transfer is tried again: at most `max_seconds` from its first failure, with pauses that grow to
/// ten seconds. One thread.
class Retry_Window {
 public:
  Retry_Window(unsigned max_seconds, Stop_Source& stop) : limit_(max_seconds), stop_(stop) {}

  /// Waits before the next attempt; false when there is no time left or the stop was requested.
  [[nodiscard]] bool wait();
  /// The transfer goes on: the next failure begins a new window.
  void reset() { failing_ = false; }

 private:
  std::chrono::seconds limit_;
  Stop_Source& stop_;
  bool failing_ = false;
  std::chrono::steady_clock::time_point deadline_{};
  std::chrono::seconds pause_{0};
};

}  // namespace hdbbackint
