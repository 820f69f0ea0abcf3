#include <condition_variable>
#include <mutex>

#include "unit/backupd/fake_agent.h"

using namespace backupd_test;

namespace {

constexpr char host_c[] = "66666666-6666-4666-8666-666666666666";
constexpr std::chrono::seconds limit{20};
constexpr int running = 3;
constexpr int completed = 7;
constexpr int skipped = 17;

/// One node of the system: notes what it is asked, in order.
class Node {
 public:
  struct Request {
    std::string method;
    json_spirit::Object params;
    [[nodiscard]] std::string run() const {
      std::string id;
      json_spirit::object_get(params, "job_act_id", id);
      return id;
    }
  };

  Node(Memory_Server& server, std::string host, std::string key)
      : server_(server), host_(std::move(host)), key_(std::move(key)) {}

  void come(const std::string& more = R"(,"activities":[])") {
    agent_ = std::make_unique<Fake_Agent>(
        server_, key_,
        [this](const std::string& method, const json_spirit::Value& params) { return answer(method, params); });
    ASSERT_TRUE(agent_->hello(host_, more).ok);
  }
  void leave() {
    agent_.reset();
    while (server_.core->agents.is_connected(host_)) std::this_thread::yield();
  }
  /// Refuses every start from now on.
  void refuse(const std::string& message) {
    const std::lock_guard lock(mutex_);
    refusal_ = message;
  }
  bool report(const std::string& run, int state) {
    return agent_
        ->call("job.report", R"({"activities":[{"id":")" + run + R"(","state":)" + std::to_string(state) + "}]}")
        .ok;
  }
  /// The `number`th request (from 1), when it has come.
  Request request(std::size_t number = 1) {
    std::unique_lock lock(mutex_);
    EXPECT_TRUE(asked_.wait_for(lock, limit, [&] { return requests_.size() >= number; })) << host_ << " is not asked";
    return requests_.size() < number ? Request() : requests_[number - 1];
  }
  std::size_t request_count() {
    const std::lock_guard lock(mutex_);
    return requests_.size();
  }
  Fake_Agent& agent() { return *agent_; }

 private:
  JSON_RPC_Answer answer(const std::string& method, const json_spirit::Value& params) {
    const std::lock_guard lock(mutex_);
    requests_.push_back({method, params.get_obj()});
    asked_.notify_all();
    if (method == "job.start" && !refusal_.empty()) return bad(JSON_RPC_E_SERVER, refusal_);
    return good(json_spirit::Object{{"code", 0}, {"message", ""}});
  }

  Memory_Server& server_;
  const std::string host_;
  const std::string key_;
  std::mutex mutex_;
  std::condition_variable asked_;
  std::vector<Request> requests_;  // guarded by mutex_, as refusal_
  std::string refusal_;
  std::unique_ptr<Fake_Agent> agent_;
};

class Cluster_Dispatch : public ::testing::Test {
 protected:
  Cluster_Dispatch() {
    server.add_pool();
    resource = server.add_instance(host_a);
    EXPECT_EQ(server.add_instance(host_b), resource);
    EXPECT_EQ(server.add_instance(host_c), resource);
    definition = define("full");
    // What this server's restart would excuse is over, unless a test says otherwise.
    server.clock.pass(backupd::Run_Starter::agent_return_limit);
  }

