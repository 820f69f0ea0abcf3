#include "job/activity_listener.h"

#include <mutex>
#include <utility>

namespace {

std::mutex listener_mutex;
std::shared_ptr<Activity_Listener> current_listener;  // guarded by listener_mutex

}  // namespace

std::shared_ptr<Activity_Listener> set_activity_listener(std::shared_ptr<Activity_Listener> listener) {
  const std::lock_guard guard(listener_mutex);
  return std::exchange(current_listener, std::move(listener));
}

std::shared_ptr<Activity_Listener> activity_listener() {
  const std::lock_guard guard(listener_mutex);
  return current_listener;
}
