#include "backupd/ondemand_queue.h"

#include <algorithm>
#include <condition_variable>
#include <mutex>

#include "unit/backupd/fake_agent.h"

using namespace backupd_test;

namespace {

using backupd::Ondemand_Queue;

constexpr std::chrono::seconds limit{10};
constexpr std::chrono::minutes minute{1};
constexpr int running = 3;
constexpr int completed = 7;
constexpr int failed = 10;

struct Started {
  std::string run;
  std::string job;
  std::string definition;
};

/// A host whose agent takes every run and ends none by itself.
class Ondemand_Queue_Test : public ::testing::Test {
 protected:
  Ondemand_Queue_Test() {
    server.add_pool();
    std::string body = definition_json();
    body.replace(body.find("\"full\""), 6, "\"log\"");
    body.replace(body.find(resource_uuid), std::string(resource_uuid).size(), server.add_instance(host_a));
    const Answer answer = server.request("POST", "/job-definitions", body);
    EXPECT_EQ(answer.status, 201U) << answer.text;
    definition = answer.text_of("id");
  }

  void come() {
    agent = std::make_unique<Fake_Agent>(
        server, server.agent_key,
        [this](const std::string& method, const json_spirit::Value& params) { return take(method, params.get_obj()); });
    std::string known;
    for (const Started& run : started) known += (known.empty() ? "\"" : ",\"") + run.run + "\"";
    ASSERT_TRUE(agent->hello(host_a, R"(,"activities":[)" + known + "]").ok);
  }
  void leave() {
    agent.reset();
    while (server.core->agents.is_connected(host_a)) std::this_thread::yield();
  }
  void restart() {
    leave();
    server.restart();
  }

  std::string ondemand(int number, long backup_id, const std::string& database = "TN1") const {
    std::string body = job_json(uuid_of(number), "", database, backup_id);
    body.replace(body.find("\"full\""), 6, "\"log\"");
    const std::string attributes = "\"extended_attrs\":{";
    return body.insert(body.find(attributes) + attributes.size(), "\"job_definition_uuid\":\"" + definition + "\",");
  }
  Answer store(int number, long backup_id, const char* last = ",\"last\":true", const std::string& database = "TN1") {
    return server.agent(
        "POST", "/backint/jobs/" + uuid_of(number) + "/files",
        R"({"files":[)" + file_json("e-" + std::to_string(number), "pipe_0", backup_id, database) + "]" + last + "}");
  }
  /// HANA has backed up by itself, and all of it is stored.
  void back_up(int number, const std::string& database = "TN1") {
    const long backup_id = 1000 + number;
    const Answer job = server.agent("POST", "/backint/on-demand-jobs", ondemand(number, backup_id, database));
    ASSERT_EQ(job.status, 201U) << job.text;
    const Answer files = store(number, backup_id, ",\"last\":true", database);
    ASSERT_EQ(files.status, 201U) << files.text;
  }
  void commit(int number, const std::string& run, const std::string& database = "TN1") {
    const Answer set = server.agent("POST", "/sets",
                                    set_json(uuid_of(500 + number), "e-" + std::to_string(number), "log",
                                             "2026-01-01 10:00:00", 1000 + number, run, database));
    EXPECT_EQ(set.status, 201U) << set.text;
  }
  void report(const std::string& run, int state) {
    const std::string record = R"({"id":")" + run + R"(","state":)" + std::to_string(state) + "}";
    EXPECT_TRUE(agent->call("job.report", R"({"activities":[)" + record + "]}").ok);
  }

  /// The `number`th run that the agent is asked for (from 1), when it has come.
  Started run(std::size_t number) {
    std::unique_lock lock(mutex);
    EXPECT_TRUE(asked.wait_for(lock, limit, [&] { return started.size() >= number; })) << "no run " << number;
    return started.size() < number ? Started() : started[number - 1];
  }
  /// How many runs there are once the starter has looked at everything: it looks in rounds, one after the other.
  std::size_t runs_after_a_look() {
    Ondemand_Queue queue(server.database);
    server.core->starter.wake();
    // What is due would be begun here when the starter had not done it yet; nothing is.
    std::size_t seen = 0;
    static_cast<void>(queue.work([&](const std::string&) {
      ++seen;
      return false;
    }));
    const std::lock_guard lock(mutex);
    return started.size() + seen;
  }
  void pass(std::chrono::seconds span) {
    server.clock.pass_wall(span);
    server.core->starter.wake();
  }
  long entries() {
    long count = -1;
    EXPECT_TRUE(server.database.read([&](backupd::Sql_Session& session) {
      count = static_cast<long>(session.first("SELECT count(*) FROM ondemand_runs", {}, 1)->number(0));
    }));
    return count;
  }
  /// Ends a run without its set, and waits until the queue has noted it.
  void fail(const Started& run, std::int64_t tries) {
    report(run.run, failed);
    const auto end = std::chrono::steady_clock::now() + limit;
    while (tries_of(run.job) != tries && std::chrono::steady_clock::now() < end) std::this_thread::yield();
    EXPECT_EQ(tries_of(run.job), tries);
    server.log.claim_containing("is tried again in");
  }
  std::int64_t tries_of(const std::string& job) {
    std::int64_t tries = -1;
    EXPECT_TRUE(server.database.read([&](backupd::Sql_Session& session) {
      const auto row = session.first("SELECT tries FROM ondemand_runs WHERE job_uuid = :a", {job}, 1);
      if (row) tries = row->number(0);
    }));
    return tries;
  }

  JSON_RPC_Answer take(const std::string& method, const json_spirit::Object& params) {
    if (method != "job.start") return good(json_spirit::Object());
    Started run;
    json_spirit::Object options;
    json_spirit::Object document;
    json_spirit::object_get(params, "job_act_id", run.run);
    json_spirit::object_get(params, "options", options);
    json_spirit::object_get(params, "definition", document);
    json_spirit::object_get(options, "backint_job_uuid", run.job);
    json_spirit::object_get(document, "id", run.definition);
    const std::lock_guard lock(mutex);
    // A run whose answer was lost is asked for again; an agent has it then.
    const bool known =
        std::any_of(started.begin(), started.end(), [&](const Started& one) { return one.run == run.run; });
    if (!known) started.push_back(run);
    asked.notify_all();
    return good(json_spirit::Object{{"job_act_id", run.run}});
  }

  Memory_Server server;
  std::string definition;
  std::mutex mutex;
  std::condition_variable asked;
  std::vector<Started> started;  // guarded by mutex
  std::unique_ptr<Fake_Agent> agent;
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
                    {Ondemand_Queue::tries_in_order - 1, uuid_of(1)});
    return true;
  }));
  fail(first, Ondemand_Queue::tries_in_order);
  EXPECT_EQ(run(2).job, uuid_of(2));
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
