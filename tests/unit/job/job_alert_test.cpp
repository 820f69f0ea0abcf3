#include "job/job_alert.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <vector>

#include "job/job.h"
#include "support/log_capture.h"
#include "support/virtual_clock.h"
#include "test_jobs.h"

namespace {

class Recording_Sink : public Alert_Sink {
 public:
  void raise(const Job_Alert& alert) override {
    alerts.push_back(alert);
    if (fails) throw std::runtime_error("the disk is full");
  }
  std::vector<Job_Alert> alerts;
  bool fails = false;
};

class Job_Alert_Test : public testing::Test {
 protected:
  ~Job_Alert_Test() override { set_alert_sink(nullptr); }
  support::Log_Capture log_;
  support::Virtual_Clock clock_{1'700'000'000};
  std::shared_ptr<Recording_Sink> sink_ = std::make_shared<Recording_Sink>();
};

TEST_F(Job_Alert_Test, Carries_Arguments_And_Job) {
  set_alert_sink(sink_);
  const Job job(test_jobs::make_definition());
  write_job_alert(&job, 7, 3, 0x100000000000, json_spirit::Object{{"database", "TN1"}}, 1);
  ASSERT_EQ(sink_->alerts.size(), 1U);
  const Job_Alert& alert = sink_->alerts.front();
  EXPECT_EQ(alert.alert_class, 7U);
  EXPECT_EQ(alert.code, 3U);
  EXPECT_EQ(alert.flags, 0x100000000000U);
  EXPECT_EQ(json_spirit::dump_json(alert.parameters), R"({"database":"TN1"})");
  EXPECT_EQ(alert.level, 1);
  EXPECT_EQ(alert.job_id, test_jobs::definition_uuid);
  EXPECT_EQ(alert.job_act_id, job.job_act_id());
  EXPECT_EQ(alert.job_name, "nightly");
  EXPECT_EQ(alert.host_id, "11111111-2222-4333-8444-555555555555");
  EXPECT_EQ(alert.time, 1'700'000'000);
}

TEST_F(Job_Alert_Test, Needs_No_Job) {
  set_alert_sink(sink_);
  write_job_alert(nullptr, 7, 6, 0, {}, 1);
  ASSERT_EQ(sink_->alerts.size(), 1U);
  EXPECT_EQ(sink_->alerts.front().job_id, "");
  EXPECT_EQ(sink_->alerts.front().job_act_id, "");
  EXPECT_TRUE(sink_->alerts.front().parameters.is_null());
}

TEST_F(Job_Alert_Test, Is_A_Warning_Without_A_Sink) {
  write_job_alert(nullptr, 7, 45, 16, json_spirit::Object{{"database", "TN1"}}, 1);
  EXPECT_TRUE(log_.has("Alert 7/45 with flags 16 of job , parameters {\"database\":\"TN1\"}\n")) << log_.dump();
}

TEST_F(Job_Alert_Test, Survives_A_Sink_That_Throws) {
  sink_->fails = true;
  set_alert_sink(sink_);
  write_job_alert(nullptr, 7, 8, 0, {}, 1);
  EXPECT_TRUE(log_.claim("Failed to raise alert 7/8: the disk is full\n"));
}

TEST_F(Job_Alert_Test, Gives_Back_The_Former_Sink) {
  EXPECT_EQ(set_alert_sink(sink_), nullptr);
  EXPECT_EQ(set_alert_sink(nullptr), sink_);
}

}  // namespace
