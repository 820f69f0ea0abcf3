#pragma once

#include <algorithm>
#include <condition_variable>
#include <mutex>

#include "backupd/log_backup/ondemand_queue.h"
#include "unit/backupd/fake_agent.h"

namespace backupd_test {

inline constexpr std::chrono::seconds limit{10};
inline constexpr std::chrono::minutes minute{1};
inline constexpr int running = 3;
inline constexpr int completed = 7;
inline constexpr int failed = 10;

struct Started {
  std::string run;
  std::string job;
  std::string definition;
};

/// A host whose agent takes every run and ends none by itself.
class Ondemand_Fixture : public ::testing::Test {
 protected:
  Ondemand_Fixture() {
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
  /// HANA gives each log a name of its own.
  static std::string object_of(int number) { return "log_backup_2_0_" + std::to_string(number); }
  Answer store(int number, long backup_id, const char* last = ",\"last\":true", const std::string& database = "TN1") {
    return store(number, backup_id, last, database, object_of(number));
  }
  Answer store(int number, long backup_id, const char* last, const std::string& database, const std::string& object) {
    return server.agent(
        "POST", "/backint/jobs/" + uuid_of(number) + "/files",
        R"({"files":[)" + file_json("e-" + std::to_string(number), object, backup_id, database) + "]" + last + "}");
  }
  /// HANA has backed up by itself, and all of it is stored.
  void back_up(int number, const std::string& database = "TN1") { back_up(number, database, object_of(number)); }
  void back_up(int number, const std::string& database, const std::string& object) {
    const long backup_id = 1000 + number;
    const Answer job = server.agent("POST", "/backint/on-demand-jobs", ondemand(number, backup_id, database));
    ASSERT_EQ(job.status, 201U) << job.text;
    const Answer files = store(number, backup_id, ",\"last\":true", database, object);
    ASSERT_EQ(files.status, 201U) << files.text;
  }
  void commit(int number, const std::string& run, const std::string& database = "TN1") {
    std::string body = set_json(uuid_of(500 + number), "e-" + std::to_string(number), "log", "2026-01-01 10:00:00",
                                1000 + number, run, database);
    for (std::size_t at = 0; (at = body.find("pipe_0", at)) != std::string::npos;)
      body.replace(at, std::string("pipe_0").size(), object_of(number));
    const Answer set = server.agent("POST", "/sets", body);
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
    backupd::Ondemand_Queue queue(server.database);
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

}  // namespace backupd_test
