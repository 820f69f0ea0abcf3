// The log backup of a system on two sites, over all processes.

#include "cluster_fixture.h"

using namespace system_tests;

namespace {

class Log_Backup_Cluster : public Cluster_Fixture {
 protected:
  [[nodiscard]] static std::string setting(const Host& host, const std::string& key) {
    const Tool_Result read = host.sql("select VALUE from M_INIFILE_CONTENTS where KEY = '" + key + "'");
    return read.out.substr(0, read.out.find('\n'));
  }
  [[nodiscard]] static bool on(const Host& host) {
    return setting(host, "log_backup_using_backint").find("true") != std::string::npos;
  }
  /// The row of a check for the log backup on a host, as "true message".
  [[nodiscard]] std::string check_of(const std::string& name) {
    json_spirit::Array instances;
    json_spirit::Array checks;
    (void)json_spirit::object_get(server().dorsal3({"check", instance}).json(), "instances", instances);
    if (!instances.empty()) (void)json_spirit::object_get(instances.front().get_obj(), "checks", checks);
    for (const json_spirit::Value& row : checks)
      if (text_of(row.get_obj(), "name") == name)
        return text_of(row.get_obj(), "ok") + " " + text_of(row.get_obj(), "message");
    return "no row " + name;
  }
};

}  // namespace

TEST_F(Log_Backup_Cluster, Is_Missed_On_A_New_Primary_Until_It_Is_Enabled_There) {
  start_pair();
  const Host& first = host("hana01");
  const Host& second = host("hana02");
  const Tool_Result enabled = server().dorsal3({"log-backup", "enable", instance});
  ASSERT_EQ(enabled.code, 0) << enabled.out << enabled.err;
  EXPECT_TRUE(on(first));
  EXPECT_NE(enabled.out.find("does not run there as the primary"), std::string::npos) << enabled.out;
  EXPECT_EQ(check_of("log backup"), "true switched on");
  EXPECT_NE(check_of("log backup on hana02").find("true set up; HANA's settings count"), std::string::npos)
      << check_of("log backup on hana02");

  first.stop_hana();
  ASSERT_EQ(second.hana_tool("hdbnsutil", {"-sr_takeover"}).code, 0);
  ASSERT_TRUE(serves(second));
  log_on(second);
  ASSERT_FALSE(on(second)) << "the stand-in's sites have settings of their own";
  const std::string missed = check_of("log backup");
  EXPECT_NE(missed.find("false set up, but "), std::string::npos) << missed;
  EXPECT_NE(missed.find("a new primary after a takeover"), std::string::npos) << missed;
  EXPECT_NE(missed.find("dorsal3 log-backup enable HDB_HDB00"), std::string::npos) << missed;

  const Tool_Result again = server().dorsal3({"log-backup", "enable", instance, "--host", "hana02"});
  EXPECT_EQ(again.code, 0) << again.out << again.err;
  EXPECT_TRUE(on(second));
  EXPECT_EQ(check_of("log backup"), "true switched on");
  EXPECT_NE(check_of("log backup on hana01").find("true set up"), std::string::npos)
      << "what is left on the former one";
}
