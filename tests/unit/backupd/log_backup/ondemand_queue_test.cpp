#include "backupd/log_backup/ondemand_queue.h"

#include "unit/backupd/ondemand_fixture.h"

using namespace backupd_test;

namespace {

using backupd::Ondemand_Queue;

using backupd::Ondemand_Entry;

class Ondemand_Queue_Test : public Ondemand_Fixture {
 protected:
  std::string state_of(const std::string& job) {
    for (const json_spirit::Value& row : server.request("GET", "/backint/ondemand-runs").rows()) {
      std::string found;
      std::string state;
      EXPECT_TRUE(json_spirit::object_get(row.get_obj(), "backint_job_uuid", found));
      EXPECT_TRUE(json_spirit::object_get(row.get_obj(), "state", state));
      if (found == job) return state;
    }
    return "no entry";
  }
  using Texts = std::vector<std::string>;
  /// "<role> <method> <host> <sid>/<database> <result>: <message>" of each entry, oldest first.
  Texts audit() {
    Texts found;
    for (const json_spirit::Value& row : server.request("GET", "/audit").rows()) {
      const auto text = [&](const char* key) {
        std::string value;
        EXPECT_TRUE(json_spirit::object_get(row.get_obj(), key, value)) << key;
        return value;
      };
      found.push_back(text("role") + " " + text("method") + " " + text("host_uuid") + " " + text("sid") + "/" +
                      text("database") + " " + text("result") + ": " + text("message"));
    }
    return found;
  }
  /// "drain" or "drop" for TN1, as an operator.
  Answer ask(const std::string& what, const std::string& more) {
    Answer answer =
        server.request("POST", "/backint/ondemand-runs/" + what,
                       std::string(R"({"host_uuid":")") + host_a + R"(","sid":"HDB","database":"TN1")" + more + "}");
    EXPECT_EQ(answer.status, 200U) << answer.text;
    return answer;
  }
  /// As if each of the first so many backups had been tried in vain for long; the agent is away.
  void back_up_and_give_up(int count) {
    for (int number = 1; number <= count; ++number) back_up(number);
    ASSERT_TRUE(server.database.write([](backupd::Sql_Session& session) {
      session.execute("UPDATE ondemand_runs SET hold = 3, tries = :a, first_failed = 1",
                      {std::int64_t{Ondemand_Entry::tries_in_order}});
      return true;
    }));
  }
  /// HANA backs up, and the last of many tries fails after a long time.
  void give_up(int number) {
    const bool away = agent == nullptr;
    if (away) come();
    back_up(number);
    const Started last = run(1);
    ASSERT_TRUE(server.database.write([&](backupd::Sql_Session& session) {
      session.execute("UPDATE ondemand_runs SET tries = :a, first_failed = :b WHERE job_uuid = :c",
                      {Ondemand_Entry::tries_in_order - 1,
                       server.clock.wall_seconds() - Ondemand_Entry::seconds_otherwise, uuid_of(number)});
      return true;
    }));
    expect_given_up_after(last, number);
    if (away) leave();
  }
  void expect_given_up_after(const Started& last, int number) {
    report(last.run, failed);
    const auto end = std::chrono::steady_clock::now() + limit;
    while (state_of(uuid_of(number)) != "given up" && std::chrono::steady_clock::now() < end) std::this_thread::yield();
    EXPECT_EQ(state_of(uuid_of(number)), "given up");
    server.log.claim_containing("is given up");
  }
  std::int64_t first_failed(int number) {
    std::int64_t when = -1;
    EXPECT_TRUE(server.database.read([&](backupd::Sql_Session& session) {
      when =
          session.first("SELECT first_failed FROM ondemand_runs WHERE job_uuid = :a", {uuid_of(number)}, 1)->number(0);
    }));
    return when;
  }
};

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

TEST_F(Ondemand_Queue_Test, Backup_Is_Given_Up_When_It_Was_Tried_Long_Enough) {
  struct Row {
    const char* name;
    int number;
    bool begun_again;
    std::int64_t tries;
    std::int64_t seconds;
    bool given_up;
  };
  constexpr std::int64_t often = Ondemand_Entry::tries_in_order;
  constexpr std::int64_t short_time = Ondemand_Entry::seconds_when_begun_again;
  constexpr std::int64_t long_time = Ondemand_Entry::seconds_otherwise;
  const Row rows[] = {{"HANA made no other, for long", 1, false, often, long_time, true},
                      {"HANA made no other, a second less", 2, false, often, long_time - 1, false},
                      {"HANA made another", 3, true, often, short_time, true},
                      {"HANA made another, a second less", 4, true, often, short_time - 1, false},
                      {"few tries", 5, false, often - 1, long_time, false}};
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    const std::string database = "TN" + std::to_string(row.number);
    back_up(row.number, database);
    if (row.begun_again) back_up(row.number + 50, database, object_of(row.number));
    const std::string job = uuid_of(row.number);
    const std::int64_t first_failed = server.clock.wall_seconds();
    ASSERT_TRUE(server.database.write([&](backupd::Sql_Session& session) {
      Ondemand_Entry entry;
      entry.id = session.first("SELECT id FROM ondemand_runs WHERE job_uuid = :a", {job}, 1)->number(0);
      entry.job_uuid = job;
      entry.database = {host_a, "HDB", database};
      entry.tries = row.tries - 1;
      session.execute("UPDATE ondemand_runs SET first_failed = :a WHERE id = :b", {first_failed, entry.id});
      EXPECT_EQ(give_up_ondemand_run(session, entry, first_failed + row.seconds), row.given_up);
      return true;
    }));
    EXPECT_EQ(state_of(job), row.given_up ? "given up" : "waiting");
  }
}

TEST_F(Ondemand_Queue_Test, What_Waited_For_Its_Agent_For_Weeks_Is_Tried_As_Long_As_Anything_Else) {
  back_up(1);
  pass(3 * std::chrono::seconds(Ondemand_Entry::seconds_otherwise));
  come();
  std::size_t count = 1;
  // The clock stands still between: the run before the last pause is the eighth that fails.
  for (const int minutes : {1, 2, 4, 8, 16, 32, 60, 60}) {
    fail(run(count), static_cast<std::int64_t>(count));
    EXPECT_EQ(state_of(uuid_of(1)), "waiting") << minutes;
    pass(minutes * minute);
    ++count;
  }
  const Started last = run(count);
  pass(std::chrono::seconds(Ondemand_Entry::seconds_otherwise));
  expect_given_up_after(last, 1);
}

TEST_F(Ondemand_Queue_Test, Time_Counts_From_The_First_Failure_And_Not_From_A_Later_One) {
  come();
  back_up(1);
  fail(run(1), 1);
  EXPECT_EQ(first_failed(1), server.clock.wall_seconds());
  const std::int64_t first = first_failed(1);
  pass(minute);
  fail(run(2), 2);
  EXPECT_EQ(first_failed(1), first);
}

TEST_F(Ondemand_Queue_Test, Given_Up_Backup_Is_Not_Begun_And_Holds_Nothing_Back_Until_It_Is_Retried) {
  come();
  give_up(1);
  back_up(2);
  const Started second = run(2);
  EXPECT_EQ(second.job, uuid_of(2));
  EXPECT_TRUE(ask("drain", "").rows().size() == 1) << "a restore does not wait for what was given up";
  commit(2, second.run);
  report(second.run, completed);
  pass(std::chrono::hours(2));
  EXPECT_EQ(runs_after_a_look(), 2U);
  EXPECT_EQ(ask("drain", R"(,"retry":true)").rows().size(), 1U);
  const Started again = run(3);
  EXPECT_EQ(again.job, uuid_of(1));
  commit(1, again.run);
  EXPECT_EQ(entries(), 0);
}

TEST_F(Ondemand_Queue_Test, Retried_Backups_Take_No_Turn_Of_Newer_Ones) {
  back_up_and_give_up(3);
  EXPECT_EQ(ask("drain", R"(,"retry":true)").rows().size(), 3U);
  back_up(4);
  come();
  EXPECT_EQ(run(1).job, uuid_of(4));
}

TEST_F(Ondemand_Queue_Test, A_List_Without_What_Was_Given_Up_Is_Full_All_The_Same) {
  back_up_and_give_up(3);
  back_up(4);
  backupd::List_Query query;
  backupd::List_Page page;
  query.limit = 1;
  ASSERT_TRUE(backupd::list_ondemand_runs(server.database, query, backupd::Given_Up::left_out, page));
  ASSERT_EQ(page.rows.size(), 1U);
  EXPECT_EQ(page.total, 1);
  EXPECT_EQ(json_spirit::dump_json(page.rows.front()).find(uuid_of(1)), std::string::npos);
}

TEST_F(Ondemand_Queue_Test, More_That_Is_Saved_Into_A_Given_Up_Record_Is_Owed_A_Run) {
  back_up_and_give_up(1);
  ASSERT_TRUE(server.database.write([](backupd::Sql_Session& session) {
    backupd::add_ondemand_run(session, uuid_of(1));
    return true;
  }));
  EXPECT_EQ(state_of(uuid_of(1)), "waiting");
  EXPECT_EQ(first_failed(1), 0) << "it is tried as long as one that is new";
  come();
  EXPECT_EQ(run(1).job, uuid_of(1));
}

TEST_F(Ondemand_Queue_Test, Drop_Takes_Only_What_Was_Given_Up_And_Leaves_Its_Objects) {
  give_up(1);
  back_up(2);
  const Answer dropped = ask("drop", "");
  ASSERT_EQ(dropped.rows().size(), 1U) << dropped.text;
  EXPECT_NE(dropped.text.find(uuid_of(1)), std::string::npos) << dropped.text;
  EXPECT_EQ(entries(), 1);
  EXPECT_EQ(ask("drop", "").rows().size(), 0U);
  server.clock.pass_wall(std::chrono::hours(30));
  EXPECT_EQ(server.request("POST", "/retention/sweep", "{}").status, 200U);
  EXPECT_EQ(entries(), 1) << "it is not owed again";
  EXPECT_EQ(server.agent("GET", "/backint/files?extern_backup_id=e-1").number_of("total"), 1);
}

TEST_F(Ondemand_Queue_Test, Only_An_Operator_Drops) {
  const std::string body = std::string(R"({"host_uuid":")") + host_a + R"(","sid":"HDB","database":"TN1"})";
  EXPECT_EQ(server.agent("POST", "/backint/ondemand-runs/drop", body).status, 403U);
}

TEST_F(Ondemand_Queue_Test, What_Is_Retried_Or_Dropped_Stands_In_The_Audit_Log_And_A_Drain_Does_Not) {
  back_up_and_give_up(2);
  (void)ask("drain", "");
  EXPECT_EQ(audit(), Texts());
  (void)ask("drain", R"(,"retry":true)");
  (void)ask("drop", "");
  const std::string subject = std::string(host_a) + " HDB/TN1 ";
  EXPECT_EQ(audit(), (Texts{"operator log_backup.retry " + subject + "done: 2 wait to be recorded",
                            "operator log_backup.drop " + subject + "done: 0 dropped"}));
}

TEST_F(Ondemand_Queue_Test, An_Agent_That_Retries_For_Another_Host_Is_Refused_And_Stands_In_The_Audit_Log) {
  const std::string body =
      std::string(R"({"host_uuid":")") + host_b + R"(","sid":"HDB","database":"TN1","retry":true})";
  EXPECT_EQ(server.agent("POST", "/backint/ondemand-runs/drain", body).status, 403U);
  ASSERT_EQ(audit().size(), 1U);
  EXPECT_NE(audit().front().find("agent log_backup.retry " + std::string(host_b) + " HDB/TN1 refused: the key belongs"),
            std::string::npos)
      << audit().front();
}

TEST_F(Ondemand_Queue_Test, Nothing_Is_Dropped_That_The_Audit_Log_Does_Not_Take) {
  back_up_and_give_up(1);
  ASSERT_TRUE(server.database.write([](backupd::Sql_Session& session) {
    session.execute("DROP TABLE audit");
    return true;
  }));
  const std::string body = std::string(R"({"host_uuid":")") + host_a + R"(","sid":"HDB","database":"TN1"})";
  const Answer refused = server.request("POST", "/backint/ondemand-runs/drop", body);
  EXPECT_EQ(refused.status, 500U);
  EXPECT_NE(refused.error_message().find("nothing was done"), std::string::npos) << refused.text;
  EXPECT_EQ(entries(), 1);
  server.log.claim_containing("Failed to run a statement");
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
