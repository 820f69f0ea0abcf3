#include "agentd/backupd_link/reporter.h"

#include <gtest/gtest.h>

#include "support/log_capture.h"
#include "support/temp_root.h"
#include "support/virtual_clock.h"

using namespace agentd;

namespace {

class Reporter_Test : public ::testing::Test {
 protected:
  Reporter_Test() {
    EXPECT_TRUE(outbox.open());
    Reporter::Callbacks callbacks;
    callbacks.send = [this](const Message& message, std::string& reason) {
      if (outcome != Reporter::Delivery::done) {
        reason = "because";
        return outcome;
      }
      if (!refused_text.empty() && text(message).find(refused_text) != std::string::npos) {
        reason = "because";
        return Reporter::Delivery::refused;
      }
      sent.push_back(message);
      return Reporter::Delivery::done;
    };
    callbacks.connection = [this] { return connection; };
    callbacks.greet = [this] {
      ++greetings;
      return greeting_works;
    };
    callbacks.ended = [this](const std::string& id) { ended.push_back(id); };
    reporter = std::make_unique<Reporter>(outbox, std::move(callbacks), std::chrono::seconds(60));
  }

  static Job_Activity_Snapshot activity(const char* id, Job_State state, int progress = 0) {
    Job_Activity_Snapshot snapshot;
    snapshot.id = id;
    snapshot.state = state;
    snapshot.progress = progress;
    return snapshot;
  }

  static std::string text(const Message& message) { return json_spirit::dump_json(message.document); }

  support::Temp_Root root;
  support::Log_Capture log;
  support::Virtual_Clock clock;
  Outbox outbox{"/var/outbox"};
  std::unique_ptr<Reporter> reporter;
  std::vector<Message> sent;
  std::string refused_text;  ///< messages that hold it are refused
  std::vector<std::string> ended;
  std::uint64_t connection = 0;
  int greetings = 0;
  bool greeting_works = true;
  Reporter::Delivery outcome = Reporter::Delivery::done;
};

}  // namespace

TEST_F(Reporter_Test, Everything_Is_Kept_While_Backupd_Is_Away_And_Sent_In_Order_Later) {
  reporter->activity_changed(activity("a", JOB_STATE_RUNNING, 10));
  reporter->work();
  reporter->raise(Job_Alert());
  reporter->write({"a", 1, "a line", 5});
  reporter->activity_changed(activity("a", JOB_STATE_COMPLETED, 100));
  reporter->work();
  EXPECT_TRUE(sent.empty());
  EXPECT_EQ(outbox.size(), 4U);

  connection = 1;
  reporter->work();
  EXPECT_EQ(greetings, 1);
  ASSERT_EQ(sent.size(), 4U);
  EXPECT_EQ(sent[0].kind, Message_Kind::progress);
  EXPECT_EQ(sent[1].kind, Message_Kind::alert);
  EXPECT_EQ(sent[2].kind, Message_Kind::log);
  EXPECT_EQ(sent[3].kind, Message_Kind::final_state);
  EXPECT_EQ(outbox.size(), 0U);
  EXPECT_EQ(ended, std::vector<std::string>{"a"});
}

TEST_F(Reporter_Test, Each_Connection_Is_Greeted_Once_Before_Anything_Is_Sent) {
  connection = 1;
  greeting_works = false;
  reporter->activity_changed(activity("a", JOB_STATE_RUNNING));
  reporter->work();
  EXPECT_TRUE(sent.empty());
  greeting_works = true;
  reporter->work();
  reporter->work();
  EXPECT_EQ(greetings, 2);
  EXPECT_EQ(sent.size(), 1U);
  connection = 2;
  reporter->work();
  EXPECT_EQ(greetings, 3);
}

TEST_F(Reporter_Test, Only_The_Newest_State_Of_A_Job_Is_Sent) {
  connection = 1;
  for (int progress = 0; progress <= 50; ++progress)
    reporter->activity_changed(activity("a", JOB_STATE_RUNNING, progress));
  reporter->work();
  ASSERT_EQ(sent.size(), 1U);
  EXPECT_NE(text(sent[0]).find("\"progress\":50"), std::string::npos) << text(sent[0]);
}

TEST_F(Reporter_Test, An_End_That_Was_Not_Acknowledged_Is_Not_Forgotten) {
  connection = 1;
  outcome = Reporter::Delivery::away;
  reporter->activity_changed(activity("a", JOB_STATE_ERROR));
  reporter->work();
  EXPECT_TRUE(ended.empty());
  EXPECT_EQ(outbox.size(), 1U);
  outcome = Reporter::Delivery::done;
  reporter->work();
  EXPECT_EQ(ended, std::vector<std::string>{"a"});
}

