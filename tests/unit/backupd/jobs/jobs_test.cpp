#include <mutex>

#include "unit/backupd/fake_agent.h"

using namespace backupd_test;

namespace {

std::string make_definition(Memory_Server& server) {
  server.add_pool();
  const Answer answer = server.request("POST", "/job-definitions", definition_json());
  EXPECT_EQ(answer.status, 201U) << answer.text;
  return answer.text_of("id");
}

TEST(Definition_Store, Keeps_Replaces_And_Removes) {
  Memory_Server server;
  const std::string id = make_definition(server);
  const std::string path = "/job-definitions/" + id;
  EXPECT_EQ(server.request("GET", path).number_of("job_revision"), 1);
  const std::string same = definition_json(R"("id":")" + id + "\"");
  EXPECT_EQ(server.request("POST", "/job-definitions", same).status, 200U);
  EXPECT_EQ(server.request("GET", path).number_of("job_revision"), 1);
  EXPECT_EQ(
      server.request("POST", "/job-definitions", definition_json(R"("max_seconds_retry":9,"id":")" + id + "\"")).status,
      201U);
  EXPECT_EQ(server.request("GET", path).number_of("job_revision"), 2);
  EXPECT_EQ(server.request("GET", path).number_of("max_seconds_retry"), 9);
  EXPECT_EQ(server.request("GET", "/job-definitions").number_of("total"), 1);
  EXPECT_EQ(server.request("DELETE", path).status, 200U);
  EXPECT_EQ(server.request("DELETE", path).status, 404U);
  EXPECT_EQ(server.request("GET", path).status, 404U);
}

