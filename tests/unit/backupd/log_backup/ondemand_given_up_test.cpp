#include "backupd/log_backup/ondemand_rows.h"

#include "unit/backupd/ondemand_fixture.h"

using namespace backupd_test;

namespace {

using backupd::Ondemand_Entry;

class Ondemand_Given_Up_Test : public Ondemand_Fixture {
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

TEST_F(Ondemand_Given_Up_Test, Backup_Is_Given_Up_When_It_Was_Tried_Long_Enough) {
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

TEST_F(Ondemand_Given_Up_Test, What_Waited_For_Its_Agent_For_Weeks_Is_Tried_As_Long_As_Anything_Else) {
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

TEST_F(Ondemand_Given_Up_Test, Time_Counts_From_The_First_Failure_And_Not_From_A_Later_One) {
  come();
  back_up(1);
  fail(run(1), 1);
  EXPECT_EQ(first_failed(1), server.clock.wall_seconds());
  const std::int64_t first = first_failed(1);
  pass(minute);
  fail(run(2), 2);
  EXPECT_EQ(first_failed(1), first);
}

TEST_F(Ondemand_Given_Up_Test, Given_Up_Backup_Is_Not_Begun_And_Holds_Nothing_Back_Until_It_Is_Retried) {
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

TEST_F(Ondemand_Given_Up_Test, Retried_Backups_Take_No_Turn_Of_Newer_Ones) {
  back_up_and_give_up(3);
  EXPECT_EQ(ask("drain", R"(,"retry":true)").rows().size(), 3U);
  back_up(4);
  come();
  EXPECT_EQ(run(1).job, uuid_of(4));
}

TEST_F(Ondemand_Given_Up_Test, Retried_Backup_That_Fails_Again_Is_Tried_As_Long_As_A_New_One) {
  come();
  give_up(1);
  (void)ask("drain", R"(,"retry":true)");
  fail(run(2), Ondemand_Entry::tries_in_order + 1);
  EXPECT_EQ(state_of(uuid_of(1)), "waiting");
  EXPECT_EQ(first_failed(1), server.clock.wall_seconds());
  pass(60 * minute);
  const Started last = run(3);
  pass(std::chrono::seconds(Ondemand_Entry::seconds_otherwise));
  expect_given_up_after(last, 1);
}

TEST_F(Ondemand_Given_Up_Test, A_List_Without_What_Was_Given_Up_Is_Full_All_The_Same) {
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

TEST_F(Ondemand_Given_Up_Test, More_That_Is_Saved_Into_A_Given_Up_Record_Is_Owed_A_Run) {
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

TEST_F(Ondemand_Given_Up_Test, Drop_Takes_Only_What_Was_Given_Up_And_Leaves_Its_Objects) {
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

TEST_F(Ondemand_Given_Up_Test, A_Role_That_May_Not_Drop_Or_Retry_Leaves_No_Entry_In_The_Audit_Log) {
  const std::string body = std::string(R"({"host_uuid":")") + host_a + R"(","sid":"HDB","database":"TN1"})";
  EXPECT_EQ(server.agent("POST", "/backint/ondemand-runs/drop", body).status, 403U);
  for (const char* action : {"drop", "drain"})
    EXPECT_EQ(server.request("POST", std::string("/backint/ondemand-runs/") + action, body, server.viewer_key).status,
              403U);
  EXPECT_EQ(audit(), Texts());
}

TEST_F(Ondemand_Given_Up_Test, What_Is_Retried_Or_Dropped_Stands_In_The_Audit_Log_And_A_Drain_Does_Not) {
  back_up_and_give_up(2);
  (void)ask("drain", "");
  EXPECT_EQ(audit(), Texts());
  (void)ask("drain", R"(,"retry":true)");
  (void)ask("drop", "");
  const std::string subject = std::string(host_a) + " HDB/TN1 ";
  EXPECT_EQ(audit(), (Texts{"operator log_backup.retry " + subject + "done: 2 wait to be recorded",
                            "operator log_backup.drop " + subject + "done: 0 dropped"}));
}

TEST_F(Ondemand_Given_Up_Test, An_Agent_That_Retries_For_Another_Host_Is_Refused_And_Stands_In_The_Audit_Log) {
  const std::string body =
      std::string(R"({"host_uuid":")") + host_b + R"(","sid":"HDB","database":"TN1","retry":true})";
  EXPECT_EQ(server.agent("POST", "/backint/ondemand-runs/drain", body).status, 403U);
  ASSERT_EQ(audit().size(), 1U);
  EXPECT_NE(audit().front().find("agent log_backup.retry " + std::string(host_b) + " HDB/TN1 refused: the key belongs"),
            std::string::npos)
      << audit().front();
}

TEST_F(Ondemand_Given_Up_Test, Nothing_Is_Dropped_That_The_Audit_Log_Does_Not_Take) {
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

}  // namespace
