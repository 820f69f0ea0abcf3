#pragma once

#include <cstdint>
#include <string>

#include "backupd/outcome.h"
#include "backupd/store/database.h"

namespace backupd {

/// What a call of hdbbackint has given HANA back so far.
struct Restored_Report {
  std::string host_uuid;  ///< on which it runs
  std::string sid;        ///< of the database that HANA names, as that of a restore's origin or its target
  std::string database;
  std::string call;  ///< uuid; the same in all reports of one call
  std::int64_t bytes = 0;
};

/// How far restores are, as hdbbackint reports it. A report does not name the run it is for: that is the restore into
/// this database, or of it, that goes on. Every operation is durable when it returns. Safe from any thread.
class Restored_Bytes {
 public:
  explicit Restored_Bytes(Database& database) : database_(database) {}

  /// Notes a report; one that comes late changes nothing. `job_act_id` becomes the run it counts for, empty when no
  /// restore of the database goes on, as when somebody recovers it by hand, or more than one.
  [[nodiscard]] Outcome add(const Restored_Report& report, std::string& job_act_id);

 private:
  Database& database_;
};

/// What HANA was given back for a run; inside the caller's session.
[[nodiscard]] std::int64_t restored_bytes_of(Sql_Session& session, const std::string& job_act_id);

/// Member of a restore's record that holds it.
inline constexpr char restored_size_key[] = "restored_size";

}  // namespace backupd
