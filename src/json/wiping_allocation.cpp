#include "json/wiping_allocation.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "platform/secure_string.h"

namespace {

/// Stands before each piece of memory, which keeps its alignment behind it.
union Head {
  std::size_t size;
  std::max_align_t alignment;
};

void* allocate(void* /*context*/, std::size_t size) {
  if (size > SIZE_MAX - sizeof(Head)) return nullptr;
  auto* const head = static_cast<Head*>(std::malloc(sizeof(Head) + size));
  if (head == nullptr) return nullptr;
  head->size = size;
  return head + 1;
}

void give_back(void* /*context*/, void* memory) {
  if (memory == nullptr) return;
  Head* const head = static_cast<Head*>(memory) - 1;
  platform::wipe_memory(memory, head->size);
  std::free(head);
}

void* resize(void* context, void* memory, std::size_t size) {
  if (memory == nullptr) return allocate(context, size);
  const std::size_t before = (static_cast<Head*>(memory) - 1)->size;
  void* const larger = allocate(context, size);
  if (larger == nullptr) return nullptr;
  std::memcpy(larger, memory, before < size ? before : size);
  give_back(context, memory);
  return larger;
}

}  // namespace

const yajl_alloc_funcs wiping_allocation = {allocate, resize, give_back, nullptr};
