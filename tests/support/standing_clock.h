#pragma once

#include <atomic>
#include <chrono>
#include <ctime>
#include <functional>
#include <mutex>

#include "platform/clock.h"

namespace support {

/// Wall time that stands still until a test moves it, however long anything takes; other processes are told of it. For
/// tests that know the second of all that happens while other processes work at the same time. Limits go by the real
/// time, so that none runs out because of a slow machine any earlier than in use; sleeps are cut short, since what is
/// slept for is the others' work. Installed as the process's clock for its life. Safe for several threads.
class Standing_Clock : public platform::Clock {
 public:
  using Moment = std::chrono::system_clock::time_point;
  /// Told of every move, before anybody can see it.
  using Follower = std::function<void(Moment now)>;

  /// A fraction of a second: what is rounded shows.
  static constexpr std::chrono::milliseconds fraction{437};

  Standing_Clock(std::time_t seconds, Follower follower);
  ~Standing_Clock() override;

  Moment now() override;
  std::chrono::steady_clock::time_point steady_now() override;
  /// Takes a moment at most, and moves nothing.
  void sleep_for(std::chrono::nanoseconds span) override;
  /// Waits for real.
  bool wait_for(platform::Wait_Event& event, std::chrono::nanoseconds limit) override;

  /// Moves into a second, POSIX; backwards too.
  void move_to(std::time_t seconds);

 private:
  Follower follower_;
  std::mutex moves_;  ///< one move at a time: followers must not end up at another time than this clock
  std::atomic<std::time_t> seconds_;
  platform::Scoped_Clock scope_;
};

}  // namespace support
