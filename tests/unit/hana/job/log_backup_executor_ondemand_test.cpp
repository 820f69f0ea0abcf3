// Setting a log backup up and removing it: the configuration file, its copies, and HANA's switches.

#include <sys/stat.h>

#include <string>
#include <vector>

#include "platform/files.h"
#include "records/rate_limits.h"
#include "unit/hana/job/log_backup_fixture.h"

namespace {

using backup_test::done;
using backup_test::Log_Executor;
using backup_test::refused;
using json_spirit::Object;
using Strings = std::vector<std::string>;

constexpr const char* state_directory = "/var/opt/tarvex/dorsal3/agent/hana";
constexpr const char* tenant_file = "/var/opt/tarvex/dorsal3/agent/hana/log_backup_HDB_HDB00_TN1";
constexpr const char* instance_file = "/var/opt/tarvex/dorsal3/agent/hana/log_backup_HDB_HDB00";
constexpr const char* activity_file = "/var/opt/tarvex/dorsal3/agent/act/job-id";
constexpr mode_t permission_bits = 07777;

class On_Demand : public backup_test::Log_Backup_Test {
 protected:
  On_Demand() { root_.write(activity_file, "marker"); }

  static std::string alter_sql(const std::string& section, const std::string& key, const std::string& value) {
    return "ALTER SYSTEM ALTER CONFIGURATION ('global.ini','SYSTEM') SET ('" + section + "','" + key + "') = '" +
           value + "' WITH RECONFIGURE";
  }
  void expect_enabled() {
    hdbsql_.expect(alter_sql("persistence", "log_mode", "normal"), done());
    hdbsql_.expect(alter_sql("persistence", "enable_auto_log_backup", "yes"), done());
    hdbsql_.expect(alter_sql("backup", "log_backup_using_backint", "true"), done());
    hdbsql_.expect(alter_sql("backup", "catalog_backup_using_backint", "true"), done());
  }
  void expect_disabled() {
    hdbsql_.expect(alter_sql("persistence", "enable_auto_log_backup", "no"), done());
    hdbsql_.expect(alter_sql("backup", "log_backup_using_backint", "false"), done());
    hdbsql_.expect(alter_sql("backup", "catalog_backup_using_backint", "false"), done());
  }
  bool set_up() { return new_log_executor().setup_ondemand(); }
  bool remove() { return new_log_executor().remove_ondemand(); }
  /// Sets the definition up and forgets what HANA was told.
  void installed() {
    expect_enabled();
    ASSERT_TRUE(set_up());
  }
  void expect_failure(const Strings& wanted_alerts, const std::string& line) {
    EXPECT_FALSE(set_up());
    EXPECT_EQ(alerts(), wanted_alerts);
    expect_error(line);
    EXPECT_TRUE(files().empty());
    EXPECT_TRUE(hdbsql_.statements().empty());
  }
  [[nodiscard]] static Strings files() {
    Strings names;
    (void)platform::list_directory(state_directory, names);
    return names;
  }
  [[nodiscard]] mode_t mode_of(const char* documented) const {
    struct stat status {};
    EXPECT_EQ(::stat(root_.real(documented).c_str(), &status), 0) << documented;
    return status.st_mode & permission_bits;
  }
};

}  // namespace

