#include "backupd/agents/agent_gate.h"

#include <filesystem>
#include <fstream>

#include "support/freed_memory_watch.h"
#include "unit/backupd/fake_agent.h"

using namespace backupd_test;

namespace {

constexpr char control_params[] = R"({"sid":"HDB","instance_name":"HDB00","action":"%"})";
constexpr char download_params[] =
    R"({"origin_sid":"ABC","origin_database":"TN1","target_sid":"HDB","target_database":"TN2",)"
    R"("extended_attrs":{"io_ctl":{"access_key":"SECRET"}},"access_key":"SECRET"})";

constexpr char create_params[] =
    R"({"sid":"HDB","instance_name":"HDB00","database":"QA1","password":"SECRET","action":"state"})";

std::string control(const std::string& action) {
  std::string text = control_params;
  return text.replace(text.find('%'), 1, action);
}
std::string call_body(const std::string& method, const std::string& params) {
  return R"({"method":")" + method + R"(","params":)" + params + "}";
}

/// A request as a connection hands it over; it keeps what it was given.
class Given_Exchange : public net::Server_Exchange {
 public:
  Given_Exchange(std::string target, std::string body, const std::string& key)
      : target_(std::move(target)), body_(std::move(body)) {
    headers_.set_bearer(secure_string(key));
  }
  const std::string& method() const override { return method_; }
  const std::string& target() const override { return target_; }
  const net::Http_Headers& headers() const override { return headers_; }
  std::string peer_address() const override { return "127.0.0.1"; }
  bool read_body(std::string& body, std::size_t) override {
    body = body_;
    return true;
  }
  bool read_body(net::Body_Sink&) override { return false; }
  void respond(const net::Http_Response& response) override { status = response.status; }
  void respond(const net::Http_Response& head, net::Body_Source&) override { status = head.status; }

  unsigned status = 0;

 private:
  const std::string method_ = "POST";
  const std::string target_;
  const std::string body_;
  net::Http_Headers headers_;
};

/// A server with the agents of two hosts that share the system HDB. What reaches the second one is written down.
class Agent_Gate_Test : public ::testing::Test {
 protected:
  Agent_Gate_Test() {
    server.add_instance(host_a);
    server.add_instance(host_b);
    asking = std::make_unique<Fake_Agent>(server, server.agent_key, obedient);
    EXPECT_TRUE(asking->hello(host_a).ok);
    net::Net_Error error;
    socket = server.network->open_web_socket({false, "backupd.test", 9443, ""}, "/q5/rpc",
                                             secure_string(server.other_agent_key), std::chrono::seconds(10), error);
    peer = std::make_unique<JSON_RPC_Peer>(
        *socket,
        [this](const JSON_RPC_Message& message) {
          seen.push_back(message.method + " " + json_spirit::dump_json(message.requester));
          passed_on = json_spirit::dump_json(message.params);
          return fails ? bad(-32603, "failed to handle instance\n") : good(json_spirit::Object{{"error", 0}});
        },
        1, JSON_RPC_Peer::Side_Lane{});
    reader = std::thread([this] { peer->serve(); });
    EXPECT_TRUE(peer->call("agent.hello", json_spirit::Object{{"host_uuid", host_b}, {"name", "hana2"}},
                           std::chrono::seconds(10))
                    .ok);
  }
  ~Agent_Gate_Test() override {
    peer->close();
    reader.join();
  }

  Answer call(const std::string& key, const std::string& method, const std::string& params) {
    return server.request("POST", std::string("/agents/") + host_b + "/call", call_body(method, params), key);
  }
  JSON_RPC_Answer forward(const std::string& method, const std::string& params) {
    return asking->call("agent.forward", std::string(R"({"host_uuid":")") + host_b + R"(","method":")" + method +
                                             R"(","params":)" + params + "}");
  }
  /// The audit entries, oldest first, without ids and times.
  std::vector<std::string> audit() {
    std::vector<std::string> entries;
    for (const json_spirit::Value& row : server.request("GET", "/audit", "", server.viewer_key).rows()) {
      json_spirit::Object entry = row.get_obj();
      for (const char* key : {"id", "key_id", "time", "end_time"}) entry.erase(key);
      entries.push_back(json_spirit::dump_json(entry));
    }
    return entries;
  }

