#pragma once

#include <memory>

#include "job/job_activity.h"

/// Told whenever a job publishes its activity: state, progress, sizes. The agent's listener forwards it to backupd.
/// Called on the thread that published, several at once; must not block.
class Activity_Listener {
 public:
  virtual ~Activity_Listener() = default;
  virtual void activity_changed(const Job_Activity_Snapshot& activity) = 0;
};

/// Sets the process-wide listener, or none; gives back the one before.
std::shared_ptr<Activity_Listener> set_activity_listener(std::shared_ptr<Activity_Listener> listener);
[[nodiscard]] std::shared_ptr<Activity_Listener> activity_listener();
