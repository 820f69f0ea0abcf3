#include "job/activity_results.h"

void clear_activity_results(Job_Activity& activity) {
  for (std::uint64_t* counter :
       {&activity.size, &activity.set_size, &activity.set_storage_size, &activity.processed_size, &activity.speed})
    Job_Activity::store(*counter, 0);
  Job_Activity::store(activity.progress, 0);
  Job_Activity::store(activity.code, 0);
}

void hold_progress_below_done(Job_Activity& activity) {
  constexpr int furthest = progress_of_done - 1;
  if (Job_Activity::load(activity.progress) > furthest) Job_Activity::store(activity.progress, furthest);
}
