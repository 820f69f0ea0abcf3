#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "backupd/restore/restore_plan.h"
#include "records/log_positions.h"

namespace backupd {

/// The log backups of one service that a recovery replays, as a catalog knows them.
struct Service_Logs {
  std::uint64_t volume = 0;
  std::uint64_t partition = 0;
  std::vector<Plan_Log> steps;           ///< by position, up to the one that holds the time
  bool reaches = false;                  ///< one that holds the time is there, without a gap before it
  std::string end;                       ///< UTC: all until then is there; empty: nothing
  std::vector<Log_Positions::Gap> gaps;  ///< before the end of `steps`; sets are indices of `sources`
  std::vector<Log_Positions::Overlap> overlaps;
  std::vector<const Plan_Set*> sources;
  bool unproven = false;  ///< whether the first log joins the data backup cannot be told
};

/// What a recovery to `time` replays behind the data backup `base`: of each service that `full` holds the logs
/// that `catalog` knows.
[[nodiscard]] std::vector<Service_Logs> logs_behind(const std::vector<Plan_Set>& logs, const Plan_Set& full,
                                                    const Plan_Set& base, const Plan_Set& catalog,
                                                    const std::string& time);

}  // namespace backupd
