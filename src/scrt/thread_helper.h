#pragma once

#include <ace/Event.h>
#include <ace/Thread_Manager.h>
#include <ace/os_include/os_pthread.h>

#include <atomic>
#include <functional>
#include <memory>
#include <utility>

#include "platform/clock.h"

/// Runs one bound call on a thread of its own, once. Made, spawned and joined by one thread; running() and finished()
/// may be asked from any. An exception of the call ends the thread with an emergency line: a call that has a result
/// must begin with that of a failure.
///
/// With THR_DETACHED in the flags the thread is not kept: exists() and running() stay false, and the destructor does
/// not wait; whoever spawns such a thread must keep alive what the call uses.
class Thread_Helper {
 public:
  Thread_Helper(int flags, int priority);
  /// Waits for the thread. A class that overrides handle_starting joins in its own destructor.
  virtual ~Thread_Helper();
  Thread_Helper(const Thread_Helper&) = delete;
  Thread_Helper& operator=(const Thread_Helper&) = delete;

  /// Called on the new thread before the bound call.
  virtual void handle_starting() {}

  /// Binds the call and spawns; returns once the new thread has started. -1 when a thread exists already or none
  /// could be made.
  template <typename Function, typename... Arguments>
  int spawn(Function&& function, Arguments&&... arguments) {
    if (exists()) return -1;
    _function = std::bind(std::forward<Function>(function), std::forward<Arguments>(arguments)...);
    return spawn();
  }
  int spawn();

  [[nodiscard]] bool exists() const;
  [[nodiscard]] bool running() const;
  void join();

  /// Set when the bound call has returned, for waits that may end early. Not set for a detached thread.
  [[nodiscard]] platform::Wait_Event& finished() const { return *finished_; }

 private:
  static ACE_THR_FUNC_RETURN ACE_Thread_Func(void* self);

  ACE_thread_t _tid;
  std::function<void()> _function;
  std::unique_ptr<std::atomic<bool>> _running;
  ACE_Event* _started = nullptr;
  long _flag;
  long _priority;
  std::unique_ptr<platform::Wait_Event> finished_;
};
