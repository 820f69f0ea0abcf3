#include "hana/job/hana_backup_job.h"

#include "platform/log.h"

int HANA_Backup_Job::stop_i(const Action_Options* /*options*/) {
  // Not even the state may change: a run marked as canceling would report as canceled a backup that HANA completes.
  D3_ERROR("Job %C cannot be stopped: a data backup runs until HANA ends it\n", definition()->id().c_str());
  return -1;
}
