#include "agent/backupd_client/agent_configuration.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "agent/backupd_client/access_key_file.h"
#include "support/log_capture.h"
#include "support/temp_root.h"

namespace {

constexpr const char* file = "/etc/opt/tarvex/dorsal3/agent.toml";
constexpr const char* key_file = "/etc/opt/tarvex/dorsal3/agent.key";
constexpr const char* shared_file = "/var/opt/tarvex/dorsal3/agent/access_key";
constexpr const char* minimum =
    "server_url = \"https://b:9000/\"\n"
    "host_uuid = \"6f9619ff-8b86-4d01-b42d-00cf4fc964ff\"\n";

TEST(Agent_Configuration_Parse, Fills_What_The_File_Leaves_Out) {
  Agent_Configuration read;
  std::string error;
  ASSERT_TRUE(Agent_Configuration::parse(minimum, "f", read, error)) << error;
  EXPECT_EQ(read.server_url, "https://b:9000");
  EXPECT_EQ(read.endpoint, (net::Endpoint{true, "b", 9000, ""}));
  EXPECT_EQ(read.access_key_file, key_file);
  EXPECT_EQ(read.modules, std::vector<std::string>{"hana"});
  EXPECT_EQ(read.heartbeat_seconds, 60U);
  EXPECT_EQ(read.stop_limit_seconds, 60U);
  EXPECT_FALSE(read.host_name.empty());
}

TEST(Agent_Configuration_Parse, Reads_Every_Key) {
  Agent_Configuration read;
  std::string error;
  ASSERT_TRUE(Agent_Configuration::parse(std::string(minimum) +
                                             "ca_file = \"/etc/ca.pem\"\nhost_name = \"n\"\naccess_key = \"k\"\n"
                                             "modules = [\"hana\", \"other_1\"]\nlog_file = \"/var/log/a\"\n"
                                             "heartbeat_seconds = 5\nstop_limit_seconds = 0\n",
                                         "f", read, error))
      << error;
  EXPECT_EQ(read.endpoint.ca_file, "/etc/ca.pem");
  EXPECT_EQ(read.host_name, "n");
  EXPECT_EQ(read.access_key, secure_string("k"));
  EXPECT_EQ(read.access_key_file, "");
  EXPECT_EQ(read.modules, (std::vector<std::string>{"hana", "other_1"}));
  EXPECT_EQ(read.log_file, "/var/log/a");
  EXPECT_EQ(read.heartbeat_seconds, 5U);
  EXPECT_EQ(read.stop_limit_seconds, 0U);
}

TEST(Agent_Configuration_Parse, Refuses_With_What_And_Why) {
  struct Row {
    std::string text;
    const char* error;
  };
  const std::string good = minimum;
  for (const Row& row :
       {Row{"", "f: server_url is missing"}, Row{"server_url = \"https://b\"\n", "f: host_uuid is missing"},
        Row{"server_url = 7\n", "f: server_url must be a text"}, Row{"server_url = \"\"\n", "f: server_url is empty"},
        Row{"server_url = \"ftp://b\"\nhost_uuid = \"6f9619ff-8b86-4d01-b42d-00cf4fc964ff\"\n",
            "f: server_url is 'ftp://b', not of the form https://host:port"},
        Row{"server_url = \"https://b\"\nhost_uuid = \"x\"\n", "f: host_uuid is 'x', not a uuid"},
        Row{good + "srever = 1\n", "f: srever is not a known key; correct or remove it"},
        Row{good + "ca_file = \"ca.pem\"\n", "f: ca_file must be an absolute path"},
        Row{good + "access_key_file = \"k\"\n", "f: access_key_file must be an absolute path"},
        Row{good + "modules = \"hana\"\n", "f: modules must be a list of module names"},
        Row{good + "modules = [\"../x\"]\n", "f: modules must be a list of module names"},
        Row{good + "modules = [\"\"]\n", "f: modules must be a list of module names"},
        Row{good + "heartbeat_seconds = 0\n", "f: heartbeat_seconds must be a whole number of seconds from 1"},
        Row{good + "heartbeat_seconds = \"5\"\n", "f: heartbeat_seconds must be a whole number of seconds"},
        Row{good + "stop_limit_seconds = 99999999999\n", "f: stop_limit_seconds must be a whole number of seconds"},
        Row{good + "access_key = \"k\"\naccess_key_file = \"/k\"\n",
            "f: access_key and access_key_file exclude each other"},
        Row{good + "access_key = \"a b\"\n", "f holds no usable access key"}, Row{good + "x = \n", "f: line 3: "}}) {
    Agent_Configuration read;
    read.host_name = "kept";
    std::string error;
    EXPECT_FALSE(Agent_Configuration::parse(row.text, "f", read, error)) << row.text;
    EXPECT_EQ(error.substr(0, std::string(row.error).size()), row.error) << row.text;
    EXPECT_EQ(read.host_name, "kept");
  }
}

class Agent_Configuration_File : public testing::Test {
 protected:
  support::Temp_Root root;
  support::Log_Capture log;
  Agent_Configuration read;
  secure_string key;
  std::string error;

