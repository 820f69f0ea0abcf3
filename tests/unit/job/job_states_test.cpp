// What a request that comes in the middle of a run, and the thread of the run, leave behind.

#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>

#include "job/activity_listener.h"
#include "job/job_executor_t.h"
#include "support/log_capture.h"
#include "support/scripted_process_runner.h"
#include "support/virtual_clock.h"
#include "test_jobs.h"

namespace {

using Steps = std::vector<std::string>;
using test_jobs::behaviour;
using test_jobs::course;
using test_jobs::wait_for_threads;

/// Notes what it is asked with, and what its job looks like when it goes.
class Noting_Executor
    : public Job_Executor_T<Default_Backup_Job_Source, test_jobs::Empty_Options, test_jobs::Recording_Handler> {
 public:
  using Job_Executor_T::Job_Executor_T;
  ~Noting_Executor() override { completed_before_it_went = job_.completed().is_set(); }

  bool is_active(const Action_Options* options) override {
    asked_with = options == nullptr ? "null" : json_spirit::dump_json(*options);
    return true;
  }
  bool execute_i(const Action_Options*) override { return true; }

  static inline std::string asked_with;
  static inline bool completed_before_it_went = false;
};

/// How the thread that asks was made.
struct Thread_Facts {
  int detached = -1;
  int inherits = -1;
  int policy = -1;
  int priority = -1;
  int group = -1;
};

Thread_Facts facts_of_this_thread() {
  Thread_Facts facts;
  pthread_attr_t attributes;
  if (::pthread_getattr_np(::pthread_self(), &attributes) != 0) return facts;
  ::pthread_attr_getdetachstate(&attributes, &facts.detached);
  ::pthread_attr_getinheritsched(&attributes, &facts.inherits);
  ::pthread_attr_destroy(&attributes);
  sched_param parameters{};
  ::pthread_getschedparam(::pthread_self(), &facts.policy, &parameters);
  facts.priority = parameters.sched_priority;
  static_cast<void>(ACE_Thread_Manager::instance()->get_grp(ACE_Thread::self(), facts.group));
  return facts;
}

class Job_States_Test : public testing::Test {
 protected:
  Job_States_Test() {
    course().take();
    behaviour() = {};
  }
  ~Job_States_Test() override {
    wait_for_threads();
    behaviour() = {};
  }
  /// A run whose pre-action brings the job into `state`; what came after the start was told.
  Steps steps_after(Job& job, Job_State state) {
    runner_.clear_rules();
    support::Scripted_Child child;
    child.before = [&job, state] { job.activity().store_state(state); };
    runner_.on_program("/before", child);
    job.activity().store_state(JOB_STATE_STARTING);
    test_jobs::Executor executor(job);
    course().take();
    EXPECT_FALSE(executor.execute(nullptr));
    Steps steps = course().take();
    steps.erase(steps.begin(), std::ranges::find(steps, "start") + 1);
    return steps;
  }

