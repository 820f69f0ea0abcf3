#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

/// One lock per resource, so that two runs of it never overlap. To be held by an ACE_Guard; a thread that holds it
/// already is refused instead of waiting for itself for ever.
class Job_Mutex {
 public:
  /// The lock of `id`, made when nobody has it; it is gone when the last pointer to it goes.
  [[nodiscard]] static std::shared_ptr<Job_Mutex> get(const std::string& id);
  /// How many locks exist; for tests and for the agent's status.
  [[nodiscard]] static std::size_t count();

  Job_Mutex() = default;
  ~Job_Mutex() = default;
  Job_Mutex(const Job_Mutex&) = delete;
  Job_Mutex& operator=(const Job_Mutex&) = delete;

  /// 0; -1 with errno EDEADLK when the calling thread holds it already.
  int acquire();
  /// 0; -1 with errno EBUSY when it is held.
  int tryacquire();
  /// 0; -1 with errno EPERM when the calling thread does not hold it.
  int release();
  int remove() { return 0; }
  /// Says who holds it, for as long as the calling thread does; without effect when another thread holds it.
  void holder(const std::string& name);
  /// Empty when nobody holds it, or the holder has not said who it is.
  [[nodiscard]] std::string holder() const;
  /// How many threads wait in acquire; for tests and for the agent's status.
  [[nodiscard]] std::size_t waiting() const;

 private:
  mutable std::mutex mutex_;
  std::condition_variable freed_;
  std::thread::id owner_;  ///< default: free
  std::string holder_;     ///< as the owner calls itself
  std::size_t waiting_ = 0;
};
