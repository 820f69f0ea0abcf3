#include "agentd/jobs/job_table.h"

#include "agentd/jobs/definition_guard.h"
#include "agentd/jobs/former_runs.h"
#include "job/job_activity_record.h"
#include "job/job_mutex.h"
#include "platform/clock.h"
#include "scrt/uuid.h"
#include "unit/agentd/modules/module_fixture.h"

#include <ace/Thread_Manager.h>

#include <thread>

using namespace agentd;

namespace {

constexpr std::chrono::seconds limit{20};

class Job_Table_Test : public Module_Fixture {
 protected:
  Job_Table_Test() { EXPECT_TRUE(modules.load({"testing"})); }
  ~Job_Table_Test() override {
    EXPECT_TRUE(jobs.drain(limit));
    EXPECT_EQ(ACE_Thread_Manager::instance()->wait(), 0);
    jobs.clear();
    modules.unload();
  }

  JSON_RPC_Answer start(const json_spirit::Object& document) { return jobs.start(document, {}, activity_id); }

  static std::string text(const JSON_RPC_Answer& answer) { return json_spirit::dump_json(answer.result); }

  static Job_Activity_Snapshot only_activity() {
    std::vector<Job_Activity_Snapshot> all;
    EXPECT_TRUE(list_job_activities(all));
    return all.size() == 1 ? all.front() : Job_Activity_Snapshot();
  }

  Modules modules;
  Job_Maker maker{modules, host_uuid};
  Job_Table jobs{maker};
};

}  // namespace

TEST_F(Job_Table_Test, A_Definition_Becomes_A_Run_With_A_Record_On_Disk) {
  const JSON_RPC_Answer answer = start(definition("good"));
  ASSERT_TRUE(answer.ok) << answer.message;
  jobs.wait_completed(activity_id, limit);
  EXPECT_EQ(only_activity().state, JOB_STATE_COMPLETED);
  EXPECT_TRUE(jobs.running().empty());
}

TEST_F(Job_Table_Test, The_Last_Error_Line_Is_The_Message_Of_A_Failed_Run) {
  ASSERT_TRUE(start(definition("fail")).ok);
  jobs.wait_completed(activity_id, limit);
  EXPECT_EQ(only_activity().state, JOB_STATE_ERROR);
  EXPECT_NE(only_activity().message.find("The test job fails"), std::string::npos) << only_activity().message;
  EXPECT_TRUE(log.claim("The test job fails\n"));
}

TEST_F(Job_Table_Test, The_Same_Start_Again_Is_Done_Already) {
  ASSERT_TRUE(start(definition("until stopped")).ok);
  EXPECT_TRUE(start(definition("until stopped")).ok);
  EXPECT_EQ(jobs.running(), std::vector<std::string>{activity_id});
  EXPECT_TRUE(jobs.stop(activity_id).ok);
  jobs.wait_completed(activity_id, limit);
  EXPECT_EQ(only_activity().state, JOB_STATE_CANCELED);
}

TEST_F(Job_Table_Test, Refusals_Say_Why_And_Leave_Nothing) {
  struct Row {
    const char* name;
    json_spirit::Object document;
    const char* part;
  };
  json_spirit::Object no_module = definition("x");
  no_module.erase("module");
  json_spirit::Object other_module = definition("x");
  other_module["module"] = "absent";
  json_spirit::Object other_host = definition("x");
  other_host["host_uuid"] = "5c3e2f6a-0000-4a3a-9a39-5b3d8a1d1c11";
  json_spirit::Object other_kind = definition("x");
  other_kind["subtype"] = "media";
  json_spirit::Object unknown_key = definition("x");
  unknown_key["surprise"] = 1;
  json_spirit::Object bad_name = definition("x");
  bad_name["source"].get_obj()["entries"] = json_spirit::Array{"hana/HDB00/T%27;DROP"};
  const Row rows[] = {{"no module", no_module, "names no module"},
                      {"other module", other_module, "no module \"absent\""},
                      {"other host", other_host, "is for host 5c3e2f6a-0000"},
                      {"other kind", other_kind, "does not run a backup of subtype"},
                      {"unknown key", unknown_key, "surprise"},
                      {"bad name", bad_name, "names no database that can be backed up"}};
  for (const Row& row : rows) {
    const JSON_RPC_Answer answer = start(row.document);
    EXPECT_FALSE(answer.ok) << row.name;
    EXPECT_NE(answer.message.find(row.part), std::string::npos) << row.name << ": " << answer.message;
  }
  std::vector<Job_Activity_Snapshot> all;
  EXPECT_TRUE(list_job_activities(all));
  EXPECT_TRUE(all.empty());
}

