#pragma once

#include <atomic>
#include <chrono>
#include <ctime>
#include <functional>
#include <mutex>

#include "platform/clock.h"

namespace support {

/// The system's time, moved: it passes as fast as outside, but from another point on, and a sleep moves it instead of
/// waiting. For tests in which other processes work at the same time: a wait for an event ends as soon as the event
/// comes, so this time never runs ahead of theirs. Installed as the process's clock for its life. Safe for several
/// threads.
class Shifted_Clock : public platform::Clock {
 public:
  /// Told of every move, before anybody can see it: seconds between the system's time and this one. Other processes
  /// that keep time follow it.
  using Follower = std::function<void(std::chrono::seconds shift)>;

  explicit Shifted_Clock(Follower follower);
  ~Shifted_Clock() override;

  std::chrono::system_clock::time_point now() override;
  std::chrono::steady_clock::time_point steady_now() override;
  /// Moves time by `span`, rounded up to seconds: that is how followers count.
  void sleep_for(std::chrono::nanoseconds span) override;
  /// Waits for real.
  bool wait_for(platform::Wait_Event& event, std::chrono::nanoseconds limit) override;

  /// Moves to the beginning of a second, POSIX; backwards too.
  void move_to(std::time_t seconds);
  /// All sleeps together.
  [[nodiscard]] std::chrono::seconds slept() const { return std::chrono::seconds(slept_seconds_); }

 private:
  Follower follower_;
  std::mutex moves_;  ///< one move at a time: followers must not end up at another shift than this clock
  std::atomic<std::int64_t> shift_seconds_{0};
  std::atomic<std::int64_t> slept_seconds_{0};
  platform::Scoped_Clock scope_;
};

}  // namespace support
