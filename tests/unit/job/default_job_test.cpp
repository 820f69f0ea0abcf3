#include "job/default_job_t.h"

#include <gtest/gtest.h>

#include <future>
#include <stdexcept>
#include <thread>

#include "faults.h"
#include "job/controllable_job_t.h"
#include "scrt/uuid.h"
#include "support/log_capture.h"
#include "test_jobs.h"

namespace {

using Steps = std::vector<std::string>;
using test_jobs::behaviour;
using test_jobs::Controllable_Job;
using test_jobs::course;
using test_jobs::Plain_Job;
using test_jobs::wait_for_threads;

/// Makes what the job's class keeps to itself visible.
template <typename Base>
class Open_Job : public Base {
 public:
  using Base::Base;
  using Base::thr_id_;
  ~Open_Job() override {
    if (gone != nullptr) *gone = true;
  }
  std::atomic<bool>* gone = nullptr;
};

class Default_Job_Test : public testing::Test {
 protected:
  Default_Job_Test() {
    course().take();
    behaviour() = {};
  }
  ~Default_Job_Test() override {
    wait_for_threads();
    behaviour() = {};
  }
  /// The one executor of a request that does nothing else.
  static Steps around(Steps steps) {
    steps.insert(steps.begin(), "made");
    steps.push_back("destroyed");
    return steps;
  }
  const Steps whole_run_{"made", "is_active", "check_condition", "start", "work", "success", "destroyed"};

