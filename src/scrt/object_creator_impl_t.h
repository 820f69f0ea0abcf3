#pragma once

#include <cerrno>
#include <new>

#include "scrt/object_creator_t.h"

namespace object_creator_detail {

template <typename Base>
struct Interface_Of;
template <typename Interface>
struct Interface_Of<Object_Creator_T<Interface>> {
  using type = Interface;
};

}  // namespace object_creator_detail

/// The creator of one concrete class: `Base` is an Object_Creator_T, `Object` implements its interface.
template <typename Base, typename Object>
class Object_Creator_Impl_T : public Base {
 public:
  using Interface = typename object_creator_detail::Interface_Of<Base>::type;

  Interface* create() override {
    Interface* const object = new (std::nothrow) Object;
    if (object == nullptr) errno = ENOMEM;
    return object;
  }
  void destroy(Interface* object) override { delete object; }
};
