#pragma once

#include <cstddef>

// What this process has allocated through the operators of C++, the module included; and allocations that fail.

namespace counted_memory {

/// Blocks that were allocated and not yet released.
[[nodiscard]] long blocks();

/// The non-throwing allocations of this thread fail, for the life of this object.
class None_Left {
 public:
  None_Left();
  ~None_Left();
  None_Left(const None_Left&) = delete;
  None_Left& operator=(const None_Left&) = delete;
};

}  // namespace counted_memory
