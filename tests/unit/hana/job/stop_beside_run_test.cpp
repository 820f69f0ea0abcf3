// A stop beside the run that it stops: job, run and stop on their own threads, as the agent has them.

#include <ace/Thread_Manager.h>

#include <atomic>
#include <string>
#include <vector>

#include "hana/job/hana_backup_job.h"
#include "platform/clock.h"
#include "unit/hana/job/executor_fixture.h"
#include "unit/hana/job/small_hana.h"

namespace {

using Strings = std::vector<std::string>;

/// Only a broken test waits that long.
constexpr std::chrono::seconds real_limit{20};
constexpr const char* stop_alert = R"(7/20 0 1 {"database":"TN1"})";
constexpr ACE_UINT64 backup_id = 1700;

class Stop_Beside_The_Run : public backup_test::Executor_Test {
 protected:
  Stop_Beside_The_Run() {
    runner_.clear_rules();
    hana_ = std::make_unique<backup_test::Small_Hana>(runner_);
    set_entries({"hana/HDB00/TN1"});
    let_backint_store(backup_id);
    backupd_.pools = {json_spirit::Object{{"uuid", backup_test::pool_uuid}, {"name", "main"}, {"url", "file:///pool"}}};
    root_.write(stored, "data");
    job_ = Job_Ptr(new HANA_Backup_Job(definition_));
  }
  ~Stop_Beside_The_Run() override {
    hana_->end_backup("failed");
    ACE_Thread_Manager::instance()->wait();
    log_.claim_all();
  }

  void start() {
    ASSERT_EQ(job_->start(nullptr), 0);
    hana_->wait_for_backup();
  }
  void wait_for_the_run() { ASSERT_TRUE(job_->completed().wait_real(real_limit)) << "the run does not end"; }
  static void wait_for_all_threads() { ACE_Thread_Manager::instance()->wait(); }

  static inline const std::string stored =
      std::string("/pool/") + backup_test::host_uuid + "/" + backup_test::landscape_id + "/TN1/1700/databackup_0_1";
  std::unique_ptr<backup_test::Small_Hana> hana_;
  Job_Ptr job_;
};

TEST_F(Stop_Beside_The_Run, Ends_The_Run_As_Canceled_And_The_Next_One_Succeeds) {
  start();
  EXPECT_EQ(job_->stop(nullptr), 0);
  wait_for_the_run();
  wait_for_all_threads();
  EXPECT_EQ(job_->state(), JOB_STATE_CANCELED);
  EXPECT_FALSE(root_.exists(stored));
  EXPECT_TRUE(backupd_.committed.empty());
  EXPECT_EQ(alerts(), Strings{"7/8 0 1 {}"}) << "a cancelled statement is one that failed";
  EXPECT_EQ(hana_->cancels(), 1U);

  start();
  hana_->end_backup("successful");
  wait_for_the_run();
  EXPECT_EQ(job_->state(), JOB_STATE_COMPLETED);
  EXPECT_EQ(backupd_.committed.size(), 1U);
}

TEST_F(Stop_Beside_The_Run, Before_HANA_Lists_The_Backup_Raises_Alert_20_And_The_Run_Goes_On) {
  hana_->list_at_once(false);
  start();
  EXPECT_EQ(job_->stop(nullptr), 0);
  while (alerts().empty() && !job_->completed().is_set()) ACE_Thread::yield();
  EXPECT_EQ(alerts(), Strings{stop_alert});
  EXPECT_EQ(job_->state(), JOB_STATE_RUNNING);
  hana_->list_backup();
  hana_->end_backup("successful");
  wait_for_the_run();
  EXPECT_EQ(job_->state(), JOB_STATE_COMPLETED);
  EXPECT_TRUE(root_.exists(stored));
}

TEST_F(Stop_Beside_The_Run, Twice_At_Once_Cancels_And_Cleans_Up) {
  start();
  EXPECT_EQ(job_->stop(nullptr), 0);
  EXPECT_EQ(job_->stop(nullptr), 0);
  wait_for_the_run();
  wait_for_all_threads();
  EXPECT_EQ(job_->state(), JOB_STATE_CANCELED);
  EXPECT_FALSE(root_.exists(stored));
  EXPECT_GE(hana_->cancels(), 1U);
  EXPECT_LE(hana_->cancels(), 2U);
}

TEST_F(Stop_Beside_The_Run, While_The_Set_Is_Being_Saved_Raises_Alert_20_And_The_Set_Stays) {
  platform::Wait_Event saving;
  platform::Wait_Event go_on;
  backupd_.intercept = [&](const std::string& method, const std::string& target) -> std::optional<net::Http_Response> {
    if (method != "POST" || !target.ends_with("/sets")) return std::nullopt;
    saving.set();
    EXPECT_TRUE(go_on.wait_real(real_limit));
    return std::nullopt;
  };
  start();
  hana_->end_backup("successful");
  ASSERT_TRUE(saving.wait_real(real_limit));
  EXPECT_EQ(job_->stop(nullptr), 0);
  while (alerts().empty() && !job_->completed().is_set()) ACE_Thread::yield();
  EXPECT_EQ(alerts(), Strings{stop_alert});
  go_on.set();
  wait_for_the_run();
  EXPECT_EQ(job_->state(), JOB_STATE_COMPLETED);
  EXPECT_EQ(backupd_.committed.size(), 1U);
  EXPECT_TRUE(root_.exists(stored));
}

TEST_F(Stop_Beside_The_Run, Outlives_The_Job_That_Is_Removed_While_It_Still_Polls) {
  hana_->keep_cancel_pending(true);
  start();
  // The run ends with its statement; HANA's catalog takes its time.
  EXPECT_EQ(job_->stop(nullptr), 0);
  wait_for_the_run();
  hana_->wait_for_state_questions(3);
  EXPECT_EQ(job_->remove(false, nullptr), 0);
  job_ = Job_Ptr();
  hana_->end_backup("canceled");
  wait_for_all_threads();
  // Virtual time flies: the stop may have given up before the end came, and then it keeps the data.
  const bool gave_up = log_.claim_containing("Failed to stop database TN1 backup job") != 0;
  EXPECT_EQ(root_.exists(stored), gave_up);
}

}  // namespace
