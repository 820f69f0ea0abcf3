#pragma once

#include "hana/job/backup_executor.h"
#include "job/controllable_job_t.h"

/// A data backup.
class HANA_Backup_Job : public Controllable_Job_T<sap_hana::Backup_Executor> {
 public:
  using Controllable_Job_T<sap_hana::Backup_Executor>::Controllable_Job_T;

  /// Begins to cancel the backup in HANA, on a detached thread of its own for each request, and comes back: 0, or -1
  /// when there is no thread. The state stays as it is; the run ends when HANA has ended the backup.
  int stop_i(const Action_Options* options) override;

 protected:
  /// The thread of a stop; `argument` is its Run_Options, which it owns. Without one it does nothing.
  static ACE_THR_FUNC_RETURN stop_backup(void* argument);

 private:
  static void run_stop(Job& job);
};
