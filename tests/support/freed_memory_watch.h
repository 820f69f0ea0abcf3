#pragma once

#include <cstddef>
#include <string_view>

namespace support {

/// Looks for a text in every block of memory that the calling thread gives back, for the life of this object: a secret
/// that was not wiped is found there. A program that uses it has its operators new and delete from here.
class Freed_Memory_Watch {
 public:
  /// `text` must outlive the watch. One watch a thread.
  explicit Freed_Memory_Watch(std::string_view text);
  ~Freed_Memory_Watch();
  Freed_Memory_Watch(const Freed_Memory_Watch&) = delete;
  Freed_Memory_Watch& operator=(const Freed_Memory_Watch&) = delete;

  /// How many blocks held the text when they were given back.
  [[nodiscard]] std::size_t found() const;
};

}  // namespace support
