// The stop request of a data backup. What the stop itself does is shown in backup_executor_stop_test.cpp; here the
// definitions have no source, so that every stop ends at once with its alert.

#include "hana/job/hana_backup_job.h"

#include <ace/Thread_Manager.h>
#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <set>

#include "job/job_alert.h"
#include "platform/clock.h"
#include "support/log_capture.h"
#include "unit/job/faults.h"

namespace {

/// Only a broken stop takes that long.
constexpr std::chrono::seconds real_limit{20};

/// Counts the stops that failed, and holds them up if told to.
class Stop_Alerts : public Alert_Sink {
 public:
  void raise(const Job_Alert& alert) override {
    {
      const std::lock_guard guard(mutex_);
      codes_.push_back(alert.code);
      threads_.insert(ACE_Thread::self());
    }
    if (codes().size() >= wanted_) came.set();
    if (!hold) return;
    EXPECT_TRUE(go_on.wait_real(real_limit));
    canceled = ACE_Thread_Manager::instance()->testcancel(ACE_Thread::self()) != 0;
  }
  [[nodiscard]] std::vector<unsigned long> codes() const {
    const std::lock_guard guard(mutex_);
    return codes_;
  }
  [[nodiscard]] std::set<ACE_thread_t> threads() const {
    const std::lock_guard guard(mutex_);
    return threads_;
  }
  void want(std::size_t alerts) { wanted_ = alerts; }

  bool hold = false;
  std::atomic<bool> canceled{false};  ///< of a stop that was held up, once it goes on
  platform::Wait_Event came;
  platform::Wait_Event go_on;

 private:
  std::size_t wanted_ = 1;
  mutable std::mutex mutex_;
  std::vector<unsigned long> codes_;
  std::set<ACE_thread_t> threads_;
};

class Running_Backup : public HANA_Backup_Job {
 public:
  explicit Running_Backup(const Job_Definition_Ptr& definition, bool* gone = nullptr)
      : HANA_Backup_Job(definition), gone_(gone) {
    activity().store_state(JOB_STATE_RUNNING);
  }
  ~Running_Backup() override {
    if (gone_ != nullptr) *gone_ = true;
  }
  [[nodiscard]] ACE_thread_t last_thread() const { return thr_id_.load(); }
  void last_thread(ACE_thread_t id) { thr_id_.store(id); }
  using HANA_Backup_Job::stop_backup;

 private:
  bool* gone_;
};

class Stop_Of_A_Data_Backup : public testing::Test {
 protected:
  Stop_Of_A_Data_Backup() : alerts_(std::make_shared<Stop_Alerts>()) {
    definition_ = Job_Definition_Ptr(new Job_Definition);
    definition_->type(JOB_DEFINITION_BACKUP);
    definition_->subtype(JOB_DEFINITION_SUBTYPE_FULL);
    definition_->id("job-id");
    set_alert_sink(alerts_);
  }
  ~Stop_Of_A_Data_Backup() override {
    alerts_->go_on.set();
    ACE_Thread_Manager::instance()->wait();
    set_alert_sink(nullptr);
  }
  void claim_failed_stops(std::size_t count) {
    EXPECT_EQ(log_.claim_containing("src_ is NULL", LM_EMERGENCY), count);
    EXPECT_EQ(log_.claim_containing("Failed to stop HANA backup job\n"), count);
  }

