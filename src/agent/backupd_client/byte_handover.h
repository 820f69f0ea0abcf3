#pragma once

#include <sys/types.h>

#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <vector>

/// A bounded stream of bytes from one thread to one other. Either side may close at any time; a side that waits is
/// woken.
class Byte_Handover {
 public:
  explicit Byte_Handover(std::size_t capacity_bytes);

  /// Blocks until all of it is taken over; false once the reading side has closed.
  bool push(const void* data, std::size_t size);
  /// The writing side is done: with `whole` the reader sees an end after the last byte, else a failure.
  void finish(bool whole);
  /// Blocks for at least one byte; 0 at the end, -1 when the stream was cut.
  ssize_t pop(void* data, std::size_t size);
  /// The reading side is done.
  void close_reading();

 private:
  enum class End { open, whole, cut };

  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<char> ring_;
  std::size_t first_ = 0;
  std::size_t filled_ = 0;
  End end_ = End::open;
  bool reading_ = true;
};
