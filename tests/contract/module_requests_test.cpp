// What an agent with the built module answers on the wire: text in, text out, through the peer, the router and the
// module's handlers. Only HANA's tools are scripted.

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <set>
#include <thread>

#include "agent/instance/instance_manager.h"
#include "agentd/modules/method_router.h"
#include "net/json_rpc_peer.h"
#include "support/log_capture.h"
#include "support/memory_web_socket.h"
#include "support/scripted_process_runner.h"
#include "support/temp_root.h"

namespace {

constexpr int all_stopped = 4;
constexpr const char* catalog_file = "/var/opt/tarvex/dorsal3/agent/hana/catalog/catalog_ABC_TN1_HDB_TN2.json";

/// One message: `role` "" makes no requester.
std::string request(const std::string& id, const std::string& method, const std::string& params,
                    const std::string& role) {
  std::string text = R"({"jsonrpc":"2.0",)";
  if (!id.empty()) text += R"("id":)" + id + ",";
  text += R"("method":")" + method + "\"";
  if (!params.empty()) text += R"(,"params":)" + params;
  if (!role.empty()) text += R"(,"requester":{"role":")" + role + "\"}";
  return text + "}";
}

class Module_Requests : public ::testing::Test {
 protected:
  Module_Requests() {
    root.make_directory("/opt/tarvex/dorsal3/lib/modules");
    std::filesystem::copy_file(DORSAL3_MODULE_FILE, root.real("/opt/tarvex/dorsal3/lib/modules/hana.so"));
    root.write("/etc/group", "sapsys:x:" + std::to_string(::getgid()) + ":\n");
    root.write("/usr/sap/HDB/HDB00/exe/manifest", "fullversion: 2.00.059.00 Build 1\n");
    root.make_directory("/usr/sap/HDB/HDB00/hanahost/trace");
    root.write("/usr/sap/sapservices",
               "/usr/sap/HDB/HDB00/exe/sapstartsrv pf=/usr/sap/HDB/SYS/profile/HDB_HDB00_hanahost -D\n");
    root.write("/usr/sap/HDB/SYS/global/hdb/custom/config/global.ini", "[multidb]\nmode = multidb\n");
    EXPECT_TRUE(registry.open());
    auto instance = std::make_shared<Instance>();
    instance->type = "hana";
    instance->name = "HDB_HDB00";
    instance->options = {{"sid", "HDB"}, {"instance_name", "HDB00"}, {"instance_number", 0}};
    EXPECT_TRUE(registry.store({{instance->name, instance}}));
    for (const char* name : {"HDB_HDB00", "QQQ_HDB00"})
      EXPECT_TRUE(registry.set_account("hana", name, "", "SYSTEM", secure_string("pw")));
    runner.on([this](const support::Seen_Call& call, support::Scripted_Child& child) {
      if (call.program.ends_with("/hdbsql"))
        child.standard_output =
            "DATABASE_NAME,DESCRIPTION,ACTIVE_STATUS,OS_USER,OS_GROUP\n\"SYSTEMDB\",\"s\",\"YES\",\"\",\"\"\n";
      if (call.program.ends_with("/sapcontrol")) child.code = all_stopped;
      ++programs;
      return true;
    });
    EXPECT_TRUE(modules.load({"hana"}));
    peer = std::make_unique<JSON_RPC_Peer>(
        *line.first, [this](const JSON_RPC_Message& message) { return router.call(message); }, 2,
        JSON_RPC_Peer::Side_Lane{agentd::Method_Router::is_for_modules, agentd::Method_Router::module_workers});
    reader = std::thread([this] { peer->serve(); });
  }
  ~Module_Requests() override {
    peer->close();
    reader.join();
    peer.reset();
    modules.unload();
  }

  void say(const std::string& text) { ASSERT_TRUE(line.second->send(text, error)); }
  std::string next() {
    std::string text;
    EXPECT_TRUE(line.second->receive(text, error)) << error.text;
    return text;
  }

  support::Temp_Root root;
  support::Log_Capture log;
  support::Scripted_Process_Runner runner;
  std::atomic<int> programs{0};
  Instance_Manager registry;
  Scoped_Instance_Manager scope{registry};
  agentd::Modules modules;
  agentd::Method_Router router{modules};
  std::pair<std::unique_ptr<net::Web_Socket>, std::unique_ptr<net::Web_Socket>> line = support::make_web_socket_pair();
  net::Net_Error error;
  std::unique_ptr<JSON_RPC_Peer> peer;
  std::thread reader;
};

constexpr const char* restore_params =
    R"({"origin_sid":"ABC","origin_database":"TN1","target_sid":"HDB","target_database":"TN2"})";
constexpr const char* stop_params = R"({"sid":"HDB","instance_name":"HDB00","action":"stop"})";

