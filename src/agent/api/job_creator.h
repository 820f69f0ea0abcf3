#pragma once

#include <ace/Intrusive_Auto_Ptr.h>

#include "job/job.h"
#include "job/job_definition.h"

/// Makes the jobs of one module. Slots: destructor, init, fini, create. create may be called from several threads at
/// once.
class Job_Creator {
 public:
  virtual ~Job_Creator() = default;
  virtual int init(int /*argc*/, char** /*argv*/) { return 0; }
  virtual int fini() { return 0; }
  /// The job that runs `definition`; empty when the module does not run such definitions, or has no memory (errno
  /// ENOMEM).
  virtual ACE_Intrusive_Auto_Ptr<Job> create(ACE_Refcounted_Auto_Ptr<Job_Definition, ACE_Thread_Mutex> definition) = 0;
};
