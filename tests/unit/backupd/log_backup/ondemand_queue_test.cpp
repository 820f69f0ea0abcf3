#include "backupd/log_backup/ondemand_queue.h"

#include "unit/backupd/ondemand_fixture.h"

using namespace backupd_test;

namespace {

using backupd::Ondemand_Queue;

class Ondemand_Queue_Test : public Ondemand_Fixture {};

TEST_F(Ondemand_Queue_Test, Begins_A_Run_When_The_Last_Object_Is_Stored) {
  come();
  back_up(1);
  const Started first = run(1);
  EXPECT_EQ(first.job, uuid_of(1));
  EXPECT_EQ(first.definition, definition);
  EXPECT_EQ(server.request("GET", "/jobs/" + first.run).text_of("name"), "nightly");
  EXPECT_EQ(entries(), 1);
  commit(1, first.run);
  EXPECT_EQ(entries(), 0);
  report(first.run, completed);
  EXPECT_EQ(runs_after_a_look(), 1U);
}

TEST_F(Ondemand_Queue_Test, Owes_Nothing_Before_The_Last_Object_And_One_Run_After_It) {
  ASSERT_EQ(server.agent("POST", "/backint/on-demand-jobs", ondemand(1, 7)).status, 201U);
  EXPECT_EQ(store(1, 7, "").status, 201U);
  EXPECT_EQ(entries(), 0);
  EXPECT_EQ(store(1, 7, ",\"last\":false").status, 200U);
  EXPECT_EQ(entries(), 0);
  // The answer to this one may have been lost, so it comes again.
  EXPECT_EQ(store(1, 7).status, 200U);
  EXPECT_EQ(store(1, 7).status, 200U);
  EXPECT_EQ(entries(), 1);
}

TEST_F(Ondemand_Queue_Test, Owes_Nothing_For_The_Record_Of_A_Run) {
  ASSERT_EQ(server.agent("POST", "/backint/jobs", job_json(uuid_of(1), "act", "TN1", 7)).status, 201U);
  const Answer refused = store(1, 7);
  EXPECT_EQ(refused.status, 422U);
  EXPECT_NE(refused.error_message().find("HANA began by itself"), std::string::npos) << refused.text;
  EXPECT_EQ(server.agent("GET", "/backint/jobs/" + uuid_of(1) + "/files").number_of("total"), 0);
  EXPECT_EQ(entries(), 0);
}

TEST_F(Ondemand_Queue_Test, Keeps_What_Is_Owed_While_The_Agent_Is_Away_And_Over_A_Restart) {
  back_up(1);
  back_up(2);
  EXPECT_EQ(entries(), 2);
  server.restart();
  come();
  const Started first = run(1);
  EXPECT_EQ(first.job, uuid_of(1));
  // Restarted while the run is under way: it is not begun a second time.
  restart();
  come();
  commit(1, first.run);
  report(first.run, completed);
  EXPECT_EQ(run(2).job, uuid_of(2));
  EXPECT_EQ(entries(), 1);
}

TEST_F(Ondemand_Queue_Test, Tries_Again_After_Longer_And_Longer_Pauses) {
  come();
  back_up(1);
  std::size_t count = 1;
  for (const int minutes : {1, 2, 4, 8, 16, 32, 60, 60}) {
    const Started tried = run(count);
    EXPECT_EQ(tried.job, uuid_of(1));
    fail(tried, static_cast<std::int64_t>(count));
    pass(minutes * minute - std::chrono::seconds(1));
    EXPECT_EQ(runs_after_a_look(), count) << minutes;
    pass(std::chrono::seconds(1));
    EXPECT_FALSE(run(++count).run == tried.run);
  }
  EXPECT_EQ(entries(), 1);
}

TEST_F(Ondemand_Queue_Test, Run_That_The_Agent_Forgot_Is_Tried_Again) {
  come();
  back_up(1);
  const Started lost = run(1);
  // It had begun, so it is not handed over once more.
  report(lost.run, running);
  leave();
  {
    const std::lock_guard lock(mutex);
    started.clear();
  }
  // Long after the run was handed over, the agent knows nothing of it.
  server.clock.pass_wall(20 * minute);
  come();
  const auto end = std::chrono::steady_clock::now() + limit;
  while (tries_of(lost.job) != 1 && std::chrono::steady_clock::now() < end) std::this_thread::yield();
  EXPECT_EQ(server.request("GET", "/jobs/" + lost.run).text_of("state_name"), "error");
  pass(minute);
  EXPECT_EQ(run(1).job, lost.job);
  server.log.claim_containing("is tried again in");
}

TEST_F(Ondemand_Queue_Test, Runs_Of_A_Database_Keep_Their_Order_And_Others_Do_Not_Wait) {
  come();
  back_up(1);
  const Started first = run(1);
  back_up(2);
  back_up(3, "TN2");
  EXPECT_EQ(run(2).job, uuid_of(3));
  fail(first, 1);
  EXPECT_EQ(runs_after_a_look(), 2U);
  pass(minute);
  const Started again = run(3);
  EXPECT_EQ(again.job, uuid_of(1));
  commit(1, again.run);
  report(again.run, completed);
  EXPECT_EQ(run(4).job, uuid_of(2));
}

TEST_F(Ondemand_Queue_Test, Backup_That_Is_Never_Recorded_Lets_The_Later_Ones_Pass_In_The_End) {
  come();
  back_up(1);
  const Started first = run(1);
  back_up(2);
  ASSERT_TRUE(server.database.write([&](backupd::Sql_Session& session) {
    session.execute("UPDATE ondemand_runs SET tries = :a WHERE job_uuid = :b",
                    {backupd::Ondemand_Entry::tries_in_order - 1, uuid_of(1)});
    return true;
  }));
  fail(first, backupd::Ondemand_Entry::tries_in_order);
  EXPECT_EQ(run(2).job, uuid_of(2));
}

TEST_F(Ondemand_Queue_Test, Backup_That_HANA_Has_Begun_Again_Holds_Nothing_Back_After_Its_First_Try) {
  come();
  back_up(1);
  const Started first = run(1);
  back_up(2);
  back_up(3, "TN1", object_of(1));
  EXPECT_EQ(runs_after_a_look(), 1U) << "the first may still be recorded";
  fail(first, 1);
  const Started second = run(2);
  EXPECT_EQ(second.job, uuid_of(2));
  commit(2, second.run);
  report(second.run, completed);
  EXPECT_EQ(run(3).job, uuid_of(3));
  pass(minute);
  EXPECT_EQ(runs_after_a_look(), 3U) << "one at a time";
  fail(run(3), 1);
  EXPECT_EQ(run(4).job, uuid_of(1)) << "it is tried as before";
}

TEST_F(Ondemand_Queue_Test, Backup_Lets_The_Later_Ones_Pass_When_HANA_Begins_It_Again) {
  come();
  back_up(1);
  const Started first = run(1);
  back_up(2);
  fail(first, 1);
  EXPECT_EQ(runs_after_a_look(), 1U);
  back_up(3, "TN1", object_of(1));
  EXPECT_EQ(run(2).job, uuid_of(2)) << "in order";
}

TEST_F(Ondemand_Queue_Test, Same_Log_Of_Another_Database_Or_Host_Is_Another_One) {
  come();
  back_up(1);
  const Started first = run(1);
  back_up(2);
  back_up(3, "TN2", object_of(1));
  EXPECT_EQ(run(2).job, uuid_of(3));
  fail(first, 1);
  EXPECT_EQ(runs_after_a_look(), 2U);
}

TEST_F(Ondemand_Queue_Test, Backups_Out_Of_Order_Take_No_Turn_Of_The_Others_When_All_Is_Drained) {
  come();
  back_up(1);
  const Started first = run(1);
  ASSERT_TRUE(server.database.write([&](backupd::Sql_Session& session) {
    session.execute("UPDATE ondemand_runs SET tries = :a WHERE job_uuid = :b",
                    {backupd::Ondemand_Entry::tries_in_order - 1, uuid_of(1)});
    return true;
  }));
  back_up(2);
  back_up(3);
  fail(first, backupd::Ondemand_Entry::tries_in_order);
  const Started second = run(2);
  const auto drain = [&] {
    const std::string body = std::string(R"({"host_uuid":")") + host_a + R"(","sid":"HDB","database":"TN1"})";
    EXPECT_EQ(server.agent("POST", "/backint/ondemand-runs/drain", body).status, 200U);
  };
  drain();
  commit(2, second.run);
  report(second.run, completed);
  EXPECT_EQ(run(3).job, uuid_of(3));
}

TEST_F(Ondemand_Queue_Test, Host_Has_So_Many_Runs_At_Once_And_No_More) {
  const int databases = static_cast<int>(Ondemand_Queue::runs_at_once) + 1;
  for (int i = 1; i <= databases; ++i) back_up(i, "TN" + std::to_string(i));
  come();
  const Started first = run(Ondemand_Queue::runs_at_once);
  EXPECT_EQ(first.job, uuid_of(databases - 1));
  commit(databases - 1, first.run, "TN" + std::to_string(databases - 1));
  EXPECT_EQ(started.size(), Ondemand_Queue::runs_at_once);
  report(first.run, completed);
  EXPECT_EQ(run(Ondemand_Queue::runs_at_once + 1).job, uuid_of(databases));
}

TEST_F(Ondemand_Queue_Test, Refused_Run_Is_Tried_Again) {
  agent = std::make_unique<Fake_Agent>(server, server.agent_key, [](const std::string&, const json_spirit::Value&) {
    return bad(JSON_RPC_E_SERVER, "the module is not loaded");
  });
  ASSERT_TRUE(agent->hello(host_a, R"(,"activities":[])").ok);
  back_up(1);
  const auto end = std::chrono::steady_clock::now() + limit;
  while (tries_of(uuid_of(1)) != 1 && std::chrono::steady_clock::now() < end) server.core->starter.wake();
  EXPECT_EQ(tries_of(uuid_of(1)), 1);
  leave();
  come();
  pass(minute);
  EXPECT_EQ(run(1).job, uuid_of(1));
  server.log.claim_containing("is tried again in");
  server.log.claim_containing("the module is not loaded");
}

}  // namespace
