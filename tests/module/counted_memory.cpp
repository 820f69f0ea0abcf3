#include "counted_memory.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<long> live_blocks{0};
thread_local bool none_left = false;

void* allocate(std::size_t size) noexcept {
  void* const block = std::malloc(size == 0 ? 1 : size);
  if (block != nullptr) live_blocks.fetch_add(1, std::memory_order_relaxed);
  return block;
}

void release(void* block) noexcept {
  if (block == nullptr) return;
  live_blocks.fetch_sub(1, std::memory_order_relaxed);
  std::free(block);
}

}  // namespace

void* operator new(std::size_t size) {
  if (void* const block = allocate(size)) return block;
  throw std::bad_alloc();
}
void* operator new[](std::size_t size) { return ::operator new(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return none_left ? nullptr : allocate(size); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return none_left ? nullptr : allocate(size); }
void operator delete(void* block) noexcept { release(block); }
void operator delete[](void* block) noexcept { release(block); }
void operator delete(void* block, std::size_t) noexcept { release(block); }
void operator delete[](void* block, std::size_t) noexcept { release(block); }
void operator delete(void* block, const std::nothrow_t&) noexcept { release(block); }
void operator delete[](void* block, const std::nothrow_t&) noexcept { release(block); }

namespace counted_memory {

long blocks() { return live_blocks.load(); }

None_Left::None_Left() { none_left = true; }
None_Left::~None_Left() { none_left = false; }

}  // namespace counted_memory
