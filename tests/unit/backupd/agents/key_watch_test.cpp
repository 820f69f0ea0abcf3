#include "backupd/agents/key_watch.h"

#include "unit/backupd/fake_agent.h"

using namespace backupd_test;

namespace {

class Key_Watch_Test : public testing::Test {
 protected:
  Key_Watch_Test() { server.clock.wait_by_date(); }

  /// As the command does it, in a process of its own.
  void revoke(const std::string& host) {
    backupd::Database other;
    std::string error;
    ASSERT_TRUE(other.open("/var/backupd.db", error)) << error;
    backupd::Key_Store keys(other);
    std::vector<backupd::Access_Key> all;
    ASSERT_TRUE(keys.list(all));
    for (const backupd::Access_Key& key : all) {
      if (key.host_uuid != host) continue;
      EXPECT_TRUE(keys.revoke(key.id).ok());
    }
  }
  /// Lets looks go by until the server has closed the connection of a host.
  bool is_closed(const std::string& host) {
    for (int i = 0; i < 1000 && server.core->agents.is_connected(host); ++i) {
      server.clock.pass_wall(backupd::Key_Watch::interval);
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return !server.core->agents.is_connected(host);
  }

  Memory_Server server;
};

TEST_F(Key_Watch_Test, Closes_The_Connection_Of_An_Agent_Whose_Key_Was_Revoked) {
  server.core->key_watch.start();
  Fake_Agent agent(server, server.agent_key, obedient);
  Fake_Agent other(server, server.other_agent_key, obedient);
  ASSERT_TRUE(agent.hello(host_a).ok);
  ASSERT_TRUE(other.hello(host_b).ok);
  revoke(host_a);
  EXPECT_TRUE(is_closed(host_a));
  agent.wait_closed();
  EXPECT_FALSE(agent.hello(host_a).ok);
  EXPECT_TRUE(server.core->agents.is_connected(host_b));
  EXPECT_TRUE(other.hello(host_b).ok) << "its key is good";
}

TEST_F(Key_Watch_Test, Closes_A_Connection_That_Has_Not_Said_Who_It_Is) {
  server.core->key_watch.start();
  Fake_Agent silent(server, server.agent_key, obedient);
  Fake_Agent other(server, server.other_agent_key, obedient);
  ASSERT_TRUE(other.hello(host_b).ok);
  // It is served when it was answered.
  EXPECT_FALSE(silent.call("no.such", "{}").ok);
  revoke(host_a);
  revoke(host_b);
  EXPECT_TRUE(is_closed(host_b)) << "within the same looks";
  silent.wait_closed();
}

}  // namespace
