#include <future>

#include "unit/backupd/fake_agent.h"

using namespace backupd_test;

namespace {

const std::string run = uuid_of(70);

std::string report(int state, const std::string& more = "", const std::string& id = run) {
  return R"({"activities":[{"id":")" + id + R"(","def_id":"","state":)" + std::to_string(state) + more + "}]}";
}

/// The state of a run as the server shows it.
std::string state_of(Memory_Server& server, const std::string& id = run) {
  return server.request("GET", "/jobs/" + id).text_of("state_name");
}

TEST(Agent_Service, Greets_An_Agent_And_Shows_Its_Host) {
  Memory_Server server;
  Fake_Agent agent(server, server.agent_key, obedient);
  const JSON_RPC_Answer answer = agent.hello(host_a);
  ASSERT_TRUE(answer.ok) << answer.message;
  EXPECT_EQ(json_spirit::object_require<std::string>(answer.result.get_obj(), "server_time"), "2023-11-14 22:13:20");
  const json_spirit::Array hosts = server.request("GET", "/hosts").rows();
  ASSERT_EQ(hosts.size(), 1U);
  EXPECT_EQ(
      json_spirit::dump_json(hosts.front()),
      std::string(R"({"uuid":")") + host_a +
          R"(","name":"hana1","version":"1.0","last_seen":"2023-11-14 22:13:20","modules":["hana"],"connected":true})");
}

TEST(Agent_Service, Tells_Until_When_An_Agent_Was_There) {
  Memory_Server server;
  {
    Fake_Agent agent(server, server.agent_key, obedient);
    ASSERT_TRUE(agent.hello(host_a).ok);
    server.clock.pass_wall(std::chrono::hours(24));
  }
  server.restart();  // the server's side of the connection has ended
  const json_spirit::Array hosts = server.request("GET", "/hosts").rows();
  ASSERT_EQ(hosts.size(), 1U);
  EXPECT_EQ(json_spirit::object_require<std::string>(hosts.front().get_obj(), "last_seen"), "2023-11-15 22:13:20");
  EXPECT_FALSE(json_spirit::object_require<bool>(hosts.front().get_obj(), "connected"));
}

TEST(Agent_Service, Refuses_A_Host_That_The_Key_Is_Not_For) {
  Memory_Server server;
  Fake_Agent agent(server, server.agent_key, obedient);
  const JSON_RPC_Answer answer = agent.hello(host_b);
  EXPECT_EQ(answer.code, JSON_RPC_E_INVALID_PARAMS);
  EXPECT_FALSE(server.core->agents.is_connected(host_a));
  EXPECT_FALSE(server.core->agents.is_connected(host_b));
}

TEST(Agent_Service, Refuses_Methods_And_Params_It_Does_Not_Know) {
  Memory_Server server;
  Fake_Agent agent(server, server.agent_key, obedient);
  EXPECT_EQ(agent.call("no.such", "{}").code, JSON_RPC_E_METHOD_NOT_FOUND);
  for (const char* params : {"[]", "{}", R"({"activities":5})", R"({"activities":[5]})",
                             R"({"activities":[{"id":"x","state":3}]})", R"({"activities":[{"state":3}]})"})
    EXPECT_EQ(agent.call("job.report", params).code, JSON_RPC_E_INVALID_PARAMS) << params;
  EXPECT_EQ(agent.call("job.report", report(99)).code, JSON_RPC_E_INVALID_PARAMS);
  EXPECT_EQ(agent.call("job.report", report(3, R"(,"progress":101)")).code, JSON_RPC_E_INVALID_PARAMS);
  EXPECT_EQ(agent.call("job.report", report(3, R"(,"start_time":"yesterday")")).code, JSON_RPC_E_INVALID_PARAMS);
  EXPECT_EQ(server.request("GET", "/jobs").number_of("total"), 0);
}

TEST(Agent_Service, Keeps_What_An_Agent_Reports) {
  Memory_Server server;
  Fake_Agent agent(server, server.agent_key, obedient);
  ASSERT_TRUE(agent.hello(host_a).ok);
  ASSERT_TRUE(
      agent.call("job.report", report(3, R"(,"progress":40,"set_size":1000,"start_time":1700000000,"message":"m")"))
          .ok);
  ASSERT_TRUE(agent
                  .call("job.log", R"({"job_act_id":")" + run +
                                       R"(","lines":[{"priority":4,"text":"hello","time":"2026-01-01 10:00:00"}]})")
                  .ok);
  const Answer job = server.request("GET", "/jobs/" + run);
  EXPECT_EQ(job.text_of("state_name"), "running");
  EXPECT_EQ(job.number_of("progress"), 40);
  EXPECT_EQ(job.number_of("set_size"), 1000);
  EXPECT_EQ(job.text_of("start_time"), "2023-11-14 22:13:20");
  json_spirit::Array lines;
  json_spirit::object_get(job.body, "log", lines);
  EXPECT_EQ(json_spirit::dump_json(lines), R"([{"priority":4,"text":"hello","time":"2026-01-01 10:00:00"}])");
}

