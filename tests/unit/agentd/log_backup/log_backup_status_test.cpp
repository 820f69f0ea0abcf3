#include "agentd/log_backup/log_backup_status.h"

#include <gtest/gtest.h>

#include "platform/files.h"
#include "support/log_capture.h"
#include "support/temp_root.h"

namespace {

constexpr const char* folder = "/var/opt/tarvex/dorsal3/agent/hana/";
constexpr const char* configuration = "/usr/sap/PRD/SYS/global/hdb/custom/config/";
constexpr const char* all_on =
    "[persistence]\nlog_mode = normal\nenable_auto_log_backup = yes\n[backup]\nlog_backup_using_backint = true\n"
    "catalog_backup_using_backint = true\n";

class Log_Backup_Status : public testing::Test {
 protected:
  Log_Backup_Status() {
    instance.name = "PRD_HDB00";
    instance.options = {{"sid", "PRD"}, {"instance_name", "HDB00"}};
  }
  void put_file(const std::string& name, const std::string& sid = "PRD") const {
    root.write(folder + name, R"({"job_definition_uuid":"d1","sid":")" + sid + R"(","instance_name":"HDB00"})");
  }
  void set(const std::string& text, const std::string& below = "") const {
    root.write(configuration + below + "global.ini", text);
  }
  /// "good message" or "bad message".
  [[nodiscard]] std::string check(bool open = true) const {
    const json_spirit::Object row = agentd::check_log_backup(instance, open);
    bool ok = false;
    std::string message;
    (void)json_spirit::object_get(row, "ok", ok);
    (void)json_spirit::object_get(row, "message", message);
    return (ok ? "good " : "bad ") + message;
  }

  support::Temp_Root root;
  support::Log_Capture log;
  Instance instance;
};

}  // namespace

TEST_F(Log_Backup_Status, Is_Good_When_It_Is_On_As_A_Whole_Or_Off_As_A_Whole) {
  EXPECT_EQ(check(), "good not switched on; run: dorsal3 log-backup enable PRD_HDB00");
  put_file("log_backup_PRD_HDB00");
  set(all_on);
  EXPECT_EQ(check(), "good switched on");
}

TEST_F(Log_Backup_Status, Names_A_New_Primary_Whose_Log_Backup_Nobody_Switched_On) {
  put_file("log_backup_PRD_HDB00");
  EXPECT_EQ(check(),
            "bad set up, but log_backup_using_backint is false, as on a new primary after a takeover: HANA's logs do "
            "not reach the pool; run: dorsal3 log-backup enable PRD_HDB00");
  EXPECT_EQ(check(false), "good set up; HANA's settings count where the instance runs as the primary");
}

TEST_F(Log_Backup_Status, Names_A_Database_Whose_Own_Settings_Keep_Its_Logs) {
  put_file("log_backup_PRD_HDB00_TN1");
  set(all_on);
  set("[persistence]\nlog_mode = overwrite\n", "DB_TN2/");
  EXPECT_EQ(check(), "good switched on") << "the database has no log backup";
  set("[persistence]\nlog_mode = overwrite\n", "DB_TN1/");
  EXPECT_NE(check().find("bad set up, but log_mode is overwrite in database TN1"), std::string::npos) << check();
}

TEST_F(Log_Backup_Status, Names_Logs_That_Nobody_Takes) {
  set(all_on);
  put_file("log_backup_QAS_HDB00", "QAS");
  EXPECT_NE(check().find("bad HANA sends its logs to Backint, but no log backup is set up on this host"),
            std::string::npos)
      << check();
  ASSERT_EQ(platform::mkdir_p("/usr/sap/PRD/SYS/global/hdb/opt", platform::mode_directory), 0);
  ASSERT_EQ(platform::make_link("/opt/other/hdbbackint", "/usr/sap/PRD/SYS/global/hdb/opt/hdbbackint"), 0);
  EXPECT_EQ(check(), "good HANA sends its logs to another Backint agent");
}

TEST_F(Log_Backup_Status, Names_A_Damaged_File) {
  root.write(std::string(folder) + "log_backup_PRD_HDB00_TN1", "{");
  set(all_on);
  EXPECT_NE(check().find("log_backup_PRD_HDB00_TN1: it is damaged or no configuration of a log backup"),
            std::string::npos)
      << check();
}

TEST_F(Log_Backup_Status, Tells_Files_And_Settings) {
  put_file("log_backup_PRD_HDB00_TN1");
  put_file("log_backup_PRD_HDB00_TN1.17");
  for (const char* name : {"log_backup_QAS_HDB00", "log_backup_QAS_HDB01"}) put_file(name, "QAS");
  set(all_on);
  set("[persistence]\nenable_auto_log_backup = no\n", "DB_TN1/");
  json_spirit::Object status;
  std::string error;
  ASSERT_TRUE(agentd::log_backup_status(instance, true, status, error)) << error;
  const std::string on = R"({"log_mode":"normal","enable_auto_log_backup":true,"log_backup_using_backint":true,)"
                         R"("catalog_backup_using_backint":true})";
  EXPECT_EQ(
      json_spirit::dump_json(status),
      R"({"open":true,"files":[{"path":")" + std::string(folder) +
          R"(log_backup_PRD_HDB00_TN1","live":true,"database":"TN1","definition_uuid":"d1","problem":""},)" +
          R"({"path":")" + folder +
          R"(log_backup_PRD_HDB00_TN1.17","live":false,"database":"TN1","definition_uuid":"d1","problem":""}],)" +
          R"("other_systems":["QAS"],"settings":)" + on +
          R"(,"lacks":"","databases":[{"name":"TN1","settings":{"log_mode":"normal",)" +
          R"("enable_auto_log_backup":false,"log_backup_using_backint":true,"catalog_backup_using_backint":true},)" +
          R"("lacks":"enable_auto_log_backup is no"}]})");
  instance.options.erase("sid");
  EXPECT_FALSE(agentd::log_backup_status(instance, true, status, error));
  EXPECT_NE(error.find("run discover again"), std::string::npos);
}
