#include "agentd/log_backup/ondemand_setup.h"

#include <sys/stat.h>
#include <unistd.h>

#include "agentd/backupd_link/alert_tap.h"
#include "agentd/log_backup/log_backup_files.h"
#include "agentd/log_backup/log_backup_settings.h"
#include "unit/agentd/modules/module_fixture.h"

using namespace agentd;

namespace {

constexpr const char* live_file = "/var/opt/tarvex/dorsal3/agent/hana/log_backup_PRD_HDB00_TN%5F1";
constexpr const char* marker = "/var/opt/tarvex/dorsal3/agent/act/bbbbbbbb-0000-4000-8000-000000000001";
constexpr const char* global_ini = "/usr/sap/PRD/SYS/global/hdb/custom/config/global.ini";

constexpr const char* hana_hands_over =
    "[persistence]\nlog_mode = normal\nenable_auto_log_backup = yes\n[backup]\nlog_backup_using_backint = true\n"
    "catalog_backup_using_backint = true\n";

class Ondemand_Setup_Test : public Module_Fixture {
 protected:
  Ondemand_Setup_Test() {
    EXPECT_TRUE(modules.load({"testing"}));
    set_alert_sink(std::make_shared<Alert_Tap>(nullptr));
    root.make_directory("/var/opt/tarvex/dorsal3/agent/hana");
    root.write("/etc/group", "sapsys:x:" + std::to_string(::getgid()) + ":\n");
  }
  ~Ondemand_Setup_Test() override {
    set_alert_sink(nullptr);
    modules.unload();
  }

  static json_spirit::Object params(const std::string& name, int schedule = JOB_SCHEDULE_ONDEMAND) {
    json_spirit::Object document = definition(name);
    document["subtype"] = "log";
    document["schedule"] = json_spirit::Object{{"type", schedule}};
    return {{"definition", document}};
  }
  static std::string text(const JSON_RPC_Answer& answer) {
    EXPECT_TRUE(answer.ok) << answer.message;
    return json_spirit::dump_json(answer.result);
  }

  Modules modules;
  /// As a set-up leaves it that broke off before its end.
  void write_configuration(mode_t mode = 0640) {
    root.write(live_file,
               R"({"job_definition_uuid":"bbbbbbbb-0000-4000-8000-000000000001","sid":"PRD","instance_name":"HDB00"})",
               mode);
  }
  void switch_hana_on() { root.write(global_ini, hana_hands_over); }

  Job_Maker maker{modules, host_uuid};
  Instance_Manager instances;
  Log_Backup_Service log_backups{modules, instances};
  Ondemand_Setup setups{maker, log_backups};
};

constexpr const char* good = R"({"code":0,"message":"","alerts":[]})";

}  // namespace

TEST_F(Ondemand_Setup_Test, Sets_A_Definition_Up_And_Removes_It) {
  EXPECT_EQ(text(setups.setup(params("logs"))), good);
  EXPECT_TRUE(root.exists(live_file));
  EXPECT_TRUE(root.exists(marker)) << "stands for the definition as long as it is set up";
  EXPECT_EQ(text(setups.unsetup(params("logs"))), good);
  EXPECT_FALSE(root.exists(live_file));
  EXPECT_FALSE(root.exists(marker));
  EXPECT_EQ(text(setups.unsetup(params("logs"))), good) << "what is not there counts as removed";
}

TEST_F(Ondemand_Setup_Test, Tells_Why_And_Which_Alerts_Were_Raised) {
  EXPECT_EQ(text(setups.setup(params("fail"))), R"({"code":-1,"message":"The test setup fails",)"
                                                R"("alerts":[{"class":7,"code":14,"parameters":{"instance":"TN1"}}]})");
  EXPECT_TRUE(log.claim("The test setup fails\n"));
}

TEST_F(Ondemand_Setup_Test, A_Removal_That_Leaves_The_File_Has_Failed) {
  json_spirit::Object same = params("fail");
  ASSERT_EQ(text(setups.setup(params("logs"))), good);
  EXPECT_EQ(text(setups.unsetup(same)), R"({"code":-1,"message":"The test removal fails; its configuration file )" +
                                            std::string(live_file) + R"( stands","alerts":[]})");
  EXPECT_TRUE(log.claim("The test removal fails\n"));
  EXPECT_TRUE(root.exists(marker));
}

