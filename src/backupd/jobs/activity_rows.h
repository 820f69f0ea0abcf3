#pragma once

#include <optional>
#include <string>

#include "backupd/store/database.h"
#include "job/job_state.h"
#include "json/value.h"

namespace backupd {

/// One run as the database keeps it. The functions below work inside the caller's session; what fails shows there.
struct Activity_Row {
  std::string id;
  std::string def_id;
  std::string host_uuid;
  Job_State state = JOB_STATE_NONE;
  json_spirit::Object document;

  [[nodiscard]] bool ended() const { return is_finished(state); }
  /// The state as people read it, with its reason, in the document.
  void set_state(Job_State new_state, const std::string& message);
};

/// Member of a document that says what the run does.
inline constexpr char kind_key[] = "kind";
/// What runs do, as "kind" of an activity names it.
inline constexpr char kind_of_data_backup[] = "data backup";
inline constexpr char kind_of_log_backup[] = "log backup";
inline constexpr char kind_of_restore[] = "restore";

[[nodiscard]] std::optional<Activity_Row> find_activity(Sql_Session& session, const std::string& id);
/// Adds the "kind" of the run to its document; "" when its definition is not known.
void insert_activity(Sql_Session& session, Activity_Row& row);
/// State and document.
void update_activity(Sql_Session& session, const Activity_Row& row);
/// The run of the definition that has not ended, "" when there is none.
[[nodiscard]] std::string running_activity(Sql_Session& session, const std::string& def_id);

/// A line of this server's own in the log of a run.
enum class Log_Level { info, warning };
void log_to_activity(Sql_Session& session, const std::string& id, Log_Level level, const std::string& text);

}  // namespace backupd
