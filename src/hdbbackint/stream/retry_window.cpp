#include "hdbbackint/stream/retry_window.h"

#include <algorithm>

#include "platform/clock.h"

namespace hdbbackint {

namespace {

constexpr std::chrono::seconds first_pause{1};
constexpr std::chrono::seconds longest_pause{10};

}  // namespace

bool Retry_Window::wait() {
  const auto now = platform::Clock::current().steady_now();
  if (!failing_) {
    failing_ = true;
    deadline_ = now + limit_;
    pause_ = first_pause;
  }
  if (now >= deadline_) return false;
  const std::chrono::nanoseconds left = deadline_ - now;
  const std::chrono::nanoseconds pause = std::min<std::chrono::nanoseconds>(pause_, left);
  pause_ = std::min(pause_ * 2, longest_pause);
  return stop_.wait(pause);
}

}  // namespace hdbbackint
