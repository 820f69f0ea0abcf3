#pragma once

#include <map>
#include <string>
#include <vector>

#include "backupd/pools/pool_inspector.h"
#include "backupd/restore/restore_plan.h"

namespace backupd {

/// One row of a plan's "sets": a set, or of a log set the object of one service.
struct Plan_Row {
  const Plan_Set* set = nullptr;
  const Plan_Log* log = nullptr;  ///< null: all objects of the set are read
  bool catalog = false;           ///< the object with HANA's catalog alone
  std::vector<const Plan_Object*> objects;
};

/// All that is read, in HANA's order: full backup, deltas, logs by volume and position; the catalog last.
[[nodiscard]] std::vector<Plan_Row> rows_of(const Restore_Plan& plan);

/// How the objects were found, by pool and path.
using Found_Objects = std::map<std::pair<std::string, std::string>, Pool_Inspector::Object>;

/// Members "sets", "catalog", "totals", "refusals", "notes", "before", "after" of docs/formats/restore-plan.md.
/// `pool_names`: by uuid.
void add_to_json(const Restore_Plan& plan, const Found_Objects& found,
                 const std::map<std::string, std::string>& pool_names, json_spirit::Object& result);

}  // namespace backupd
