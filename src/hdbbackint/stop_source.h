#pragma once

#include <atomic>
#include <functional>
#include <list>
#include <memory>
#include <mutex>

#include "platform/clock.h"
#include "platform/unique_descriptor.h"

namespace hdbbackint {

/// A request to give up, in the forms that different waits need: a descriptor for poll, an event for the clock, calls
/// for everything else. One with a parent stops when the parent does. Every operation may be called from any thread.
class Stop_Source {
 public:
  explicit Stop_Source(Stop_Source* parent = nullptr);
  ~Stop_Source();
  Stop_Source(const Stop_Source&) = delete;
  Stop_Source& operator=(const Stop_Source&) = delete;

  void request();
  [[nodiscard]] bool requested() const { return requested_; }
  /// Readable once the stop is requested; never read from it.
  [[nodiscard]] int descriptor() const { return descriptor_.get(); }
  [[nodiscard]] platform::Wait_Event& event() { return event_; }
  /// Waits for `span`; false when the stop was requested before.
  bool wait(std::chrono::nanoseconds span);

  /// Calls `on_stop` once when the stop is requested, at once when it was before. Once the listener is gone it is not
  /// called any more. `on_stop` runs under the source's lock: it only wakes somebody, and never touches the source.
  class Listener {
   public:
    Listener(Stop_Source& source, std::function<void()> on_stop);
    ~Listener();
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

   private:
    Stop_Source& source_;
    std::list<std::function<void()>>::iterator at_;
  };

 private:
  std::mutex mutex_;
  std::list<std::function<void()>> listeners_;  ///< guarded by mutex_
  std::atomic<bool> requested_ = false;
  platform::Unique_Descriptor descriptor_;
  platform::Wait_Event event_;
  std::unique_ptr<Listener> on_parent_;
};

}  // namespace hdbbackint
