#include "job/job_event_handler.h"

#include <gtest/gtest.h>

#include "job/activity_listener.h"
#include "job/job.h"
#include "support/log_capture.h"
#include "support/virtual_clock.h"
#include "test_jobs.h"

namespace {

class Recording_Listener : public Activity_Listener {
 public:
  void activity_changed(const Job_Activity_Snapshot& activity) override { seen.push_back(activity); }
  std::vector<Job_Activity_Snapshot> seen;
};

class Job_Event_Handler_Test : public testing::Test {
 protected:
  Job_Event_Handler_Test() : job_(test_jobs::make_definition()), handler_(job_) {
    previous_ = set_activity_listener(listener_);
  }
  ~Job_Event_Handler_Test() override { set_activity_listener(previous_); }

  support::Log_Capture log_;
  support::Virtual_Clock clock_{1'700'000'000};
  std::shared_ptr<Recording_Listener> listener_ = std::make_shared<Recording_Listener>();
  std::shared_ptr<Activity_Listener> previous_;
  Job job_;
  Job_Event_Handler handler_;
};

TEST_F(Job_Event_Handler_Test, Start_Makes_A_Starting_Job_Run_With_Fresh_Results) {
  Job_Activity& activity = job_.activity();
  activity.store_state(JOB_STATE_STARTING);
  activity.progress = 70;
  activity.code = -1;
  activity.size = activity.set_size = activity.set_storage_size = activity.processed_size = activity.speed = 5;
  job_.message("an old failure");
  handler_.handle_start_job();
  EXPECT_EQ(job_.state(), JOB_STATE_RUNNING);
  EXPECT_EQ(activity.start_time, 1'700'000'000);
  EXPECT_EQ(activity.last_run_time, 1'700'000'000);
  EXPECT_EQ(activity.progress, 0);
  EXPECT_EQ(activity.code, 0);
  EXPECT_EQ(activity.size + activity.set_size + activity.set_storage_size + activity.processed_size + activity.speed,
            0U);
  EXPECT_EQ(job_.message(), "");
  ASSERT_EQ(listener_->seen.size(), 1U);
  EXPECT_EQ(listener_->seen.back().state, JOB_STATE_RUNNING);
}

TEST_F(Job_Event_Handler_Test, Start_Does_Not_Bring_A_Stopped_Job_Back) {
  for (const Job_State state : {JOB_STATE_CANCELING, JOB_STATE_ABORTING, JOB_STATE_PAUSING, JOB_STATE_NONE}) {
    job_.activity().store_state(state);
    handler_.handle_start_job();
    EXPECT_EQ(job_.state(), state);
  }
}

TEST_F(Job_Event_Handler_Test, Success_Completes_The_Job) {
  job_.activity().store_state(JOB_STATE_RUNNING);
  job_.message("of an error line on the way");
  handler_.handle_success();
  EXPECT_EQ(job_.state(), JOB_STATE_COMPLETED);
  EXPECT_EQ(job_.snapshot().message, "");
  EXPECT_EQ(job_.activity().progress, 100);
  EXPECT_EQ(listener_->seen.back().state, JOB_STATE_COMPLETED);
}

TEST_F(Job_Event_Handler_Test, Cancellation_Makes_Canceling_Canceled) {
  job_.activity().store_state(JOB_STATE_CANCELING);
  handler_.handle_canceled();
  EXPECT_EQ(job_.state(), JOB_STATE_CANCELED);
}

TEST_F(Job_Event_Handler_Test, Failure_Keeps_Code_And_Message) {
  handler_.handle_failure(17, "database %s: %d of %d", "TN1", 2, 3);
  EXPECT_EQ(job_.state(), JOB_STATE_ERROR);
  EXPECT_EQ(job_.activity().code, 17);
  EXPECT_EQ(job_.message(), "database TN1: 2 of 3");
  EXPECT_EQ(listener_->seen.back().message, "database TN1: 2 of 3");
}

TEST_F(Job_Event_Handler_Test, A_Run_That_Did_Not_Go_Well_Never_Shows_As_Done) {
  handler_.handle_progress(100);
  handler_.handle_failure(-1, "its set could not be stored");
  EXPECT_EQ(job_.activity().progress, 99);
  handler_.handle_progress(100);
  handler_.handle_canceled();
  EXPECT_EQ(job_.activity().progress, 99);
  handler_.handle_progress(40);
  handler_.handle_failure(-1, "hdbsql ended");
  EXPECT_EQ(job_.activity().progress, 40);
}

TEST_F(Job_Event_Handler_Test, Failure_Without_A_Format_Keeps_The_Last_Message) {
  job_.message("the pool is full");
  const char* const no_format = nullptr;
  handler_.handle_failure(-1, no_format);
  EXPECT_EQ(job_.state(), JOB_STATE_ERROR);
  EXPECT_EQ(job_.activity().code, -1);
  EXPECT_EQ(job_.message(), "the pool is full");
}

TEST_F(Job_Event_Handler_Test, Progress_Leaves_What_Is_Zero_And_The_State) {
  job_.activity().store_state(JOB_STATE_CANCELING);
  handler_.handle_progress(10, 100, 20, 1000);
  handler_.handle_progress(11);
  const Job_Activity& activity = job_.activity();
  EXPECT_EQ(activity.progress, 11);
  EXPECT_EQ(activity.processed_size, 100U);
  EXPECT_EQ(activity.speed, 20U);
  EXPECT_EQ(activity.size, 1000U);
  EXPECT_EQ(job_.state(), JOB_STATE_CANCELING);
  EXPECT_EQ(listener_->seen.size(), 2U);
  EXPECT_EQ(listener_->seen.back().progress, 11);
}

TEST_F(Job_Event_Handler_Test, Progress_Stays_Between_0_And_100) {
  handler_.handle_progress(-5);
  EXPECT_EQ(job_.activity().progress, 0);
  handler_.handle_progress(250);
  EXPECT_EQ(job_.activity().progress, 100);
}

TEST_F(Job_Event_Handler_Test, Tells_The_Id_Of_The_Activity) {
  EXPECT_EQ(handler_.job_act_id(), job_.job_act_id());
  EXPECT_EQ(handler_.job_act_id().size(), 36U);
}

}  // namespace