TEST_F(Reporter_Test, What_Backupd_Will_Never_Take_Is_Dropped_With_One_Line) {
  connection = 1;
  outcome = Reporter::Delivery::refused;
  reporter->raise(Job_Alert());
  reporter->work();
  EXPECT_EQ(outbox.size(), 0U);
  EXPECT_EQ(log.claim_containing("Backupd refused a message of this agent, because"), 1U);
}

TEST_F(Reporter_Test, An_Alert_Is_On_Disk_Before_Raise_Returns) {
  Job_Alert alert;
  alert.alert_class = 7;
  alert.code = 3;
  alert.parameters = json_spirit::Object{{"database", "TN1"}};
  reporter->raise(alert);
  Message message;
  ASSERT_TRUE(outbox.oldest(message));
  EXPECT_EQ(message.kind, Message_Kind::alert);
  EXPECT_NE(text(message).find(R"("class":7,"code":3,"flags":0,"parameters":{"database":"TN1"})"), std::string::npos)
      << text(message);
}

TEST_F(Reporter_Test, Log_Lines_Travel_In_Batches_By_Job) {
  connection = 1;
  for (std::size_t i = 0; i < Reporter::log_batch_lines + 1; ++i) reporter->write({"a", 1, "x", 0});
  reporter->write({"b", 1, "y", 0});
  reporter->work();
  ASSERT_EQ(sent.size(), 1U);
  json_spirit::Array logs;
  ASSERT_TRUE(json_spirit::object_get(sent[0].document, "logs", logs)) << text(sent[0]);
  ASSERT_EQ(logs.size(), 3U);
  EXPECT_NE(json_spirit::dump_json(logs[2]).find("\"job_act_id\":\"b\""), std::string::npos);
}

TEST_F(Reporter_Test, What_Many_Jobs_Have_To_Tell_Is_One_Message_A_Kind) {
  connection = 1;
  for (const char* id : {"a", "b", "c", "d"}) {
    reporter->write({id, 1, "x", 0});
    reporter->activity_changed(activity(id, *id < 'c' ? JOB_STATE_RUNNING : JOB_STATE_COMPLETED));
  }
  reporter->work();
  ASSERT_EQ(sent.size(), 3U);
  EXPECT_EQ(sent[0].kind, Message_Kind::log);
  EXPECT_EQ(sent[1].kind, Message_Kind::progress);
  EXPECT_EQ(sent[2].kind, Message_Kind::final_state);
  EXPECT_EQ(ended, (std::vector<std::string>{"c", "d"}));
}

TEST_F(Reporter_Test, One_That_Is_Refused_Does_Not_Cost_The_Others) {
  connection = 1;
  refused_text = "\"b\"";
  for (const char* id : {"a", "b", "c"}) reporter->activity_changed(activity(id, JOB_STATE_COMPLETED));
  reporter->work();
  EXPECT_EQ(ended, (std::vector<std::string>{"a", "c"}));
  EXPECT_EQ(outbox.size(), 0U);
  EXPECT_EQ(log.claim_containing("Backupd refused a message of this agent, because"), 1U);
}

TEST_F(Reporter_Test, What_Cannot_Be_Sent_Together_Is_Kept_One_By_One) {
  connection = 1;
  outcome = Reporter::Delivery::away;
  for (const char* id : {"a", "b", "c"}) reporter->activity_changed(activity(id, JOB_STATE_COMPLETED));
  reporter->work();
  EXPECT_EQ(outbox.size(), 3U);
  outcome = Reporter::Delivery::done;
  reporter->work();
  EXPECT_EQ(ended, (std::vector<std::string>{"a", "b", "c"}));
}

TEST_F(Reporter_Test, Too_Many_Lines_Lose_The_Oldest_And_Say_So) {
  for (std::size_t i = 0; i < Reporter::log_limit_lines + 7; ++i) reporter->write({"a", 1, "x", 0});
  reporter->work();
  EXPECT_TRUE(log.has_containing("7 lines of job logs were not sent to backupd")) << log.dump();
}

TEST_F(Reporter_Test, Ending_Sends_Or_Keeps_What_Is_Pending) {
  reporter->start();
  reporter->activity_changed(activity("a", JOB_STATE_COMPLETED));
  reporter->stop();
  EXPECT_EQ(outbox.size(), 1U);
}