  Memory_Server server;
  std::vector<std::string> seen;
  std::string passed_on;  ///< the params that came last
  std::atomic<bool> fails{false};
  std::unique_ptr<Fake_Agent> asking;
  std::unique_ptr<net::Web_Socket> socket;
  std::unique_ptr<JSON_RPC_Peer> peer;
  std::thread reader;
};

TEST_F(Agent_Gate_Test, Lets_Each_Role_Ask_For_What_It_May) {
  const struct {
    std::string key;
    const char* method;
    std::string params;
    unsigned status;
  } rows[] = {{server.viewer_key, "hana.instance.list", "null", 200},
              {server.viewer_key, "hana.database.list", R"({"uid":"","instance":"HDB_HDB00"})", 200},
              {server.viewer_key, "hana.instance.control", control("state"), 200},
              {server.viewer_key, "hana.instance.control", control("stop"), 403},
              {server.viewer_key, "hana.instance.control", control("STATE"), 403},
              {server.viewer_key, "hana.file.download", download_params, 403},
              {server.viewer_key, "instance.probe", "{}", 403},
              {server.viewer_key, "job.start", "{}", 403},
              {server.operator_key, "hana.instance.list", "null", 200},
              {server.operator_key, "hana.instance.control", control("restart"), 200},
              {server.viewer_key, "hana.database.create", create_params, 403},
              {server.agent_key, "hana.database.create", create_params, 403},
              {server.operator_key, "hana.database.create", create_params, 200},
              {server.operator_key, "hana.file.download", download_params, 403},
              {server.operator_key, "instance.probe", "{}", 200},
              {server.agent_key, "hana.instance.list", "null", 403}};
  for (const auto& row : rows) {
    const std::size_t before = seen.size();
    const Answer answer = call(row.key, row.method, row.params);
    EXPECT_EQ(answer.status, row.status) << row.method << row.params << answer.text;
    EXPECT_EQ(seen.size(), before + (row.status == 200 ? 1 : 0)) << row.method << ": what is refused never gets there";
  }
  EXPECT_EQ(seen.front(), R"(hana.instance.list {"role":"viewer"})");
  EXPECT_EQ(seen.back(), R"(instance.probe {"role":"operator"})");
}

TEST_F(Agent_Gate_Test, Lets_Agents_Of_One_System_Ask_Each_Other_About_It) {
  EXPECT_TRUE(forward("hana.instance.control", control("state")).ok);
  EXPECT_TRUE(forward("hana.instance.control", control("restart")).ok);
  EXPECT_TRUE(forward("hana.file.download", download_params).ok);
  EXPECT_TRUE(forward("hana.instance.list", "{}").ok);
  EXPECT_EQ(seen.back(), std::string(R"(hana.instance.list {"role":"agent","host_uuid":")") + host_a + "\"}");
  EXPECT_TRUE(forward("hana.database.list", R"({"uid":"","instance":"HDB_HDB00"})").ok);
  const std::size_t before = seen.size();
  const JSON_RPC_Answer other_system =
      forward("hana.instance.control", R"({"sid":"ABC","instance_name":"HDB00","action":"stop"})");
  EXPECT_EQ(other_system.code, JSON_RPC_E_INVALID_PARAMS);
  EXPECT_NE(other_system.message.find("share no such system"), std::string::npos) << other_system.message;
  EXPECT_EQ(forward("hana.file.download", R"({"origin_sid":"HDB","target_sid":"ABC"})").code,
            JSON_RPC_E_INVALID_PARAMS);
  // Only what the handler goes by counts, not a member beside it that names another system.
  EXPECT_EQ(forward("hana.file.download", R"({"sid":"HDB","origin_sid":"HDB","target_sid":"ABC"})").code,
            JSON_RPC_E_INVALID_PARAMS);
  EXPECT_EQ(forward("hana.instance.control", R"({"sid":"ABC","target_sid":"HDB","action":"state"})").code,
            JSON_RPC_E_INVALID_PARAMS);
  for (const char* method : {"hana.database.list", "hana.instance.list"})
    for (const char* instance : {"ABC_HDB00", "HDB", "_HDB00", "HDBX_HDB00"})
      EXPECT_EQ(forward(method, std::string(R"({"uid":"","sid":"HDB","instance":")") + instance + "\"}").code,
                JSON_RPC_E_INVALID_PARAMS)
          << method << instance;
  EXPECT_EQ(forward("hana.database.create", create_params).code, JSON_RPC_E_INVALID_PARAMS) << "operators alone may";
  for (const char* method : {"job.start", "instance.logon", "backint.verify", "agent.forward", "hana.other"})
    EXPECT_EQ(forward(method, "{}").code, JSON_RPC_E_INVALID_PARAMS) << method;
  EXPECT_EQ(seen.size(), before);
}

