#pragma once

#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "job/job.h"

namespace agentd {

/// Runs that are accepted and still have something to wait for before they begin: each waits on a thread of its own,
/// whose lines are the run's. Any thread.
class Prepared_Starts {
 public:
  /// What a run waits for; returns early when the event is set.
  using Work = std::function<void(platform::Wait_Event& stop)>;

  ~Prepared_Starts() { end_all(); }

  /// Starts the job with `options` when `work` is done. One that was stopped meanwhile ends as canceled, one that the
  /// agent's own end cut off with an error.
  void add(const std::string& job_act_id, const Job_Ptr& job, const json_spirit::Object& options, Work work);
  /// False when no such run waits any more.
  [[nodiscard]] bool cancel(const std::string& job_act_id);
  /// Ends all waits, and waits until no run is begun any more.
  void end_all();

 private:
  struct Waiting {
    std::string job_act_id;
    Job_Ptr job;
    json_spirit::Object options;
    Work work;
    platform::Wait_Event stop;
    std::thread thread;
    // Guarded by the owner's lock:
    bool canceled = false;
    bool cut_off = false;
    bool done = false;
  };

  void run(Waiting& waiting);
  /// Lets the threads go that have nothing more to do.
  void join_done();

  std::mutex mutex_;
  std::list<std::shared_ptr<Waiting>> waiting_;  ///< guarded by mutex_
};

}  // namespace agentd
