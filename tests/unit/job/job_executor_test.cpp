#include "job/job_executor_t.h"

#include <gtest/gtest.h>

#include "support/log_capture.h"
#include "support/scripted_process_runner.h"
#include "support/virtual_clock.h"
#include "support/vtable_slots.h"
#include "test_jobs.h"

namespace {

using Steps = std::vector<std::string>;
using test_jobs::behaviour;
using test_jobs::course;
using test_jobs::Executor;

class Other_Source : public Job_Source {
 public:
  int generate(yajl_gen) const override { return 0; }
};

class Job_Executor_Test : public testing::Test {
 protected:
  Job_Executor_Test() {
    course().take();
    behaviour() = {};
    job_.activity().store_state(JOB_STATE_STARTING);
  }

  bool execute() {
    course().take();
    Executor executor(job_);
    const bool result = executor.execute(nullptr);
    Steps steps = course().take();
    steps.erase(steps.begin());  // "made"
    steps_ = steps;
    return result;
  }
  /// A script that leaves its name in the course, ends with `code` and may do something meanwhile.
  void script(
      const std::string& path, int code = 0, std::function<void()> meanwhile = [] {}) {
    support::Scripted_Child child;
    child.code = code;
    child.before = [path, meanwhile] {
      course().add(path);
      meanwhile();
    };
    runner_.on_program(path, child);
  }
  void claim_script_failure(const std::string& path) {
    EXPECT_EQ(log_.claim_containing("Failed to run script '" + path + "'"), 1U) << log_.dump();
  }
  void cancel() { job_.activity().store_state(JOB_STATE_CANCELING); }

