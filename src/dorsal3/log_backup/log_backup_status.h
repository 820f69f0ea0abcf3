#pragma once

#include "dorsal3/log_backup/log_backup_picture.h"
#include "dorsal3/verb.h"

namespace dorsal3 {

/// The verb "log-backup status": for each database what takes its logs, HANA's settings, and what waits to be recorded.
/// `notes` are put before its own. Ends with exit_failed when something does not fit together, an agent cannot be
/// asked, or log backups wait for too long (Log_Queue::late).
[[nodiscard]] Outcome log_backup_status(Context& context, const Log_Backup_Picture& picture,
                                        const Backup_Subject& subject, json_spirit::Array notes);

}  // namespace dorsal3
