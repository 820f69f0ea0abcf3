#include "platform/clock.h"

#include <ace/OS_NS_unistd.h>
#include <ace/Time_Value.h>

#include <atomic>

namespace platform {

void Wait_Event::set() {
  const std::lock_guard guard(mutex_);
  set_ = true;
  changed_.notify_all();
}

void Wait_Event::reset() {
  const std::lock_guard guard(mutex_);
  set_ = false;
}

bool Wait_Event::is_set() const {
  const std::lock_guard guard(mutex_);
  return set_;
}

bool Wait_Event::wait_real(std::chrono::nanoseconds limit) {
  std::unique_lock guard(mutex_);
  return changed_.wait_for(guard, limit, [this] { return set_; });
}

std::time_t Clock::wall_seconds() { return std::chrono::system_clock::to_time_t(now()); }

namespace {

ACE_Time_Value to_ace(std::chrono::nanoseconds span) {
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(span);
  const auto rest = std::chrono::duration_cast<std::chrono::microseconds>(span - seconds);
  return ACE_Time_Value(seconds.count(), static_cast<suseconds_t>(rest.count()));
}

class System_Clock final : public Clock {
 public:
  std::chrono::system_clock::time_point now() override { return std::chrono::system_clock::now(); }
  std::chrono::steady_clock::time_point steady_now() override { return std::chrono::steady_clock::now(); }

  void sleep_for(std::chrono::nanoseconds span) override {
    // A signal ends a sleep early; the rest of it is slept as well.
    const auto until = steady_now() + span;
    for (auto left = span; left.count() > 0; left = until - steady_now()) ACE_OS::sleep(to_ace(left));
  }

  bool wait_for(Wait_Event& event, std::chrono::nanoseconds limit) override { return event.wait_real(limit); }
};

System_Clock system_clock;
std::atomic<Clock*> current_clock{&system_clock};

}  // namespace

Clock& Clock::current() { return *current_clock.load(); }

Scoped_Clock::Scoped_Clock(Clock& clock) : previous_(current_clock.exchange(&clock)) {}
Scoped_Clock::~Scoped_Clock() { current_clock.store(previous_); }

}  // namespace platform
