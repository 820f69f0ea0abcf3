#pragma once

// Faults that a test injects into its own process, on the calling thread.

namespace faults {

/// The non-throwing allocations of this thread fail, for the life of this object, once `first` of them have succeeded.
class No_Memory {
 public:
  explicit No_Memory(unsigned first = 0);
  ~No_Memory();
  No_Memory(const No_Memory&) = delete;
  No_Memory& operator=(const No_Memory&) = delete;
};

/// No thread can be made from this thread, for the life of this object.
class No_Threads {
 public:
  No_Threads();
  ~No_Threads();
  No_Threads(const No_Threads&) = delete;
  No_Threads& operator=(const No_Threads&) = delete;
};

}  // namespace faults