TEST_F(Agent_Gate_Test, Lets_Agents_Alone_Remove_What_A_Restore_Of_Their_System_Staged) {
  const std::string params =
      R"({"origin_sid":"ABC","origin_database":"TN1","target_sid":"HDB","target_database":"TN2"})";
  EXPECT_TRUE(forward("staged.remove", params).ok);
  EXPECT_EQ(seen,
            std::vector<std::string>{std::string(R"(staged.remove {"role":"agent","host_uuid":")") + host_a + "\"}"});
  EXPECT_EQ(forward("staged.remove", R"({"sid":"HDB","origin_sid":"HDB","target_sid":"ABC"})").code,
            JSON_RPC_E_INVALID_PARAMS);
  EXPECT_EQ(call(server.operator_key, "staged.remove", params).status, 403U);
  EXPECT_EQ(call(server.viewer_key, "staged.remove", params).status, 403U);
  EXPECT_EQ(seen.size(), 1U);
  const std::vector<std::string> entries = audit();
  ASSERT_EQ(entries.size(), 4U);
  EXPECT_NE(entries.front().find(R"("method":"staged.remove","origin_sid":"ABC","origin_database":"TN1",)"),
            std::string::npos)
      << entries.front();
}

TEST(Agent_Gate, Keeps_Agents_Of_Different_Systems_Apart) {
  Memory_Server server;
  server.add_instance(host_a, "land-1");
  server.add_instance(host_b, "land-2");
  Fake_Agent asking(server, server.agent_key, obedient);
  Fake_Agent asked(server, server.other_agent_key, obedient);
  ASSERT_TRUE(asking.hello(host_a).ok);
  ASSERT_TRUE(asked.hello(host_b).ok);
  for (const char* method : {"hana.instance.control", "hana.file.download", "hana.instance.list"}) {
    const JSON_RPC_Answer answer =
        asking.call("agent.forward", std::string(R"({"host_uuid":")") + host_b +
                                         R"(","params":{"sid":"HDB"},"method":")" + method + "\"}");
    EXPECT_EQ(answer.code, JSON_RPC_E_INVALID_PARAMS) << method;
  }
}

TEST_F(Agent_Gate_Test, Writes_Every_Action_And_Every_Refused_One_Down) {
  (void)call(server.operator_key, "hana.instance.control", control("stop"));
  (void)call(server.viewer_key, "hana.instance.control", control("start"));
  (void)forward("hana.file.download", download_params);
  fails = true;
  (void)call(server.operator_key, "hana.instance.control", control("restart"));
  const std::string to_b = std::string(R"("host_uuid":")") + host_b + "\",";
  const std::string control_of = R"("method":"hana.instance.control","sid":"HDB","instance_name":"HDB00","action":")";
  const std::vector<std::string> wanted = {
      R"({"role":"operator","from_host_uuid":"",)" + to_b + control_of + R"(stop","result":"done"})",
      R"({"role":"viewer","from_host_uuid":"",)" + to_b + control_of +
          R"(start","result":"refused","message":"a key for the role viewer may not ask an agent for )"
          R"(\"hana.instance.control\" in this way; use a key of another role"})",
      R"({"role":"agent","from_host_uuid":")" + std::string(host_a) + R"(",)" + to_b +
          R"("method":"hana.file.download","origin_sid":"ABC","origin_database":"TN1","target_sid":"HDB",)"
          R"("target_database":"TN2","result":"done"})",
      R"({"role":"operator","from_host_uuid":"",)" + to_b + control_of +
          R"(restart","result":"failed","message":"failed to handle instance\n"})"};
  EXPECT_EQ(audit(), wanted);
  const std::string text = server.request("GET", "/audit", "", server.viewer_key).text;
  EXPECT_EQ(text.find("SECRET"), std::string::npos);
  EXPECT_EQ(text.find("extended_attrs"), std::string::npos);
}