TEST(Agent_Service, Takes_The_Logs_Of_Several_Runs_At_Once_All_Or_None) {
  Memory_Server server;
  Fake_Agent agent(server, server.agent_key, obedient);
  Fake_Agent other(server, server.other_agent_key, obedient);
  const std::string second = uuid_of(71);
  ASSERT_TRUE(agent.call("job.report", report(3)).ok);
  ASSERT_TRUE(agent.call("job.report", R"({"activities":[{"id":")" + second + R"(","state":3}]})").ok);
  const auto log = [](const std::string& id, const char* text) {
    return R"({"job_act_id":")" + id + R"(","lines":[{"priority":4,"text":")" + text + R"(","time":"t"}]})";
  };
  const auto lines_of = [&](const std::string& id) {
    json_spirit::Array lines;
    json_spirit::object_get(server.request("GET", "/jobs/" + id).body, "log", lines);
    return json_spirit::dump_json(lines);
  };
  ASSERT_TRUE(agent.call("job.log", R"({"logs":[)" + log(run, "one") + "," + log(second, "two") + "]}").ok);
  EXPECT_EQ(lines_of(run), R"([{"priority":4,"text":"one","time":"t"}])");
  EXPECT_EQ(lines_of(second), R"([{"priority":4,"text":"two","time":"t"}])");
  const std::string own = uuid_of(72);
  ASSERT_TRUE(other.call("job.report", R"({"activities":[{"id":")" + own + R"(","state":3}]})").ok);
  EXPECT_EQ(other.call("job.log", R"({"logs":[)" + log(own, "three") + "," + log(run, "four") + "]}").code,
            JSON_RPC_E_INVALID_PARAMS);
  EXPECT_EQ(lines_of(own), "[]");
  EXPECT_EQ(agent.call("job.log", R"({"logs":[7]})").code, JSON_RPC_E_INVALID_PARAMS);
}

TEST(Agent_Service, Passes_Over_A_Report_That_Comes_After_The_End) {
  Memory_Server server;
  Fake_Agent agent(server, server.agent_key, obedient);
  ASSERT_TRUE(agent.hello(host_a).ok);
  ASSERT_TRUE(agent.call("job.report", report(7, R"(,"progress":100)")).ok);
  ASSERT_TRUE(agent.call("job.report", report(3, R"(,"progress":60)")).ok);
  EXPECT_EQ(state_of(server), "completed");
}

TEST(Agent_Service, Lets_No_Agent_Speak_For_Another_Host) {
  Memory_Server server;
  Fake_Agent agent(server, server.agent_key, obedient);
  Fake_Agent other(server, server.other_agent_key, obedient);
  ASSERT_TRUE(agent.call("job.report", report(3)).ok);
  EXPECT_EQ(other.call("job.report", report(7)).code, JSON_RPC_E_INVALID_PARAMS);
  EXPECT_EQ(other.call("job.log", R"({"job_act_id":")" + run + R"(","lines":[]})").code, JSON_RPC_E_INVALID_PARAMS);
}

TEST(Agent_Service, Shows_The_Run_Of_An_Agent_That_Is_Away_As_Unknown) {
  Memory_Server server;
  {
    Fake_Agent agent(server, server.agent_key, obedient);
    ASSERT_TRUE(agent.hello(host_a).ok);
    ASSERT_TRUE(agent.call("job.report", report(3)).ok);
    EXPECT_EQ(state_of(server), "running");
  }
  server.network->close_web_sockets();
  while (server.core->agents.is_connected(host_a)) std::this_thread::yield();
  const Answer job = server.request("GET", "/jobs/" + run);
  EXPECT_EQ(job.text_of("state_name"), "unknown");
  EXPECT_EQ(job.text_of("last_known_state"), "running");
}

TEST(Agent_Service, Ends_The_Runs_That_A_Returning_Agent_Does_Not_Know) {
  Memory_Server server;
  Fake_Agent agent(server, server.agent_key, obedient);
  ASSERT_TRUE(agent.hello(host_a).ok);
  ASSERT_TRUE(agent.call("job.report", report(3)).ok);
  ASSERT_TRUE(agent.call("job.report", report(3, "", uuid_of(71))).ok);
  ASSERT_TRUE(agent.hello(host_a, R"(,"activities":[")" + run + "\"]").ok);
  EXPECT_EQ(state_of(server), "running");
  EXPECT_EQ(state_of(server, uuid_of(71)), "error");
  // The agent knows better after all.
  ASSERT_TRUE(agent.call("job.report", report(3, "", uuid_of(71))).ok);
  EXPECT_EQ(state_of(server, uuid_of(71)), "running");
}