TEST_F(Job_Table_Test, A_Stopping_Agent_Starts_Nothing) {
  EXPECT_TRUE(jobs.drain(std::chrono::seconds(0)));
  const JSON_RPC_Answer answer = start(definition("good"));
  EXPECT_FALSE(answer.ok);
  EXPECT_NE(answer.message.find("the agent is stopping"), std::string::npos) << answer.message;
  EXPECT_EQ(only_activity().id, "") << "no record stays behind";
}

TEST_F(Job_Table_Test, Draining_Gives_Up_At_Its_Limit) {
  ASSERT_TRUE(start(definition("until stopped")).ok);
  EXPECT_FALSE(jobs.drain(std::chrono::seconds(0)));
  EXPECT_TRUE(jobs.stop(activity_id).ok);
}

TEST_F(Job_Table_Test, Requests_For_Unknown_Runs_Are_Refused) {
  EXPECT_FALSE(jobs.stop("aaaaaaaa-0000-4000-8000-00000000ffff").ok);
  EXPECT_FALSE(jobs.remove("aaaaaaaa-0000-4000-8000-00000000ffff").ok);
}

TEST_F(Job_Table_Test, A_Stop_Of_A_Run_That_Has_Ended_Says_So) {
  ASSERT_TRUE(start(definition("good")).ok);
  jobs.wait_completed(activity_id, limit);
  EXPECT_EQ(text(jobs.stop(activity_id)), R"({"code":-1,"message":"the job has ended already, it is completed"})");
  jobs.ended(activity_id);
  EXPECT_EQ(text(jobs.stop(activity_id)), R"({"code":-1,"message":"the job has ended already"})");
}

TEST_F(Job_Table_Test, A_Stop_May_Be_Asked_Twice) {
  ASSERT_TRUE(start(definition("slow to stop")).ok);
  std::thread first([&] { EXPECT_EQ(text(jobs.stop(activity_id)), R"({"code":0,"message":""})"); });
  EXPECT_EQ(call_module("test_module_wait_for_stop"), 1);
  std::thread second([&] { EXPECT_TRUE(jobs.stop(activity_id).ok); });
  jobs.wait_completed(activity_id, limit);
  EXPECT_EQ(call_module("test_module_release_stop"), 1);
  first.join();
  second.join();
  EXPECT_EQ(only_activity().state, JOB_STATE_CANCELED);
  // The second may have come before the end or after it.
  (void)log.claim_containing("Cannot ");
}

TEST_F(Job_Table_Test, A_Stop_That_Would_Cancel_The_Backup_Of_Another_Run_Is_Refused) {
  const std::string another = "aaaaaaaa-0000-4000-8000-000000000002";
  const std::shared_ptr<Job_Mutex> resource = Job_Mutex::get("0d0c1a4e-16f3-4f0a-8d5c-2f9f0a5b7e21");
  ASSERT_TRUE(start(definition("until stopped")).ok);
  ASSERT_EQ(resource->acquire(), 0);
  resource->holder(another);
  EXPECT_EQ(text(jobs.stop(activity_id)), R"({"code":1,"message":"the job aaaaaaaa-0000-4000-8000-000000000002 holds )"
                                          R"(this system now and this backup waits for it; a stop would reach that )"
                                          R"(job's backup; ask again when that job has ended"})");
  EXPECT_TRUE(is_active(only_activity().state));
  resource->holder(activity_id);
  EXPECT_EQ(text(jobs.stop(activity_id)), R"({"code":0,"message":""})") << "its own backup";
  ASSERT_EQ(resource->release(), 0);
}

