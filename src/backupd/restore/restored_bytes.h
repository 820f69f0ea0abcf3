#pragma once

#include <cstdint>
#include <string>

#include "backupd/outcome.h"
#include "backupd/restore/running_restores.h"
#include "backupd/store/database.h"

namespace backupd {

/// What a call of hdbbackint has given HANA back so far.
struct Restored_Report {
  std::string host_uuid;  ///< on which it runs
  std::string sid;        ///< of the database that is restored
  std::string database;
  std::string call;  ///< uuid; the same in all reports of one call
  std::int64_t bytes = 0;
};

/// How far restores are, as hdbbackint reports it. A report does not name the run it is for: that is the restore into
/// this database that goes on. Every operation is durable when it returns. Safe from any thread.
class Restored_Bytes {
 public:
  explicit Restored_Bytes(Database& database) : database_(database) {}

  /// Notes a report; one that comes late changes nothing. `job_act_id` becomes the run it counts for, empty when no
  /// restore into the database goes on, as when somebody recovers it by hand.
  [[nodiscard]] Outcome add(const Restored_Report& report, std::string& job_act_id);

  /// Rows {job_act_id, origin_sid, origin_database} of the restores into a database that go on, the last begun first.
  [[nodiscard]] bool list_running(const Restore_Place& place, List_Page& page) {
    return list_restores_into(database_, place, page);
  }

 private:
  Database& database_;
};

/// What HANA was given back for a run; inside the caller's session.
[[nodiscard]] std::int64_t restored_bytes_of(Sql_Session& session, const std::string& job_act_id);

/// Member of a restore's record that holds it.
inline constexpr char restored_size_key[] = "restored_size";

}  // namespace backupd
