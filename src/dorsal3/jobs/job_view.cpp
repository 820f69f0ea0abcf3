#include "dorsal3/jobs/job_view.h"

#include <algorithm>

#include "dorsal3/server/resources.h"
#include "dorsal3/terminal/format.h"
#include "platform/log.h"

namespace dorsal3 {

namespace {

// Numbers of the job states that a run can end with; docs/formats/job-definition.md lists all.
enum Job_State_Number : std::uint64_t {
  state_none = 0,
  state_idle = 1,
  state_starting = 2,
  state_completed = 7,
  state_canceled = 9,
  state_error = 10,
  state_created = 11,
  state_updated = 12,
  state_deleted = 14,
  state_completed_with_errors = 15,
  state_dispatching = 16,
  state_skipped = 17,
  state_expired = 18,
  state_disabled = 19
};

}  // namespace

Run_Stage run_stage(const json_spirit::Object& record) {
  switch (number_member(record, "state")) {
    case state_none:
    case state_starting:
    case state_created:
    case state_updated:
    case state_dispatching:
      return Run_Stage::waiting;
    case state_completed:
      return Run_Stage::done;
    case state_canceled:
    case state_deleted:
      return Run_Stage::canceled;
    case state_error:
    case state_completed_with_errors:
      return Run_Stage::failed;
    case state_idle:
    case state_skipped:
    case state_expired:
    case state_disabled:
      return Run_Stage::skipped;
    default:
      return Run_Stage::running;
  }
}

bool has_ended(Run_Stage stage) { return stage != Run_Stage::waiting && stage != Run_Stage::running; }

std::uint64_t bytes_done(const json_spirit::Object& record) {
  return std::max(
      {number_member(record, "processed_size"), number_member(record, "size"), number_member(record, "restored_size")});
}

std::string ending_text(const json_spirit::Object& record) {
  const std::string message = one_line(text_member(record, "message"));
  const std::string cause = message.empty() ? "" : ": " + message;
  switch (run_stage(record)) {
    case Run_Stage::done:
      return "The backup is complete.";
    case Run_Stage::failed:
      return "The backup FAILED" + cause;
    case Run_Stage::canceled:
      return "The backup was canceled" + cause;
    case Run_Stage::skipped:
      return "Nothing was backed up: the run was skipped" +
             (cause.empty() ? ", the instance does not run on this host or the condition of the job was not met"
                            : cause);
    default:
      return "The backup goes on.";
  }
}

std::string lift_text(const std::string& requested_type, const std::string& lift_reason) {
  if (requested_type.empty() && lift_reason.empty()) return {};
  return "asked for " + (requested_type.empty() ? "another kind" : requested_type) + ", made full" +
         (lift_reason.empty() ? "" : ": " + lift_reason);
}

json_spirit::Array error_lines(const json_spirit::Object& record) {
  json_spirit::Array lines;
  for (const auto& line : object_rows(record, "log"))
    if (number_member(line, "priority") >= LM_ERROR) lines.emplace_back(one_line(text_member(line, "text")));
  return lines;
}

}  // namespace dorsal3
