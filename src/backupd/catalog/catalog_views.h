#pragma once

#include <string>

#include "backupd/outcome.h"
#include "backupd/store/database.h"
#include "json/value.h"

namespace backupd {

/// The queries by which a restore chooses what it reads. Safe from any thread.
///
/// "set" {"uuid"}: the set's record.
/// "rselect" {"type": "fullbackup", "resource_uuid", "lifeline", "database", "time"}: {"rows"} with the full backup
/// that
///   select_full finds.
/// "rselect" {"type": "catalog", "resource_uuid", "lifeline", "database", "database_backup_id", "time"}: {"rows"} with
///   the set that select_catalog finds; see restore_selection.h.
/// "sets_size" {"lifeline", "ignore_delta", "start_backup_id", "end_backup_id"}: {"total_source_size", "total_size"},
/// the
///   sums over the backup it starts from and the deltas, logs and catalogs after it up to the end; without the deltas
///   with ignore_delta. Other full backups in between are not read by a restore and do not count.
class Catalog_Views {
 public:
  explicit Catalog_Views(Database& database) : database_(database) {}

  [[nodiscard]] Outcome ask(const std::string& module, const std::string& view, const json_spirit::Object& params,
                            json_spirit::Object& result);

 private:
  Outcome ask_set(const std::string& module, const json_spirit::Object& params, json_spirit::Object& result);
  Outcome ask_restore_sets(const json_spirit::Object& params, json_spirit::Object& result);
  Outcome ask_sizes(const json_spirit::Object& params, json_spirit::Object& result);

  Database& database_;
};

}  // namespace backupd
