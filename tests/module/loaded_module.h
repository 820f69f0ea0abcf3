#pragma once

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "agent/api/module_factories.h"

/// The built module, reached as the agent reaches it: dlopen and names, nothing of it linked.
class Loaded_Module {
 public:
  Loaded_Module() : library_(::dlopen(DORSAL3_MODULE_FILE, RTLD_NOW | RTLD_LOCAL)) {
    if (library_ == nullptr) ADD_FAILURE() << ::dlerror();
  }
  ~Loaded_Module() { unload(); }
  Loaded_Module(const Loaded_Module&) = delete;
  Loaded_Module& operator=(const Loaded_Module&) = delete;

  void unload() {
    if (library_ == nullptr) return;
    EXPECT_EQ(::dlclose(library_), 0);
    library_ = nullptr;
  }
  [[nodiscard]] bool loaded() const { return library_ != nullptr; }
  /// Null when the module does not export `name`.
  template <typename Function>
  [[nodiscard]] Function find(const char* name) const {
    return reinterpret_cast<Function>(::dlsym(library_, name));
  }

 private:
  void* library_;
};