TEST_F(Ondemand_Setup_Test, Leaves_What_Is_Set_Up_To_Its_End) {
  write_configuration();
  switch_hana_on();
  // The job of this name writes nothing, as a module does that finds the definition installed.
  EXPECT_EQ(text(setups.setup(params("is taken for installed"))), good);
  EXPECT_TRUE(root.exists(live_file));
}

TEST_F(Ondemand_Setup_Test, Sets_Up_Again_What_HANA_Cannot_Read) {
  switch_hana_on();
  const auto left_by_former = [&](mode_t mode, const std::string& groups) {
    write_configuration(mode);
    root.write("/etc/group", groups);
  };
  const std::string own_group = "sapsys:x:" + std::to_string(::getgid()) + ":\n";
  left_by_former(0600, own_group);
  EXPECT_NE(text(setups.setup(params("is taken for installed"))).find("no configuration file was written"),
            std::string::npos)
      << "a mode that is closed to the group";
  left_by_former(0640, "sapsys:x:" + std::to_string(::getgid() + 1) + ":\n");
  EXPECT_NE(text(setups.setup(params("is taken for installed"))).find("no configuration file was written"),
            std::string::npos)
      << "another group";
  left_by_former(0640, "root:x:0:\n");
  EXPECT_NE(text(setups.setup(params("is taken for installed"))).find("no configuration file was written"),
            std::string::npos)
      << "no group";
  left_by_former(0600, own_group);
  EXPECT_EQ(text(setups.setup(params("logs"))), good);
  struct stat status {};
  ASSERT_EQ(::stat(root.real(live_file).c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0640U);
}

TEST_F(Ondemand_Setup_Test, Sets_Up_Again_What_Has_Not_Switched_HANA_On) {
  write_configuration();
  root.write(global_ini, "[backup]\nlog_backup_using_backint = false\n");
  EXPECT_NE(text(setups.setup(params("is taken for installed"))).find("no configuration file was written"),
            std::string::npos);
  write_configuration();
  json_spirit::Object elsewhere = params("is taken for installed");
  json_spirit::Object document = elsewhere["definition"].get_obj();
  json_spirit::Object source = document["source"].get_obj();
  source["name"] = "QAS_HDB00";
  document["source"] = source;
  EXPECT_EQ(text(setups.setup({{"definition", document}})), good) << "where the instance is not open, others switch it";
}

TEST_F(Ondemand_Setup_Test, Tells_What_Stands_In_The_Way_Of_A_New_Set_Up) {
  switch_hana_on();
  write_configuration(0600);
  const std::string answer = text(setups.setup(params("fail")));
  EXPECT_NE(answer.find(R"("code":-1,"message":"The test removal fails; it was not set up to its end, )"),
            std::string::npos)
      << answer;
  EXPECT_NE(answer.find("cannot be read by the group sapsys"), std::string::npos) << answer;
  EXPECT_NE(answer.find("remove it by hand, then it is set up again"), std::string::npos) << answer;
  EXPECT_TRUE(log.claim("The test removal fails\n"));
}

TEST_F(Ondemand_Setup_Test, A_Copy_That_Was_Set_Aside_Is_No_Setup) {
  const std::string copy = std::string(live_file) + ".1700000000";
  root.write(copy, R"({"job_definition_uuid":"bbbbbbbb-0000-4000-8000-000000000001"})");
  const std::string answer = text(setups.setup(params("is taken for installed")));
  EXPECT_NE(answer.find("because of the copy " + copy), std::string::npos) << answer;
  EXPECT_NE(answer.find("\"code\":-1"), std::string::npos);
  root.write(copy, "");
  EXPECT_NE(text(setups.setup(params("is taken for installed"))).find("no configuration file was written"),
            std::string::npos);
}

TEST_F(Ondemand_Setup_Test, A_System_That_Goes_On_Sending_Its_Logs_Is_Not_Removed_But_With_Another_One_Set_Up) {
  root.write(global_ini, "[backup]\nlog_backup_using_backint = true\n");
  ASSERT_EQ(text(setups.setup(params("logs"))), good);
  EXPECT_EQ(text(setups.unsetup(params("logs"))),
            R"({"code":-1,"message":"system PRD still sends its logs to Backint, where no definition takes them; )"
            R"(it is told again when it runs as a primary","alerts":[]})");
  root.write("/var/opt/tarvex/dorsal3/agent/hana/log_backup_QAS_HDB00",
             R"({"job_definition_uuid":"x","sid":"QAS","instance_name":"HDB00"})");
  const std::string beside = text(setups.unsetup(params("logs")));
  EXPECT_NE(beside.find(R"("code":0)"), std::string::npos) << beside;
  EXPECT_NE(beside.find("as long as another system of this host has a log backup"), std::string::npos) << beside;
}

