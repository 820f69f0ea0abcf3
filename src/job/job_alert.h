#pragma once

#include <ctime>
#include <memory>
#include <string>

#include "json/value.h"

class Job;

/// One alert on its way to the operator.
struct Job_Alert {
  unsigned long alert_class = 0;
  unsigned long code = 0;
  unsigned long flags = 0;
  json_spirit::Value parameters;
  long level = 0;
  std::string job_id;      ///< id of the definition, empty without a job
  std::string job_act_id;  ///< empty without a job
  std::string job_name;
  std::string host_id;
  std::time_t time = 0;
};

/// Takes alerts. Called on the thread that raised it, several at once; must not block for long and must not lose the
/// alert while backupd is away.
class Alert_Sink {
 public:
  virtual ~Alert_Sink() = default;
  virtual void raise(const Job_Alert& alert) = 0;
};

/// Sets the process-wide sink; gives back the one before. None: an alert is a warning in the log.
std::shared_ptr<Alert_Sink> set_alert_sink(std::shared_ptr<Alert_Sink> sink);

/// Raises an alert attached to `job`, which may be null: class, code, flags, parameters, level. "No parameters" is
/// null or an empty object, which say the same. Never throws; returns when the sink has it.
void write_job_alert(const Job* job, unsigned long alert_class, unsigned long code, unsigned long flags,
                     const json_spirit::Value& parameters, long level);