TEST(Definition_Store, Refuses_Unsound_Definitions) {
  Memory_Server server;
  server.add_pool();
  struct Row {
    const char* name;
    std::string from;
    std::string to;
    unsigned status;
  };
  for (const Row& row :
       {Row{"unknown key", "\"name\":\"nightly\"", "\"nome\":\"nightly\"", 400},
        Row{"unknown module", "\"module\":\"hana\"", "\"module\":\"oracle\"", 422},
        Row{"unknown type", "\"type\":\"backup\"", "\"type\":\"copy\"", 422},
        Row{"a subtype of the other type", "\"subtype\":\"full\"", "\"subtype\":\"point-in-time\"", 422},
        Row{"unknown compression", "zstd", "gzip", 422}, Row{"unknown pool", "333333333333", "333333333334", 422},
        Row{"host is no uuid", "11111111-1111", "x", 400}, Row{"no entries", "[\"hana/HDB00/TN1\"]", "[]", 422},
        Row{"an entry of another type", "[\"hana/HDB00/TN1\"]", "[1]", 400},
        Row{"broken limits", "\"target\"", R"("rate_limits":{"dest_rate_limits":"[","src_rate_limits":"[]"},"target")",
            422}}) {
    std::string body = definition_json();
    const std::size_t at = body.find(row.from);
    ASSERT_NE(at, std::string::npos) << row.name;
    body.replace(at, row.from.size(), row.to);
    const Answer answer = server.request("POST", "/job-definitions", body);
    EXPECT_EQ(answer.status, row.status) << row.name << ": " << answer.text;
  }
}

TEST(Definition_Store, Checks_Database_Names) {
  Memory_Server server;
  server.add_pool();
  struct Row {
    std::string entry;
    bool good;
  };
  const std::string longest(127, 'A');
  for (const Row& row :
       {Row{"hana/HDB00", true}, Row{"hana/HDB00/SYSTEMDB", true}, Row{"hana/HDB00/_A1", true},
        Row{"/hana//HDB00/TN1", true}, Row{"hana/HDB00/" + longest, true}, Row{"hana/HDB00/" + longest + "A", false},
        Row{"hana/HDB00/tn1", false}, Row{"hana/HDB00/1A", false}, Row{"hana/HDB00/A%20B", false},
        Row{"hana/HDB00/A'B", false}, Row{"hana/HDB00/A%2FB", false}, Row{"hana/HDB00/%2e%2e", false},
        Row{"hana/HDB00/\\u00c4", false}, Row{"hana", false}, Row{"oracle/X/Y", false}, Row{"hana/HDB00/A/B", false},
        Row{"hana/%2e%2e/A", false}, Row{"", false}}) {
    const Answer answer = server.request("POST", "/job-definitions", definition_json("", row.entry));
    EXPECT_EQ(answer.status, row.good ? 201U : 422U) << row.entry << ": " << answer.text;
  }
}

TEST(Definition_Store, Refuses_A_Log_Backup_Of_A_Database_Whose_Logs_Could_Not_Be_Recorded) {
  Memory_Server server;
  server.add_pool();
  const auto log_backup_of = [](const std::string& entry) {
    std::string text = definition_json("", entry);
    const std::size_t subtype = text.find("\"full\"");
    return text.replace(subtype, 6, "\"log\"");
  };
  const std::string fits = "hana/HDB00/" + std::string(41, 'A');
  EXPECT_EQ(server.request("POST", "/job-definitions", log_backup_of(fits)).status, 201U);
  const Answer refused = server.request("POST", "/job-definitions", log_backup_of(fits + "A"));
  EXPECT_EQ(refused.status, 422U) << refused.text;
  EXPECT_NE(refused.text.find("is longer than 41 bytes"), std::string::npos) << refused.text;
  EXPECT_NE(refused.text.find("use a shorter name"), std::string::npos) << refused.text;
  EXPECT_EQ(server.request("POST", "/job-definitions", definition_json("", fits + "A")).status, 201U)
      << "full backups work";
}

TEST(Job_Dispatch, Starts_A_Job_Once) {
  Memory_Server server;
  const std::string id = make_definition(server);
  const std::string start = "/job-definitions/" + id + "/start";
  EXPECT_EQ(server.request("POST", start).status, 503U);
  std::mutex mutex;
  std::string seen;
  Fake_Agent agent(server, server.agent_key, [&](const std::string& method, const json_spirit::Value& params) {
    const std::lock_guard lock(mutex);
    seen = method + " " + json_spirit::dump_json(params);
    return good(json_spirit::Object());
  });
  ASSERT_TRUE(agent.hello(host_a).ok);
  const Answer answer = server.request("POST", start, R"({"options":{"full":true}})");
  ASSERT_EQ(answer.status, 202U) << answer.text;
  const std::string run = answer.text_of("job_act_id");
  {
    const std::lock_guard lock(mutex);
    EXPECT_EQ(seen.substr(0, 10), "job.start ");
    EXPECT_NE(seen.find(run), std::string::npos);
    EXPECT_NE(seen.find("\"location\":\"http://backupd.test:9443/q5/pools/"), std::string::npos);
    EXPECT_NE(seen.find("\"options\":{\"full\":true}"), std::string::npos);
  }
  EXPECT_EQ(server.request("GET", "/jobs/" + run).text_of("state_name"), "dispatching");
  EXPECT_EQ(server.request("GET", "/jobs/" + run).text_of("name"), "nightly");
  EXPECT_EQ(server.request("POST", start).status, 409U);
  EXPECT_EQ(server.request("DELETE", "/job-definitions/" + id).status, 409U);
  // A greeting that was written before the start does not end the run.
  ASSERT_TRUE(agent.hello(host_a, R"(,"activities":[])").ok);
  EXPECT_EQ(server.request("GET", "/jobs/" + run).text_of("state_name"), "dispatching");
  ASSERT_TRUE(
      agent.call("job.report", R"({"activities":[{"id":")" + run + R"(","def_id":")" + id + R"(","state":7}]})").ok);
  EXPECT_EQ(server.request("GET", "/jobs/" + run).text_of("name"), "nightly");
  EXPECT_EQ(server.request("GET", "/jobs/" + run).text_of("kind"), "data backup");
  EXPECT_EQ(server.request("POST", start).status, 202U);
  EXPECT_EQ(server.request("GET", "/jobs").number_of("total"), 2);
}

TEST(Job_Dispatch, Lists_Runs_By_Kind_And_State) {
  Memory_Server server;
  const std::string id = make_definition(server);
  std::string logs = definition_json();
  const std::size_t subtype = logs.find("\"full\"");
  ASSERT_NE(subtype, std::string::npos);
  logs.replace(subtype, 6, "\"log\"");
  const Answer log_backup = server.request("POST", "/job-definitions", logs);
  ASSERT_EQ(log_backup.status, 201U) << log_backup.text;
  Fake_Agent agent(server, server.agent_key,
                   [](const std::string&, const json_spirit::Value&) { return good(json_spirit::Object{}); });
  ASSERT_TRUE(agent.hello(host_a).ok);
  const auto report = [&](int number, const std::string& definition, int state) {
    return agent.call("job.report", R"({"activities":[{"id":")" + uuid_of(number) + R"(","def_id":")" + definition +
                                        R"(","state":)" + std::to_string(state) + "}]}");
  };
  ASSERT_TRUE(report(71, id, 7).ok);
  ASSERT_TRUE(report(72, log_backup.text_of("id"), 10).ok);
  ASSERT_TRUE(report(73, log_backup.text_of("id"), 3).ok);
  ASSERT_TRUE(report(73, log_backup.text_of("id"), 7).ok);
  ASSERT_TRUE(report(74, uuid_of(9), 7).ok);
  const auto total = [&](const std::string& filters) {
    return server.request("GET", "/jobs?" + filters).number_of("total");
  };
  EXPECT_EQ(total(""), 4);
  EXPECT_EQ(total("kind=data%20backup"), 1);
  EXPECT_EQ(total("kind=log%20backup"), 2);
  EXPECT_EQ(total("kind=log%20backup&state=completed"), 1);
  EXPECT_EQ(total("state=error"), 1);
  EXPECT_EQ(server.request("GET", "/jobs/" + uuid_of(73)).text_of("kind"), "log backup");
  EXPECT_EQ(server.request("GET", "/jobs/" + uuid_of(74)).text_of("kind"), "") << "its definition is unknown";
  const Answer unknown = server.request("GET", "/jobs?state=finished");
  EXPECT_EQ(unknown.status, 422U);
  EXPECT_NE(unknown.error_message().find("no state \"finished\""), std::string::npos) << unknown.text;
}

