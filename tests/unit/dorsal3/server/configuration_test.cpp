#include "dorsal3/server/configuration.h"

#include <gtest/gtest.h>

#include "support/temp_root.h"

using namespace dorsal3;

namespace {

constexpr const char* system_wide = "/etc/opt/tarvex/dorsal3/dorsal3.toml";

class Configuration_Test : public ::testing::Test {
 protected:
  bool load(const Configuration_Request& request = {}) { return load_configuration(request, configuration, failure); }

  support::Temp_Root root;
  Configuration configuration;
  Failure failure;
};

}  // namespace

TEST_F(Configuration_Test, Reads_Server_And_Key_Of_The_System_Wide_File) {
  root.write(system_wide, "server = \"http://127.0.0.1:8443\"\nkey_file = \"/etc/key\"\n");
  root.write("/etc/key", "secret-key\n", 0600);
  ASSERT_TRUE(load()) << failure.message;
  EXPECT_EQ(configuration.endpoint.host, "127.0.0.1");
  EXPECT_EQ(configuration.endpoint.port, 8443);
  EXPECT_EQ(configuration.key.view(), "secret-key");
}

TEST_F(Configuration_Test, The_Users_File_Wins_And_The_Command_Line_Wins_Over_It) {
  root.write(system_wide, "server = \"https://one:1\"\nkey_file = \"/etc/key\"\n");
  root.write("/home/op/.config/dorsal3.toml", "server = \"https://two:2\"\nkey_file = \"/etc/key\"\n");
  root.write("/etc/key", "k", 0600);
  Configuration_Request request;
  request.home = "/home/op";
  ASSERT_TRUE(load(request)) << failure.message;
  EXPECT_EQ(configuration.endpoint.host, "two");
  request.server_url = "https://three:3";
  ASSERT_TRUE(load(request)) << failure.message;
  EXPECT_EQ(configuration.endpoint.host, "three");
}

TEST_F(Configuration_Test, Bad_Files_Are_Refused_With_What_To_Do) {
  struct Row {
    const char* name;
    const char* text;
    const char* part_of_message;
  };
  const Row rows[] = {
      {"no TOML", "server = ", "line 1"},
      {"unknown key", "server = \"https://a:1\"\nkeyfile = \"/k\"\n", "unknown key \"keyfile\""},
      {"wrong type", "server = 5\n", "\"server\" is not a text"},
      {"no server", "key_file = \"/etc/key\"\n", "no server is named"},
      {"no key file", "server = \"https://a:1\"\n", "no key file is named"},
      {"no TLS", "server = \"http://a:1\"\nkey_file = \"/etc/key\"\n", "without TLS"},
      {"no address", "server = \"somewhere\"\nkey_file = \"/etc/key\"\n", "is not a server's address"},
      {"no key", "server = \"https://a:1\"\nkey_file = \"/etc/absent\"\n", "No such file"},
      {"open key", "server = \"https://a:1\"\nkey_file = \"/etc/open\"\n", "chmod 600"},
      {"empty key", "server = \"https://a:1\"\nkey_file = \"/etc/empty\"\n", "is empty"},
  };
  root.write("/etc/key", "k", 0600);
  root.write("/etc/open", "k", 0644);
  root.write("/etc/empty", " \n", 0600);
  for (const Row& row : rows) {
    root.write(system_wide, row.text);
    Configuration fresh;
    EXPECT_FALSE(load_configuration({}, fresh, failure)) << row.name;
    EXPECT_EQ(failure.exit_code, exit_configuration) << row.name;
    EXPECT_NE(failure.message.find(row.part_of_message), std::string::npos) << row.name << ": " << failure.message;
  }
}

TEST_F(Configuration_Test, A_File_That_Was_Named_Must_Be_There) {
  Configuration_Request request;
  request.file = "/absent.toml";
  EXPECT_FALSE(load(request));
  EXPECT_NE(failure.message.find("/absent.toml"), std::string::npos);
}
