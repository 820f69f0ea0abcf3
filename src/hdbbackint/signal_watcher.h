#pragma once

#include <thread>

#include "hdbbackint/stop_source.h"
#include "platform/unique_descriptor.h"

namespace hdbbackint {

/// Turns SIGTERM, SIGINT, SIGHUP and the end of the parent process into a stop, for its own life. Made on the main
/// thread before any other: it blocks those signals for the threads that follow.
class Signal_Watcher {
 public:
  explicit Signal_Watcher(Stop_Source& stop);
  ~Signal_Watcher();
  Signal_Watcher(const Signal_Watcher&) = delete;
  Signal_Watcher& operator=(const Signal_Watcher&) = delete;

 private:
  void watch();

  Stop_Source& stop_;
  platform::Unique_Descriptor signals_;
  platform::Unique_Descriptor parent_;  ///< none where the system cannot watch a process
  platform::Unique_Descriptor ended_;
  std::thread thread_;
};

}  // namespace hdbbackint
