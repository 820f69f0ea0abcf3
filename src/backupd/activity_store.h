#pragma once

#include <string>
#include <vector>

#include "backupd/database.h"
#include "backupd/list_query.h"
#include "backupd/outcome.h"
#include "json/value.h"

namespace backupd {

/// Runs of jobs as their agents report them, and their logs. Format of a report: docs/formats/activity-report.md. Every
/// operation is durable when it returns. Safe from any thread.
class Activity_Store {
 public:
  explicit Activity_Store(Database& database) : database_(database) {}

  /// Notes a run that is about to be handed to the agent. A conflict while the definition has one that has not ended.
  [[nodiscard]] Outcome begin(const std::string& id, const json_spirit::Object& definition);
  /// The agent did not take the run.
  [[nodiscard]] bool fail(const std::string& id, const std::string& message);
  /// Takes the reports of an agent. `ended` gets the ids of the runs that ended with them. A report that comes late,
  /// for a run that has ended, changes nothing.
  [[nodiscard]] Outcome report(const std::string& host_uuid, const json_spirit::Array& records,
                               std::vector<std::string>& ended);
  /// Runs of a host that have not ended for this server and of which its agent does not know: they end with an error.
  [[nodiscard]] bool forget_unknown(const std::string& host_uuid, const json_spirit::Array& known,
                                    std::vector<std::string>& ended);
  [[nodiscard]] Outcome add_log(const std::string& host_uuid, const std::string& id, const json_spirit::Array& lines);

  /// Newest first as the query says. Without the logs.
  [[nodiscard]] bool list(const List_Query& query, List_Page& page);
  /// With its log lines and the sets it made.
  [[nodiscard]] Outcome get(const std::string& id, json_spirit::Object& record);
  /// Ids of all runs that have ended and still own Backint job records.
  [[nodiscard]] bool ended_with_records(std::vector<std::string>& ids);

 private:
  Database& database_;
};

}  // namespace backupd
