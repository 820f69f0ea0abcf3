#pragma once

#include <string>

#include "backupd/outcome.h"
#include "job/job_state.h"
#include "json/value.h"

namespace backupd {

/// One run as its agent tells of it. Keys that this server does not know are passed over, so that a newer agent can
/// speak to it.
struct Activity_Report {
  std::string id;
  std::string def_id;
  Job_State state = JOB_STATE_NONE;
  json_spirit::Object document;  ///< every known member, times as UTC text, "state_name" added

  [[nodiscard]] Outcome read(const json_spirit::Value& record);
};

}  // namespace backupd
