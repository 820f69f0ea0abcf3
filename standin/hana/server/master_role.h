#pragma once

#include <atomic>

#include "base/files.h"
#include "base/layout.h"
#include "server/faults.h"

namespace standin {

/// Which host of a scale-out system serves its databases: the active master name server's, held by a lock that ends
/// with its process. When nobody holds it for a while, the first running candidate takes it.
class Master_Role {
 public:
  Master_Role(const Layout& layout, Faults& faults) : layout_(layout), faults_(faults) {}
  /// Tries to take the role when this host should have it now: at once when nameserver.ini names it, after a while
  /// when it runs and is a candidate. True when it was taken by this call.
  bool consider(bool running);
  /// Safe for all threads.
  [[nodiscard]] bool held() const { return held_; }

 private:
  [[nodiscard]] std::int64_t patience_ms(bool running) const;
  /// Of the master's lock file, without waiting; invalid when another process has it.
  [[nodiscard]] Descriptor lock(int kind) const;
  Layout layout_;
  Faults& faults_;
  Descriptor lock_;
  std::atomic<bool> held_{false};
  std::int64_t free_since_ms_ = 0;
};

}  // namespace standin
