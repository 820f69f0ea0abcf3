#include "agentd/jobs/former_runs.h"

#include <vector>

#include "job/job_activity_record.h"
#include "platform/log.h"

namespace agentd {

namespace {

constexpr int cut_off_code = -1;
constexpr const char* cut_off_message =
    "The agent ended while this job ran; what the database does on its own may still go on. Start the job again.";

}  // namespace

std::size_t settle_former_runs(const std::function<void(const Job_Activity_Snapshot&)>& report) {
  std::vector<Job_Activity_Snapshot> activities;
  if (!list_job_activities(activities)) return 0;
  std::size_t cut_off = 0;
  for (Job_Activity_Snapshot& activity : activities) {
    if (!is_finished(activity.state)) {
      if (!finish_job_activity(activity.id, JOB_STATE_ERROR, cut_off_code, cut_off_message)) continue;
      D3_WARNING("Job %C was cut off when the agent ended, it is reported as failed\n", activity.id.c_str());
      activity.state = JOB_STATE_ERROR;
      activity.code = cut_off_code;
      activity.message = cut_off_message;
      ++cut_off;
    }
    report(activity);
  }
  return cut_off;
}

}  // namespace agentd
