#include "scrt/rate_controller.h"

#include <algorithm>

namespace {

constexpr std::chrono::milliseconds burst{100};

}  // namespace

std::chrono::nanoseconds Rate_Controller::take(std::uint64_t bytes, Time now) {
  if (bytes_per_second_ == 0) {
    free_at_ = now;
    return std::chrono::nanoseconds{0};
  }
  // What was not used stays usable for one burst only.
  const Time start = std::max(free_at_, now - burst);
  const auto cost = std::chrono::duration<double>(static_cast<double>(bytes) / static_cast<double>(bytes_per_second_));
  free_at_ = start + std::chrono::duration_cast<std::chrono::nanoseconds>(cost);
  return std::max(std::chrono::nanoseconds{0}, std::chrono::duration_cast<std::chrono::nanoseconds>(free_at_ - now));
}
