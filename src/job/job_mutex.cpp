#include "job/job_mutex.h"

#include <cerrno>
#include <map>

namespace {

struct Registry {
  std::mutex mutex;
  std::map<std::string, std::weak_ptr<Job_Mutex>> locks;  // guarded by mutex
};

/// Never destroyed: a lock may be let go while the process ends.
Registry& registry() {
  static auto* const the_registry = new Registry;
  return *the_registry;
}

/// Forgets the entry with the last pointer, unless a new lock of that id has taken its place.
void forget(const std::string& id, Job_Mutex* lock) {
  {
    const std::lock_guard guard(registry().mutex);
    const auto found = registry().locks.find(id);
    if (found != registry().locks.end() && found->second.expired()) registry().locks.erase(found);
  }
  delete lock;
}

}  // namespace

std::shared_ptr<Job_Mutex> Job_Mutex::get(const std::string& id) {
  const std::lock_guard guard(registry().mutex);
  std::weak_ptr<Job_Mutex>& entry = registry().locks[id];
  if (std::shared_ptr<Job_Mutex> present = entry.lock()) return present;
  std::shared_ptr<Job_Mutex> made(new Job_Mutex, [id](Job_Mutex* lock) { forget(id, lock); });
  entry = made;
  return made;
}

std::size_t Job_Mutex::count() {
  const std::lock_guard guard(registry().mutex);
  return registry().locks.size();
}

int Job_Mutex::acquire() {
  std::unique_lock lock(mutex_);
  const std::thread::id self = std::this_thread::get_id();
  if (owner_ == self) {
    errno = EDEADLK;
    return -1;
  }
  freed_.wait(lock, [this] { return owner_ == std::thread::id(); });
  owner_ = self;
  return 0;
}

int Job_Mutex::tryacquire() {
  const std::lock_guard lock(mutex_);
  if (owner_ != std::thread::id()) {
    errno = EBUSY;
    return -1;
  }
  owner_ = std::this_thread::get_id();
  return 0;
}

int Job_Mutex::release() {
  {
    const std::lock_guard lock(mutex_);
    if (owner_ != std::this_thread::get_id()) {
      errno = EPERM;
      return -1;
    }
    owner_ = std::thread::id();
  }
  freed_.notify_one();
  return 0;
}