  support::Log_Capture log_;
  std::shared_ptr<Stop_Alerts> alerts_;
  Job_Definition_Ptr definition_;
};

TEST_F(Stop_Of_A_Data_Backup, Runs_On_A_Thread_Of_Its_Own_And_Changes_No_State) {
  auto* const job = new Running_Backup(definition_);
  const Job_Ptr holder(job);
  alerts_->hold = true;
  EXPECT_EQ(job->stop(nullptr), 0);
  ASSERT_TRUE(alerts_->came.wait_real(real_limit));
  EXPECT_EQ(job->state(), JOB_STATE_RUNNING);
  EXPECT_NE(job->last_thread(), 0U);
  EXPECT_NE(job->last_thread(), ACE_Thread::self());
  alerts_->go_on.set();
  ACE_Thread_Manager::instance()->wait();
  EXPECT_EQ(alerts_->codes(), std::vector<unsigned long>{sap_hana::ALERT_STOP_BACKUP});
  EXPECT_EQ(job->state(), JOB_STATE_RUNNING);
  claim_failed_stops(1);
}

TEST_F(Stop_Of_A_Data_Backup, Asked_For_Twice_Runs_Twice) {
  const Job_Ptr job(new Running_Backup(definition_));
  constexpr std::size_t stops = 2;
  alerts_->hold = true;
  alerts_->want(stops);
  EXPECT_EQ(job->stop(nullptr), 0);
  EXPECT_EQ(job->stop(nullptr), 0);
  ASSERT_TRUE(alerts_->came.wait_real(real_limit)) << "both at once";
  EXPECT_EQ(alerts_->threads().size(), stops);
  alerts_->go_on.set();
  ACE_Thread_Manager::instance()->wait();
  claim_failed_stops(stops);
}

TEST_F(Stop_Of_A_Data_Backup, Is_What_An_Abort_Afterwards_Reaches) {
  auto* const job = new Running_Backup(definition_);
  const Job_Ptr holder(job);
  job->last_thread(ACE_Thread::self());
  alerts_->hold = true;
  EXPECT_EQ(job->stop(nullptr), 0);
  ASSERT_TRUE(alerts_->came.wait_real(real_limit));
  EXPECT_EQ(std::set<ACE_thread_t>{job->last_thread()}, alerts_->threads()) << "the backup's thread is forgotten";
  EXPECT_EQ(job->abort(nullptr), 0);
  EXPECT_EQ(job->state(), JOB_STATE_CANCELING);
  alerts_->go_on.set();
  ACE_Thread_Manager::instance()->wait();
  EXPECT_TRUE(alerts_->canceled);
  claim_failed_stops(1);
}

TEST_F(Stop_Of_A_Data_Backup, Without_An_Argument_Does_Nothing) {
  EXPECT_EQ(Running_Backup::stop_backup(nullptr), nullptr);
  EXPECT_TRUE(alerts_->codes().empty());
  EXPECT_TRUE(log_.lines().empty());
}

TEST_F(Stop_Of_A_Data_Backup, Keeps_The_Job_Until_It_Has_Ended) {
  bool gone = false;
  {
    const Job_Ptr job(new Running_Backup(definition_, &gone));
    alerts_->hold = true;
    EXPECT_EQ(job->stop(nullptr), 0);
    ASSERT_TRUE(alerts_->came.wait_real(real_limit));
  }
  EXPECT_FALSE(gone) << "removed while its stop still works on it";
  alerts_->go_on.set();
  ACE_Thread_Manager::instance()->wait();
  EXPECT_TRUE(gone);
  claim_failed_stops(1);
}

TEST_F(Stop_Of_A_Data_Backup, Writes_Into_The_Log_Of_The_Run) {
  const Job_Ptr job(new Running_Backup(definition_));
  EXPECT_EQ(job->stop(nullptr), 0);
  ACE_Thread_Manager::instance()->wait();
  EXPECT_EQ(job->snapshot().message, "Failed to stop HANA backup job");
  claim_failed_stops(1);
}

TEST_F(Stop_Of_A_Data_Backup, Is_Refused_Without_Memory) {
  auto* const job = new Running_Backup(definition_);
  const Job_Ptr holder(job);
  {
    const faults::No_Memory no_memory;
    EXPECT_EQ(job->stop_i(nullptr), -1);
  }
  EXPECT_EQ(log_.claim_containing("opt is NULL:\n", LM_EMERGENCY), 1U);
  EXPECT_EQ(job->last_thread(), 0U);
  EXPECT_TRUE(alerts_->codes().empty());
}

TEST_F(Stop_Of_A_Data_Backup, Is_Refused_Without_A_Thread_And_The_Backup_Goes_On) {
  auto* const job = new Running_Backup(definition_);
  const Job_Ptr holder(job);
  const ACE_thread_t backup_thread = ACE_Thread::self();
  job->last_thread(backup_thread);
  {
    const faults::No_Threads no_threads;
    EXPECT_EQ(job->stop_i(nullptr), -1);
  }
  EXPECT_EQ(log_.claim_containing("Failed to spawn a thread for job "), 1U) << "why the stop was refused";
  EXPECT_EQ(job->last_thread(), backup_thread);
  EXPECT_EQ(job->state(), JOB_STATE_RUNNING);
  EXPECT_TRUE(alerts_->codes().empty());
}

TEST_F(Stop_Of_A_Data_Backup, That_Does_Not_Run_Is_Refused) {
  const Job_Ptr job(new HANA_Backup_Job(definition_));
  EXPECT_EQ(job->stop(nullptr), -1);
  EXPECT_EQ(log_.claim_containing("Cannot stop job job-id"), 1U);
  EXPECT_TRUE(alerts_->codes().empty());
}

}  // namespace