TEST_F(Module_Requests, Are_Answered_To_The_Byte) {
  const struct {
    const char* method;
    std::string params;
    const char* role;
    std::string answer;
  } rows[] = {
      {"hana.instance.list", "", "viewer",
       R"("result":[{"sid":"HDB","instance_name":"HDB00","instance_number":0,"version":"2.00.059.00",)"
       R"("localhost":"hanahost"}])"},
      {"hana.instance.list", "[]", "viewer", R"("error":{"code":-32602,"message":"Invalid request"})"},
      {"hana.database.list", R"({"uid":"","instance":"HDB_HDB00"})", "viewer",
       R"("result":{"instance":"HDB_HDB00","databases":[{"name":"SYSTEMDB","owner":"s","os_user":"hdbadm",)"
       R"("os_group":"sapsys","active":true,"log_backup_mode":"none"}]})"},
      {"hana.database.list", R"({"uid":7,"instance":"HDB_HDB00"})", "operator",
       R"("error":{"code":-32602,"message":"Invalid params"})"},
      {"hana.database.list", R"({"uid":"","instance":"QQQ_HDB00"})", "viewer",
       R"("error":{"code":-32603,"message":"the module gave no answer to hana.database.list; is the instance known on )"
       R"(this host? Run discover"})"},
      {"hana.instance.control", R"({"sid":"HDB","instance_name":"HDB00","action":"state"})", "viewer",
       R"("result":{"state":2})"},
      {"hana.instance.control", stop_params, "operator", R"("result":{"error":0})"},
      {"hana.instance.control", R"({"sid":"HDB","instance_name":"HDB00","action":"pause"})", "agent",
       R"("error":{"code":-32602,"message":"action is not supported\n"})"},
      {"hana.instance.control", R"({"sid":"","instance_name":"HDB00","action":"state"})", "agent",
       R"("error":{"code":-32602,"message":"sid or instance_name is empty\n"})"},
      {"hana.file.download", restore_params, "agent", R"("result":{"error":0})"},
      {"hana.file.download", restore_params, "operator",
       R"("error":{"code":-32602,"message":"this requester may not ask for hana.file.download"})"},
      {"hana.instance.control", stop_params, "viewer",
       R"("error":{"code":-32602,"message":"this requester may not ask for hana.instance.control"})"},
      {"hana.instance.list", "", "",
       R"("error":{"code":-32602,"message":"this requester may not ask for hana.instance.list"})"},
      {"hana.database.other", "", "operator",
       R"("error":{"code":-32601,"message":"this agent does not know the method hana.database.other"})"}};
  for (const auto& row : rows) {
    say(request("\"r\"", row.method, row.params, row.role));
    EXPECT_EQ(next(), R"({"jsonrpc":"2.0","id":"r",)" + row.answer + "}") << row.method << " " << row.params;
  }
  EXPECT_EQ(root.read(catalog_file), restore_params);
}

TEST_F(Module_Requests, Notifications_Are_Obeyed_And_Never_Answered) {
  say(request("", "hana.file.download", restore_params, "agent"));
  say(request("", "hana.instance.control", stop_params, "operator"));
  say(request("", "hana.instance.list", "", "viewer"));
  while (!root.exists(catalog_file) || programs < 2) std::this_thread::yield();
  say(request("1", "hana.instance.control", R"({"sid":"HDB","instance_name":"HDB00","action":"state"})", "viewer"));
  EXPECT_EQ(next(), R"({"jsonrpc":"2.0","id":1,"result":{"state":2}})") << "the first text on the wire";
}

TEST_F(Module_Requests, A_Thousand_At_Once_Are_All_Answered_Once) {
  constexpr int count = 1000;
  for (int i = 0; i < count; ++i)
    say(i % 2 == 0
            ? request(std::to_string(i), "hana.instance.list", "", "viewer")
            : request(std::to_string(i), "hana.database.list", R"({"uid":"","instance":"HDB_HDB00"})", "viewer"));
  std::set<std::int64_t> answered;
  for (int i = 0; i < count; ++i) {
    const JSON_RPC_Message answer = JSON_RPC_Message::parse(next());
    ASSERT_EQ(answer.kind, JSON_RPC_Message::result) << answer.error_message;
    EXPECT_TRUE(answered.insert(answer.id.get_int64()).second);
  }
}

TEST_F(Module_Requests, One_That_Is_Too_Large_Is_Refused_And_The_Next_One_Served) {
  say(request("1", "hana.file.download", R"({"origin_sid":")" + std::string(17U << 20, 'A') + "\"}", "agent"));
  const JSON_RPC_Message refused = JSON_RPC_Message::parse(next());
  EXPECT_EQ(refused.error_code, JSON_RPC_E_PARSE) << refused.error_message;
  say(request("2", "hana.instance.control", stop_params, "operator"));
  EXPECT_EQ(next(), R"({"jsonrpc":"2.0","id":2,"result":{"error":0}})");
  log.claim_all();
}

TEST_F(Module_Requests, A_Requester_That_Goes_Away_Leaves_Nothing_Behind) {
  for (int i = 0; i < 200; ++i)
    say(request(std::to_string(i), "hana.database.list", R"({"uid":"","instance":"HDB_HDB00"})", "viewer"));
  line.second->close();
  reader.join();
  reader = std::thread([] {});
  const int after = programs;
  EXPECT_LE(after, 200);
  EXPECT_EQ(programs, after) << "what waited is dropped, what ran has ended";
  log.claim_all();
}

}  // namespace