TEST_F(Agent_Gate_Test, Writes_The_Creation_Of_A_Database_Down_Without_Its_Password) {
  (void)call(server.operator_key, "hana.database.create", create_params);
  (void)call(server.viewer_key, "hana.database.create", create_params);
  fails = true;
  (void)call(server.operator_key, "hana.database.create", create_params);
  const std::vector<std::string> entries = audit();
  ASSERT_EQ(entries.size(), 3U);
  const std::string subject =
      R"("method":"hana.database.create","sid":"HDB","instance_name":"HDB00","action":"state","database":"QA1",)";
  EXPECT_NE(entries[0].find(subject + R"("result":"done")"), std::string::npos) << entries[0];
  EXPECT_NE(entries[1].find(subject + R"("result":"refused")"), std::string::npos) << entries[1];
  EXPECT_NE(entries[2].find(subject + R"("result":"failed","message":"failed to handle)"), std::string::npos)
      << entries[2];
  EXPECT_EQ(server.request("GET", "/audit", "", server.viewer_key).text.find("SECRET"), std::string::npos);
}

TEST_F(Agent_Gate_Test, A_Password_That_Is_Passed_On_Stays_In_No_Memory_That_Is_Given_Back) {
  const std::string secret = "a password of more bytes than a short string holds";
  std::string params = create_params;
  params.replace(params.find("SECRET"), std::string("SECRET").size(), secret);
  for (const char* tail : {"", "}"}) {
    SCOPED_TRACE(tail);
    Given_Exchange exchange(std::string("/q5/r/v2/agents/") + host_b + "/call",
                            call_body("hana.database.create", params) + tail, server.operator_key);
    const support::Freed_Memory_Watch watch(secret);
    server.core->handler().handle(exchange);
    EXPECT_EQ(watch.found(), 0U);
    EXPECT_EQ(exchange.status, *tail == 0 ? 200U : 400U);
  }
  EXPECT_EQ(passed_on, params);
}

TEST_F(Agent_Gate_Test, Lists_And_States_Leave_No_Entry) {
  (void)call(server.viewer_key, "hana.instance.list", "null");
  (void)call(server.viewer_key, "hana.instance.control", control("state"));
  (void)forward("hana.instance.control", control("state"));
  EXPECT_TRUE(audit().empty());
}

TEST_F(Agent_Gate_Test, An_Action_Is_In_The_Log_Before_The_Agent_Hears_Of_It) {
  peer->close();
  reader.join();
  reader = std::thread([] {});
  while (server.core->agents.is_connected(host_b)) std::this_thread::yield();
  EXPECT_EQ(call(server.operator_key, "hana.instance.control", control("stop")).status, 503U);
  ASSERT_EQ(audit().size(), 1U);
  EXPECT_NE(audit().front().find(R"("result":"failed","message":"the agent of the host)"), std::string::npos)
      << audit().front();
}

TEST_F(Agent_Gate_Test, An_Action_That_Cannot_Be_Written_Down_Is_Not_Done) {
  ASSERT_TRUE(server.database.write([](backupd::Sql_Session& session) {
    session.execute("DROP TABLE audit", {});
    return true;
  }));
  const Answer answer = call(server.operator_key, "hana.instance.control", control("stop"));
  EXPECT_EQ(answer.status, 500U);
  EXPECT_NE(answer.error_message().find("it cannot be written into the audit log"), std::string::npos) << answer.text;
  EXPECT_FALSE(forward("hana.file.download", download_params).ok);
  EXPECT_TRUE(seen.empty());
  EXPECT_EQ(call(server.viewer_key, "hana.instance.control", control("state")).status, 200U);
  EXPECT_GE(server.log.claim_containing("audit"), 2U) << server.log.dump();
}

TEST_F(Agent_Gate_Test, The_Newest_Entries_Are_Kept) {
  for (const char* action : {"start", "stop", "restart"})
    (void)call(server.viewer_key, "hana.instance.control", control(action));
  ASSERT_TRUE(server.database.write([](backupd::Sql_Session& session) {
    session.execute("UPDATE counters SET value = :a WHERE name = 'audit'", {backupd::Audit_Store::kept_entries + 1});
    return true;
  }));
  (void)call(server.viewer_key, "hana.instance.control", control("start"));
  const std::vector<std::string> kept = audit();
  ASSERT_EQ(kept.size(), 2U) << "the third, which is as many ids behind as are kept, and the last";
  EXPECT_NE(kept.front().find(R"("action":"restart")"), std::string::npos) << kept.front();
}

TEST_F(Agent_Gate_Test, The_Log_Is_For_Those_Who_May_Read) {
  EXPECT_EQ(server.request("GET", "/audit", "", server.operator_key).status, 200U);
  EXPECT_EQ(server.request("GET", "/audit", "", server.agent_key).status, 403U);
}

TEST_F(Agent_Gate_Test, Long_Names_Are_Cut_In_The_Log) {
  (void)call(server.operator_key, "hana.instance.control",
             R"({"sid":")" + std::string(100'000, 'S') + R"(","instance_name":7,"action":"stop"})");
  ASSERT_EQ(audit().size(), 1U);
  EXPECT_LT(audit().front().size(), 600U);
}

TEST_F(Agent_Gate_Test, Names_Of_Any_Length_And_Writing_Leave_A_Readable_Entry) {
  std::string umlauts = "x";
  for (int i = 0; i < 1000; ++i) umlauts += "\xc3\xa4";
  for (const std::string& name : {umlauts, umlauts.substr(1), std::string(R"(a\u0000b)"), std::string("../../etc"),
                                  std::string(R"(\n\u001b[2J)")}) {
    (void)call(server.viewer_key, "hana.instance.control",
               R"({"sid":")" + name + R"(","instance_name":")" + name + R"(","action":"stop"})");
    const std::vector<std::string> entries = audit();
    ASSERT_FALSE(entries.empty());
    EXPECT_NE(entries.back().find(R"("role":"viewer")"), std::string::npos) << entries.back();
    EXPECT_NE(entries.back().find(R"("sid":")"), std::string::npos) << entries.back();
  }
  EXPECT_EQ(audit().size(), 5U);
}

TEST_F(Agent_Gate_Test, No_Key_Of_A_Staged_Restore_Gets_Into_The_Servers_Files_Or_Log) {
  for (const bool refused : {false, true}) {
    const std::string text = download_params;
    (void)forward("hana.file.download",
                  refused ? text.substr(0, text.size() - 1) + R"(,"target_host":"x","sid":7})" : text);
  }
  fails = true;
  (void)forward("hana.file.download", download_params);
  (void)call(server.operator_key, "hana.file.download", download_params);
  EXPECT_EQ(audit().size(), 4U);
  std::size_t files = 0;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(server.root.real("/"))) {
    if (!entry.is_regular_file()) continue;
    std::ifstream file(entry.path(), std::ios::binary);
    const std::string content{std::istreambuf_iterator<char>(file), {}};
    files += content.find("hana.file.download") != std::string::npos ? 1 : 0;
    for (const char* hidden : {"SECRET", "extended_attrs\":{", "access_key\":"})
      EXPECT_EQ(content.find(hidden), std::string::npos) << entry.path() << hidden;
  }
  EXPECT_GT(files, 0U) << "the entries were found";
  EXPECT_EQ(server.log.dump().find("SECRET"), std::string::npos);
}

}  // namespace
