#include "faults.h"

#include <dlfcn.h>
#include <pthread.h>

#include <cerrno>
#include <new>

namespace {

thread_local bool memory_is_gone = false;
thread_local unsigned allocations_left = 0;
thread_local bool threads_are_gone = false;

}  // namespace

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  if (memory_is_gone && allocations_left-- == 0) {
    allocations_left = 0;
    return nullptr;
  }
  try {
    return ::operator new(size);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*function)(void*),
                              void* argument) {
  if (threads_are_gone) return EAGAIN;
  using Create = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
  static const auto real = reinterpret_cast<Create>(::dlsym(RTLD_NEXT, "pthread_create"));
  return real(thread, attributes, function, argument);
}

namespace faults {

No_Memory::No_Memory(unsigned first) {
  allocations_left = first;
  memory_is_gone = true;
}
No_Memory::~No_Memory() { memory_is_gone = false; }
No_Threads::No_Threads() { threads_are_gone = true; }
No_Threads::~No_Threads() { threads_are_gone = false; }

}  // namespace faults
