#include "agentd/jobs/prepared_starts.h"

#include <ace/Thread_Manager.h>

#include "agentd/jobs/job_table.h"
#include "job/job_activity_record.h"
#include "unit/agentd/modules/module_fixture.h"

using namespace agentd;

namespace {

constexpr std::chrono::seconds limit{20};

/// Runs wait until a test lets them begin.
class Prepared_Starts_Test : public Module_Fixture {
 protected:
  Prepared_Starts_Test() { EXPECT_TRUE(modules.load({"testing"})); }
  ~Prepared_Starts_Test() override {
    EXPECT_TRUE(jobs.drain(limit));
    EXPECT_EQ(ACE_Thread_Manager::instance()->wait(), 0);
    jobs.clear();
    modules.unload();
  }

  Prepared_Starts::Work wait_for_test(const json_spirit::Value& document) {
    if (json_spirit::dump_json(document).find("at once") != std::string::npos) return {};
    return [this](platform::Wait_Event& stop) {
      preparing.set();
      while (!go.wait_real(std::chrono::milliseconds(1)) && !stop.is_set()) continue;
    };
  }
  void start(const std::string& name) {
    const JSON_RPC_Answer answer = jobs.start(definition(name), {}, activity_id);
    ASSERT_TRUE(answer.ok) << answer.message;
  }
  void wait_until_preparing() { ASSERT_TRUE(preparing.wait_real(limit)); }
  static Job_Activity_Snapshot only_activity() {
    std::vector<Job_Activity_Snapshot> all;
    EXPECT_TRUE(list_job_activities(all));
    return all.size() == 1 ? all.front() : Job_Activity_Snapshot();
  }

  platform::Wait_Event preparing;
  platform::Wait_Event go;
  Modules modules;
  Job_Maker maker{modules, host_uuid};
  Job_Table jobs{maker, [this](const json_spirit::Value& document) { return wait_for_test(document); }};
};

}  // namespace

TEST_F(Prepared_Starts_Test, A_Run_Begins_When_What_It_Waits_For_Is_Done) {
  start("good");
  wait_until_preparing();
  EXPECT_EQ(only_activity().state, JOB_STATE_NONE);
  // Its start may come twice.
  start("good");
  go.set();
  jobs.wait_completed(activity_id, limit);
  EXPECT_EQ(only_activity().state, JOB_STATE_COMPLETED);
}

TEST_F(Prepared_Starts_Test, A_Run_With_Nothing_To_Wait_For_Begins_At_Once) {
  start("at once");
  jobs.wait_completed(activity_id, limit);
  EXPECT_FALSE(preparing.is_set());
}

TEST_F(Prepared_Starts_Test, A_Stop_While_It_Waits_Cancels_The_Run) {
  start("good");
  wait_until_preparing();
  const JSON_RPC_Answer answer = jobs.stop(activity_id);
  EXPECT_EQ(json_spirit::dump_json(answer.result), R"({"code":0,"message":""})");
  jobs.wait_completed(activity_id, limit);
  EXPECT_EQ(only_activity().state, JOB_STATE_CANCELED);
  EXPECT_EQ(only_activity().message, "stopped before it began");
}

TEST_F(Prepared_Starts_Test, The_End_Of_The_Agent_Fails_A_Run_That_Waits) {
  start("good");
  wait_until_preparing();
  EXPECT_TRUE(jobs.drain(limit));
  EXPECT_EQ(only_activity().state, JOB_STATE_ERROR);
  EXPECT_NE(only_activity().message.find("the agent ended before this job began"), std::string::npos);
}
