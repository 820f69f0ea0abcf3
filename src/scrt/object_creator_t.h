#pragma once

/// Makes objects that implement `Interface` inside the module that owns this creator, and destroys them there.
/// Slots: destructor, init, fini, create, destroy.
template <typename Interface>
class Object_Creator_T {
 public:
  virtual ~Object_Creator_T() = default;
  virtual int init(int /*argc*/, char** /*argv*/) { return 0; }
  virtual int fini() { return 0; }
  /// A fresh object owned by the caller; null with errno ENOMEM when there is no memory.
  virtual Interface* create() = 0;
  /// Destroys what create made; null is ignored.
  virtual void destroy(Interface* object) = 0;
};
