#include "support/virtual_clock.h"

#include <thread>

namespace support {

namespace {

constexpr std::chrono::milliseconds real_moment{2};

}  // namespace

Virtual_Clock::Virtual_Clock(std::time_t start) : start_(start), scope_(*this) {}
Virtual_Clock::~Virtual_Clock() = default;

std::chrono::system_clock::time_point Virtual_Clock::now() {
  const std::lock_guard guard(mutex_);
  return std::chrono::system_clock::from_time_t(start_) +
         std::chrono::duration_cast<std::chrono::system_clock::duration>(elapsed_);
}

std::chrono::steady_clock::time_point Virtual_Clock::steady_now() {
  const std::lock_guard guard(mutex_);
  return std::chrono::steady_clock::time_point(std::chrono::hours(1) + elapsed_);
}

void Virtual_Clock::sleep_for(std::chrono::nanoseconds span) {
  std::chrono::nanoseconds target{};
  {
    const std::lock_guard guard(mutex_);
    sleeps_.push_back(std::chrono::duration<double>(span).count());
    target = elapsed_ + span;
  }
  move_to(target);
  std::this_thread::yield();
}

bool Virtual_Clock::wait_for(platform::Wait_Event& event, std::chrono::nanoseconds limit) {
  if (event.wait_real(std::min<std::chrono::nanoseconds>(limit, real_moment))) return true;
  std::chrono::nanoseconds target{};
  {
    const std::lock_guard guard(mutex_);
    sleeps_.push_back(std::chrono::duration<double>(limit).count());
    target = elapsed_ + limit;
  }
  move_to(target);
  return event.is_set();
}

void Virtual_Clock::advance(std::chrono::nanoseconds span) {
  std::chrono::nanoseconds target{};
  {
    const std::lock_guard guard(mutex_);
    target = elapsed_ + span;
  }
  move_to(target);
}

void Virtual_Clock::at(std::chrono::nanoseconds after, std::function<void()> action) {
  const std::lock_guard guard(mutex_);
  due_.emplace(elapsed_ + after, std::move(action));
}

std::vector<double> Virtual_Clock::sleeps() const {
  const std::lock_guard guard(mutex_);
  return sleeps_;
}

void Virtual_Clock::forget_sleeps() {
  const std::lock_guard guard(mutex_);
  sleeps_.clear();
}

void Virtual_Clock::move_to(std::chrono::nanoseconds target) {
  for (;;) {
    std::function<void()> action;
    {
      const std::lock_guard guard(mutex_);
      if (due_.empty() || due_.begin()->first > target) {
        elapsed_ = std::max(elapsed_, target);
        return;
      }
      elapsed_ = std::max(elapsed_, due_.begin()->first);
      action = std::move(due_.begin()->second);
      due_.erase(due_.begin());
    }
    action();
  }
}

}  // namespace support
