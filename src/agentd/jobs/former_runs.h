#pragma once

#include <functional>

#include "job/job_activity.h"

namespace agentd {

/// Looks at the activity records that a former agent left. A run that was under way then was cut off: it becomes a
/// failed one, on disk. `report` is given every record, so that backupd hears of each end; a record stays until backupd
/// has acknowledged it, so each is told once in effect. The number of runs that were cut off.
std::size_t settle_former_runs(const std::function<void(const Job_Activity_Snapshot&)>& report);

}  // namespace agentd
