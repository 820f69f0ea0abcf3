#pragma once

#include <cstddef>
#include <memory>
#include <string>

namespace hdbbackint {

/// XXH3-128 of a stream. One thread.
class Checksum {
 public:
  Checksum();
  ~Checksum();
  void add(const void* data, std::size_t size);
  /// Of all bytes added: 32 lower-case hexadecimal digits, the canonical form.
  [[nodiscard]] std::string text() const;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace hdbbackint