TEST(Job_Dispatch, Tells_Why_An_Agent_Refused_A_Start) {
  Memory_Server server;
  const std::string id = make_definition(server);
  Fake_Agent agent(server, server.agent_key,
                   [](const std::string&, const json_spirit::Value&) { return bad(-32000, "log is not supported"); });
  ASSERT_TRUE(agent.hello(host_a).ok);
  const Answer answer = server.request("POST", "/job-definitions/" + id + "/start");
  EXPECT_EQ(answer.status, 422U);
  EXPECT_NE(answer.error_message().find("log is not supported"), std::string::npos);
  const json_spirit::Array jobs = server.request("GET", "/jobs").rows();
  ASSERT_EQ(jobs.size(), 1U);
  std::string state;
  json_spirit::object_get(jobs.front().get_obj(), "state_name", state);
  EXPECT_EQ(state, "error");
}

TEST(Job_Dispatch, Passes_A_Stop_To_The_Agent) {
  Memory_Server server;
  Fake_Agent agent(server, server.agent_key, [](const std::string& method, const json_spirit::Value&) {
    return good(json_spirit::Object{{"code", method == "job.stop" ? 0 : -1}, {"message", "stopping"}});
  });
  ASSERT_TRUE(agent.hello(host_a).ok);
  const std::string path = "/jobs/" + uuid_of(70) + "/stop";
  EXPECT_EQ(server.request("POST", path).status, 404U);
  ASSERT_TRUE(agent.call("job.report", R"({"activities":[{"id":")" + uuid_of(70) + R"(","state":3}]})").ok);
  EXPECT_EQ(server.request("POST", path).text, R"({"code":0,"message":"stopping"})");
  ASSERT_TRUE(agent.call("job.report", R"({"activities":[{"id":")" + uuid_of(70) + R"(","state":9}]})").ok);
  EXPECT_EQ(server.request("POST", path).status, 409U);
}

TEST(Agent_Requests, Registers_What_Agents_Find) {
  Memory_Server server;
  EXPECT_EQ(server.request("POST", "/discover").status, 503U);
  Fake_Agent agent(server, server.agent_key, [](const std::string&, const json_spirit::Value&) {
    json_spirit::Value value;
    EXPECT_TRUE(json_spirit::load_json(
        R"({"instances":[{"type":"hana","name":"HDB_HDB00","uuid":"x","extended_attrs":{"sid":"HDB","instance_name":"HDB00","instance_number":0,"multi_container":true,"landscape_id":"l"}}]})",
        value));
    return good(value);
  });
  Fake_Agent other(server, server.other_agent_key,
                   [](const std::string&, const json_spirit::Value&) { return bad(-32000, "no module"); });
  ASSERT_TRUE(agent.hello(host_a).ok);
  ASSERT_TRUE(other.hello(host_b).ok);
  const Answer found = server.request("POST", "/discover");
  EXPECT_EQ(found.number_of("total"), 1) << found.text;
  EXPECT_NE(found.text.find("no module"), std::string::npos);
  EXPECT_EQ(server.request("POST", "/discover", std::string(R"({"host_uuid":")") + host_b + "\"}").status, 422U);
  ASSERT_EQ(server.request("POST", "/discover", std::string(R"({"host_uuid":")") + host_a + "\"}").status, 200U);
  EXPECT_EQ(server.agent("GET", "/resources?name=HDB_HDB00").number_of("total"), 1);
}

