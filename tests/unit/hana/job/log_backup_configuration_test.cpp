// Bad days of a log backup's configuration file and of the directory it lies in, and what comes in which order.

#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "platform/files.h"
#include "unit/hana/job/log_backup_fixture.h"

namespace {

using backup_test::done;
using backup_test::Log_Executor;
using Strings = std::vector<std::string>;

constexpr const char* state_directory = "/var/opt/tarvex/dorsal3/agent/hana";
constexpr const char* tenant_file = "/var/opt/tarvex/dorsal3/agent/hana/log_backup_HDB_HDB00_TN1";
constexpr const char* activity_file = "/var/opt/tarvex/dorsal3/agent/act/job-id";
constexpr const char* access_key = "/var/opt/tarvex/dorsal3/agent/access_key";
constexpr const char* of_this_definition = R"({"job_definition_uuid":"job-id"})";
constexpr const char* of_another = R"({"job_definition_uuid":"another"})";
constexpr mode_t permission_bits = 07777;
constexpr mode_t owner_only = 0700;

/// A group that this process may give files to: where there is one, another one than its new files have.
gid_t group_of_sap() {
  constexpr gid_t no_bodys_group = 54321;
  if (::geteuid() == 0) return no_bodys_group;
  std::vector<gid_t> groups(static_cast<std::size_t>(std::max(0, ::getgroups(0, nullptr))));
  groups.resize(static_cast<std::size_t>(std::max(0, ::getgroups(static_cast<int>(groups.size()), groups.data()))));
  const auto other = std::find_if(groups.begin(), groups.end(), [](gid_t one) { return one != ::getegid(); });
  return other == groups.end() ? ::getegid() : *other;
}

class Log_Configuration : public backup_test::Log_Backup_Test {
 protected:
  Log_Configuration() {
    root_.write(activity_file, "marker");
    set_entries({"hana/HDB00/TN1"});
  }