  std::string define(const std::string& subtype) {
    std::string body = definition_json();
    replace(body, "\"full\"", "\"" + subtype + "\"");
    replace(body, resource_uuid, resource);
    const Answer answer = server.request("POST", "/job-definitions", body);
    EXPECT_EQ(answer.status, 201U) << answer.text;
    return answer.text_of("id");
  }
  static void replace(std::string& text, const std::string& from, const std::string& to) {
    text.replace(text.find(from), from.size(), to);
  }
  void all_come() {
    a.come();
    b.come();
    c.come();
  }
  Answer start() { return server.request("POST", "/job-definitions/" + definition + "/start"); }
  std::string started() {
    const Answer answer = start();
    EXPECT_EQ(answer.status, 202U) << answer.text;
    return answer.text_of("job_act_id");
  }
  Answer job(const std::string& run) { return server.request("GET", "/jobs/" + run); }
  std::string follower(const std::string& run) { return job(run).text_of("followed_by"); }
  /// Until the run is in the state.
  Answer wait_for_state(const std::string& run, const std::string& state) {
    const auto end = std::chrono::steady_clock::now() + limit;
    Answer answer = job(run);
    while (answer.text_of("state_name") != state && std::chrono::steady_clock::now() < end) {
      std::this_thread::yield();
      answer = job(run);
    }
    EXPECT_EQ(answer.text_of("state_name"), state) << answer.text;
    return answer;
  }
  long job_count() { return server.request("GET", "/jobs").number_of("total"); }

