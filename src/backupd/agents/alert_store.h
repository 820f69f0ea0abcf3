#pragma once

#include <string>

#include "backupd/outcome.h"
#include "backupd/store/database.h"
#include "backupd/store/list_query.h"
#include "json/value.h"

namespace backupd {

/// Job alerts, kept until retention removes them. Format: docs/formats/alert.md. Safe from any thread.
class Alert_Store {
 public:
  explicit Alert_Store(Database& database) : database_(database) {}

  /// Checks and stores an alert; one whose uuid is stored is done already. `stored` becomes the record that is kept.
  [[nodiscard]] Outcome add(const json_spirit::Object& body, json_spirit::Object& stored);
  [[nodiscard]] bool list(const List_Query& query, List_Page& page);

 private:
  Database& database_;
};

}  // namespace backupd
