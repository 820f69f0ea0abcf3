#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <thread>

#include "contract/backupd/running_server.h"
#include "json/value.h"
#include "scrt/uuid.h"

namespace {

const std::string host = "11111111-1111-4111-8111-111111111111";
constexpr int rounds = 5;
constexpr unsigned status_created = 201;

/// What the server has acknowledged.
struct Acknowledged {
  std::vector<std::string> alerts;
  std::vector<std::string> objects;
};

/// Stores alerts and objects until the server is gone.
void store_until_gone(const contract::Running_Server& server, const std::string& key, const std::string& pool,
                      Acknowledged& acknowledged, std::atomic<std::size_t>& count) {
  while (true) {
    const std::string uuid = make_uuid();
    net::Http_Response response;
    if (!server.ask("POST", "/q5/r/v2/alerts", key, R"({"class":7,"code":1,"uuid":")" + uuid + "\"}", response)) return;
    ASSERT_EQ(response.status, status_created) << response.body;
    acknowledged.alerts.push_back(uuid);
    if (!server.ask("PUT", "/q5/pools/" + pool + "/a/" + uuid, key, "content of " + uuid, response)) return;
    ASSERT_EQ(response.status, status_created) << response.body;
    acknowledged.objects.push_back(uuid);
    ++count;
  }
}

std::vector<std::string> stored_alerts(const contract::Running_Server& server, const std::string& key) {
  net::Http_Response response;
  EXPECT_TRUE(server.ask("GET", "/q5/r/v2/alerts?limit=10000", key, "", response));
  json_spirit::Value value;
  std::vector<std::string> uuids;
  EXPECT_TRUE(json_spirit::load_json(response.body, value)) << response.body;
  for (const json_spirit::Value& row : json_spirit::object_require<json_spirit::Array>(value.get_obj(), "rows"))
    uuids.push_back(json_spirit::object_require<std::string>(row.get_obj(), "uuid"));
  return uuids;
}

TEST(Durability, Loses_Nothing_It_Has_Acknowledged_When_It_Is_Killed) {
  contract::Running_Server server;
  const std::string agent = server.make_key("agent", host);
  const std::string viewer = server.make_key("viewer");
  std::string pool;
  ASSERT_EQ(server.run({"pool", "add", "main", "--directory", "/pool"}, pool), 0) << pool;
  pool.erase(pool.find('\n'));
  Acknowledged acknowledged;
  for (int round = 0; round < rounds; ++round) {
    server.start();
    std::atomic<std::size_t> count{0};
    std::thread writer([&] { store_until_gone(server, agent, pool, acknowledged, count); });
    while (count < 3) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    server.end(SIGKILL);
    writer.join();
  }
  server.start();
  const std::vector<std::string> alerts = stored_alerts(server, viewer);
  for (const std::string& uuid : acknowledged.alerts)
    EXPECT_NE(std::find(alerts.begin(), alerts.end(), uuid), alerts.end()) << uuid;
  for (const std::string& uuid : acknowledged.objects) {
    net::Http_Response response;
    EXPECT_TRUE(server.ask("GET", "/q5/pools/" + pool + "/a/" + uuid, agent, "", response));
    EXPECT_EQ(response.body, "content of " + uuid);
  }
  // Nothing half-stored is visible.
  net::Http_Response listed;
  ASSERT_TRUE(server.ask("GET", "/q5/pools/" + pool + "/a?list", agent, "", listed));
  EXPECT_EQ(listed.body.find(".d3-upload"), std::string::npos);
  EXPECT_GE(acknowledged.alerts.size(), static_cast<std::size_t>(3 * rounds));
}

TEST(Program, Tells_Its_Version_And_Manages_Keys) {
  const contract::Running_Server server;
  std::string output;
  EXPECT_EQ(server.run({"--version"}, output), 0);
  EXPECT_EQ(output, "dorsal3-backupd 1.0.0\n");
  const std::string key = server.make_key("operator");
  output.clear();
  EXPECT_EQ(server.run({"key", "list"}, output), 0);
  EXPECT_NE(output.find("1\toperator\t-\t"), std::string::npos) << output;
  EXPECT_EQ(output.find(key), std::string::npos);
  output.clear();
  EXPECT_EQ(server.run({"key", "revoke", "1"}, output), 0) << output;
  EXPECT_EQ(server.run({"key", "revoke", "1"}, output), 1);
  EXPECT_NE(output.find("there is no good key 1"), std::string::npos) << output;
  output.clear();
  EXPECT_EQ(server.run({"key", "add", "--role", "agent"}, output), 1);
  EXPECT_NE(output.find("needs the uuid of its host"), std::string::npos) << output;
}

TEST(Program, Does_Not_Start_Beyond_Loopback_Without_TLS) {
  const contract::Running_Server server;
  server.root.write("/etc/opt/tarvex/dorsal3/backupd.toml", "address = \"0.0.0.0\"\n");
  std::string output;
  EXPECT_EQ(server.run({"serve"}, output), 2);
  EXPECT_NE(output.find("without TLS"), std::string::npos) << output;
}

TEST(Program, Takes_A_Key_That_Was_Made_While_It_Runs_And_Tells_Sizes) {
  contract::Running_Server server;
  server.start();
  const std::string agent = server.make_key("agent", host);
  std::string pool;
  ASSERT_EQ(server.run({"pool", "add", "main", "--directory", "/pool"}, pool), 0) << pool;
  pool.erase(pool.find('\n'));
  net::Http_Response response;
  const std::string target = "/q5/pools/" + pool + "/a/b";
  ASSERT_TRUE(server.ask("PUT", target, agent, std::string(3 << 20, 'x'), response));
  EXPECT_EQ(response.status, status_created) << response.body;
  ASSERT_TRUE(server.ask("HEAD", target, agent, "", response));
  ASSERT_NE(response.headers.find("Content-Length"), nullptr);
  EXPECT_EQ(*response.headers.find("Content-Length"), std::to_string(3 << 20));
  ASSERT_TRUE(server.ask("GET", target, agent, "", response));
  EXPECT_EQ(response.body, std::string(3 << 20, 'x'));
  EXPECT_EQ(server.end(SIGTERM), 0);
  EXPECT_NE(server.root.read("/server.log").find("listening on http://127.0.0.1:"), std::string::npos);
}

}  // namespace