  support::Log_Capture log_;
  support::Virtual_Clock clock_{1'700'000'000};
  support::Scripted_Process_Runner runner_;
  Job_Definition_Ptr definition_ = test_jobs::make_definition();
};

TEST_F(Job_States_Test, Only_A_Job_That_Still_Runs_After_Its_Pre_Action_Begins_Its_Work) {
  definition_->pre_action("/before");
  Job job(definition_);
  for (const Job_State state : {JOB_STATE_PAUSING, JOB_STATE_PAUSED, JOB_STATE_SWITCHING, JOB_STATE_ABORTING}) {
    EXPECT_EQ(steps_after(job, state), Steps{"failure -1 null"}) << job_state_to_string(state);
    EXPECT_EQ(job.state(), JOB_STATE_ERROR) << job_state_to_string(state);
  }
}

TEST_F(Job_States_Test, Work_That_Was_Aborted_Is_A_Failure_And_Not_Canceled) {
  for (const Job_State state : {JOB_STATE_ABORTING, JOB_STATE_PAUSING, JOB_STATE_SWITCHING}) {
    behaviour().work = [state](Job& running, const Action_Options*) {
      running.activity().store_state(state);
      return false;
    };
    Job job(definition_);
    job.activity().store_state(JOB_STATE_STARTING);
    test_jobs::Executor executor(job);
    course().take();
    EXPECT_FALSE(executor.execute(nullptr));
    EXPECT_EQ(course().take(), (Steps{"is_active", "check_condition", "start", "work", "failure -1 null"}))
        << job_state_to_string(state);
    EXPECT_EQ(job.state(), JOB_STATE_ERROR) << job_state_to_string(state);
  }
}

TEST_F(Job_States_Test, Run_Whose_Condition_Is_Not_Met_Is_Published_As_Idle) {
  class Listener : public Activity_Listener {
   public:
    void activity_changed(const Job_Activity_Snapshot& activity) override { seen.push_back(activity); }
    std::vector<Job_Activity_Snapshot> seen;
  };
  const auto listener = std::make_shared<Listener>();
  behaviour().condition = false;
  Job job(definition_);
  test_jobs::Executor executor(job);
  set_activity_listener(listener);
  EXPECT_TRUE(executor.execute(nullptr));
  set_activity_listener(nullptr);
  ASSERT_EQ(listener->seen.size(), 1U);
  EXPECT_EQ(listener->seen[0].state, JOB_STATE_IDLE);
  EXPECT_EQ(listener->seen[0].start_time, 1'700'000'000);
  EXPECT_EQ(listener->seen[0].last_run_time, 1'700'000'000);
}

TEST_F(Job_States_Test, Options_Of_The_Request_Reach_The_Question_Whether_The_Node_Is_Active) {
  const Job_Ptr job(new Default_Job_T<Noting_Executor>(definition_));
  const Action_Options options{{"force", true}};
  ASSERT_EQ(job->start(&options), 0);
  wait_for_threads();
  EXPECT_EQ(Noting_Executor::asked_with, R"({"force":true})");
  ASSERT_EQ(job->start(nullptr), 0);
  wait_for_threads();
  EXPECT_EQ(Noting_Executor::asked_with, "null");
}

TEST_F(Job_States_Test, Run_Is_Completed_When_Its_Executor_Has_Gone) {
  Noting_Executor::completed_before_it_went = true;
  const Job_Ptr job(new Default_Job_T<Noting_Executor>(definition_));
  ASSERT_EQ(job->start(nullptr), 0);
  wait_for_threads();
  EXPECT_FALSE(Noting_Executor::completed_before_it_went) << "another run could begin beside this executor";
  EXPECT_TRUE(job->completed().is_set());
}

TEST_F(Job_States_Test, Each_Run_Has_A_Detached_Thread_In_A_Group_Of_Its_Own) {
  std::vector<Thread_Facts> runs;
  behaviour().work = [&runs](Job&, const Action_Options*) {
    runs.push_back(facts_of_this_thread());
    return true;
  };
  const Job_Ptr job(new test_jobs::Plain_Job(definition_));
  constexpr std::size_t wanted = 2;
  while (runs.size() < wanted) {
    ASSERT_EQ(job->start(nullptr), 0);
    wait_for_threads();
  }
  const Thread_Facts here = facts_of_this_thread();
  for (const Thread_Facts& run : runs) {
    EXPECT_EQ(run.detached, PTHREAD_CREATE_DETACHED);
    EXPECT_EQ(run.inherits, PTHREAD_INHERIT_SCHED);
    EXPECT_EQ(run.policy, here.policy);
    EXPECT_EQ(run.priority, here.priority);
    EXPECT_NE(run.group, -1);
  }
  EXPECT_NE(runs[0].group, runs[1].group);
}

TEST_F(Job_States_Test, Rollback_Has_A_Detached_Thread) {
  Thread_Facts facts;
  behaviour().rollback = [&facts](Job&) { facts = facts_of_this_thread(); };
  const Job_Ptr job(new test_jobs::Plain_Job(definition_));
  EXPECT_EQ(job->rollback_i(), 0);
  wait_for_threads();
  EXPECT_EQ(facts.detached, PTHREAD_CREATE_DETACHED);
  EXPECT_EQ(facts.inherits, PTHREAD_INHERIT_SCHED);
}

TEST_F(Job_States_Test, Abort_Reaches_The_Thread_That_Was_Made_Last) {
  class Open_Job : public test_jobs::Plain_Job {
   public:
    using Default_Job_T::Default_Job_T;
    using Default_Job_T::thr_id_;
  };
  ACE_thread_t worker = 0;
  behaviour().work = [&worker](Job&, const Action_Options*) {
    worker = ACE_Thread::self();
    return true;
  };
  const ACE_Intrusive_Auto_Ptr<Open_Job> job(new Open_Job(definition_));
  job->thr_id_.store(ACE_Thread::self());
  ASSERT_EQ(job->start(nullptr), 0);
  wait_for_threads();
  EXPECT_EQ(job->thr_id_.load(), worker);
}

}  // namespace
