#include "job/job_log.h"

#include <gtest/gtest.h>

#include <mutex>
#include <thread>
#include <vector>

#include "job/job.h"
#include "job/job_thread_helper.h"
#include "platform/log.h"
#include "support/log_capture.h"
#include "support/temp_root.h"
#include "support/virtual_clock.h"
#include "test_jobs.h"

namespace {

constexpr const char* act_id = "aaaaaaaa-bbbb-4ccc-8ddd-eeeeeeeeeeee";

class Recording_Sink : public Job_Log_Sink {
 public:
  void write(const Job_Log_Line& line) override {
    const std::lock_guard guard(mutex);
    lines.push_back(line);
    if (logs_itself) D3_INFO("a line from the sink\n");
  }
  std::mutex mutex;
  std::vector<Job_Log_Line> lines;
  bool logs_itself = false;
};

class Job_Log_Test : public testing::Test {
 protected:
  Job_Log_Test() { previous_ = set_job_log_sink(sink_); }
  ~Job_Log_Test() override { set_job_log_sink(previous_); }

  support::Temp_Root root_;
  support::Log_Capture log_;
  support::Virtual_Clock clock_{1'700'000'000};
  std::shared_ptr<Recording_Sink> sink_ = std::make_shared<Recording_Sink>();
  std::shared_ptr<Job_Log_Sink> previous_;
};

TEST_F(Job_Log_Test, Takes_The_Lines_Of_The_Jobs_Thread_Until_The_Run_Is_Complete) {
  Job job(test_jobs::make_definition());
  D3_INFO("before\n");
  job.set_job_thread();
  D3_INFO("within %d\n", 1);
  job.set_job_thread();
  D3_INFO("within %d\n", 2);
  job.complete();
  D3_INFO("after\n");
  ASSERT_EQ(sink_->lines.size(), 2U);
  EXPECT_EQ(sink_->lines[0].text, "within 1");
  EXPECT_EQ(sink_->lines[0].job_act_id, job.job_act_id());
  EXPECT_EQ(sink_->lines[0].priority, LM_INFO);
  EXPECT_EQ(sink_->lines[0].time, 1'700'000'000);
  EXPECT_EQ(sink_->lines[1].text, "within 2");
  EXPECT_TRUE(log_.has("within 1\n")) << "the line stands in the agent's log too";
}

TEST_F(Job_Log_Test, Takes_The_Lines_Of_Worker_Threads) {
  Job job(test_jobs::make_definition());
  {
    Job_Thread_Helper worker(&job, THR_NEW_LWP | THR_JOINABLE | THR_INHERIT_SCHED, ACE_DEFAULT_THREAD_PRIORITY);
    ASSERT_GE(worker.spawn([] { D3_INFO("from the worker\n"); }), 0);
  }
  ASSERT_EQ(sink_->lines.size(), 1U);
  EXPECT_EQ(sink_->lines[0].text, "from the worker");
}

TEST_F(Job_Log_Test, Worker_Without_A_Job_Runs_All_The_Same) {
  bool ran = false;
  {
    Job_Thread_Helper worker(nullptr, THR_NEW_LWP | THR_JOINABLE | THR_INHERIT_SCHED, ACE_DEFAULT_THREAD_PRIORITY);
    ASSERT_GE(worker.spawn([&ran] { ran = true; }), 0);
  }
  EXPECT_TRUE(ran);
}

TEST_F(Job_Log_Test, Keeps_Two_Jobs_Apart) {
  Job first(test_jobs::make_definition());
  Job second(test_jobs::make_definition());
  std::thread([&] {
    first.set_job_thread();
    D3_INFO("one\n");
  }).join();
  std::thread([&] {
    second.set_job_thread();
    D3_INFO("two\n");
  }).join();
  ASSERT_EQ(sink_->lines.size(), 2U);
  EXPECT_EQ(sink_->lines[0].job_act_id, first.job_act_id());
  EXPECT_EQ(sink_->lines[1].job_act_id, second.job_act_id());
}

TEST_F(Job_Log_Test, Keeps_The_Last_Error_As_The_Activitys_Message) {
  Job job(test_jobs::make_definition());
  job.set_job_thread();
  D3_ERROR("Failed to reach the pool\n");
  D3_INFO("ends\n");
  job.complete();
  EXPECT_EQ(job.message(), "Failed to reach the pool");
  EXPECT_TRUE(log_.claim("Failed to reach the pool\n"));
}

TEST_F(Job_Log_Test, Writes_A_File_Beside_The_Activity) {
  Job job(test_jobs::make_definition());
  ASSERT_TRUE(job.open_activity(act_id));
  job.set_job_thread();
  D3_INFO("begins\n");
  D3_WARNING("slow\n");
  D3_ERROR("broke\n");
  D3_TRACE("detail\n");
  job.complete();
  EXPECT_EQ(root_.read(job_log_path(act_id)),
            "2023-11-14 22:13:20 INFO begins\n2023-11-14 22:13:20 WARNING slow\n2023-11-14 22:13:20 ERROR broke\n");
  EXPECT_TRUE(log_.claim("broke\n"));
  EXPECT_TRUE(remove_job_activity(act_id));
  EXPECT_FALSE(root_.exists(job_log_path(act_id)));
}

TEST_F(Job_Log_Test, Does_Not_Call_A_Sink_For_What_The_Sink_Logs) {
  sink_->logs_itself = true;
  Job job(test_jobs::make_definition());
  job.set_job_thread();
  D3_INFO("once\n");
  job.complete();
  EXPECT_EQ(sink_->lines.size(), 1U);
  EXPECT_TRUE(log_.has("a line from the sink\n"));
}

TEST_F(Job_Log_Test, Callback_Outlives_Its_Job) {
  ACE_Log_Msg_Callback_var callback;
  {
    Job job(test_jobs::make_definition());
    callback = job.log_msg_callback();
  }
  const Scoped_Log_Callback scope(callback);
  D3_INFO("late\n");
  ASSERT_EQ(sink_->lines.size(), 1U);
  EXPECT_EQ(sink_->lines[0].text, "late");
}

TEST_F(Job_Log_Test, Loses_No_Line_Of_Several_Threads) {
  constexpr int threads = 4;
  constexpr int lines = 200;
  Job job(test_jobs::make_definition());
  ASSERT_TRUE(job.open_activity(act_id));
  std::vector<std::thread> workers;
  for (int worker = 0; worker < threads; ++worker)
    workers.emplace_back([&job] {
      const Scoped_Log_Callback scope(job.log_msg_callback());
      for (int line = 0; line < lines; ++line) D3_INFO("line %d\n", line);
    });
  for (std::thread& worker : workers) worker.join();
  EXPECT_EQ(sink_->lines.size(), static_cast<std::size_t>(threads * lines));
  const std::string file = root_.read(job_log_path(act_id));
  EXPECT_EQ(std::count(file.begin(), file.end(), '\n'), threads * lines);
}

TEST_F(Job_Log_Test, Scope_Puts_Back_What_It_Found) {
  Job outer(test_jobs::make_definition());
  Job inner(test_jobs::make_definition());
  const Scoped_Log_Callback outer_scope(outer.log_msg_callback());
  {
    const Scoped_Log_Callback inner_scope(inner.log_msg_callback());
    D3_INFO("inner\n");
  }
  {
    const Scoped_Log_Callback none(nullptr);
    D3_INFO("outer\n");
  }
  ASSERT_EQ(sink_->lines.size(), 2U);
  EXPECT_EQ(sink_->lines[0].job_act_id, inner.job_act_id());
  EXPECT_EQ(sink_->lines[1].job_act_id, outer.job_act_id());
}

}  // namespace