TEST(Agent_Requests, Verifies_Every_Object_Of_A_Set) {
  Memory_Server server;
  server.add_pool();
  server.add_object(uuid_of(1), "ebid-1");
  ASSERT_EQ(server.agent("POST", "/sets", set_json(uuid_of(1), "ebid-1")).status, 201U);
  const std::string request = R"({"set":")" + uuid_of(1) + "\"}";
  EXPECT_EQ(server.request("POST", "/verify", request).status, 503U);
  std::string asked;
  std::string said;
  Fake_Agent agent(server, server.agent_key, [&](const std::string&, const json_spirit::Value& params) {
    asked = json_spirit::dump_json(params);
    json_spirit::Value value;
    EXPECT_TRUE(json_spirit::load_json(said, value));
    return good(value);
  });
  ASSERT_TRUE(agent.hello(host_a).ok);
  struct Row {
    const char* answer;
    bool ok;
  };
  for (const Row& row : {Row{R"({"objects":[{"name":"x","ok":true,"message":"","bytes":1000}]})", true},
                         Row{R"({"objects":[{"name":"x","ok":true,"message":"","bytes":999}]})", false},
                         Row{R"({"objects":[{"name":"x","ok":false,"message":"checksum"}]})", false},
                         Row{R"({"objects":[]})", false}, Row{"[]", false}}) {
    said = row.answer;
    const Answer answer = server.request("POST", "/verify", request);
    bool ok = !row.ok;
    json_spirit::object_get(answer.body, "ok", ok);
    EXPECT_EQ(ok, row.ok) << row.answer << " gave " << answer.text;
  }
  EXPECT_NE(
      asked.find(
          R"({"ebid":"ebid-1","name":"/usr/sap/HDB/SYS/global/hdb/backint/DB_TN1/pipe_0","user":"TN1@HDB","size":1000})"),
      std::string::npos)
      << asked;
  EXPECT_EQ(server.request("POST", "/verify", R"({"set":"none"})").status, 404U);
}

TEST(Resource_Store, Joins_The_Hosts_Of_One_Landscape) {
  Memory_Server server;
  const auto body = [](const char* host, const char* landscape) {
    return std::string(R"({"name":"HDB_HDB00","type":"hana","host_uuid":")") + host +
           R"(","extended_attrs":{"sid":"HDB")" + landscape + "}}";
  };
  const std::string shared = R"(,"landscape_id":"one")";
  const Answer first = server.request("POST", "/resources", body(host_a, shared.c_str()));
  const Answer second = server.request("POST", "/resources", body(host_b, shared.c_str()));
  EXPECT_EQ(first.status, 201U) << first.text;
  EXPECT_EQ(second.text_of("uuid"), first.text_of("uuid"));
  json_spirit::Array instances;
  json_spirit::object_get(second.body, "instances", instances);
  ASSERT_EQ(instances.size(), 2U);
  // The same instance again keeps its uuid.
  EXPECT_EQ(server.request("POST", "/resources", body(host_b, shared.c_str())).body, second.body);
  EXPECT_EQ(server.agent("POST", "/resources", body(host_b, "")).status, 403U);
  EXPECT_EQ(server.request("POST", "/resources", R"({"name":"x","type":"disk","extended_attrs":{}})").status, 422U);
}

TEST(Resource_Store, Keeps_Systems_Apart_That_Only_Share_A_Name) {
  Memory_Server server;
  const auto body = [](const char* host) {
    return std::string(R"({"name":"HDB_HDB00","type":"hana","host_uuid":")") + host +
           R"(","extended_attrs":{"sid":"HDB"}})";
  };
  EXPECT_NE(server.request("POST", "/resources", body(host_a)).text_of("uuid"),
            server.request("POST", "/resources", body(host_b)).text_of("uuid"));
  EXPECT_EQ(server.agent("GET", "/resources").number_of("total"), 2);
}

TEST(Alert_Store, Stores_An_Alert_Once) {
  Memory_Server server;
  const std::string body = R"({"uuid":")" + uuid_of(1) + R"(","class":7,"code":45,"flags":17592186044416,)" +
                           R"("parameters":{"database":"TN1"},"level":1,"job_act_id":")" + uuid_of(70) +
                           R"(","time":"2026-01-01 10:00:00"})";
  EXPECT_EQ(server.agent("POST", "/alerts", body).status, 201U);
  EXPECT_EQ(server.agent("POST", "/alerts", body).status, 200U);
  const Answer alerts = server.request("GET", "/alerts?job_act_id=" + uuid_of(70));
  ASSERT_EQ(alerts.rows().size(), 1U);
  EXPECT_EQ(server.request("GET", "/alerts?job_act_id=" + uuid_of(71)).number_of("total"), 0);
  long flags = 0;
  json_spirit::object_get(alerts.rows().front().get_obj(), "flags", flags);
  EXPECT_EQ(flags, 17592186044416);
  EXPECT_EQ(server.agent("POST", "/alerts", R"({"class":7})").status, 400U);
  EXPECT_EQ(server.agent("POST", "/alerts", R"({"class":7,"code":1,"time":"now"})").status, 422U);
}

}  // namespace
