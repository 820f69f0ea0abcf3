#pragma once

#include "hana/job/backup_executor.h"
#include "job/controllable_job_t.h"

/// A data backup.
class HANA_Backup_Job : public Controllable_Job_T<sap_hana::Backup_Executor> {
 public:
  using Controllable_Job_T<sap_hana::Backup_Executor>::Controllable_Job_T;

  /// A running data backup cannot be stopped: -1 with an error line, and nothing changes.
  int stop_i(const Action_Options* options) override;
};