  support::Log_Capture log_;
  support::Virtual_Clock clock_{1'700'000'000};
  support::Scripted_Process_Runner runner_;
  Job_Definition_Ptr definition_ = test_jobs::make_definition();
  Job job_{definition_};
  Steps steps_;
};

TEST_F(Job_Executor_Test, Has_Its_Operations_In_The_Fixed_Slots) {
  using Base = Job_Executor_T<Default_Backup_Job_Source, test_jobs::Empty_Options, test_jobs::Recording_Handler>;
  const std::ptrdiff_t slots[] = {support::slot_of(&Base::remove),
                                  support::slot_of(&Base::setup_ondemand),
                                  support::slot_of(&Base::remove_ondemand),
                                  support::slot_of(&Base::update),
                                  support::slot_of(&Base::rollback),
                                  support::slot_of(&Base::execute_i),
                                  support::slot_of(&Base::execute_pre_action),
                                  support::slot_of(&Base::execute_post_action),
                                  support::slot_of(&Base::check_condition),
                                  support::slot_of(&Base::is_active)};
  std::ptrdiff_t wanted = 2;
  for (const std::ptrdiff_t slot : slots) EXPECT_EQ(slot, wanted++);
}

TEST_F(Job_Executor_Test, Runs_In_The_Fixed_Order) {
  definition_->precondition("/condition");
  definition_->pre_action("/before");
  definition_->post_action("/after");
  script("/condition");
  script("/before");
  script("/after");
  EXPECT_TRUE(execute());
  EXPECT_EQ(steps_,
            (Steps{"is_active", "/condition", "check_condition", "start", "/before", "work", "/after", "success"}));
  EXPECT_EQ(job_.state(), JOB_STATE_COMPLETED);
}

TEST_F(Job_Executor_Test, Defaults_Succeed) {
  class Plain
      : public Job_Executor_T<Default_Backup_Job_Source, test_jobs::Empty_Options, test_jobs::Recording_Handler> {
   public:
    using Job_Executor_T::Job_Executor_T;
    bool execute_i(const Action_Options*) override { return true; }
  };
  Plain executor(job_);
  EXPECT_TRUE(executor.remove());
  EXPECT_TRUE(executor.setup_ondemand());
  EXPECT_TRUE(executor.remove_ondemand());
  EXPECT_TRUE(executor.update(definition_));
  EXPECT_TRUE(executor.rollback());
  EXPECT_TRUE(executor.check_condition());
  EXPECT_TRUE(executor.is_active(nullptr));
}

TEST_F(Job_Executor_Test, Fails_Silently_Towards_The_Handler_Without_A_Source) {
  definition_->source.reset(nullptr);
  EXPECT_FALSE(execute());
  EXPECT_TRUE(steps_.empty());
  EXPECT_EQ(job_.state(), JOB_STATE_STARTING);
  EXPECT_EQ(log_.claim_containing("job/job_executor_t.h:", LM_EMERGENCY), 1U) << log_.dump();
  EXPECT_TRUE(log_.has_containing(", src_ is NULL:\n"));
  EXPECT_EQ(log_.lines().back().priority, LM_EMERGENCY);
}

TEST_F(Job_Executor_Test, Counts_A_Source_Of_Another_Class_As_Missing) {
  definition_->source.reset(new Other_Source);
  EXPECT_FALSE(execute());
  EXPECT_TRUE(steps_.empty());
  EXPECT_EQ(log_.claim_containing(", src_ is NULL:\n", LM_EMERGENCY), 1U);
}

TEST_F(Job_Executor_Test, Works_Without_Options_And_Binds_Those_There_Are) {
  {
    const Executor executor(job_);
    EXPECT_EQ(executor.opts_, definition_->options.get());
    EXPECT_EQ(executor.src_, definition_->source.get());
    EXPECT_EQ(&executor.act_, &job_.activity());
  }
  course().take();
  definition_->options.reset(nullptr);
  EXPECT_EQ(Executor(job_).opts_, nullptr);
  course().take();
  EXPECT_TRUE(execute());
}

TEST_F(Job_Executor_Test, Skips_A_Run_On_A_Node_That_Is_Not_Active) {
  behaviour().active = false;
  EXPECT_TRUE(execute());
  EXPECT_EQ(steps_, Steps{"is_active"});
  EXPECT_EQ(job_.state(), JOB_STATE_SKIPPED);
  EXPECT_EQ(job_.activity().last_run_time, 1'700'000'000);
  EXPECT_EQ(job_.activity().start_time, 0);
}

TEST_F(Job_Executor_Test, Goes_Idle_When_The_Precondition_Fails) {
  definition_->precondition("/condition");
  script("/condition", 1);
  EXPECT_TRUE(execute());
  EXPECT_EQ(steps_, (Steps{"is_active", "/condition"})) << "the condition is not asked";
  EXPECT_EQ(job_.state(), JOB_STATE_IDLE);
  EXPECT_EQ(job_.activity().start_time, 1'700'000'000);
  EXPECT_EQ(job_.activity().last_run_time, 1'700'000'000);
  claim_script_failure("/condition");
}

TEST_F(Job_Executor_Test, Goes_Idle_When_A_Stop_Ends_Its_Precondition) {
  definition_->precondition("/condition");
  script("/condition", 128 + SIGTERM, [this] { cancel(); });
  EXPECT_TRUE(execute());
  EXPECT_EQ(steps_, (Steps{"is_active", "/condition"}));
  EXPECT_EQ(job_.activity().load_state(), JOB_STATE_IDLE);
  claim_script_failure("/condition");
}

TEST_F(Job_Executor_Test, Goes_Idle_When_The_Condition_Is_Not_Met) {
  behaviour().condition = false;
  EXPECT_TRUE(execute());
  EXPECT_EQ(steps_, (Steps{"is_active", "check_condition"}));
  EXPECT_EQ(job_.state(), JOB_STATE_IDLE);
  EXPECT_EQ(job_.activity().start_time, 1'700'000'000);
}

TEST_F(Job_Executor_Test, Failed_Pre_Action_Ends_The_Run) {
  definition_->pre_action("/before");
  definition_->post_action("/after");
  script("/before", 1);
  EXPECT_FALSE(execute());
  EXPECT_EQ(steps_, (Steps{"is_active", "check_condition", "start", "/before", "failure -1 null"}));
  EXPECT_EQ(job_.state(), JOB_STATE_ERROR);
  claim_script_failure("/before");
}

TEST_F(Job_Executor_Test, Failed_Pre_Action_Can_Be_Ignored) {
  definition_->pre_action("/before");
  definition_->ignore_pre_action_failure(true);
  script("/before", 1);
  EXPECT_TRUE(execute());
  EXPECT_EQ(steps_, (Steps{"is_active", "check_condition", "start", "/before", "work", "success"}));
  claim_script_failure("/before");
}

TEST_F(Job_Executor_Test, Job_Stopped_In_Its_Pre_Action_Does_Not_Begin_Its_Work) {
  definition_->pre_action("/before");
  for (const bool ignored : {false, true})
    for (const int code : {0, 1}) {
      definition_->ignore_pre_action_failure(ignored);
      runner_.clear_rules();
      script("/before", code, [this] { cancel(); });
      job_.activity().store_state(JOB_STATE_STARTING);
      EXPECT_FALSE(execute());
      EXPECT_EQ(steps_, (Steps{"is_active", "check_condition", "start", "/before", "canceled"})) << ignored << code;
      EXPECT_EQ(job_.state(), JOB_STATE_CANCELED);
      log_.claim_all();
    }
}

TEST_F(Job_Executor_Test, Job_Stopped_While_Starting_Does_Not_Begin_Its_Work) {
  job_.activity().store_state(JOB_STATE_CANCELING);
  EXPECT_FALSE(execute());
  EXPECT_EQ(steps_, (Steps{"is_active", "check_condition", "start", "canceled"}));
}

TEST_F(Job_Executor_Test, Failed_Work_Skips_The_Post_Action) {
  definition_->post_action("/after");
  behaviour().work = [](Job&, const Action_Options*) { return false; };
  EXPECT_FALSE(execute());
  EXPECT_EQ(steps_, (Steps{"is_active", "check_condition", "start", "work", "failure -1 null"}));
}

TEST_F(Job_Executor_Test, Post_Action_That_Always_Runs_Does_Not_Heal_Failed_Work) {
  definition_->post_action("/after");
  definition_->run_post_action_always(true);
  script("/after");
  behaviour().work = [](Job&, const Action_Options*) { return false; };
  EXPECT_FALSE(execute());
  EXPECT_EQ(steps_, (Steps{"is_active", "check_condition", "start", "work", "/after", "failure -1 null"}));
  EXPECT_EQ(job_.state(), JOB_STATE_ERROR);
}

TEST_F(Job_Executor_Test, Post_Action_Runs_In_State_Completing) {
  definition_->post_action("/after");
  Job_State seen = JOB_STATE_NONE;
  script("/after", 0, [&] { seen = job_.state(); });
  EXPECT_TRUE(execute());
  EXPECT_EQ(seen, JOB_STATE_COMPLETING);
}

TEST_F(Job_Executor_Test, Empty_Post_Action_Never_Changes_The_State) {
  std::vector<Job_State> states;
  behaviour().work = [&states](Job& job, const Action_Options*) {
    states.push_back(job.state());
    return true;
  };
  Executor executor(job_);
  job_.activity().store_state(JOB_STATE_RUNNING);
  EXPECT_TRUE(executor.execute_post_action());
  EXPECT_EQ(job_.state(), JOB_STATE_RUNNING);
}

TEST_F(Job_Executor_Test, Failed_Post_Action_Fails_The_Run_Unless_Ignored) {
  definition_->post_action("/after");
  script("/after", 2);
  EXPECT_FALSE(execute());
  EXPECT_EQ(steps_.back(), "failure -1 null");
  claim_script_failure("/after");
  definition_->ignore_post_action_failure(true);
  job_.activity().store_state(JOB_STATE_STARTING);
  EXPECT_TRUE(execute());
  EXPECT_EQ(steps_.back(), "success");
  claim_script_failure("/after");
}

TEST_F(Job_Executor_Test, Cancelled_Work_Is_Reported_As_Cancelled) {
  behaviour().work = [this](Job&, const Action_Options*) {
    cancel();
    return false;
  };
  EXPECT_FALSE(execute());
  EXPECT_EQ(steps_, (Steps{"is_active", "check_condition", "start", "work", "canceled"}));
  EXPECT_EQ(job_.state(), JOB_STATE_CANCELED);
}

TEST_F(Job_Executor_Test, Post_Action_Of_A_Cancelled_Run_Makes_It_A_Failure) {
  definition_->post_action("/after");
  definition_->run_post_action_always(true);
  script("/after");
  behaviour().work = [this](Job&, const Action_Options*) {
    cancel();
    return false;
  };
  EXPECT_FALSE(execute());
  EXPECT_EQ(steps_, (Steps{"is_active", "check_condition", "start", "work", "/after", "failure -1 null"}));
  EXPECT_EQ(job_.state(), JOB_STATE_ERROR);
}

TEST_F(Job_Executor_Test, Failure_Keeps_The_Last_Error_As_Message) {
  behaviour().work = [](Job& job, const Action_Options*) {
    job.set_job_thread();
    D3_ERROR("Failed to reach the pool\n");
    return false;
  };
  EXPECT_FALSE(execute());
  job_.complete();
  EXPECT_EQ(job_.message(), "Failed to reach the pool");
  EXPECT_TRUE(log_.claim("Failed to reach the pool\n"));
}

TEST_F(Job_Executor_Test, Scripts_Log_Where_They_Belong) {
  class Sink : public Job_Log_Sink {
   public:
    void write(const Job_Log_Line& line) override { lines.push_back(line.text); }
    Steps lines;
  };
  const auto sink = std::make_shared<Sink>();
  set_job_log_sink(sink);
  definition_->precondition("/condition");
  definition_->pre_action("/before");
  definition_->post_action("/after");
  for (const char* path : {"/condition", "/before", "/after"}) {
    support::Scripted_Child child;
    child.standard_output = std::string(path) + " speaks\n";
    runner_.on_program(path, child);
  }
  EXPECT_TRUE(execute());
  EXPECT_EQ(sink->lines, (Steps{"/before speaks", "/after speaks"}));
  sink->lines.clear();
  job_.activity().store_state(JOB_STATE_STARTING);
  // The job's own thread is bound to the job's log, so that its precondition is heard there, too.
  job_.set_job_thread();
  EXPECT_TRUE(execute());
  job_.complete();
  set_job_log_sink(nullptr);
  EXPECT_EQ(sink->lines, (Steps{"/condition speaks", "/before speaks", "/after speaks"}));
}

}  // namespace
