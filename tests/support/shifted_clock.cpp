#include "support/shifted_clock.h"

namespace support {

using std::chrono::duration_cast;
using std::chrono::seconds;
using std::chrono::steady_clock;
using std::chrono::system_clock;

Shifted_Clock::Shifted_Clock(Follower follower) : follower_(std::move(follower)), scope_(*this) {}
Shifted_Clock::~Shifted_Clock() = default;

system_clock::time_point Shifted_Clock::now() { return system_clock::now() + seconds(shift_seconds_); }

// Only sleeps count: whoever measures a span must not see the test's jump to another day.
steady_clock::time_point Shifted_Clock::steady_now() { return steady_clock::now() + slept(); }

void Shifted_Clock::sleep_for(std::chrono::nanoseconds span) {
  if (span.count() <= 0) return;
  const std::lock_guard<std::mutex> one_at_a_time(moves_);
  const std::int64_t moved = std::chrono::ceil<seconds>(span).count();
  follower_(seconds(shift_seconds_ + moved));
  shift_seconds_ += moved;
  slept_seconds_ += moved;
}

bool Shifted_Clock::wait_for(platform::Wait_Event& event, std::chrono::nanoseconds limit) {
  return event.wait_real(limit);
}

void Shifted_Clock::move_to(std::time_t to) {
  const std::lock_guard<std::mutex> one_at_a_time(moves_);
  const std::int64_t shift = to - system_clock::to_time_t(system_clock::now());
  follower_(seconds(shift));
  shift_seconds_ = shift;
}

}  // namespace support
