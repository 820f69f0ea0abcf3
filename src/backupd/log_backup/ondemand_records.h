#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "backupd/store/database.h"
#include "hana/backint_catalog/backint_backup_file.h"
#include "json/value.h"

namespace backupd {

// Records of backups that HANA began by itself, within a transaction of the caller. Calls of HANA with one backup id
// share a record, and one of them may go on while the set of the others is committed. What it stores then goes to a
// successor of the record, which is owed a run of its own: every object that HANA was told to be saved ends in exactly
// one set.

/// The uuid of the open record that follows a taken one; made when there is none.
[[nodiscard]] std::optional<std::string> successor_of(Sql_Session& session, const std::string& job_uuid);

/// The record of the same object of another record of the same backup, if it is stored there.
[[nodiscard]] std::optional<json_spirit::Object> find_in_sibling(Sql_Session& session, const std::string& job_uuid,
                                                                 const sap_hana::Backup_File_Info& file);

/// The set that takes the record is stored: objects that it does not name go to the successor.
void hand_on_leftovers(Sql_Session& session, const std::string& job_uuid);

/// Something was stored for the record just now.
void touch_job(Sql_Session& session, const std::string& job_uuid);

/// What settle_abandoned has done.
struct Abandoned {
  std::int64_t queued = 0;         ///< records whose objects are saved: a run is owed to them now
  std::vector<std::string> empty;  ///< uuids of records without any object, which are removed
};

/// A call that sent its last object as such is settled by its run. These are left by calls that never did: one of their
/// objects failed, or hdbbackint was killed. A writer may still be at work for so long:
inline constexpr std::int64_t abandoned_seconds = 3600;
/// One that is slower than this is told #ERROR, and HANA begins again.
inline constexpr std::int64_t empty_seconds = std::int64_t{24} * 3600;

/// Records that nothing was stored for in the last hour and that no run is owed to: those with objects are owed one
/// now, for HANA takes what was saved for saved; those without go after a day.
[[nodiscard]] Abandoned find_abandoned(Sql_Session& session);

}  // namespace backupd
