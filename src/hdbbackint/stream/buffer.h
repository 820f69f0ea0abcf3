#pragma once

#include <cstddef>
#include <cstdlib>
#include <memory>
#include <new>

namespace hdbbackint {

/// Uninitialised memory, made when first asked for. Not shared between threads without a lock.
class Buffer {
 public:
  /// At least `size` bytes; throws std::bad_alloc. Growing loses what it held.
  char* reserve(std::size_t size) {
    if (size > capacity_) {
      memory_.reset();
      memory_.reset(static_cast<char*>(std::malloc(size)));
      if (!memory_) throw std::bad_alloc();
      capacity_ = size;
    }
    return memory_.get();
  }
  [[nodiscard]] char* data() const { return memory_.get(); }
  [[nodiscard]] std::size_t capacity() const { return capacity_; }

 private:
  struct Release {
    void operator()(char* memory) const { std::free(memory); }
  };
  std::unique_ptr<char, Release> memory_;
  std::size_t capacity_ = 0;
};

}  // namespace hdbbackint
