#include "job/job.h"

#include <gtest/gtest.h>

#include <ace/Time_Value.h>

#include "job/activity_listener.h"
#include "support/log_capture.h"
#include "support/temp_root.h"
#include "support/vtable_slots.h"
#include "test_jobs.h"

namespace {

using support::slot_of;

constexpr const char* act_id = "aaaaaaaa-bbbb-4ccc-8ddd-eeeeeeeeeeee";

/// Writes down which operations the requests reach.
class Recording_Job : public Job {
 public:
  using Job::Job;
  int start_i(const Action_Options* options) override {
    calls.push_back(options == nullptr ? "start" : "start with options");
    if (no_memory) throw std::bad_alloc();
    return result;
  }
  int stop_i(const Action_Options*) override { return note("stop"); }
  int enable_i(const Action_Options*) override { return note("enable"); }
  int disable_i(const Action_Options*) override { return note("disable"); }
  int pause_i(const Action_Options*) override { return note("pause"); }
  int resume_i(const Action_Options*) override { return note("resume"); }
  int abort_i(const Action_Options*) override { return note("abort with options"); }
  int switch_i(const Action_Options*) override { return note("switch"); }
  int remove_i(bool force, const Action_Options*) override { return note(force ? "remove by force" : "remove"); }
  int update_i(Job_Definition_Ptr) override { return note("update"); }
  int rollback_i() override { return note("rollback"); }
  int setup_ondemand_i() override { return note("setup_ondemand"); }
  int abort_i() override { return note("abort"); }

  std::vector<std::string> calls;
  int result = 0;
  bool no_memory = false;

 private:
  int note(const char* call) {
    calls.emplace_back(call);
    return result;
  }
};

using Calls = std::vector<std::string>;

class Job_Test : public testing::Test {
 protected:
  void put_in(Job_State state) { job_.activity().store_state(state); }
  void expect_refused(const char* request) {
    EXPECT_EQ(log_.claim_containing(std::string("Cannot ") + request + " job " + test_jobs::definition_uuid +
                                    ", its state is "),
              1U)
        << request << log_.dump();
    EXPECT_TRUE(job_.calls.empty()) << request;
  }

