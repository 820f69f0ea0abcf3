#pragma once

#include <memory>
#include <string>

#include "job/job_mutex.h"

namespace sap_hana {

/// Held from the question which lifeline a database's newest set has to the commit of the next set. Without it two runs
/// that finish at once after a recovery would each open a lifeline of its own. Used by one thread, the one that runs
/// the job; lets go at the latest with its destructor.
class Lifeline_Lock {
 public:
  Lifeline_Lock() = default;
  ~Lifeline_Lock() { release(); }
  Lifeline_Lock(const Lifeline_Lock&) = delete;
  Lifeline_Lock& operator=(const Lifeline_Lock&) = delete;

  /// Waits for other runs of the database in this process. Lets go of what was held before.
  void acquire(const std::string& resource_uuid, const std::string& database);
  void release();

 private:
  std::shared_ptr<Job_Mutex> mutex_;  ///< null: nothing is held
};

}  // namespace sap_hana
