#pragma once

#include <cstddef>
#include <string>

namespace hdbbackint {

/// Takes the bytes of a stream in order. One thread.
class Byte_Sink {
 public:
  virtual ~Byte_Sink() = default;
  [[nodiscard]] virtual bool write(const char* data, std::size_t size) = 0;
  /// Of the last failure.
  [[nodiscard]] virtual const std::string& error() const = 0;
};

/// Slows a stream down. take returns once `bytes` may move; false when the stop was requested meanwhile.
class Throttle {
 public:
  virtual ~Throttle() = default;
  [[nodiscard]] virtual bool take(std::size_t bytes) = 0;
};

}  // namespace hdbbackint
