#pragma once

#include <string>

#include "backupd/outcome.h"
#include "backupd/pools/pool_store.h"
#include "backupd/store/database.h"
#include "backupd/store/list_query.h"
#include "json/value.h"

namespace backupd {

struct Definition_Summary;

/// Job definitions. Safe from any thread.
class Definition_Store {
 public:
  Definition_Store(Database& database, Pool_Store& pools) : database_(database), pools_(pools) {}

  /// Checks and stores a definition; one with a known id is replaced unless it runs. The same again is done already. A
  /// log backup may be replaced while runs of it go on; it is then to be set up at its agent, which a Setup_Keeper
  /// does.
  [[nodiscard]] Outcome put(const json_spirit::Object& body, json_spirit::Object& stored);
  /// The definition as it is handed on.
  [[nodiscard]] Outcome get(const std::string& id, json_spirit::Object& definition);
  /// Removes it, unless it runs. A log backup stays until its agent has removed it and no run needs it any more;
  /// `forced`: whatever its agent says.
  [[nodiscard]] Outcome remove(const std::string& id, bool forced);
  [[nodiscard]] bool list(const List_Query& query, List_Page& page);
  /// Adds "setup", how far it has come at its agent, to a definition that is set up there.
  [[nodiscard]] Outcome add_setup(json_spirit::Object& definition);
  /// A log backup shall be set up once more although it is.
  [[nodiscard]] Outcome renew(const std::string& id);
  /// Whether the definition is a log backup that is being removed or is kept for its runs alone.
  [[nodiscard]] Outcome is_removed(const std::string& id, bool& removed);
  /// The definition as an agent needs it: a pool as target comes with its url as "location".
  [[nodiscard]] Outcome for_agent(json_spirit::Object& definition);

 private:
  /// The pool, or the system that is restored into.
  [[nodiscard]] Outcome check_registered(const Definition_Summary& summary);

  Database& database_;
  Pool_Store& pools_;
};

}  // namespace backupd
