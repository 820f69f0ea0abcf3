#pragma once

#include <string>

#include "backupd/database.h"
#include "backupd/list_query.h"
#include "backupd/outcome.h"
#include "backupd/pool_store.h"
#include "json/value.h"

namespace backupd {

/// Job definitions. Safe from any thread.
class Definition_Store {
 public:
  Definition_Store(Database& database, Pool_Store& pools) : database_(database), pools_(pools) {}

  /// Checks and stores a definition; one with a known id is replaced unless it runs. The same again is done already.
  [[nodiscard]] Outcome put(const json_spirit::Object& body, json_spirit::Object& stored);
  [[nodiscard]] Outcome get(const std::string& id, json_spirit::Object& definition);
  [[nodiscard]] Outcome remove(const std::string& id);
  [[nodiscard]] bool list(const List_Query& query, List_Page& page);
  /// The definition as an agent needs it: its target with the pool's url as "location".
  [[nodiscard]] Outcome for_agent(json_spirit::Object& definition);

 private:
  Database& database_;
  Pool_Store& pools_;
};

}  // namespace backupd