TEST_F(On_Demand, Writes_The_File_Of_A_Tenant_And_Switches_HANAs_Log_Backup_On) {
  Rate_Limits limits;
  limits.destination = {{0, 3600, 1000}};
  definition_->rate_limits(limits);
  set_entries({"hana/HDB00/TN1"});
  expect_enabled();
  EXPECT_TRUE(set_up());
  EXPECT_EQ(root_.read(tenant_file),
            R"({"job_definition_uuid":"job-id","type":"log","sid":"HDB","instance_name":"HDB00","instance_number":0,)"
            R"("pool_uuid":"22222222-2222-4222-8222-222222222222","location":"file:///pool",)"
            R"("host_uuid":"33333333-3333-4333-8333-333333333333",)"
            R"("resource_uuid":"11111111-1111-4111-8111-111111111111","uid":"55555555-5555-4555-8555-555555555555",)"
            R"("compression":"zstd","compression_level":3,"io_ctl":{"max_seconds_retry":600,)"
            R"("resumption_buffer_size":1048576,)"
            R"("dest_rate_limits":"[{\"start_time\":0,\"end_time\":3600,\"max_bytes_per_second\":1000}]",)"
            R"("src_rate_limits":"[]"}})");
  EXPECT_EQ(files(), Strings{"log_backup_HDB_HDB00_TN1"});
  EXPECT_EQ(mode_of(tenant_file), 0640U);
  EXPECT_EQ(mode_of(state_directory), 0755U);
  EXPECT_TRUE(root_.exists("/var/opt/tarvex/dorsal3/agent/access_key"));
  EXPECT_TRUE(root_.exists("/usr/sap/HDB/SYS/global/hdb/opt")) << "Backint is prepared";
  EXPECT_TRUE(alerts().empty());
}

TEST_F(On_Demand, Writes_One_File_For_The_Instance_When_No_Database_Is_Named) {
  set_entries({"hana/HDB00"});
  expect_enabled();
  EXPECT_TRUE(set_up());
  EXPECT_EQ(files(), Strings{"log_backup_HDB_HDB00"});
}

TEST_F(On_Demand, Names_No_Compression_For_A_Method_Without_A_Name) {
  options_->compression_ = COMPR_MAX;
  set_entries({"hana/HDB00"});
  installed();
  EXPECT_NE(root_.read(instance_file).find(R"("compression":"",)"), std::string::npos);
}

TEST_F(On_Demand, A_Second_Time_Writes_Nothing_And_Asks_HANA_Nothing) {
  set_entries({"hana/HDB00/TN1"});
  installed();
  root_.write(tenant_file, R"({"job_definition_uuid":"job-id"})");
  EXPECT_TRUE(set_up());
  EXPECT_EQ(root_.read(tenant_file), R"({"job_definition_uuid":"job-id"})");
  EXPECT_EQ(files().size(), 1U);
}

TEST_F(On_Demand, Counts_As_Installed_By_A_Copy_That_Was_Set_Aside) {
  set_entries({"hana/HDB00/TN1"});
  root_.write(std::string(tenant_file) + ".1699999999", R"({"job_definition_uuid":"job-id"})");
  EXPECT_TRUE(set_up());
  EXPECT_EQ(files().size(), 1U);
}

TEST_F(On_Demand, Passes_Over_Files_That_Are_Not_Its_Own) {
  set_entries({"hana/HDB00/TN1"});
  const std::string start = std::string(state_directory) + "/log_backup_";
  root_.write(start + "other", R"({"job_definition_uuid":"another"})");
  root_.write(start + "array", R"(["job-id"])");
  root_.write(start + "number", R"({"job_definition_uuid":5})");
  root_.write(start + "half", R"({"job_definition_uuid":"job-id")");
  root_.write(start + "empty", "");
  root_.write(std::string(state_directory) + "/restore", R"({"job_definition_uuid":"job-id"})");
  expect_enabled();
  EXPECT_TRUE(set_up());
  EXPECT_TRUE(root_.exists(tenant_file));
}

TEST_F(On_Demand, Sets_The_File_Aside_That_Stands_In_Its_Place) {
  set_entries({"hana/HDB00/TN1"});
  root_.write(tenant_file, R"({"job_definition_uuid":"another"})");
  installed();
  EXPECT_EQ(files(), (Strings{"log_backup_HDB_HDB00_TN1", "log_backup_HDB_HDB00_TN1.1700000000"}));
  EXPECT_EQ(root_.read(std::string(tenant_file) + ".1700000000"), R"({"job_definition_uuid":"another"})");
}

TEST_F(On_Demand, Raises_Alert_14_When_The_Old_File_Cannot_Be_Set_Aside) {
  set_entries({"hana/HDB00/TN1"});
  root_.write(tenant_file, "of another");
  root_.make_directory(std::string(tenant_file) + ".1700000000/not empty");
  EXPECT_FALSE(set_up());
  expect_error(std::string("Failed to rename ") + tenant_file + " to " + tenant_file + ".1700000000\n");
  expect_error("Failed to backup HANA log, failed to generate database TN1 job configure file\n");
  EXPECT_EQ(alerts(), Strings{R"(7/14 0 1 {"instance":"TN1"})"});
  EXPECT_EQ(root_.read(tenant_file), "of another");
}

TEST_F(On_Demand, Raises_Alert_14_With_The_Instance_When_Its_File_Cannot_Be_Written) {
  set_entries({"hana/HDB00"});
  root_.write(state_directory, "a file where the directory should be");
  EXPECT_FALSE(set_up());
  expect_error("Failed to backup HANA log, failed to generate instance HDB00 job configure file\n");
  EXPECT_EQ(alerts(), Strings{R"(7/14 0 1 {"instance":"HDB00"})"});
  log_.claim_all();
}

TEST_F(On_Demand, Raises_Alert_14_When_The_File_Cannot_Be_Given_To_SAPs_Group) {
  set_entries({"hana/HDB00"});
  root_.write("/etc/group", "users:x:100:\n");
  EXPECT_FALSE(set_up());
  EXPECT_EQ(alerts(), Strings{R"(7/14 0 1 {"instance":"HDB00"})"});
  EXPECT_TRUE(root_.exists(instance_file)) << "what is written stays";
  log_.claim_all();
}

TEST_F(On_Demand, Raises_Alert_6_Without_A_Resource) {
  set_entries({"hana/HDB00"});
  backupd_.resource = json_spirit::Value();
  expect_failure({"7/6 0 1 {}"}, "Failed to backup HANA log, failed to get resource info\n");
  log_.claim_all();
}

TEST_F(On_Demand, Raises_Alert_1_When_Backint_Cannot_Be_Prepared) {
  set_entries({"hana/HDB00"});
  root_.write("/usr/sap/HDB/SYS/global/hdb/opt/hdbbackint", "of another product");
  expect_failure({"7/1 0 1 {}"}, "Failed to backup HANA log, failed to prepare backint\n");
  log_.claim_all();
}

TEST_F(On_Demand, Raises_Alert_5_For_An_Entry_Of_Another_Kind) {
  set_entries({"oracle/ORCL"});
  expect_failure({"7/5 0 1 {}"}, "Failed to backup HANA log, failed to collect source\n");
  log_.claim_all();
}

TEST_F(On_Demand, Refuses_Two_Databases_Without_An_Alert) {
  set_entries({"hana/HDB00/TN1", "hana/HDB00/TN2"});
  expect_failure({}, "Failed to backup HANA log, log backup with multiple databases is not supported\n");
}

TEST_F(On_Demand, Succeeds_When_HANA_Refuses_Its_Switches) {
  set_entries({"hana/HDB00"});
  hdbsql_.expect(alter_sql("persistence", "log_mode", "normal"), refused());
  hdbsql_.expect(alter_sql("persistence", "enable_auto_log_backup", "yes"), refused());
  hdbsql_.expect(alter_sql("backup", "log_backup_using_backint", "true"), refused());
  hdbsql_.expect(alter_sql("backup", "catalog_backup_using_backint", "true"), refused());
  EXPECT_TRUE(set_up());
  log_.claim_all();
}

TEST_F(On_Demand, On_A_Replication_Secondary_Writes_The_File_And_Leaves_HANA_Alone) {
  set_replication_mode("sync");
  set_entries({"hana/HDB00"});
  EXPECT_TRUE(set_up());
  EXPECT_TRUE(root_.exists(instance_file));
  EXPECT_TRUE(hdbsql_.statements().empty());
}

TEST_F(On_Demand, Without_An_Account_Writes_The_File_And_Leaves_HANA_Alone) {
  EXPECT_TRUE(registry_.remove_account("hana", "HDB_HDB00", ""));
  set_entries({"hana/HDB00"});
  EXPECT_TRUE(set_up());
  EXPECT_TRUE(root_.exists(instance_file));
  log_.claim_all();
}

TEST_F(On_Demand, Writes_The_Number_Of_The_Instance_That_The_Resource_Has) {
  Object instance = backup_test::instance_record(backup_test::host_uuid, "HDB_HDB42");
  Object attributes = instance.find("extended_attrs")->get_obj();
  attributes["instance_name"] = "HDB42";
  attributes["instance_number"] = 42;
  instance["extended_attrs"] = attributes;
  backupd_.resource = Object{{"uuid", backup_test::resource_uuid}, {"instances", json_spirit::Array{instance}}};
  set_entries({"hana/HDB42"});
  EXPECT_TRUE(set_up());
  EXPECT_NE(root_.read(std::string(state_directory) + "/log_backup_HDB_HDB42")
                .find(R"("instance_name":"HDB42","instance_number":42,)"),
            std::string::npos);
  log_.claim_all();  // there is no such instance on this host, so that HANA is left alone
}

TEST_F(On_Demand, Succeeds_Without_An_Activity_To_Give_To_SAPs_Group) {
  EXPECT_TRUE(platform::remove_file(activity_file));
  set_entries({"hana/HDB00"});
  installed();
  expect_error_with("Failed to give '/var/opt/tarvex/dorsal3/agent/act/job-id' to the group 'sapsys'");
}

TEST_F(On_Demand, Removal_Of_The_Last_Definition_Switches_HANAs_Log_Backup_Off) {
  set_entries({"hana/HDB00/TN1"});
  installed();
  root_.write(std::string(tenant_file) + ".1699999999", R"({"job_definition_uuid":"job-id"})");
  expect_disabled();
  EXPECT_TRUE(remove());
  EXPECT_EQ(files(), Strings{"log_backup_HDB_HDB00_TN1.1699999999"}) << "a copy is no configuration, and stays";
}

TEST_F(On_Demand, Removal_Of_One_Of_Two_Definitions_Leaves_Log_Backup_On) {
  set_entries({"hana/HDB00/TN1"});
  installed();
  root_.write(std::string(state_directory) + "/log_backup_HDB_HDB00_TN2", R"({"job_definition_uuid":"another"})");
  const std::size_t before = hdbsql_.statements().size();
  EXPECT_TRUE(remove());
  EXPECT_EQ(files(), Strings{"log_backup_HDB_HDB00_TN2"});
  EXPECT_EQ(hdbsql_.statements().size(), before);
}

TEST_F(On_Demand, Removal_Leaves_The_File_Of_Another_Definition) {
  set_entries({"hana/HDB00/TN1", "hana/HDB00"});
  root_.write(tenant_file, R"({"job_definition_uuid":"another"})");
  root_.write(instance_file, "garbage");
  EXPECT_TRUE(remove());
  expect_error("Failed to backup HANA log, failed to remove database 'TN1' job configure file\n");
  expect_error("Failed to backup HANA log, failed to remove instance 'HDB00' job configure file\n");
  EXPECT_EQ(files().size(), 2U);
  EXPECT_TRUE(hdbsql_.statements().empty());
}

TEST_F(On_Demand, Removal_Of_What_Was_Never_Set_Up_Switches_Log_Backup_Off_All_The_Same) {
  set_entries({"hana/HDB00"});
  expect_disabled();
  EXPECT_TRUE(remove());
}

TEST_F(On_Demand, Removal_Needs_The_Resource_And_A_Source_It_Understands) {
  set_entries({"oracle/ORCL"});
  EXPECT_FALSE(remove());
  expect_error("Failed to remove backup HANA log, failed to collect source\n");
  backupd_.resource = json_spirit::Value();
  EXPECT_FALSE(remove());
  expect_error("Failed to remove backup HANA log, failed to get resource info\n");
  EXPECT_TRUE(alerts().empty());
  log_.claim_all();
}

TEST_F(On_Demand, Removal_On_A_Replication_Secondary_Leaves_HANA_Alone) {
  set_entries({"hana/HDB00"});
  set_replication_mode("async");
  EXPECT_TRUE(remove());
  EXPECT_TRUE(hdbsql_.statements().empty());
}

TEST_F(On_Demand, Removal_Without_An_Account_Leaves_HANA_Alone) {
  set_entries({"hana/HDB00"});
  EXPECT_TRUE(registry_.remove_account("hana", "HDB_HDB00", ""));
  EXPECT_TRUE(remove());
  EXPECT_TRUE(hdbsql_.statements().empty());
  // Once, and nothing is tried without it.
  expect_error_with("No account is stored for the instance 'HDB_HDB00'");
  expect_error("Failed to get username and password\n");
}

TEST_F(On_Demand, Nothing_Is_Done_For_A_Definition_Without_A_Source) {
  definition_->source = Job_Source_Ptr();
  EXPECT_FALSE(set_up());
  EXPECT_FALSE(remove());
  EXPECT_EQ(log_.claim_containing("src_ is NULL", LM_EMERGENCY), 2U);
}