  support::Temp_Root root_;
  support::Log_Capture log_;
  Recording_Job job_{test_jobs::make_definition()};
};

TEST_F(Job_Test, Has_Its_Operations_In_The_Fixed_Slots) {
  using Event = ACE_Event_Handler;
  const std::ptrdiff_t events[] = {
      slot_of(&Job::get_handle),
      slot_of(&Job::set_handle),
      slot_of(static_cast<int (Event::*)() const>(&Job::priority)),
      slot_of(static_cast<void (Event::*)(int)>(&Job::priority)),
      slot_of(&Job::handle_input),
      slot_of(&Job::handle_output),
      slot_of(&Job::handle_exception),
      slot_of(&Job::handle_timeout),
      slot_of(&Job::handle_exit),
      slot_of(&Job::handle_close),
      slot_of(&Job::handle_signal),
      slot_of(&Job::resume_handler),
      slot_of(&Job::handle_qos),
      slot_of(&Job::handle_group_qos),
      slot_of(static_cast<void (Event::*)(ACE_Reactor*)>(&Job::reactor)),
      slot_of(static_cast<ACE_Reactor* (Event::*)() const>(&Job::reactor)),
      slot_of(&Job::reactor_timer_interface),
      slot_of(&Job::add_reference),
      slot_of(&Job::remove_reference),
      slot_of(&Job::setup_ondemand_by_job),
      slot_of(&Job::start_i),
      slot_of(&Job::stop_i),
      slot_of(&Job::enable_i),
      slot_of(&Job::disable_i),
      slot_of(&Job::pause_i),
      slot_of(&Job::resume_i),
      slot_of(static_cast<int (Job::*)(const Action_Options*)>(&Job::abort_i)),
      slot_of(&Job::switch_i),
      slot_of(&Job::remove_i),
      slot_of(&Job::update_i),
      slot_of(&Job::rollback_i),
      slot_of(&Job::can_update_i),
      slot_of(&Job::setup_ondemand_i),
      slot_of(&Job::run_i),
      slot_of(static_cast<int (Job::*)()>(&Job::abort_i)),
  };
  std::ptrdiff_t wanted = 2;  // behind the two entries of the destructor
  for (const std::ptrdiff_t slot : events) EXPECT_EQ(slot, wanted++);
}

TEST_F(Job_Test, Begins_With_An_Activity_Of_Its_Own) {
  const Job_Activity_Snapshot activity = job_.snapshot();
  EXPECT_EQ(activity.id, job_.job_act_id());
  EXPECT_NE(activity.id, Recording_Job(test_jobs::make_definition()).job_act_id());
  EXPECT_EQ(activity.def_id, test_jobs::definition_uuid);
  EXPECT_EQ(activity.type, JOB_DEFINITION_BACKUP);
  EXPECT_TRUE(activity.enabled);
  EXPECT_EQ(activity.state, JOB_STATE_NONE);
  EXPECT_EQ(activity.message, "");
}

TEST_F(Job_Test, Stands_Without_A_Definition) {
  const Recording_Job job{Job_Definition_Ptr()};
  EXPECT_EQ(job.definition()->type(), JOB_DEFINITION_NONE);
}

TEST_F(Job_Test, Puts_Its_Activity_On_Disk_Under_The_Id_Given) {
  const Job_Activity* const before = &job_.activity();
  ASSERT_TRUE(job_.open_activity(act_id));
  EXPECT_EQ(job_.job_act_id(), act_id);
  EXPECT_EQ(before, &job_.activity());
  job_.state(JOB_STATE_RUNNING);
  std::vector<Job_Activity_Snapshot> listed;
  ASSERT_TRUE(list_job_activities(listed));
  ASSERT_EQ(listed.size(), 1U);
  EXPECT_EQ(listed.front().id, act_id);
  EXPECT_EQ(listed.front().state, JOB_STATE_RUNNING);
}

TEST_F(Job_Test, Refuses_An_Activity_Id_That_Is_No_Uuid) {
  EXPECT_FALSE(job_.open_activity("../x"));
  EXPECT_TRUE(log_.claim("Failed to make a job activity, '../x' is not a uuid\n"));
}

TEST_F(Job_Test, Starts_From_Every_State_In_Which_No_Run_Is_Active) {
  for (const Job_State state : {JOB_STATE_NONE, JOB_STATE_IDLE, JOB_STATE_CREATED, JOB_STATE_UPDATED,
                                JOB_STATE_COMPLETED, JOB_STATE_CANCELED, JOB_STATE_ERROR, JOB_STATE_SKIPPED}) {
    put_in(state);
    EXPECT_EQ(job_.start(nullptr), 0) << job_state_to_string(state);
    EXPECT_EQ(job_.state(), JOB_STATE_STARTING);
    job_.complete();
  }
  EXPECT_EQ(job_.calls, Calls(8, "start"));
}

TEST_F(Job_Test, Hands_The_Options_Of_A_Start_On) {
  const Action_Options options{{"force", true}};
  EXPECT_EQ(job_.start(&options), 0);
  EXPECT_EQ(job_.calls, Calls{"start with options"});
}

TEST_F(Job_Test, Does_Not_Start_Twice) {
  for (const Job_State state : {JOB_STATE_STARTING, JOB_STATE_RUNNING, JOB_STATE_PAUSED, JOB_STATE_CANCELING}) {
    put_in(state);
    EXPECT_EQ(job_.start(nullptr), -1);
    EXPECT_EQ(job_.state(), state);
    expect_refused("start");
  }
}

TEST_F(Job_Test, Waits_For_The_End_Of_A_Run_And_Not_For_Its_State) {
  ASSERT_EQ(job_.start(nullptr), 0);
  put_in(JOB_STATE_COMPLETED);  // reported, while the executor is still there
  job_.calls.clear();
  EXPECT_EQ(job_.start(nullptr), -1);
  expect_refused("start");
  EXPECT_EQ(job_.update(test_jobs::make_definition()), -1);
  expect_refused("update");
  EXPECT_FALSE(job_.completed().is_set());

  job_.complete();
  EXPECT_EQ(job_.state(), JOB_STATE_COMPLETED) << "the end of the one run does not touch the state of the next";
  EXPECT_TRUE(job_.completed().is_set());
  EXPECT_EQ(job_.update(test_jobs::make_definition()), 0);
  EXPECT_EQ(job_.start(nullptr), 0);
  EXPECT_FALSE(job_.completed().is_set());
}

TEST_F(Job_Test, Does_Not_Start_While_Disabled) {
  EXPECT_EQ(job_.disable(nullptr), 0);
  EXPECT_EQ(job_.calls, Calls{"disable"});
  job_.calls.clear();
  EXPECT_EQ(job_.start(nullptr), -1);
  expect_refused("start");
  EXPECT_EQ(job_.enable(nullptr), 0);
  EXPECT_EQ(job_.start(nullptr), 0);
  EXPECT_EQ(job_.calls, (Calls{"enable", "start"}));
}

TEST_F(Job_Test, Ends_In_Error_When_Memory_Runs_Out_At_Its_Start) {
  job_.no_memory = true;
  EXPECT_EQ(job_.start(nullptr), -1);
  EXPECT_TRUE(log_.claim(std::string("Failed to start job ") + test_jobs::definition_uuid + ": std::bad_alloc\n"));
  EXPECT_EQ(job_.state(), JOB_STATE_ERROR);
  EXPECT_EQ(job_.activity().code, -1);
  job_.no_memory = false;
  EXPECT_EQ(job_.start(nullptr), 0) << "nothing is left of the start that failed";
}

TEST_F(Job_Test, A_Run_Begins_Without_The_Results_Of_The_Run_Before) {
  job_.message("the pool is full");
  job_.activity().code = 8;
  job_.activity().progress = 40;
  job_.activity().size = 1000;
  ASSERT_EQ(job_.start(nullptr), 0);
  EXPECT_EQ(job_.message(), "");
  EXPECT_EQ(job_.activity().code, 0);
  EXPECT_EQ(job_.activity().progress, 0);
  EXPECT_EQ(job_.activity().size, 0U);
}

TEST_F(Job_Test, A_Run_That_Ends_Without_An_Outcome_Has_Failed) {
  ASSERT_EQ(job_.start(nullptr), 0);
  job_.activity().progress = 100;
  job_.complete();
  EXPECT_EQ(job_.state(), JOB_STATE_ERROR);
  EXPECT_EQ(job_.activity().code, -1);
  EXPECT_EQ(job_.activity().progress, 99);
}

TEST_F(Job_Test, Ends_In_Error_When_It_Cannot_Be_Started) {
  job_.result = -1;
  EXPECT_EQ(job_.start(nullptr), -1);
  EXPECT_TRUE(log_.claim(std::string("Failed to start job ") + test_jobs::definition_uuid + "\n"));
  EXPECT_EQ(job_.state(), JOB_STATE_ERROR);
  EXPECT_EQ(job_.activity().code, -1);
  EXPECT_EQ(job_.message(), "the job could not be started");
  EXPECT_TRUE(job_.completed().is_set());
  job_.result = 0;
  EXPECT_EQ(job_.start(nullptr), 0) << "and can be started again";
  EXPECT_FALSE(job_.completed().is_set());
}

TEST_F(Job_Test, Timer_Starts_The_Job_And_Stays) {
  EXPECT_EQ(job_.handle_timeout(ACE_Time_Value::zero), 0);
  EXPECT_EQ(job_.calls, Calls{"start"});
  EXPECT_EQ(job_.handle_timeout(ACE_Time_Value::zero), 0);
  job_.calls.clear();
  expect_refused("start");
}

TEST_F(Job_Test, Requests_On_A_Run_Need_An_Active_Run) {
  struct Row {
    const char* name;
    const char* call;
    int (*request)(Job&);
  };
  const Row rows[] = {
      {"stop", "stop", [](Job& job) { return job.stop(nullptr); }},
      {"pause", "pause", [](Job& job) { return job.pause(nullptr); }},
      {"switch", "switch", [](Job& job) { return job.switch_over(nullptr); }},
      {"abort", "abort with options", [](Job& job) { return job.abort(nullptr); }},
      {"abort", "abort", [](Job& job) { return job.abort(); }},
  };
  for (const Row& row : rows) {
    for (const Job_State state : {JOB_STATE_NONE, JOB_STATE_IDLE, JOB_STATE_COMPLETED, JOB_STATE_ERROR}) {
      put_in(state);
      EXPECT_EQ(row.request(job_), -1) << row.call;
      expect_refused(row.name);
    }
    put_in(JOB_STATE_RUNNING);
    EXPECT_EQ(row.request(job_), 0) << row.call;
    EXPECT_EQ(job_.calls, Calls{row.call});
    job_.calls.clear();
    job_.result = -1;
    EXPECT_EQ(row.request(job_), -1) << "the result of " << row.call << " is passed back";
    job_.calls.clear();
    job_.result = 0;
  }
}

TEST_F(Job_Test, Resumes_Only_What_Is_Paused) {
  for (const Job_State state : {JOB_STATE_RUNNING, JOB_STATE_CANCELING, JOB_STATE_COMPLETED}) {
    put_in(state);
    EXPECT_EQ(job_.resume(nullptr), -1);
    expect_refused("resume");
  }
  for (const Job_State state : {JOB_STATE_PAUSING, JOB_STATE_PAUSED, JOB_STATE_SWITCHING}) {
    put_in(state);
    EXPECT_EQ(job_.resume(nullptr), 0);
  }
  EXPECT_EQ(job_.calls, Calls(3, "resume"));
}

TEST_F(Job_Test, Removes_A_Running_Job_By_Force_Only) {
  put_in(JOB_STATE_RUNNING);
  EXPECT_EQ(job_.remove(false, nullptr), -1);
  expect_refused("remove");
  EXPECT_EQ(job_.remove(true, nullptr), 0);
  put_in(JOB_STATE_COMPLETED);
  EXPECT_EQ(job_.remove(false, nullptr), 0);
  EXPECT_EQ(job_.calls, (Calls{"remove by force", "remove"}));
}

TEST_F(Job_Test, Rolls_Back_Only_Without_A_Run) {
  put_in(JOB_STATE_RUNNING);
  EXPECT_EQ(job_.rollback(), -1);
  expect_refused("roll back");
  put_in(JOB_STATE_ERROR);
  EXPECT_EQ(job_.rollback(), 0);
  EXPECT_EQ(job_.calls, Calls{"rollback"});
}

TEST_F(Job_Test, Update_Never_Replaces_The_Definition_Under_A_Run) {
  const Job_Definition_Ptr changed = test_jobs::make_definition();
  changed->name("changed");
  put_in(JOB_STATE_RUNNING);
  EXPECT_EQ(job_.update(changed), -1);
  expect_refused("update");
  EXPECT_EQ(job_.definition()->name(), "nightly");

  put_in(JOB_STATE_COMPLETED);
  const Job_Definition& former = *job_.definition();
  EXPECT_EQ(job_.update(changed), 0);
  EXPECT_EQ(job_.definition()->name(), "changed");
  EXPECT_EQ(former.name(), "nightly") << "an executor may still refer to it";
}

TEST_F(Job_Test, Update_That_Fails_Keeps_The_Definition) {
  job_.result = -1;
  const Job_Definition_Ptr changed = test_jobs::make_definition();
  changed->name("changed");
  EXPECT_EQ(job_.update(changed), -1);
  EXPECT_EQ(job_.definition()->name(), "nightly");
  EXPECT_EQ(job_.update(Job_Definition_Ptr()), -1);
  EXPECT_EQ(log_.claim_containing("Cannot update without a definition"), 1U);
}

TEST_F(Job_Test, Sets_The_Schedule_Up_Only_For_The_On_Demand_Type) {
  EXPECT_EQ(job_.setup_ondemand(), 0);
  EXPECT_TRUE(job_.calls.empty());
  const Job_Definition_Ptr definition = test_jobs::make_definition();
  definition->schedule.reset(new Job_Schedule(JOB_SCHEDULE_ONDEMAND));
  Recording_Job ondemand(definition);
  EXPECT_EQ(ondemand.setup_ondemand(), 0);
  ondemand.result = -1;
  EXPECT_EQ(ondemand.setup_ondemand(), -1);
  EXPECT_EQ(ondemand.calls, (Calls{"setup_ondemand", "setup_ondemand"}));
}

TEST_F(Job_Test, State_Of_A_Request_Does_Not_Bring_A_Finished_Job_Back) {
  for (const Job_State state :
       {JOB_STATE_COMPLETED, JOB_STATE_CANCELED, JOB_STATE_ERROR, JOB_STATE_SKIPPED, JOB_STATE_IDLE}) {
    put_in(state);
    EXPECT_EQ(job_.state_i(JOB_STATE_CANCELING), -1);
    EXPECT_EQ(job_.state(), state);
    expect_refused("change");
  }
  for (const Job_State state : {JOB_STATE_NONE, JOB_STATE_STARTING, JOB_STATE_RUNNING, JOB_STATE_COMPLETING}) {
    put_in(state);
    EXPECT_EQ(job_.state_i(JOB_STATE_CANCELING), 0);
    EXPECT_EQ(job_.state(), JOB_STATE_CANCELING);
  }
}

TEST_F(Job_Test, Completing_Ends_Every_Unfinished_State) {
  struct Row {
    Job_State before;
    Job_State after;
  };
  const Row rows[] = {{JOB_STATE_CANCELING, JOB_STATE_CANCELED},
                      {JOB_STATE_RUNNING, JOB_STATE_ERROR},
                      {JOB_STATE_STARTING, JOB_STATE_ERROR},
                      {JOB_STATE_COMPLETING, JOB_STATE_ERROR},
                      {JOB_STATE_PAUSING, JOB_STATE_ERROR},
                      {JOB_STATE_ABORTING, JOB_STATE_ERROR},
                      {JOB_STATE_SWITCHING, JOB_STATE_ERROR},
                      {JOB_STATE_NONE, JOB_STATE_ERROR},
                      {JOB_STATE_COMPLETED, JOB_STATE_COMPLETED},
                      {JOB_STATE_CANCELED, JOB_STATE_CANCELED},
                      {JOB_STATE_ERROR, JOB_STATE_ERROR},
                      {JOB_STATE_SKIPPED, JOB_STATE_SKIPPED},
                      {JOB_STATE_IDLE, JOB_STATE_IDLE}};
  for (const Row& row : rows) {
    put_in(row.before);
    job_.complete();
    EXPECT_EQ(job_.state(), row.after) << job_state_to_string(row.before);
    EXPECT_TRUE(job_.completed().is_set());
  }
}

TEST_F(Job_Test, Defaults_Support_Nothing_That_Needs_An_Executor) {
  Job job(test_jobs::make_definition());
  EXPECT_EQ(job.start_i(nullptr), -1);
  EXPECT_EQ(job.stop_i(nullptr), -1);
  EXPECT_EQ(job.pause_i(nullptr), -1);
  EXPECT_EQ(job.resume_i(nullptr), -1);
  EXPECT_EQ(job.abort_i(nullptr), -1);
  EXPECT_EQ(job.abort_i(), -1);
  EXPECT_EQ(job.switch_i(nullptr), -1);
  EXPECT_EQ(job.rollback_i(), -1);
  EXPECT_EQ(job.run_i(nullptr), -1);
  EXPECT_EQ(job.enable_i(nullptr), 0);
  EXPECT_EQ(job.disable_i(nullptr), 0);
  EXPECT_EQ(job.remove_i(false, nullptr), 0);
  EXPECT_EQ(job.update_i(test_jobs::make_definition()), 0);
  EXPECT_EQ(job.setup_ondemand_by_job(), 0);
}

TEST_F(Job_Test, Is_Counted_By_Its_Pointers) {
  struct Watched : Job {
    explicit Watched(bool& gone) : Job(test_jobs::make_definition()), gone_(gone) {}
    ~Watched() override { gone_ = true; }
    bool& gone_;
  };
  bool gone = false;
  {
    const Job_Ptr first(new Watched(gone));
    Job_Ptr second(first);
    second.reset();
    EXPECT_FALSE(gone);
  }
  EXPECT_TRUE(gone);
  Job::intrusive_add_ref(nullptr);
  Job::intrusive_remove_ref(nullptr);
}

TEST_F(Job_Test, Publishes_What_It_Sets) {
  class Listener : public Activity_Listener {
   public:
    void activity_changed(const Job_Activity_Snapshot& activity) override { states.push_back(activity.state); }
    std::vector<Job_State> states;
  };
  const auto listener = std::make_shared<Listener>();
  set_activity_listener(listener);
  job_.state(JOB_STATE_RUNNING);
  EXPECT_EQ(job_.state_i(JOB_STATE_CANCELING), 0);
  job_.complete();
  set_activity_listener(nullptr);
  job_.state(JOB_STATE_IDLE);
  EXPECT_EQ(listener->states, (std::vector<Job_State>{JOB_STATE_RUNNING, JOB_STATE_CANCELING, JOB_STATE_CANCELED}));
}

}  // namespace