  static std::string alter_sql(const std::string& section, const std::string& key, const std::string& value) {
    return "ALTER SYSTEM ALTER CONFIGURATION ('global.ini','SYSTEM') SET ('" + section + "','" + key + "') = '" +
           value + "' WITH RECONFIGURE";
  }
  void expect_enabled(std::function<void()> at_first = {}) {
    backup_test::Sql_Answer first = done();
    first.before = std::move(at_first);
    hdbsql_.expect(alter_sql("persistence", "log_mode", "normal"), first);
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
  /// Fails with alert 14 for the tenant and leaves HANA alone.
  void expect_no_configuration() {
    EXPECT_FALSE(set_up());
    expect_error("Failed to backup HANA log, failed to generate database TN1 job configure file\n");
    EXPECT_EQ(alerts(), Strings{R"(7/14 0 1 {"instance":"TN1"})"});
    EXPECT_TRUE(hdbsql_.statements().empty());
  }
  void link_in_place_of_directory(const std::string& target) const {
    root_.make_directory("/var/opt/tarvex/dorsal3/agent");
    ASSERT_EQ(::symlink(target.c_str(), root_.real(state_directory).c_str()), 0);
  }
  [[nodiscard]] static Strings files() {
    Strings names;
    (void)platform::list_directory(state_directory, names);
    return names;
  }
  [[nodiscard]] struct stat status_of(const char* documented) const {
    struct stat status {};
    EXPECT_EQ(::stat(root_.real(documented).c_str(), &status), 0) << documented;
    return status;
  }
  [[nodiscard]] mode_t mode_of(const char* documented) const { return status_of(documented).st_mode & permission_bits; }
};

/// Files of this name that are not this definition's for sure.
struct Bad_File {
  const char* name;
  std::string content;
};
std::vector<Bad_File> bad_files() {
  constexpr std::size_t too_large = 17U << 20;
  return {{"empty", ""},
          {"half-written", R"({"job_definition_uuid":"job-id")"},
          {"of another definition", of_another},
          {"no object", R"(["job_definition_uuid","job-id"])"},
          {"owner is no text", R"({"job_definition_uuid":5})"},
          {"without an owner", "{}"},
          {"unreadable: too large", R"({"job_definition_uuid":"job-id"})" + std::string(too_large, ' ')}};
}

}  // namespace

TEST_F(Log_Configuration, Bad_Files_Do_Not_Count_As_Installed_And_Are_Set_Aside) {
  for (const Bad_File& bad : bad_files()) {
    SCOPED_TRACE(bad.name);
    for (const std::string& name : files())
      ASSERT_TRUE(platform::remove_file(std::string(state_directory) + "/" + name));
    root_.write(tenant_file, bad.content);
    expect_enabled();
    EXPECT_TRUE(set_up());
    EXPECT_EQ(files(), (Strings{"log_backup_HDB_HDB00_TN1", "log_backup_HDB_HDB00_TN1.1700000000"}));
    EXPECT_TRUE(root_.read(std::string(tenant_file) + ".1700000000") == bad.content) << "it is kept as it was";
    EXPECT_TRUE(root_.read(tenant_file).starts_with(R"({"job_definition_uuid":"job-id","type":"log",)"));
  }
}

TEST_F(Log_Configuration, Bad_Files_Are_Left_At_Removal_And_Keep_HANAs_Log_Backup_On) {
  for (const Bad_File& bad : bad_files()) {
    SCOPED_TRACE(bad.name);
    root_.write(tenant_file, bad.content);
    Log_Executor& executor = new_log_executor();
    EXPECT_TRUE(executor.remove_ondemand());
    expect_error("Failed to backup HANA log, failed to remove database 'TN1' job configure file\n");
    EXPECT_FALSE(executor.remove_conf_file("TN1"));
    EXPECT_TRUE(root_.read(tenant_file) == bad.content);
  }
  EXPECT_TRUE(hdbsql_.statements().empty());
  EXPECT_TRUE(alerts().empty());
}

TEST_F(Log_Configuration, Second_Definition_Of_A_Database_Takes_The_Place_Of_The_First) {
  expect_enabled();
  ASSERT_TRUE(set_up());
  definition_->id("second-id");
  root_.write("/var/opt/tarvex/dorsal3/agent/act/second-id", "marker");
  expect_enabled();
  EXPECT_TRUE(set_up());
  EXPECT_EQ(files(), (Strings{"log_backup_HDB_HDB00_TN1", "log_backup_HDB_HDB00_TN1.1700000000"}));
  EXPECT_TRUE(root_.read(tenant_file).starts_with(R"({"job_definition_uuid":"second-id",)"));

  definition_->id("job-id");
  EXPECT_TRUE(remove()) << "of the first";
  expect_error("Failed to backup HANA log, failed to remove database 'TN1' job configure file\n");
  EXPECT_EQ(files().size(), 2U) << "the second stays";

  definition_->id("second-id");
  expect_disabled();
  EXPECT_TRUE(remove());
  EXPECT_EQ(files(), Strings{"log_backup_HDB_HDB00_TN1.1700000000"});
}

TEST_F(Log_Configuration, Keeps_The_Copy_That_Was_Set_Aside_In_The_Same_Second) {
  const std::string copy = std::string(tenant_file) + ".1700000000";
  root_.write(copy, "the first");
  root_.write(tenant_file, "the second");
  expect_no_configuration();
  expect_error("Failed to rename " + std::string(tenant_file) + " to " + copy + "\n");
  EXPECT_EQ(root_.read(copy), "the first");
  EXPECT_EQ(root_.read(tenant_file), "the second");

  clock_.sleep_for(std::chrono::seconds(1));
  expect_enabled();
  EXPECT_TRUE(set_up());
  EXPECT_EQ(root_.read(copy), "the first");
  EXPECT_EQ(root_.read(std::string(tenant_file) + ".1700000001"), "the second");
}

TEST_F(Log_Configuration, Directory_In_The_Place_Of_The_File_Is_A_Failure_And_Is_Left) {
  root_.make_directory(std::string(tenant_file) + "/somebody's");
  expect_no_configuration();
  EXPECT_EQ(files(), Strings{"log_backup_HDB_HDB00_TN1"}) << "nothing is left beside it";
  EXPECT_TRUE(remove());
  EXPECT_TRUE(hdbsql_.statements().empty()) << "its name is that of a live configuration";
  log_.claim_all();
}

TEST_F(Log_Configuration, Comes_Into_A_Directory_That_Is_Missing_And_Opens_One_That_Others_Cannot_Enter) {
  expect_enabled();
  EXPECT_TRUE(set_up());
  EXPECT_EQ(mode_of(state_directory), 0755U);
  expect_disabled();
  EXPECT_TRUE(remove());

  ASSERT_EQ(::chmod(root_.real(state_directory).c_str(), owner_only), 0);
  expect_enabled();
  EXPECT_TRUE(set_up());
  EXPECT_EQ(mode_of(state_directory), 0755U);
  EXPECT_EQ(mode_of(tenant_file), 0640U) << "the mode is the directory's";
}

TEST_F(Log_Configuration, Directory_That_Leads_Nowhere_Is_A_Failure) {
  link_in_place_of_directory("/nowhere");
  expect_no_configuration();
  expect_error_with("Failed to make the directory '/var/opt/tarvex/dorsal3/agent/hana'");
}

TEST_F(Log_Configuration, Removal_Leaves_HANA_Alone_Where_The_Directory_Cannot_Be_Listed) {
  link_in_place_of_directory("hana");
  EXPECT_TRUE(remove());
  expect_error_with("Failed to list '/var/opt/tarvex/dorsal3/agent/hana'");
  EXPECT_TRUE(hdbsql_.statements().empty()) << "another definition may have its file there";
}

TEST_F(Log_Configuration, Removal_Switches_Log_Backup_Off_Where_A_File_Lies_In_The_Directorys_Place) {
  root_.write(state_directory, "no directory");
  expect_disabled();
  EXPECT_TRUE(remove());
}

TEST_F(Log_Configuration, File_And_Activity_Get_The_Group_Of_SAP) {
  const gid_t sap = group_of_sap();
  root_.write("/etc/group", "sapsys:x:" + std::to_string(sap) + ":\n");
  gid_t activity_at_first = sap;
  gid_t file_at_first = 0;
  expect_enabled([&] {
    activity_at_first = status_of(activity_file).st_gid;
    file_at_first = status_of(tenant_file).st_gid;
  });
  EXPECT_TRUE(set_up());
  EXPECT_EQ(status_of(tenant_file).st_gid, sap);
  EXPECT_EQ(status_of(activity_file).st_gid, sap);
  EXPECT_EQ(file_at_first, sap) << "HANA is switched on when hdbbackint can read the file";
  EXPECT_EQ(activity_at_first, ::getegid()) << "and before the activity is handed over";
}

TEST_F(Log_Configuration, Needs_No_Access_Key_And_Renews_It_Also_For_What_Is_Installed) {
  root_.make_directory(std::string(access_key) + "/in its place");
  expect_enabled();
  EXPECT_TRUE(set_up());
  EXPECT_EQ(log_.claim_containing("Failed to write access key file"), 1U);

  ASSERT_EQ(::rename(root_.real(access_key).c_str(), root_.real("/aside").c_str()), 0);
  EXPECT_TRUE(set_up()) << "installed already";
  EXPECT_EQ(root_.read(access_key), "the-key-of-this-host");
}

TEST_F(Log_Configuration, Refuses_A_Source_Without_Entries) {
  source_ = new Default_Backup_Job_Source;
  source_->id(backup_test::resource_uuid);
  definition_->source = Job_Source_Ptr(source_);
  EXPECT_FALSE(set_up());
  expect_error("Failed to backup HANA log, log backup with multiple databases is not supported\n");
  EXPECT_TRUE(alerts().empty());
  EXPECT_TRUE(files().empty());
}

TEST_F(Log_Configuration, Looks_For_Resource_Then_Backint_Then_Source) {
  set_entries({"oracle/ORCL"});
  root_.write("/usr/sap/HDB/SYS/global/hdb/opt/hdbbackint", "of another product");
  EXPECT_FALSE(set_up());
  EXPECT_EQ(alerts(), Strings{"7/1 0 1 {}"});
  expect_error("Failed to backup HANA log, failed to prepare backint\n");
  EXPECT_FALSE(log_.has_containing("failed to collect source"));

  backupd_.resource = json_spirit::Value();
  EXPECT_FALSE(set_up());
  EXPECT_EQ(alerts(), (Strings{"7/1 0 1 {}", "7/6 0 1 {}"}));
  EXPECT_EQ(log_.claim_containing("failed to prepare backint"), 0U);
  expect_error("Failed to backup HANA log, failed to get resource info\n");

  EXPECT_FALSE(remove());
  expect_error("Failed to remove backup HANA log, failed to get resource info\n");
  EXPECT_FALSE(log_.has_containing("failed to collect source"));
  log_.claim_all();
}

TEST_F(Log_Configuration, Has_No_Name_Before_The_System_Is_Known) {
  Log_Executor& executor = new_log_executor();
  EXPECT_FALSE(executor.generate_log_conf_file("TN1"));
  expect_error("Failed to get file name\n");
  EXPECT_FALSE(executor.remove_conf_file("TN1"));
  expect_error("Failed to get file name\n");
  EXPECT_EQ(log_.claim_containing("without a SID and an instance name"), 2U);
}

TEST_F(Log_Configuration, Asks_Without_Options_Whether_This_Node_Is_The_Active_One) {
  root_.write(tenant_file, of_this_definition);
  Log_Executor& executor = new_log_executor();
  EXPECT_TRUE(executor.setup_ondemand());
  EXPECT_TRUE(executor.asked_with_.empty()) << "installed already";
  expect_disabled();
  EXPECT_TRUE(executor.remove_ondemand());
  expect_enabled();
  EXPECT_TRUE(executor.setup_ondemand());
  EXPECT_EQ(executor.asked_with_, (std::vector<const Action_Options*>{nullptr, nullptr}));
}
