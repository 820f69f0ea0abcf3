#include "job/job_mutex.h"

#include <cerrno>
#include <map>
#include <utility>

namespace {

/// A lock and how many pointers to it were handed out. Counted here and not by the pointers themselves: whoever takes
/// the next lock of an id must see all that was done under the one before, and only the registry orders the two.
struct Entry {
  Job_Mutex lock;
  std::size_t users = 0;
};

struct Registry {
  std::mutex mutex;
  std::map<std::string, Entry> locks;  // guarded by mutex
};

/// Never destroyed: a lock may be let go while the process ends.
Registry& registry() {
  static auto* const the_registry = new Registry;
  return *the_registry;
}

Job_Mutex* take(const std::string& id) {
  const std::lock_guard guard(registry().mutex);
  Entry& entry = registry().locks[id];
  ++entry.users;
  return &entry.lock;
}

void give_back(const std::string& id) {
  const std::lock_guard guard(registry().mutex);
  const auto found = registry().locks.find(id);
  if (--found->second.users == 0) registry().locks.erase(found);
}

}  // namespace

std::shared_ptr<Job_Mutex> Job_Mutex::get(const std::string& id) {
  auto back = [id](Job_Mutex*) { give_back(id); };
  return std::shared_ptr<Job_Mutex>(take(id), std::move(back));
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
  ++waiting_;
  freed_.wait(lock, [this] { return owner_ == std::thread::id(); });
  --waiting_;
  owner_ = self;
  return 0;
}

std::size_t Job_Mutex::waiting() const {
  const std::lock_guard lock(mutex_);
  return waiting_;
}

void Job_Mutex::holder(const std::string& name) {
  const std::lock_guard lock(mutex_);
  if (owner_ == std::this_thread::get_id()) holder_ = name;
}

std::string Job_Mutex::holder() const {
  const std::lock_guard lock(mutex_);
  return holder_;
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
    holder_.clear();
  }
  freed_.notify_one();
  return 0;
}