  Memory_Server server;
  std::string resource;
  std::string definition;
  Node a{server, host_a, server.agent_key};
  Node b{server, host_b, server.other_agent_key};
  Node c{server, host_c, server.make_key(backupd::role_agent, host_c)};
};

TEST_F(Cluster_Dispatch, Goes_On_At_The_Next_Host_When_One_Declines) {
  all_come();
  const std::string first = started();
  EXPECT_EQ(job(first).text_of("host_uuid"), host_a);
  EXPECT_FALSE(job(first).body.contains("followed_by"));
  EXPECT_FALSE(job(first).body.contains("follows"));
  EXPECT_FALSE(job(first).body.contains("chain")) << "the server's own notes are not shown";
  ASSERT_TRUE(a.report(first, skipped));
  const std::string second = follower(first);
  ASSERT_FALSE(second.empty()) << "from the moment on at which the first is seen to be declined";
  EXPECT_EQ(job(second).text_of("follows"), first);
  EXPECT_EQ(job(second).text_of("host_uuid"), host_b);
  EXPECT_EQ(job(second).text_of("name"), "nightly");
  EXPECT_EQ(job(second).text_of("def_id"), definition);
  const Node::Request request = b.request();
  EXPECT_EQ(request.method, "job.start");
  EXPECT_EQ(request.run(), second);
  ASSERT_TRUE(b.report(second, running));
  ASSERT_TRUE(b.report(second, completed));
  EXPECT_EQ(job(second).text_of("follows"), first) << "kept when its agent reports";
  EXPECT_EQ(c.request_count(), 0U);
  EXPECT_EQ(job_count(), 2);
}

TEST_F(Cluster_Dispatch, Hands_Each_Agent_A_Definition_Of_Its_Own_With_The_Options_Of_The_Start) {
  all_come();
  const Answer answer =
      server.request("POST", "/job-definitions/" + definition + "/start", R"({"options":{"full":true}})");
  ASSERT_TRUE(a.report(answer.text_of("job_act_id"), skipped));
  for (Node* node : {&a, &b}) {
    const json_spirit::Object params = node->request().params;
    json_spirit::Object document;
    json_spirit::Object options;
    json_spirit::Object target;
    std::string host;
    std::string location;
    json_spirit::object_get(params, "definition", document);
    json_spirit::object_get(params, "options", options);
    json_spirit::object_get(document, "host_uuid", host);
    json_spirit::object_get(document, "target", target);
    json_spirit::object_get(target, "location", location);
    EXPECT_EQ(host, node == &a ? host_a : host_b);
    EXPECT_EQ(location, std::string("http://backupd.test:9443/q5/pools/") + pool_uuid);
    EXPECT_EQ(json_spirit::dump_json(options), R"({"full":true})");
    EXPECT_EQ(document.contains("agent"), node == &b) << "the name of the other host, hana1 of its greeting";
  }
}

TEST_F(Cluster_Dispatch, Begins_The_Next_Try_Once_When_The_Report_Comes_Twice) {
  all_come();
  const std::string first = started();
  ASSERT_TRUE(a.report(first, skipped));
  const std::string second = follower(first);
  ASSERT_TRUE(a.report(first, skipped));
  ASSERT_TRUE(a.report(first, completed)) << "what went on elsewhere stays declined";
  EXPECT_EQ(job(first).text_of("state_name"), "skipped");
  EXPECT_EQ(follower(first), second);
  EXPECT_EQ(b.request().run(), second);
  ASSERT_TRUE(b.report(second, running));
  EXPECT_EQ(job_count(), 2);
  EXPECT_EQ(b.request_count(), 1U);
}

TEST_F(Cluster_Dispatch, Ends_When_All_Hosts_Have_Declined) {
  all_come();
  std::string run = started();
  ASSERT_TRUE(a.report(run, skipped));
  run = follower(run);
  EXPECT_EQ(b.request().run(), run);
  ASSERT_TRUE(b.report(run, skipped));
  run = follower(run);
  EXPECT_EQ(c.request().run(), run);
  ASSERT_TRUE(c.report(run, skipped));
  EXPECT_EQ(follower(run), "");
  EXPECT_EQ(job(run).text_of("state_name"), "skipped");
  EXPECT_EQ(job_count(), 3);
  EXPECT_EQ(start().status, 202U) << "the chain has ended";
}

TEST_F(Cluster_Dispatch, Counts_A_Chain_Of_Tries_As_One_Running_Job) {
  all_come();
  const std::string first = started();
  ASSERT_TRUE(a.report(first, skipped));
  const std::string second = follower(first);
  const Answer refused = start();
  EXPECT_EQ(refused.status, 409U);
  EXPECT_NE(refused.error_message().find(second), std::string::npos) << refused.text;
  EXPECT_EQ(server.request("DELETE", "/job-definitions/" + definition).status, 409U);
}

TEST_F(Cluster_Dispatch, Passes_Over_Hosts_Without_An_Agent_And_Names_Them_In_The_Log) {
  c.come();
  const std::string only = started();
  EXPECT_EQ(c.request().run(), only);
  EXPECT_EQ(job(only).text_of("host_uuid"), host_c);
  const std::string text = job(only).text;
  EXPECT_NE(text.find(std::string("The agent of the host ") + host_a + " is not connected"), std::string::npos) << text;
  EXPECT_NE(text.find(std::string("The agent of the host ") + host_b + " is not connected"), std::string::npos) << text;
}

TEST_F(Cluster_Dispatch, Passes_Over_The_Next_Host_When_Its_Agent_Is_Away) {
  a.come();
  c.come();
  const std::string first = started();
  ASSERT_TRUE(a.report(first, skipped));
  EXPECT_EQ(c.request().run(), follower(first));
  EXPECT_NE(job(first).text.find(std::string("The agent of the host ") + host_b + " is not connected"),
            std::string::npos);
}

TEST_F(Cluster_Dispatch, Says_Who_Could_Not_Be_Asked_When_Nobody_Is_Left) {
  a.come();
  const std::string first = started();
  ASSERT_TRUE(a.report(first, skipped));
  EXPECT_EQ(follower(first), "");
  const std::string text = job(first).text;
  EXPECT_NE(text.find(std::string("The agent of the host ") + host_b + " is not connected"), std::string::npos) << text;
  EXPECT_NE(text.find(std::string("The agent of the host ") + host_c + " is not connected"), std::string::npos) << text;
}

TEST_F(Cluster_Dispatch, Refuses_A_Start_When_No_Host_Has_An_Agent) {
  const Answer answer = start();
  EXPECT_EQ(answer.status, 503U);
  for (const char* host : {host_a, host_b, host_c})
    EXPECT_NE(answer.error_message().find(host), std::string::npos) << answer.text;
  EXPECT_EQ(job_count(), 0);
}

TEST_F(Cluster_Dispatch, Ends_With_The_Reason_When_The_Next_Host_Refuses_The_Start) {
  all_come();
  b.refuse("this agent has no module \"hana\"");
  const std::string first = started();
  ASSERT_TRUE(a.report(first, skipped));
  const Answer second = wait_for_state(follower(first), "error");
  EXPECT_NE(second.text_of("message").find("has no module"), std::string::npos) << second.text;
  EXPECT_FALSE(second.body.contains("followed_by"));
  EXPECT_EQ(c.request_count(), 0U);
}

TEST_F(Cluster_Dispatch, Hands_The_Next_Try_Over_After_A_Restart_Of_The_Server) {
  a.come();
  const std::string first = started();
  a.leave();
  server.restart();
  // The agent that declined is back first, the next one is not there yet.
  a.come(R"(,"activities":[")" + first + "\"]");
  ASSERT_TRUE(a.report(first, skipped));
  const std::string second = follower(first);
  ASSERT_FALSE(second.empty());
  EXPECT_EQ(job(second).text_of("last_known_state"), "dispatching");
  a.leave();
  server.restart();
  EXPECT_EQ(follower(first), second);
  b.come();
  EXPECT_EQ(b.request().run(), second);
  ASSERT_TRUE(b.report(second, running));
  EXPECT_EQ(job_count(), 2);
  EXPECT_EQ(b.request_count(), 1U);
}

