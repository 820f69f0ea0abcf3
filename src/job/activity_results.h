#pragma once

#include "job/job_activity.h"

/// Progress of a run that went well to its end, per cent.
constexpr int progress_of_done = 100;

/// Clears what a run leaves in its activity beside state, times and message: sizes, speed, progress and code.
void clear_activity_results(Job_Activity& activity);
/// A run that did not go well never shows as done, however far its work came.
void hold_progress_below_done(Job_Activity& activity);
