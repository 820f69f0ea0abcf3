#include "hdbbackint/stream/throttled_stream.h"

namespace hdbbackint {

namespace {

constexpr const char* stopped = "stopped";

}  // namespace

ssize_t Throttled_Input::read(char* data, std::size_t size) {
  const ssize_t got = input_.read(data, size);
  if (got <= 0 || throttle_.take(static_cast<std::size_t>(got))) return got;
  error_ = stopped;
  return -1;
}

bool Throttled_Sink::write(const char* data, std::size_t size) {
  if (throttle_.take(size)) return sink_.write(data, size);
  error_ = stopped;
  return false;
}

}  // namespace hdbbackint
