#pragma once

#include <string>

#include "backupd/catalog/backup_set_record.h"
#include "backupd/outcome.h"
#include "backupd/store/database.h"
#include "backupd/store/list_query.h"

namespace backupd {

/// The catalog of backup sets. The "id" of a set is the order of committing. Every operation is durable when it
/// returns. Safe from any thread.
class Set_Store {
 public:
  explicit Set_Store(Database& database) : database_(database) {}

  /// Stores the set, makes its objects' records its own and takes their Backint job records, all in one. The same
  /// objects again are done already. `stored` becomes the record that is kept.
  [[nodiscard]] Outcome commit(const Backup_Set_Record& set, json_spirit::Object& stored);
  [[nodiscard]] Outcome get(const std::string& uuid, json_spirit::Object& record);
  [[nodiscard]] bool list(const List_Query& query, List_Page& page);
  /// The same without counting what lies beyond the page: answers at once however many sets there are.
  [[nodiscard]] bool select(const List_Query& query, List_Page& page);

 private:
  Database& database_;
};

}  // namespace backupd
