#pragma once

#include "job/action_options.h"
#include "job/job.h"

/// What is handed to a job's thread. The reference keeps the job alive for as long as the detached thread needs it.
struct Run_Options {
  Job_Ptr job;
  Action_Options opts;  ///< empty: none were given
};
