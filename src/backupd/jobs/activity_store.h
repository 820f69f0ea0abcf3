#pragma once

#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "backupd/jobs/run_chain.h"
#include "backupd/outcome.h"
#include "backupd/store/database.h"
#include "backupd/store/list_query.h"
#include "json/value.h"

namespace backupd {

/// Runs of jobs as their agents report them, and their logs. Format of a report: docs/formats/activity-report.md. Every
/// operation is durable when it returns. Safe from any thread.
class Activity_Store {
 public:
  explicit Activity_Store(Database& database) : database_(database) {}

  /// A run that is about to be handed to an agent.
  struct New_Run {
    std::string id;
    std::string def_id;
    std::string name;
    std::string host_uuid;
    std::optional<Run_Chain> chain;        ///< none for a run that is tried on one host only
    std::vector<std::string> passed_over;  ///< hosts before it that have no agent now
  };
  /// What reports ended.
  struct Ended {
    std::vector<std::string> runs;
    bool followed = false;  ///< there are runs now that wait to be handed to an agent

    void add(const Ended& other) {
      runs.insert(runs.end(), other.runs.begin(), other.runs.end());
      followed = followed || other.followed;
    }
  };
  /// A run that waits to be handed to its agent.
  struct Waiting_Run {
    std::string id;
    std::string def_id;
    std::string host_uuid;
    json_spirit::Object options;
    bool may_pass_over = false;  ///< its agent was never asked
  };

  /// Notes the run. A conflict while the definition has one that has not ended, which is all of a chain of tries.
  [[nodiscard]] Outcome begin(const New_Run& run);
  /// The agent did not take the run.
  [[nodiscard]] bool fail(const std::string& id, const std::string& message);
  /// Takes the reports of an agent. A report that comes late, for a run that has ended, changes nothing. A run that was
  /// declined goes on at the host that `choose` names.
  [[nodiscard]] Outcome report(const std::string& host_uuid, const json_spirit::Array& records,
                               const Choose_Host& choose, Ended& ended);
  /// Runs of a host that have not ended for this server and of which its agent does not know: they end with an error.
  /// `being_sent` are left alone. A run that its agent may not have heard of waits again instead.
  [[nodiscard]] bool forget_unknown(const std::string& host_uuid, const json_spirit::Array& known,
                                    const std::set<std::string>& being_sent, Ended& ended);
  /// Lines of a run's log as its agent sends them.
  struct Run_Log {
    std::string job_act_id;
    json_spirit::Array lines;
  };
  /// All or none.
  [[nodiscard]] Outcome add_logs(const std::string& host_uuid, const std::vector<Run_Log>& logs);

  /// Runs to be handed to their agents, oldest first.
  [[nodiscard]] bool waiting(std::vector<Waiting_Run>& runs);
  /// The run is about to be sent to its agent: false when it does not wait any more, or cannot be stored.
  [[nodiscard]] bool send_begins(const std::string& id);
  /// How sending it ended.
  [[nodiscard]] bool send_ended(const std::string& id, Run_Chain::Hand_Over hand_over);
  /// The agent of a run that waits did not come: the run ends as declined, and goes on at the host that `choose` names.
  [[nodiscard]] bool pass_over(const std::string& id, const Choose_Host& choose, Ended& ended);
  /// Somebody asked for the end: no further host is tried. A run that waits ends at once, `ended` says so.
  [[nodiscard]] bool stop(const std::string& id, bool& ended);

  /// Newest first as the query says. Without the logs.
  [[nodiscard]] bool list(const List_Query& query, List_Page& page);
  /// With its log lines and the sets it made.
  [[nodiscard]] Outcome get(const std::string& id, json_spirit::Object& record);
  /// Ids of all runs that have ended and still own Backint job records.
  [[nodiscard]] bool ended_with_records(std::vector<std::string>& ids);

 private:
  /// Changes a run that has not ended, when `change` says so. False when it cannot be stored.
  bool change_unended(const std::string& id,
                      const std::function<bool(Sql_Session& session, Activity_Row& row)>& change);

  Database& database_;
};

}  // namespace backupd
