#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>

/// The delays between attempts: slot_time x min(2^i, capped) for attempt i = 0, 1, 2 ... (an exponent that would
/// overflow saturates), so slot 1 with cap 2 gives 1, 2, 2, ... With jitter each delay is drawn evenly from
/// [1, delay]. Not shared between threads.
class Exponential_Backoff_Iterator {
 public:
  using iterator_category = std::input_iterator_tag;
  using value_type = unsigned;
  using difference_type = std::ptrdiff_t;
  using pointer = const unsigned*;
  using reference = unsigned;

  /// `max_retries` -1: without end. `capped`: largest multiple of the slot.
  Exponential_Backoff_Iterator(unsigned slot_time, unsigned max_retries, unsigned capped, bool jitter);

  /// The current delay, in the unit of slot_time (seconds here).
  [[nodiscard]] unsigned operator*() const { return value_; }
  Exponential_Backoff_Iterator& operator++();
  /// Sum of the delays that were advanced over.
  [[nodiscard]] std::uint64_t cumulation() const { return cumulation_; }
  /// All retries are used up.
  [[nodiscard]] bool exhausted() const { return i_ >= max_retries_; }
  [[nodiscard]] bool operator==(const Exponential_Backoff_Iterator& other) const { return i_ == other.i_; }

  /// The iterator behind the last attempt of this schedule.
  [[nodiscard]] Exponential_Backoff_Iterator end_of_range() const;

 private:
  void compute();

  unsigned slot_time_;
  unsigned max_retries_;
  unsigned capped_;
  bool jitter_;
  unsigned value_ = 0;
  std::uint64_t cumulation_ = 0;
  std::uint64_t slot_time_exp_ = 1;  ///< 2^i, saturated
  unsigned i_ = 0;
};

/// A schedule for a range-for with access to its iterators.
class Exponential_Backoff_Range {
 public:
  explicit Exponential_Backoff_Range(Exponential_Backoff_Iterator first) : first_(first) {}
  [[nodiscard]] Exponential_Backoff_Iterator begin() const { return first_; }
  [[nodiscard]] Exponential_Backoff_Iterator end() const { return first_.end_of_range(); }

 private:
  Exponential_Backoff_Iterator first_;
};

[[nodiscard]] Exponential_Backoff_Range exponential_backoff(unsigned slot_time, unsigned max_retries, unsigned capped,
                                                            bool jitter);