  support::Log_Capture log_;
  Job_Definition_Ptr definition_ = test_jobs::make_definition();
};

TEST_F(Default_Job_Test, Runs_On_A_Thread_Of_Its_Own) {
  const ACE_Intrusive_Auto_Ptr<Open_Job<Plain_Job>> job(new Open_Job<Plain_Job>(definition_));
  EXPECT_EQ(job->thr_id_.load(), 0U);
  std::thread::id worker;
  behaviour().work = [&worker](Job&, const Action_Options*) {
    worker = std::this_thread::get_id();
    return true;
  };
  EXPECT_EQ(job->start(nullptr), 0);
  wait_for_threads();
  EXPECT_NE(worker, std::this_thread::get_id());
  EXPECT_NE(job->thr_id_.load(), 0U);
  EXPECT_EQ(course().take(), whole_run_);
  EXPECT_EQ(job->state(), JOB_STATE_COMPLETED);
  EXPECT_TRUE(job->completed().is_set());
}

TEST_F(Default_Job_Test, Run_Copies_The_Users_Id_Into_The_Activity) {
  Plain_Job job(definition_);
  job.activity().store_state(JOB_STATE_STARTING);
  EXPECT_EQ(job.run_i(nullptr), 0);
  EXPECT_EQ(uuid_binary_to_string(job.activity().uid), test_jobs::user_uuid);
}

TEST_F(Default_Job_Test, Run_Leaves_The_Activity_Alone_When_The_Users_Id_Is_None) {
  definition_->uid("nobody");
  Plain_Job job(definition_);
  const std::string before = job.snapshot().uid;
  job.activity().store_state(JOB_STATE_STARTING);
  EXPECT_EQ(job.run_i(nullptr), 0);
  EXPECT_EQ(job.snapshot().uid, before);
}

TEST_F(Default_Job_Test, Can_Be_Looked_At_While_It_Starts) {
  const Job_Ptr job(new Plain_Job(definition_));
  std::atomic<bool> looking = false;
  std::atomic<bool> enough = false;
  std::thread reader([&] {
    do {
      const std::string uid = job->snapshot().uid;
      EXPECT_TRUE(uid == test_jobs::user_uuid || uid == "00000000-0000-0000-0000-000000000000") << uid;
      looking = true;
    } while (!enough);
  });
  while (!looking) std::this_thread::yield();
  EXPECT_EQ(job->start(nullptr), 0);
  wait_for_threads();
  enough = true;
  reader.join();
  EXPECT_EQ(job->snapshot().uid, test_jobs::user_uuid);
}

TEST_F(Default_Job_Test, Run_Is_0_Whatever_The_Executor_Says) {
  Plain_Job job(definition_);
  behaviour().work = [](Job&, const Action_Options*) { return false; };
  job.activity().store_state(JOB_STATE_STARTING);
  EXPECT_EQ(job.run_i(nullptr), 0);
  EXPECT_EQ(job.state(), JOB_STATE_ERROR);
}

TEST_F(Default_Job_Test, Hands_Options_On_And_Drops_Empty_Ones) {
  const Job_Ptr job(new Plain_Job(definition_));
  const Action_Options none;
  EXPECT_EQ(job->start(&none), 0);
  wait_for_threads();
  EXPECT_EQ(course().take(), whole_run_) << "an empty map counts as none";

  Action_Options seen;
  behaviour().work = [&seen](Job&, const Action_Options* options) {
    seen = *options;
    return true;
  };
  {
    const Action_Options options{{"b", 1}, {"a", "two"}};
    EXPECT_EQ(job->start(&options), 0);
  }
  wait_for_threads();
  EXPECT_EQ(json_spirit::dump_json(seen), R"({"b":1,"a":"two"})") << "a copy, in the order given";
}

TEST_F(Default_Job_Test, Says_When_There_Is_No_Memory_For_The_Thread) {
  const Job_Ptr job(new Plain_Job(definition_));
  {
    const faults::No_Memory no_memory;
    EXPECT_EQ(job->start_i(nullptr), -1);
  }
  EXPECT_EQ(log_.claim_containing("job/default_job_t.h:", LM_EMERGENCY), 1U) << log_.dump();
  EXPECT_TRUE(log_.has_containing(", opt is NULL:\n"));
  EXPECT_EQ(log_.lines().back().priority, LM_EMERGENCY);
  EXPECT_TRUE(course().take().empty());
}

TEST_F(Default_Job_Test, Leaves_The_State_When_No_Thread_Can_Be_Made) {
  const ACE_Intrusive_Auto_Ptr<Open_Job<Plain_Job>> job(new Open_Job<Plain_Job>(definition_));
  job->activity().store_state(JOB_STATE_STARTING);
  {
    const faults::No_Threads no_threads;
    EXPECT_EQ(job->start_i(nullptr), -1);
  }
  EXPECT_EQ(job->state(), JOB_STATE_STARTING);
  EXPECT_EQ(job->thr_id_.load(), 0U);
  EXPECT_TRUE(course().take().empty());
  EXPECT_EQ(log_.claim_containing("Failed to spawn a thread for job "), 1U);
}

TEST_F(Default_Job_Test, Request_To_Start_Ends_In_Error_When_No_Thread_Can_Be_Made) {
  const Job_Ptr job(new Plain_Job(definition_));
  {
    const faults::No_Threads no_threads;
    EXPECT_EQ(job->start(nullptr), -1);
  }
  EXPECT_EQ(job->state(), JOB_STATE_ERROR);
  EXPECT_EQ(log_.claim_containing("Failed to spawn a thread for job "), 1U);
  EXPECT_EQ(log_.claim_containing("Failed to start job "), 1U);
  EXPECT_EQ(job->start(nullptr), 0);
  wait_for_threads();
  EXPECT_EQ(job->state(), JOB_STATE_COMPLETED);
}

TEST_F(Default_Job_Test, Thread_Keeps_Its_Job_Alive) {
  std::promise<void> go;
  std::atomic<bool> gone = false;
  bool alive_at_work = false;
  behaviour().work = [&](Job&, const Action_Options*) {
    go.get_future().wait();
    alive_at_work = !gone;
    return true;
  };
  {
    const ACE_Intrusive_Auto_Ptr<Open_Job<Plain_Job>> job(new Open_Job<Plain_Job>(definition_));
    job->gone = &gone;
    ASSERT_EQ(job->start(nullptr), 0);
  }
  EXPECT_FALSE(gone);
  go.set_value();
  wait_for_threads();
  EXPECT_TRUE(alive_at_work);
  EXPECT_TRUE(gone);
}

TEST_F(Default_Job_Test, Exception_Of_An_Executor_Ends_The_Run_As_A_Failure) {
  const Job_Ptr job(new Plain_Job(definition_));
  behaviour().work = [](Job&, const Action_Options*) -> bool { throw std::runtime_error("no such column"); };
  ASSERT_EQ(job->start(nullptr), 0);
  wait_for_threads();
  EXPECT_EQ(job->state(), JOB_STATE_ERROR);
  EXPECT_EQ(job->activity().code, -1);
  EXPECT_EQ(job->message(), "Unexpected error: no such column");
  EXPECT_TRUE(job->completed().is_set());
  EXPECT_EQ(log_.claim_containing(
                std::string("job ") + test_jobs::definition_uuid + " was left by an exception: no such column\n",
                LM_EMERGENCY),
            1U)
      << log_.dump();
  EXPECT_EQ(course().take().back(), "destroyed");
}

TEST_F(Default_Job_Test, Exception_Of_Any_Type_Is_Caught) {
  const Job_Ptr job(new Plain_Job(definition_));
  behaviour().work = [](Job&, const Action_Options*) -> bool { throw 42; };
  ASSERT_EQ(job->start(nullptr), 0);
  wait_for_threads();
  EXPECT_EQ(job->state(), JOB_STATE_ERROR);
  EXPECT_EQ(log_.claim_containing(" was left by an exception: an exception of unknown type\n", LM_EMERGENCY), 1U);
}

TEST_F(Default_Job_Test, Run_Without_A_Source_Ends_In_Error) {
  definition_->source.reset(nullptr);
  const Job_Ptr job(new Plain_Job(definition_));
  ASSERT_EQ(job->start(nullptr), 0);
  wait_for_threads();
  EXPECT_EQ(job->state(), JOB_STATE_ERROR);
  EXPECT_EQ(course().take(), around({}));
  EXPECT_EQ(log_.claim_containing(", src_ is NULL:\n", LM_EMERGENCY), 1U);
}

TEST_F(Default_Job_Test, Skipped_And_Idle_Runs_Stay_So) {
  const Job_Ptr job(new Plain_Job(definition_));
  behaviour().active = false;
  ASSERT_EQ(job->start(nullptr), 0);
  wait_for_threads();
  EXPECT_EQ(job->state(), JOB_STATE_SKIPPED);
  behaviour().active = true;
  behaviour().condition = false;
  ASSERT_EQ(job->start(nullptr), 0);
  wait_for_threads();
  EXPECT_EQ(job->state(), JOB_STATE_IDLE);
}

TEST_F(Default_Job_Test, Cannot_Be_Stopped_Or_Resumed) {
  Plain_Job job(definition_);
  job.activity().store_state(JOB_STATE_RUNNING);
  EXPECT_EQ(job.stop_i(nullptr), -1);
  EXPECT_EQ(job.resume_i(nullptr), -1);
  EXPECT_EQ(job.handle_exception(), 0);
  EXPECT_EQ(job.state(), JOB_STATE_RUNNING);
}

TEST_F(Default_Job_Test, Abort_Is_Cooperative) {
  std::promise<void> working;
  std::promise<void> go;
  Job_State seen = JOB_STATE_NONE;
  bool marked = false;
  behaviour().work = [&](Job& job, const Action_Options*) {
    working.set_value();
    go.get_future().wait();
    seen = job.state();
    marked = ACE_Thread_Manager::instance()->testcancel(ACE_Thread::self()) != 0;
    return false;
  };
  const Job_Ptr job(new Plain_Job(definition_));
  ASSERT_EQ(job->start(nullptr), 0);
  working.get_future().wait();
  EXPECT_EQ(job->abort(nullptr), 0);
  go.set_value();
  wait_for_threads();
  EXPECT_EQ(seen, JOB_STATE_CANCELING) << "the thread ran on and saw the request";
  EXPECT_TRUE(marked);
  EXPECT_EQ(job->state(), JOB_STATE_CANCELED);
}

TEST_F(Default_Job_Test, Abort_Without_A_Thread_Gives_The_Result_Of_The_State_Change) {
  Plain_Job job(definition_);
  job.activity().store_state(JOB_STATE_RUNNING);
  EXPECT_EQ(job.abort_i(nullptr), 0);
  EXPECT_EQ(job.state(), JOB_STATE_CANCELING);
  job.activity().store_state(JOB_STATE_COMPLETED);
  EXPECT_EQ(job.abort_i(nullptr), -1);
  EXPECT_EQ(log_.claim_containing("Cannot change job"), 1U);
}

TEST_F(Default_Job_Test, Remove_Takes_The_Schedule_Back_Only_When_It_Is_On_Demand) {
  EXPECT_EQ(Plain_Job(definition_).remove_i(false, nullptr), 0);
  EXPECT_EQ(course().take(), around({"remove"})) << "0 whatever remove returned";

  definition_->schedule.reset(new Job_Schedule(JOB_SCHEDULE_NONE));
  EXPECT_EQ(Plain_Job(definition_).remove_i(false, nullptr), 0);
  EXPECT_EQ(course().take(), around({"remove"}));

  definition_->schedule.reset(new Job_Schedule(7));
  EXPECT_EQ(Plain_Job(definition_).remove_i(true, nullptr), 0);
  EXPECT_EQ(course().take(), (Steps{"made", "remove_ondemand", "destroyed", "made", "remove", "destroyed"}))
      << "each with an executor of its own";
}

TEST_F(Default_Job_Test, Update_And_Setup_Make_One_Executor_Each) {
  Plain_Job job(definition_);
  EXPECT_EQ(job.update_i(definition_), 0);
  EXPECT_EQ(course().take(), around({"update"}));
  EXPECT_EQ(job.setup_ondemand_i(), 0);
  EXPECT_EQ(course().take(), around({"setup_ondemand"}));
  behaviour().setup_ondemand = false;
  EXPECT_EQ(job.setup_ondemand_i(), -1);
}

TEST_F(Default_Job_Test, Rollback_Returns_When_It_Has_Begun_And_Keeps_The_Job) {
  std::promise<void> go;
  std::atomic<bool> gone = false;
  behaviour().rollback = [&go](Job&) { go.get_future().wait(); };
  {
    const ACE_Intrusive_Auto_Ptr<Open_Job<Plain_Job>> job(new Open_Job<Plain_Job>(definition_));
    job->gone = &gone;
    EXPECT_EQ(job->rollback_i(), 0);
  }
  EXPECT_FALSE(gone);
  go.set_value();
  wait_for_threads();
  EXPECT_TRUE(gone);
  EXPECT_EQ(course().take(), around({"rollback"}));
}

TEST_F(Default_Job_Test, Rollback_Tells_When_No_Thread_Can_Be_Made) {
  const Job_Ptr job(new Plain_Job(definition_));
  const faults::No_Threads no_threads;
  EXPECT_EQ(job->rollback_i(), -1);
}

TEST_F(Default_Job_Test, Exception_Of_A_Rollback_Is_Caught) {
  const Job_Ptr job(new Plain_Job(definition_));
  behaviour().rollback = [](Job&) { throw std::runtime_error("gone"); };
  EXPECT_EQ(job->rollback_i(), 0);
  wait_for_threads();
  EXPECT_EQ(log_.claim_containing("the rollback of job ", LM_EMERGENCY), 1U);
  behaviour().rollback = [](Job&) { throw 42; };
  EXPECT_EQ(job->rollback_i(), 0);
  wait_for_threads();
  EXPECT_EQ(log_.claim_containing(" was left by an exception: an exception of unknown type\n", LM_EMERGENCY), 1U);
}

TEST_F(Default_Job_Test, Controllable_Job_Only_Records_Requests) {
  struct Row {
    const char* name;
    int (*request)(Job&);
    Job_State state;
  };
  const Row rows[] = {
      {"stop", [](Job& job) { return job.stop_i(nullptr); }, JOB_STATE_CANCELING},
      {"pause", [](Job& job) { return job.pause_i(nullptr); }, JOB_STATE_PAUSING},
      {"resume", [](Job& job) { return job.resume_i(nullptr); }, JOB_STATE_RUNNING},
      {"switch", [](Job& job) { return job.switch_i(nullptr); }, JOB_STATE_SWITCHING},
      {"abort", [](Job& job) { return job.abort_i(); }, JOB_STATE_ABORTING},
      {"abort with options", [](Job& job) { return job.abort_i(nullptr); }, JOB_STATE_CANCELING},
  };
  for (const Row& row : rows) {
    Controllable_Job job(definition_);
    job.activity().store_state(JOB_STATE_RUNNING);
    EXPECT_EQ(row.request(job), 0) << row.name;
    EXPECT_EQ(job.state(), row.state) << row.name;
    job.activity().store_state(JOB_STATE_COMPLETED);
    EXPECT_EQ(row.request(job), -1) << row.name << " passes the result back";
    log_.claim_all();
  }
  EXPECT_TRUE(course().take().empty()) << "no executor is made";
}

TEST_F(Default_Job_Test, Stop_Of_A_Controllable_Job_Ends_It_As_Canceled) {
  std::promise<void> working;
  behaviour().work = [&working](Job& job, const Action_Options*) {
    working.set_value();
    while (job.state() != JOB_STATE_CANCELING) std::this_thread::yield();
    return false;
  };
  const Job_Ptr job(new Controllable_Job(definition_));
  ASSERT_EQ(job->start(nullptr), 0);
  working.get_future().wait();
  EXPECT_EQ(job->stop(nullptr), 0);
  wait_for_threads();
  EXPECT_EQ(job->state(), JOB_STATE_CANCELED);
}

}  // namespace
