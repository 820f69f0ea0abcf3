#include "backupd/configuration.h"

#include <gtest/gtest.h>

#include "support/temp_root.h"

namespace {

using backupd::Configuration;

TEST(Configuration, Has_Defaults_Without_A_File) {
  const support::Temp_Root root;
  Configuration configuration;
  std::string error;
  ASSERT_TRUE(Configuration::load(configuration, error)) << error;
  EXPECT_EQ(configuration.address, "127.0.0.1");
  EXPECT_EQ(configuration.database, "/var/opt/tarvex/dorsal3/backupd/backupd.db");
  EXPECT_EQ(configuration.url(9443), "http://127.0.0.1:9443");
}

TEST(Configuration, Reads_Every_Key) {
  const support::Temp_Root root;
  root.write("/etc/opt/tarvex/dorsal3/backupd.toml",
             "address = \"0.0.0.0\"\nport = 0\ncertificate = \"/c.pem\"\nprivate_key = \"/k.pem\"\n"
             "public_url = \"https://backup.example:9443\"\ndatabase = \"/db\"\nlog_file = \"/log\"\nworkers = "
             "3\ndays_of_runs = 30\n"
             "days_of_log_runs = 0\n"
             "host_uuid = \"11111111-1111-4111-8111-111111111111\"\n");
  Configuration configuration;
  std::string error;
  ASSERT_TRUE(Configuration::load(configuration, error)) << error;
  EXPECT_EQ(configuration.port, 0);
  EXPECT_TRUE(configuration.tls());
  EXPECT_EQ(configuration.workers, 3U);
  EXPECT_EQ(configuration.history.days_of_runs, 30U);
  EXPECT_EQ(configuration.history.days_of_log_runs, 0U);
  EXPECT_EQ(configuration.url(77), "https://backup.example:9443");
  EXPECT_EQ(configuration.server_options().private_key_file, "/k.pem");
}

TEST(Configuration, Refuses_What_Is_Not_Sound) {
  struct Row {
    const char* text;
    const char* why;
  };
  for (const Row& row :
       {Row{"address = ", "line 1"}, Row{"colour = 1", "colour is not a known key"},
        Row{"port = 70000", "port must be"}, Row{"port = \"x\"", "port must be"}, Row{"workers = 0", "workers must be"},
        Row{"days_of_runs = -1", "days_of_runs must be"}, Row{"days_of_log_runs = 99999", "days_of_log_runs must be"},
        Row{"database = \"x\"", "absolute path"}, Row{"certificate = \"/c\"", "belong together"},
        Row{"address = \"0.0.0.0\"", "without TLS"}, Row{"address = \"192.168.0.1\"", "without TLS"},
        Row{"address = \"::\"", "without TLS"}, Row{"host_uuid = \"x\"", "host_uuid must be"},
        Row{"public_url = \"x\"", "public_url must read"}}) {
    Configuration configuration;
    std::string error;
    EXPECT_FALSE(Configuration::parse(row.text, "file", configuration, error)) << row.text;
    EXPECT_NE(error.find(row.why), std::string::npos) << row.text << ": " << error;
  }
}

}  // namespace
