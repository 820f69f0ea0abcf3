#include "job/job_alert.h"

#include <exception>
#include <mutex>
#include <utility>

#include "job/job.h"
#include "platform/clock.h"
#include "platform/log.h"

namespace {

std::mutex sink_mutex;
std::shared_ptr<Alert_Sink> current_sink;  // guarded by sink_mutex

std::shared_ptr<Alert_Sink> alert_sink() {
  const std::lock_guard guard(sink_mutex);
  return current_sink;
}

void log_alert(const Job_Alert& alert) {
  const std::string parameters = platform::cut_for_log(json_spirit::dump_json_for_log(alert.parameters));
  D3_WARNING("Alert %Q/%Q with flags %Q of job %C, parameters %C\n", static_cast<ACE_UINT64>(alert.alert_class),
             static_cast<ACE_UINT64>(alert.code), static_cast<ACE_UINT64>(alert.flags), alert.job_id.c_str(),
             parameters.c_str());
}

}  // namespace

std::shared_ptr<Alert_Sink> set_alert_sink(std::shared_ptr<Alert_Sink> sink) {
  const std::lock_guard guard(sink_mutex);
  return std::exchange(current_sink, std::move(sink));
}

void write_job_alert(const Job* job, unsigned long alert_class, unsigned long code, unsigned long flags,
                     const json_spirit::Value& parameters, long level) {
  Job_Alert alert;
  alert.alert_class = alert_class;
  alert.code = code;
  alert.flags = flags;
  alert.parameters = parameters;
  alert.level = level;
  alert.time = platform::Clock::current().wall_seconds();
  if (job != nullptr) {
    const Job_Definition_Ptr definition = job->definition();
    alert.job_id = definition->id();
    alert.job_name = definition->name();
    alert.host_id = definition->host_id();
    alert.job_act_id = job->job_act_id();
  }
  const std::shared_ptr<Alert_Sink> sink = alert_sink();
  if (!sink) {
    log_alert(alert);
    return;
  }
  try {
    sink->raise(alert);
  } catch (const std::exception& error) {
    D3_ERROR("Failed to raise alert %Q/%Q: %C\n", static_cast<ACE_UINT64>(alert_class), static_cast<ACE_UINT64>(code),
             error.what());
  }
}