TEST_F(Job_Table_Test, A_Job_May_Be_Removed_While_Its_Stop_Still_Polls) {
  ASSERT_TRUE(start(definition("slow to stop")).ok);
  std::thread stopper([&] { EXPECT_EQ(text(jobs.stop(activity_id)), R"({"code":0,"message":""})"); });
  EXPECT_EQ(call_module("test_module_wait_for_stop"), 1);
  jobs.wait_completed(activity_id, limit);
  EXPECT_EQ(text(jobs.remove(activity_id)), R"({"code":0,"message":""})");
  EXPECT_FALSE(jobs.stop(activity_id).ok) << "the table knows it no more";
  EXPECT_EQ(ACE_Thread_Manager::instance()->wait(), 0) << "the run's own thread is gone";
  EXPECT_EQ(call_module("test_module_living_jobs"), 1) << "the stop holds it";
  EXPECT_EQ(call_module("test_module_release_stop"), 1);
  stopper.join();
  EXPECT_EQ(call_module("test_module_living_jobs"), 0);
}

TEST_F(Job_Table_Test, A_Run_That_Ended_Leaves_A_Line_And_Is_Not_Started_Again) {
  ASSERT_TRUE(start(definition("good")).ok);
  jobs.wait_completed(activity_id, limit);
  jobs.ended(activity_id);
  EXPECT_TRUE(log.has(std::string("Job ") + activity_id + " 'good' has ended, it is completed\n")) << log.dump();
  EXPECT_TRUE(start(definition("good")).ok) << "a start that was under way twice";
  EXPECT_TRUE(jobs.running().empty());
}

TEST_F(Job_Table_Test, A_Running_Job_Is_Not_Removed) {
  ASSERT_TRUE(start(definition("until stopped")).ok);
  const JSON_RPC_Answer refused = jobs.remove(activity_id);
  ASSERT_TRUE(refused.ok);
  EXPECT_EQ(json_spirit::dump_json(refused.result), R"({"code":-1,"message":"the job runs; stop it first"})");
  EXPECT_TRUE(jobs.stop(activity_id).ok);
  jobs.wait_completed(activity_id, limit);
  EXPECT_EQ(json_spirit::dump_json(jobs.remove(activity_id).result), R"({"code":0,"message":""})");
}

TEST(Definition_Guard, Only_Plain_Identifiers_Are_Database_Names) {
  for (const char* good : {"SYSTEMDB", "TN1", "_X", "A"}) EXPECT_TRUE(is_plain_database_name(good)) << good;
  for (const char* bad : {"", "tn1", "1TN", "T N", "T\"N", "T/N", "T.N", "TÜ", "T;N", "T'"})
    EXPECT_FALSE(is_plain_database_name(bad)) << bad;
  EXPECT_TRUE(is_plain_database_name(std::string(127, 'A')));
  EXPECT_FALSE(is_plain_database_name(std::string(128, 'A')));
}

namespace {

using Former_Runs_Test = Module_Fixture;

}  // namespace

TEST_F(Former_Runs_Test, A_Run_That_Was_Cut_Off_Is_Reported_As_Failed_Until_It_Is_Acknowledged) {
  {
    Job_Activity_Record record;
    ASSERT_TRUE(uuid_string_to_binary(activity_id, record.activity().id));
    record.activity().store_state(JOB_STATE_RUNNING);
    ASSERT_TRUE(record.attach());
    record.flush();
  }
  std::vector<Job_Activity_Snapshot> reported;
  const auto report = [&](const Job_Activity_Snapshot& activity) { reported.push_back(activity); };
  EXPECT_EQ(settle_former_runs(report), 1U);
  ASSERT_EQ(reported.size(), 1U);
  EXPECT_EQ(reported[0].state, JOB_STATE_ERROR);
  EXPECT_EQ(reported[0].id, activity_id);
  EXPECT_NE(reported[0].message.find("The agent ended while this job ran"), std::string::npos);

  // The next agent finds it ended already; it is told again only because nobody has acknowledged it.
  EXPECT_EQ(settle_former_runs(report), 0U);
  EXPECT_EQ(reported.size(), 2U);
  EXPECT_TRUE(remove_job_activity(activity_id));
  EXPECT_EQ(settle_former_runs(report), 0U);
  EXPECT_EQ(reported.size(), 2U);
}
