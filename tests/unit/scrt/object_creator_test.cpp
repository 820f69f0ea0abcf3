#include "scrt/object_creator_impl_t.h"

#include <gtest/gtest.h>

#include <new>

namespace {

class Interface {
 public:
  virtual ~Interface() = default;
  virtual int value() const = 0;
};

class Counted : public Interface {
 public:
  Counted() { ++living; }
  ~Counted() override { --living; }
  int value() const override { return 5; }
  static inline int living = 0;
};

class Throwing : public Interface {
 public:
  Throwing() { throw 7; }
  int value() const override { return 0; }

  static void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    ++held;
    return ::operator new(size, std::nothrow);
  }
  static void operator delete(void* memory, const std::nothrow_t&) noexcept {
    --held;
    ::operator delete(memory);
  }
  static void operator delete(void* memory) noexcept { ::operator delete(memory); }
  static inline int held = 0;  ///< pieces of memory whose object was never made
};

TEST(Object_Creator, Makes_A_Fresh_Object_Each_Time_And_Destroys_It) {
  Object_Creator_Impl_T<Object_Creator_T<Interface>, Counted> creator;
  Interface* const first = creator.create();
  Interface* const second = creator.create();
  EXPECT_NE(first, second);
  EXPECT_EQ(first->value(), 5);
  EXPECT_EQ(Counted::living, 2);
  creator.destroy(first);
  creator.destroy(second);
  creator.destroy(nullptr);
  EXPECT_EQ(Counted::living, 0);
}

TEST(Object_Creator, Releases_The_Memory_And_Passes_An_Exception_Of_The_Constructor_On) {
  Object_Creator_Impl_T<Object_Creator_T<Interface>, Throwing> creator;
  EXPECT_THROW(creator.create(), int);
  EXPECT_EQ(Throwing::held, 0);
}

}  // namespace
