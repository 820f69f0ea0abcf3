#include "support/standing_clock.h"

#include <algorithm>
#include <thread>

namespace support {

using std::chrono::steady_clock;
using std::chrono::system_clock;

namespace {
constexpr std::chrono::nanoseconds longest_sleep = std::chrono::milliseconds(10);
}

Standing_Clock::Standing_Clock(std::time_t seconds, Follower follower)
    : follower_(std::move(follower)), seconds_(seconds), scope_(*this) {}
Standing_Clock::~Standing_Clock() = default;

Standing_Clock::Moment Standing_Clock::now() { return system_clock::from_time_t(seconds_) + fraction; }

steady_clock::time_point Standing_Clock::steady_now() { return steady_clock::now(); }

void Standing_Clock::sleep_for(std::chrono::nanoseconds span) {
  std::this_thread::sleep_for(std::min(span, longest_sleep));
}

bool Standing_Clock::wait_for(platform::Wait_Event& event, std::chrono::nanoseconds limit) {
  return event.wait_real(limit);
}

void Standing_Clock::move_to(std::time_t seconds) {
  const std::lock_guard<std::mutex> one_at_a_time(moves_);
  follower_(system_clock::from_time_t(seconds) + fraction);
  seconds_ = seconds;
}

}  // namespace support