TEST_F(Cluster_Dispatch, Passes_Over_An_Agent_That_Does_Not_Come_Back_After_A_Restart) {
  a.come();
  const std::string first = started();
  a.leave();
  server.restart();
  a.come(R"(,"activities":[")" + first + "\"]");
  ASSERT_TRUE(a.report(first, skipped));
  const std::string second = follower(first);
  EXPECT_EQ(job(second).text_of("host_uuid"), host_b);
  // The starter has seen that it must wait, then the time it waits for has passed.
  c.come();
  std::this_thread::yield();
  const auto end = std::chrono::steady_clock::now() + limit;
  while (follower(second).empty() && std::chrono::steady_clock::now() < end) {
    server.clock.pass(backupd::Run_Starter::agent_return_limit);
    server.core->starter.wake();
  }
  EXPECT_EQ(job(second).text_of("state_name"), "skipped");
  EXPECT_NE(job(second).text_of("message").find("is not connected"), std::string::npos);
  EXPECT_EQ(c.request().run(), follower(second));
}

TEST_F(Cluster_Dispatch, Asks_An_Agent_Again_That_May_Not_Have_Heard) {
  all_come();
  const std::string first = started();
  std::unique_ptr<net::Web_Socket> deaf;
  b.leave();
  // An agent that takes the request and is gone before its answer.
  net::Net_Error error;
  deaf = server.network->open_web_socket({false, "backupd.test", 9443, ""}, "/q5/rpc",
                                         secure_string(server.other_agent_key), limit, error);
  ASSERT_TRUE(deaf);
  ASSERT_TRUE(deaf->send(std::string(R"({"jsonrpc":"2.0","id":1,"method":"agent.hello","params":{"host_uuid":")") +
                             host_b + R"(","name":"hana2","version":"1"}})",
                         error));
  std::string text;
  ASSERT_TRUE(deaf->receive(text, error));
  ASSERT_TRUE(a.report(first, skipped));
  const std::string second = follower(first);
  ASSERT_TRUE(deaf->receive(text, error));
  EXPECT_NE(text.find("job.start"), std::string::npos) << text;
  deaf->close();
  deaf.reset();
  while (server.core->agents.is_connected(host_b)) std::this_thread::yield();
  server.clock.pass(backupd::Run_Starter::agent_return_limit);
  server.core->starter.wake();
  b.come();
  EXPECT_EQ(b.request().run(), second) << "asked again, although its time to come back has passed";
  EXPECT_EQ(c.request_count(), 0U) << "it may be running there";
  EXPECT_EQ(job_count(), 2);
}

