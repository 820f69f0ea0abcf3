#include "server/master_role.h"

#include <fcntl.h>
#include <sys/file.h>

#include "base/clock.h"
#include "base/cluster.h"

namespace standin {

namespace {
constexpr std::int64_t default_failover_ms = 500;
constexpr std::int64_t never_ms = -1;
}  // namespace

std::int64_t Master_Role::patience_ms(bool running) const {
  if (hosts_of(layout_).size() == 1 || active_master(layout_) == layout_.host) return 0;
  if (!running) return never_ms;
  const int rank = master_rank(layout_);
  if (rank < 0 || faults_.take("failover").value_or("yes") == "no") return never_ms;
  return (rank + 1) * faults_.number("failover_ms", default_failover_ms);
}

Descriptor Master_Role::lock(int kind) const {
  Descriptor lock(::open(layout_.shared("master.lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0640));
  if (lock.valid() && ::flock(lock.get(), kind | LOCK_NB) != 0) lock.reset();
  return lock;
}

bool Master_Role::consider(bool running) {
  if (held_) return false;
  // Candidates look at the same time without taking each other for the master.
  if (!lock(LOCK_SH).valid()) {
    free_since_ms_ = 0;
    return false;
  }
  const std::int64_t now = now_ms();
  if (free_since_ms_ == 0) free_since_ms_ = now;
  const std::int64_t patience = patience_ms(running);
  if (patience == never_ms || now - free_since_ms_ < patience) return false;
  lock_ = lock(LOCK_EX);
  if (!lock_.valid()) return false;
  if (patience != 0 && !note_active_master(layout_)) {
    lock_.reset();
    return false;
  }
  held_ = true;
  return true;
}

}  // namespace standin