TEST(Agent_Service, Replaces_The_Socket_Of_An_Agent_That_Comes_Again) {
  Memory_Server server;
  Fake_Agent first(server, server.agent_key,
                   [](const std::string&, const json_spirit::Value&) { return good("first"); });
  ASSERT_TRUE(first.hello(host_a).ok);
  Fake_Agent second(server, server.agent_key,
                    [](const std::string&, const json_spirit::Value&) { return good("second"); });
  ASSERT_TRUE(second.hello(host_a).ok);
  first.wait_closed();
  const Answer answer =
      server.request("POST", std::string("/agents/") + host_a + "/call", R"({"method":"instance.state"})");
  EXPECT_EQ(answer.text, "\"second\"");
}

TEST(Agent_Service, Forwards_Between_Agents) {
  Memory_Server server;
  server.add_instance(host_a);
  server.add_instance(host_b);
  Fake_Agent asking(server, server.agent_key, obedient);
  Fake_Agent asked(server, server.other_agent_key, [](const std::string& method, const json_spirit::Value& params) {
    if (method == "hana.instance.control") return good(json_spirit::Object{{"got", params}});
    return bad(-32050, "the instance is away");
  });
  ASSERT_TRUE(asking.hello(host_a).ok);
  const std::string to = std::string(R"({"host_uuid":")") + host_b + R"(","params":{"x":1},"timeout":5,"method":")";
  EXPECT_EQ(asking.call("agent.forward", to + "hana.instance.control\"}").code, JSON_RPC_E_NOT_CONNECTED);
  ASSERT_TRUE(asked.hello(host_b).ok);
  const JSON_RPC_Answer answer = asking.call("agent.forward", to + "hana.instance.control\"}");
  ASSERT_TRUE(answer.ok) << answer.message;
  EXPECT_EQ(json_spirit::dump_json(answer.result), R"({"got":{"x":1}})");
  const JSON_RPC_Answer error = asking.call("agent.forward", to + "hana.file.download\"}");
  EXPECT_EQ(error.code, -32050);
  EXPECT_EQ(error.message, "the instance is away");
}

TEST(Agent_Service, Forwards_No_Method_That_Is_The_Servers_Alone) {
  Memory_Server server;
  Fake_Agent asking(server, server.agent_key, obedient);
  Fake_Agent asked(server, server.other_agent_key, obedient);
  ASSERT_TRUE(asked.hello(host_b).ok);
  for (const char* method : {"job.start", "job.stop", "instance.logon", "hana.other", "backint.verify", "agent.x"})
    EXPECT_EQ(
        asking.call("agent.forward", std::string(R"({"host_uuid":")") + host_b + R"(","method":")" + method + "\"}")
            .code,
        JSON_RPC_E_INVALID_PARAMS)
        << method;
}

TEST(Agent_Service, Answers_A_Forward_Whose_Agent_Goes_Away_Meanwhile) {
  Memory_Server server;
  Fake_Agent asking(server, server.agent_key, obedient);
  std::promise<void> arrived;
  std::promise<void> released;
  std::shared_future<void> release = released.get_future().share();
  Fake_Agent asked(server, server.other_agent_key, [&](const std::string&, const json_spirit::Value&) {
    arrived.set_value();
    release.wait();
    return good(1);
  });
  ASSERT_TRUE(asked.hello(host_b).ok);
  std::thread ends([&] {
    arrived.get_future().wait();
    server.network->close_web_sockets();
  });
  const backupd::Agent_Registry& agents = server.core->agents;
  const JSON_RPC_Answer answer = agents.call(host_b, "hana.instance.control", {}, std::chrono::seconds(30));
  EXPECT_EQ(answer.code, JSON_RPC_E_NOT_CONNECTED);
  released.set_value();
  ends.join();
}

TEST(Agent_Service, Lists_The_Definitions_Of_A_Host) {
  Memory_Server server;
  server.add_pool();
  const std::string id = server.request("POST", "/job-definitions", definition_json()).text_of("id");
  ASSERT_FALSE(id.empty());
  Fake_Agent agent(server, server.agent_key, obedient);
  Fake_Agent other(server, server.other_agent_key, obedient);
  const JSON_RPC_Answer mine =
      agent.call("job.def.list", std::string(R"({"module":"hana","host_uuid":")") + host_a + "\"}");
  ASSERT_TRUE(mine.ok) << mine.message;
  const json_spirit::Array rows = json_spirit::object_require<json_spirit::Array>(mine.result.get_obj(), "rows");
  ASSERT_EQ(rows.size(), 1U);
  EXPECT_EQ(json_spirit::dump_json(*rows.front().get_obj().find("target")),
            std::string(R"({"pool_uuid":")") + pool_uuid + R"(","location":"http://backupd.test:9443/q5/pools/)" +
                pool_uuid + "\"}");
  EXPECT_EQ(json_spirit::dump_json(other.call("job.def.list", R"({"module":"hana"})").result), R"({"rows":[]})");
  EXPECT_EQ(other.call("job.def.list", R"({"uuid":")" + id + "\"}").result.get_array().size(), 1U);
  EXPECT_EQ(other.call("job.def.list", R"({"uuid":")" + uuid_of(1) + "\"}").result.get_array().size(), 0U);
}

}  // namespace