  unsigned mode(const char* path) {
    struct stat status {};
    EXPECT_EQ(::stat(root.real(path).c_str(), &status), 0);
    return status.st_mode & 07777U;
  }
  ino_t inode(const char* path) {
    struct stat status {};
    EXPECT_EQ(::stat(root.real(path).c_str(), &status), 0);
    return status.st_ino;
  }
};

TEST_F(Agent_Configuration_File, A_Missing_File_Says_What_To_Do) {
  EXPECT_FALSE(Agent_Configuration::load(read, error));
  EXPECT_EQ(error,
            "cannot read the agent's configuration /etc/opt/tarvex/dorsal3/agent.toml: No such file or directory; "
            "write it with server_url and host_uuid");
}

TEST_F(Agent_Configuration_File, A_Key_That_Everybody_May_Read_Is_Refused) {
  root.write(file, std::string(minimum) + "access_key = \"k\"\n", 0644);
  EXPECT_FALSE(Agent_Configuration::load(read, error));
  EXPECT_NE(error.find("chmod o-rwx"), std::string::npos) << error;
  root.write(file, std::string(minimum) + "access_key = \"k\"\n", 0640);
  ASSERT_EQ(::chmod(root.real(file).c_str(), 0640), 0);
  EXPECT_TRUE(Agent_Configuration::load(read, error)) << error;

  root.write(file, minimum);
  root.write(key_file, "k", 0644);
  ASSERT_EQ(::chmod(root.real(key_file).c_str(), 0644), 0);
  ASSERT_TRUE(Agent_Configuration::load(read, error)) << error;
  EXPECT_FALSE(read.load_configured_key(key, error));
  EXPECT_NE(error.find("chmod o-rwx"), std::string::npos) << error;
}

TEST_F(Agent_Configuration_File, Takes_The_Key_From_Its_File_And_Else_The_Shared_Copy) {
  root.write(file, minimum);
  ASSERT_TRUE(Agent_Configuration::load(read, error)) << error;
  EXPECT_FALSE(read.load_access_key(key, error));
  EXPECT_EQ(error, "cannot read the access key /etc/opt/tarvex/dorsal3/agent.key: No such file or directory");
  root.write(shared_file, "copy", 0640);
  ASSERT_EQ(::chmod(root.real(shared_file).c_str(), 0640), 0);
  EXPECT_TRUE(read.load_access_key(key, error)) << error;
  EXPECT_EQ(key, secure_string("copy"));
  root.write(key_file, "own\n", 0600);
  ASSERT_EQ(::chmod(root.real(key_file).c_str(), 0600), 0);
  EXPECT_TRUE(read.load_access_key(key, error)) << error;
  EXPECT_EQ(key, secure_string("own"));
}

TEST_F(Agent_Configuration_File, A_Key_Is_One_Word) {
  root.write(file, minimum);
  ASSERT_TRUE(Agent_Configuration::load(read, error)) << error;
  for (const char* content : {"", "\n", "a b", "a\nb", "a\tb", "\xc3\xa4"}) {
    root.write(key_file, content, 0600);
    ASSERT_EQ(::chmod(root.real(key_file).c_str(), 0600), 0);
    EXPECT_FALSE(read.load_configured_key(key, error)) << content;
    EXPECT_EQ(error,
              "/etc/opt/tarvex/dorsal3/agent.key holds no usable access key; write the key that backupd gave for this "
              "host");
  }
}

TEST_F(Agent_Configuration_File, Copies_The_Key_For_The_Sap_Group) {
  root.write(file, minimum);
  root.write(key_file, "own\n", 0600);
  ASSERT_EQ(::chmod(root.real(key_file).c_str(), 0600), 0);
  root.write("/etc/group", "sapsys:x:" + std::to_string(::getgid()) + ":\n");
  ASSERT_TRUE(generate_access_key_file());
  EXPECT_EQ(root.read(shared_file), "own");
  EXPECT_EQ(mode(shared_file), 0640U);

  const ino_t before = inode(shared_file);
  ASSERT_TRUE(generate_access_key_file());
  EXPECT_EQ(inode(shared_file), before);

  root.write(key_file, "new\n", 0600);
  ASSERT_TRUE(generate_access_key_file());
  EXPECT_EQ(root.read(shared_file), "new");
  EXPECT_EQ(mode(shared_file), 0640U);
}

TEST_F(Agent_Configuration_File, Copies_The_Key_Where_There_Is_No_Sap_Group) {
  root.write(file, minimum);
  root.write(key_file, "own", 0600);
  ASSERT_EQ(::chmod(root.real(key_file).c_str(), 0600), 0);
  ASSERT_TRUE(generate_access_key_file());
  EXPECT_EQ(mode(shared_file), 0640U);
}

TEST_F(Agent_Configuration_File, Logs_Why_There_Is_No_Copy) {
  EXPECT_FALSE(generate_access_key_file());
  EXPECT_EQ(log.claim_containing("Failed to generate the access key file: cannot read the agent's configuration"), 1U);
  root.write(file, minimum);
  EXPECT_FALSE(generate_access_key_file());
  EXPECT_EQ(log.claim_containing("Failed to generate the access key file: cannot read the access key"), 1U);
  root.write(key_file, "own", 0600);
  ASSERT_EQ(::chmod(root.real(key_file).c_str(), 0600), 0);
  root.write("/var/opt/tarvex/dorsal3/agent", "a file in its place");
  EXPECT_FALSE(generate_access_key_file());
  EXPECT_EQ(log.claim_containing("Failed to make directory /var/opt/tarvex/dorsal3/agent, Not a directory") +
                log.claim_containing("Failed to make directory /var/opt/tarvex/dorsal3/agent, File exists"),
            1U);
}

}  // namespace
