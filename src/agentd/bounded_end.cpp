#include "agentd/bounded_end.h"

#include <ace/Thread_Manager.h>

#include <atomic>
#include <memory>
#include <thread>

#include "platform/clock.h"

namespace agentd {

bool ends_within(std::chrono::nanoseconds limit, const std::function<void()>& work) {
  // Shared with the thread, which outlives this call when it is late.
  const auto ended = std::make_shared<platform::Wait_Event>();
  std::thread thread([ended, work] {
    work();
    ended->set();
  });
  if (platform::Clock::current().wait_for(*ended, limit)) {
    thread.join();
    return true;
  }
  thread.detach();
  return false;
}

bool job_threads_end_within(std::chrono::nanoseconds limit) {
  const auto all_ended = std::make_shared<std::atomic<bool>>(false);
  const bool in_time = ends_within(limit, [all_ended] { *all_ended = ACE_Thread_Manager::instance()->wait() == 0; });
  return in_time && *all_ended;
}

}  // namespace agentd
