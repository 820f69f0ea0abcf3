#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <vector>

#include "platform/clock.h"
#include "support/first_moment.h"

namespace support {

/// Time that moves only when somebody sleeps or a test says so: hours pass in milliseconds. Installed as the process's
/// clock for its life. Safe for several threads.
class Virtual_Clock : public platform::Clock {
 public:
  explicit Virtual_Clock(std::time_t start = first_moment(1'700'000'000));
  ~Virtual_Clock() override;

  std::chrono::system_clock::time_point now() override;
  std::chrono::steady_clock::time_point steady_now() override;
  /// Moves time and runs what falls due.
  void sleep_for(std::chrono::nanoseconds span) override;
  /// Gives the real world a moment to set the event before virtual time moves, so that a worker that is just ending
  /// is seen; then time moves by the whole limit.
  bool wait_for(platform::Wait_Event& event, std::chrono::nanoseconds limit) override;

  /// Moves time by hand.
  void advance(std::chrono::nanoseconds span);
  /// Runs `action` once, when time has reached now + `after`, on the thread that moves time.
  void at(std::chrono::nanoseconds after, std::function<void()> action);

  /// Every sleep so far, in order, in seconds.
  [[nodiscard]] std::vector<double> sleeps() const;
  void forget_sleeps();

 private:
  void move_to(std::chrono::nanoseconds target);

  mutable std::mutex mutex_;
  std::chrono::nanoseconds elapsed_{0};
  std::time_t start_;
  std::multimap<std::chrono::nanoseconds, std::function<void()>> due_;
  std::vector<double> sleeps_;
  platform::Scoped_Clock scope_;
};

}  // namespace support
