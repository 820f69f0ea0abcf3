#pragma once

#include "agent/api/job_creator.h"

/// Makes the jobs that this module runs. Keeps no state.
class HANA_Job_Creator : public Job_Creator {
 public:
  /// A backup definition of kind full, incremental or cumulative gives a HANA_Backup_Job, one on demand a job of the
  /// Log_Backup_Executor; a restore to a point in time gives a job of the Restore_Executor. Other kinds of backup and
  /// restore are refused with an error line, other types silently.
  ACE_Intrusive_Auto_Ptr<Job> create(ACE_Refcounted_Auto_Ptr<Job_Definition, ACE_Thread_Mutex> definition) override;
};
