#include "support/freed_memory_watch.h"

#include <malloc.h>

#include <cstdlib>
#include <cstring>
#include <new>

namespace {

thread_local std::string_view wanted;
thread_local std::size_t finds = 0;

void look_into(void* block) {
  if (block == nullptr || wanted.empty()) return;
  if (::memmem(block, ::malloc_usable_size(block), wanted.data(), wanted.size()) != nullptr) ++finds;
}

}  // namespace

// All of a kind from one place, so that what one makes another may give back.
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return std::malloc(size == 0 ? 1 : size); }

void* operator new(std::size_t size) {
  void* const block = ::operator new(size, std::nothrow);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}

void operator delete(void* block) noexcept {
  look_into(block);
  std::free(block);
}

void operator delete(void* block, std::size_t) noexcept { ::operator delete(block); }

namespace support {

Freed_Memory_Watch::Freed_Memory_Watch(std::string_view text) {
  finds = 0;
  wanted = text;
}

Freed_Memory_Watch::~Freed_Memory_Watch() { wanted = {}; }

std::size_t Freed_Memory_Watch::found() const { return finds; }

}  // namespace support
