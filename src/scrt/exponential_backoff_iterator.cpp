#include "scrt/exponential_backoff_iterator.h"

#include <algorithm>
#include <limits>
#include <random>

namespace {

constexpr std::uint64_t largest_factor = std::uint64_t{1} << 31;

unsigned draw(unsigned highest) {
  thread_local std::minstd_rand generator{std::random_device{}()};
  return std::uniform_int_distribution<unsigned>(1, std::max(1U, highest))(generator);
}

}  // namespace

Exponential_Backoff_Iterator::Exponential_Backoff_Iterator(unsigned slot_time, unsigned max_retries, unsigned capped,
                                                           bool jitter)
    : slot_time_(slot_time), max_retries_(max_retries), capped_(capped), jitter_(jitter) {
  compute();
}

Exponential_Backoff_Iterator& Exponential_Backoff_Iterator::operator++() {
  cumulation_ += value_;
  if (i_ != std::numeric_limits<unsigned>::max()) ++i_;
  slot_time_exp_ = std::min(slot_time_exp_ * 2, largest_factor);
  compute();
  return *this;
}

Exponential_Backoff_Iterator Exponential_Backoff_Iterator::end_of_range() const {
  Exponential_Backoff_Iterator end(*this);
  end.i_ = max_retries_;
  return end;
}

void Exponential_Backoff_Iterator::compute() {
  const std::uint64_t factor = std::min<std::uint64_t>(slot_time_exp_, capped_);
  const std::uint64_t delay = std::min<std::uint64_t>(slot_time_ * factor, std::numeric_limits<unsigned>::max());
  value_ = static_cast<unsigned>(delay);
  if (jitter_) value_ = draw(value_);
}

Exponential_Backoff_Range exponential_backoff(unsigned slot_time, unsigned max_retries, unsigned capped, bool jitter) {
  return Exponential_Backoff_Range(Exponential_Backoff_Iterator(slot_time, max_retries, capped, jitter));
}
