#pragma once

#include "dorsal3/server/resources.h"
#include "dorsal3/verb.h"

namespace dorsal3 {

/// The chains of logs of one database, or of all that the instance lists: {"instance", "databases": [{"name", and what
/// log_chain tells}]}. Ends with exit_gap when one of them has a gap or no full backup.
[[nodiscard]] Outcome report_logs(Context& context, const Backup_Subject& subject);

}  // namespace dorsal3
