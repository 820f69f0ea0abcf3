#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace support {

/// The slot of a virtual operation in its class's table, by the C++ ABI of this platform: a pointer to it holds one
/// more than the slot's offset. The two entries of a destructor count as slots.
template <typename Member>
[[nodiscard]] std::ptrdiff_t slot_of(Member member) {
  static_assert(sizeof(Member) == 2 * sizeof(std::uintptr_t));
  std::uintptr_t words[2];
  std::memcpy(words, &member, sizeof words);
  return static_cast<std::ptrdiff_t>((words[0] - 1) / sizeof(void*));
}

}  // namespace support
