#pragma once

#include <string>
#include <vector>

#include "engine/system_state.h"

namespace standin {

/// One service of the current or last data backup of a database.
struct Progress_Row {
  std::string database;
  std::int64_t backup_id = 0;
  int port = 0;
  std::string service, type, state;
  std::int64_t start_ms = 0;
  std::int64_t end_ms = 0;  ///< 0: not yet
  std::int64_t size = 0, transferred = 0;
};

struct View_Source {
  System_State& state;
  std::string database;  ///< the database that the session is connected to
  std::vector<Progress_Row> progress;
  std::int64_t start_ms = 0;
  int process_id = 0;
};

/// Adds the schemas SYS and, in the system database, SYS_DATABASES with those monitoring views that `sql` names.
bool attach_views(Sqlite& sqlite, const std::string& sql, const View_Source& source);

}  // namespace standin