TEST_F(Ondemand_Setup_Test, Refuses_What_Is_No_Definition_Set_Up_On_Demand) {
  for (const json_spirit::Object& wrong :
       {json_spirit::Object(), params("logs", JOB_SCHEDULE_NONE), json_spirit::Object{{"definition", "text"}}}) {
    const JSON_RPC_Answer answer = setups.setup(wrong);
    EXPECT_FALSE(answer.ok);
    EXPECT_EQ(answer.code, JSON_RPC_E_INVALID_PARAMS);
    EXPECT_FALSE(setups.unsetup(wrong).ok);
  }
  EXPECT_FALSE(root.exists(marker));
}

TEST_F(Ondemand_Setup_Test, Lists_Files_With_What_They_Say) {
  root.write("/var/opt/tarvex/dorsal3/agent/hana/log_backup_PRD_HDB00",
             R"({"job_definition_uuid":"of the instance","sid":"PRD","instance_name":"HDB00"})");
  root.write(live_file, R"({"job_definition_uuid":"of the database","sid":"PRD","instance_name":"HDB00"})");
  root.write(std::string(live_file) + ".17", "");
  root.write("/var/opt/tarvex/dorsal3/agent/hana/restore_x", "");
  std::vector<Log_Backup_File> files;
  std::string error;
  ASSERT_TRUE(list_log_backup_files(files, error)) << error;
  ASSERT_EQ(files.size(), 3U);
  EXPECT_EQ(files[0].definition_id, "of the instance");
  EXPECT_EQ(files[0].database, "");
  EXPECT_TRUE(files[0].live);
  EXPECT_EQ(files[1].definition_id, "of the database");
  EXPECT_EQ(files[1].database, "TN_1");
  EXPECT_FALSE(files[2].live);
  EXPECT_EQ(files[2].database, "TN_1");
  EXPECT_EQ(files[2].problem, "it is damaged or no configuration of a log backup");
}

TEST_F(Ondemand_Setup_Test, Reads_The_Settings_Of_System_And_Database) {
  Log_Backup_Settings settings;
  std::string error;
  ASSERT_TRUE(read_log_backup_settings("PRD", "", settings, error)) << error;
  EXPECT_EQ(settings.lacks(), "log_backup_using_backint is false") << "as it is delivered";
  root.write(global_ini,
             "[persistence]\nlog_mode = normal\nenable_auto_log_backup = yes\n[backup]\n"
             "log_backup_using_backint=true\ncatalog_backup_using_backint = true\n");
  ASSERT_TRUE(read_log_backup_settings("PRD", "TN1", settings, error)) << error;
  EXPECT_TRUE(settings.on());
  root.write("/usr/sap/PRD/SYS/global/hdb/custom/config/DB_TN1/global.ini",
             "[persistence]\nlog_mode = overwrite\n[backup]\n");
  ASSERT_TRUE(read_log_backup_settings("PRD", "TN1", settings, error)) << error;
  EXPECT_EQ(settings.lacks(), "log_mode is overwrite");
  ASSERT_TRUE(read_log_backup_settings("PRD", "TN2", settings, error)) << error;
  EXPECT_TRUE(settings.on());
}
