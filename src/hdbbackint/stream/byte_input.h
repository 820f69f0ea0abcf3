#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>

namespace hdbbackint {

/// Gives the bytes of a stream in order. One thread.
class Byte_Input {
 public:
  virtual ~Byte_Input() = default;
  /// Bytes stored, 0 at the end, -1 on failure with error() set.
  [[nodiscard]] virtual ssize_t read(char* data, std::size_t size) = 0;
  [[nodiscard]] virtual const std::string& error() const = 0;
};

}  // namespace hdbbackint
