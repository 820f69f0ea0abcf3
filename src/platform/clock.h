#pragma once

#include <chrono>
#include <condition_variable>
#include <ctime>
#include <mutex>

namespace platform {

/// A flag that threads can wait for. Stays set once set, until reset. Safe for any number of threads.
class Wait_Event {
 public:
  void set();
  void reset();
  [[nodiscard]] bool is_set() const;
  /// Real waiting, used by clocks only: everybody else asks Clock::wait_for.
  bool wait_real(std::chrono::nanoseconds limit);

 private:
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  bool set_ = false;
};

/// The only source of time and the only way to wait. A process-wide default that a test replaces for a scope.
/// Every operation may be called from any thread.
class Clock {
 public:
  virtual ~Clock() = default;
  /// Wall-clock time, UTC.
  [[nodiscard]] virtual std::chrono::system_clock::time_point now() = 0;
  /// Monotonic time for measuring and for limits.
  [[nodiscard]] virtual std::chrono::steady_clock::time_point steady_now() = 0;
  virtual void sleep_for(std::chrono::nanoseconds span) = 0;
  /// Waits until `event` is set or `limit` has passed; true when the event is set.
  virtual bool wait_for(Wait_Event& event, std::chrono::nanoseconds limit) = 0;

  /// POSIX seconds of now().
  [[nodiscard]] std::time_t wall_seconds();

  [[nodiscard]] static Clock& current();
};

/// Makes `clock` the process-wide clock for the life of this object.
class Scoped_Clock {
 public:
  explicit Scoped_Clock(Clock& clock);
  ~Scoped_Clock();
  Scoped_Clock(const Scoped_Clock&) = delete;
  Scoped_Clock& operator=(const Scoped_Clock&) = delete;

 private:
  Clock* previous_;
};

}  // namespace platform