TEST_F(Cluster_Dispatch, Ends_When_The_Definition_Was_Removed_Meanwhile) {
  all_come();
  const std::string first = started();
  ASSERT_TRUE(server.database.write([&](backupd::Sql_Session& session) {
    return session.execute("DELETE FROM job_definitions WHERE id = :a", {definition}) == 1;
  }));
  ASSERT_TRUE(a.report(first, skipped));
  EXPECT_EQ(follower(first), "");
  EXPECT_NE(job(first).text.find("The job definition was removed meanwhile"), std::string::npos);
  EXPECT_EQ(b.request_count(), 0U);
}

TEST_F(Cluster_Dispatch, Asks_The_Definitions_Host_First_Also_When_It_Is_Not_In_The_Resource) {
  constexpr char stranger[] = "77777777-7777-4777-8777-777777777777";
  std::string body = definition_json();
  replace(body, host_a, stranger);
  replace(body, resource_uuid, resource);
  definition = server.request("POST", "/job-definitions", body).text_of("id");
  Node d{server, stranger, server.make_key(backupd::role_agent, stranger)};
  d.come();
  a.come();
  const std::string first = started();
  EXPECT_EQ(d.request().run(), first);
  ASSERT_TRUE(d.report(first, skipped));
  EXPECT_EQ(a.request().run(), follower(first));
}

TEST_F(Cluster_Dispatch, Runs_A_Log_Backup_On_The_Definitions_Host_Alone) {
  definition = define("log");
  b.come();
  EXPECT_EQ(start().status, 503U);
  a.come();
  const std::string first = started();
  ASSERT_TRUE(a.report(first, skipped));
  EXPECT_EQ(follower(first), "");
  EXPECT_EQ(b.request_count(), 0U);
}

TEST_F(Cluster_Dispatch, Takes_A_Stop_To_The_Run_That_Goes_On) {
  all_come();
  const std::string first = started();
  ASSERT_TRUE(a.report(first, skipped));
  const std::string second = follower(first);
  EXPECT_EQ(b.request().run(), second);
  ASSERT_TRUE(b.report(second, running));
  EXPECT_EQ(server.request("POST", "/jobs/" + first + "/stop").text, R"({"code":0,"message":""})");
  EXPECT_EQ(b.request(2).method, "job.stop");
  EXPECT_EQ(b.request(2).run(), second);
  ASSERT_TRUE(b.report(second, 9));
  const Answer late = server.request("POST", "/jobs/" + first + "/stop");
  EXPECT_EQ(late.status, 409U);
  EXPECT_NE(late.error_message().find(second), std::string::npos) << late.text;
}

TEST_F(Cluster_Dispatch, Tries_Nobody_Else_When_A_Stopped_Run_Is_Declined) {
  all_come();
  const std::string first = started();
  EXPECT_EQ(server.request("POST", "/jobs/" + first + "/stop").status, 200U);
  ASSERT_TRUE(a.report(first, skipped));
  EXPECT_EQ(follower(first), "");
  EXPECT_EQ(b.request_count(), 0U);
}

TEST_F(Cluster_Dispatch, Cancels_A_Run_That_Still_Waits_For_Its_Agent) {
  a.come();
  const std::string first = started();
  a.leave();
  server.restart();
  a.come(R"(,"activities":[")" + first + "\"]");
  ASSERT_TRUE(a.report(first, skipped));
  const std::string second = follower(first);
  const Answer stop = server.request("POST", "/jobs/" + first + "/stop");
  EXPECT_EQ(stop.number_of("code"), 0) << stop.text;
  EXPECT_EQ(job(second).text_of("state_name"), "canceled");
  b.come();
  const std::string next = started();
  EXPECT_NE(next, second);
  EXPECT_EQ(b.request_count(), 0U) << "canceled is canceled";
}

TEST_F(Cluster_Dispatch, Follows_No_Run_That_An_Agent_Began_Itself) {
  all_come();
  ASSERT_TRUE(a.report(uuid_of(90), running));
  ASSERT_TRUE(a.report(uuid_of(90), skipped));
  EXPECT_EQ(follower(uuid_of(90)), "");
}

}  // namespace
