// A whole restore: what it finds out first, the order of its entries, and what each of them leads to.

#include <ace/Guard_T.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "hana/common/system_instance_lister.h"
#include "job/job_mutex.h"
#include "unit/hana/job/restore_fixture.h"

namespace {

using backup_test::host_uuid;
using backup_test::origin_uuid;
using backup_test::Restorer;
using backup_test::second_host;
using json_spirit::Array;
using json_spirit::Object;
using Strings = std::vector<std::string>;

constexpr const char* failed = "Failed to restore HANA database\n";

class Restore_Run : public backup_test::Restore_Test {
 protected:
  /// The targets of the sorted entries, "*" before a system database.
  Strings sorted(const Strings& targets) {
    for (const std::string& target : targets) add(to_time(target));
    Restorer& restorer = new_restorer();
    restorer.sid_ = "HDB";
    EXPECT_TRUE(restorer.sort_entries());
    Strings names;
    for (const Entry& entry : restorer.sorted_entries_)
      names.push_back((entry.target.systemdb ? "*" : "") + entry.target.database);
    return names;
  }
  Entry foreign(Entry entry, const std::string& database) {
    entry.origin = {database, "PRD"};
    return entry;
  }
};

}  // namespace

TEST_F(Restore_Run, Restores_A_Tenant_To_A_Time) {
  add(to_time("TN1"));
  expect_tenant_restore("TN1", time_statement("TN1"));
  ASSERT_TRUE(restore());
  EXPECT_TRUE(alerts().empty());
  expect_info("Restore HANA database 'TN1' from 'HDB@TN1'\n");
  EXPECT_TRUE(root_.exists(std::string(catalog_directory) + "/catalog_HDB_TN1_HDB_TN1.json"));
  EXPECT_TRUE(root_.exists("/usr/sap/HDB/SYS/global/hdb/opt/hdbbackint"));
  EXPECT_EQ(root_.read("/var/opt/tarvex/dorsal3/agent/access_key"), "the-key-of-this-host");
}

TEST_F(Restore_Run, Stages_No_Catalog_For_A_Full_Backup) {
  add(from_full("TN1"));
  expect_tenant_restore("TN1", full_statement("TN1"));
  ASSERT_TRUE(restore());
  EXPECT_FALSE(root_.exists(catalog_directory));
}

TEST_F(Restore_Run, Asks_For_The_Sets_Of_The_Source_And_For_The_System_Of_The_Target) {
  add(to_time("TN1"));
  expect_tenant_restore("TN1", time_statement("TN1"));
  ASSERT_TRUE(restore());
  EXPECT_NE(backupd_.views.front().find(origin_uuid), std::string::npos);
  EXPECT_EQ(backupd_.count_of("GET /q5/r/v2/resources?uuid=" + std::string(backup_test::resource_uuid)), 1U);
  EXPECT_EQ(backupd_.count_of("GET /q5/r/v2/resources?uuid=" + std::string(origin_uuid)), 1U);
}

TEST_F(Restore_Run, Restores_Each_Entry_And_Counts_What_It_Read) {
  for (const char* name : {"TN1", "TN2", "TN3", "TN4"}) {
    add(from_full(name));
    expect_tenant_restore(name, full_statement(name));
  }
  ASSERT_TRUE(restore());
  EXPECT_EQ(progress(), (std::vector<int>{0, 25, 50, 75, 100}));
  EXPECT_EQ(job().activity().set_storage_size, 8000U);
  EXPECT_EQ(job().activity().set_size, 8000U);
  EXPECT_EQ(job().activity().size, 20000U);
}

TEST_F(Restore_Run, Ends_With_The_First_Entry_That_Fails) {
  for (const char* name : {"TN1", "TN2", "TN3"}) add(from_full(name));
  expect_tenant_restore("TN1", full_statement("TN1"));
  expect_listed("TN2", false);
  hdbsql_.expect(full_statement("TN2"), backup_test::refused("* 448: recovery could not be completed"));
  EXPECT_FALSE(restore());
  expect_error("Failed to restore tenant database\n");
  expect_error("Failed to restore HANA data\n");
  expect_error(failed);
  expect_error_with("recovery could not be completed");
  EXPECT_EQ(job().activity().progress, 33);
}

TEST_F(Restore_Run, Stops_Before_The_Next_Database) {
  for (const char* name : {"TN1", "TN2"}) add(from_full(name));
  expect_listed("TN1", false);
  backup_test::Sql_Answer answer = backup_test::done();
  answer.before = [this] { EXPECT_EQ(job().state_i(JOB_STATE_CANCELING), 0); };
  hdbsql_.expect(full_statement("TN1"), answer);
  expect_start("TN1");
  EXPECT_FALSE(restore());
  expect_info("The restore was stopped before its next database\n");
  expect_error(failed);
  EXPECT_TRUE(alerts().empty());
}

TEST_F(Restore_Run, Refuses_Another_Subtype_By_Name) {
  set_subtype(JOB_DEFINITION_SUBTYPE_FULL);
  EXPECT_FALSE(restore());
  expect_error("Type full is not supported\n");
  expect_error(failed);
  EXPECT_TRUE(alerts().empty());
}

TEST_F(Restore_Run, Fails_Without_The_Target_Resource) {
  backupd_.resource = Object{{"instances", Array()}};
  EXPECT_FALSE(restore());
  expect_error("Failed to get resource info.\n");
  expect_error("Lack of instance info\n");
  expect_error(failed);
  EXPECT_EQ(alerts(), Strings{"7/6 0 1 null"});
}

TEST_F(Restore_Run, Fails_On_A_Cluster_That_Lists_This_Host_Alone) {
  set_cluster({host_uuid});
  EXPECT_FALSE(restore());
  expect_error("Failed to get resource info.\n");
  expect_error(failed);
  EXPECT_EQ(alerts(), Strings{"7/6 0 1 null"});
}

TEST_F(Restore_Run, Knows_The_Other_Hosts_Of_A_Cluster) {
  set_cluster({second_host, host_uuid});
  Restorer& restorer = new_restorer();
  restorer.sid_ = "HDB";
  ASSERT_TRUE(restorer.get_cluster_info());
  EXPECT_TRUE(restorer.is_cluster_);
  ASSERT_EQ(restorer.cluster_instances_.size(), 1U);
  EXPECT_EQ(restorer.cluster_instances_.front().host_uuid, second_host);
}

TEST_F(Restore_Run, Does_Not_Look_For_Other_Hosts_Of_One_Host) {
  Restorer& restorer = new_restorer();
  restorer.sid_ = "HDB";
  backupd_.resource = json_spirit::Value();
  ASSERT_TRUE(restorer.get_cluster_info());
  EXPECT_FALSE(restorer.is_cluster_);
}

TEST_F(Restore_Run, Fails_When_It_Cannot_Tell_Whether_There_Are_Other_Hosts) {
  root_.make_directory("/usr/sap/HDB/SYS/global/hdb/custom/config/x");
  ASSERT_EQ(::remove(root_.real("/usr/sap/HDB/SYS/global/hdb/custom/config/nameserver.ini").c_str()), 0);
  EXPECT_FALSE(restore());
  expect_error("Failed to check HANA cluster\n");
  expect_error("Failed to get resource info.\n");
  expect_error(failed);
  expect_error_with("nameserver.ini");
}

TEST_F(Restore_Run, Fails_When_The_Hosts_Of_A_Cluster_Cannot_Be_Read) {
  set_cluster({host_uuid, second_host});
  Restorer& restorer = new_restorer();
  restorer.sid_ = "HDB";
  backupd_.resource = json_spirit::Value();
  EXPECT_FALSE(restorer.get_cluster_info());
  expect_error("Failed to get HANA cluster instances\n");
  expect_error_with("HANA resource");
}

TEST_F(Restore_Run, Fails_Where_The_Instance_Is_Not_Installed) {
  ASSERT_EQ(::rename(root_.real("/usr/sap/HDB/HDB00/exe").c_str(), root_.real("/usr/sap/HDB/HDB00/gone").c_str()), 0);
  EXPECT_FALSE(restore());
  expect_error("Failed to get HANA version.\n");
  expect_error(failed);
  expect_error_with("is not installed on this host");
}

TEST_F(Restore_Run, Fails_Without_The_Program_That_Moves_The_Data) {
  ASSERT_EQ(::remove(root_.real("/opt/tarvex/dorsal3/bin/hdbbackint").c_str()), 0);
  EXPECT_FALSE(restore());
  expect_error("Failed to prepare backint.\n");
  expect_error(failed);
  EXPECT_EQ(alerts(), Strings{"7/1 0 1 null"});
  expect_error_with("hdbbackint does not exist");
}

TEST_F(Restore_Run, Fails_Without_A_Stored_Logon) {
  ASSERT_TRUE(registry_.remove_account("hana", "HDB_HDB00", ""));
  EXPECT_FALSE(restore());
  expect_error("Failed to get username and password.\n");
  expect_error("Failed to initialize hdbsql for HDB HDB00\n");
  expect_error(failed);
  expect_error_with("No account is stored for the instance 'HDB_HDB00'");
  EXPECT_EQ(alerts(), Strings{"7/2 0 1 null"});
}

TEST_F(Restore_Run, Fails_Without_A_Registry_Of_Instances) {
  registry_scope_.reset();
  EXPECT_FALSE(restore());
  expect_error("Failed to get instance manager.\n");
  expect_error("Failed to initialize hdbsql for HDB HDB00\n");
  expect_error(failed);
}

TEST_F(Restore_Run, Fails_When_Hdbsql_Cannot_Be_Bound) {
  Restorer& restorer = new_restorer();
  restorer.sid_ = "HDB";
  restorer.instance_name_ = "HDB07";
  restorer.instance_mgr_name_ = "HDB_HDB00";
  EXPECT_FALSE(restorer.init_hdbsql());
  expect_error("Failed to init hdbsql.\n");
  expect_error_with("is not installed on this host");
}

TEST_F(Restore_Run, Fails_When_Its_Sets_Cannot_Be_Found) {
  add(to_time("TN1"));
  backupd_.on_view = [](const std::string&, const Object&) { return Object{{"rows", Array()}}; };
  EXPECT_FALSE(restore());
  expect_error("The rows are empty\n");
  expect_error("Failed to get full backup catalog\n");
  expect_error("Failed to collect restore source.\n");
  expect_error(failed);
  EXPECT_EQ(alerts(), Strings{"7/5 0 1 null"});
}

TEST_F(Restore_Run, Fails_When_The_Catalog_Cannot_Be_Staged) {
  add(to_time("TN1"));
  root_.write("/var/opt/tarvex/dorsal3/agent/hana", "a file in its place");
  EXPECT_FALSE(restore());
  expect_error("Failed to create directory /var/opt/tarvex/dorsal3/agent/hana/catalog\n");
  expect_error("Failed to restore HANA catalog\n");
  expect_error(failed);
  EXPECT_EQ(alerts(), Strings{"7/16 0 1 null"});
}

TEST_F(Restore_Run, Takes_The_System_Database_First_And_Exchanges_It) {
  EXPECT_EQ(sorted({"TN1", "TN2", "SYSTEMDB"}), (Strings{"*SYSTEMDB", "TN2", "TN1"}));
}

TEST_F(Restore_Run, Knows_The_System_Database_By_Its_Exact_Name) {
  EXPECT_EQ(sorted({"TN1", "systemdb"}), (Strings{"TN1", "systemdb"}));
}

TEST_F(Restore_Run, Takes_Every_Entry_For_The_System_Database_On_A_Single_Container) {
  set_multi_container(false);
  EXPECT_EQ(sorted({"A", "B", "C"}), (Strings{"*C", "*A", "*B"}));
}

TEST_F(Restore_Run, Has_Nothing_To_Do_Without_Entries) {
  EXPECT_TRUE(restore());
  EXPECT_TRUE(hdbsql_.statements().empty());
}

TEST_F(Restore_Run, Recovers_A_System_Database_Through_Its_Instance) {
  add(from_full("SYSTEMDB"));
  expect_logon_and_own_tenant();
  ASSERT_TRUE(restore());
  EXPECT_EQ(instance_actions(), (Strings{"HDB stop", "HDB start"}));
}

TEST_F(Restore_Run, Compares_Versions_Part_By_Part) {
  struct Row {
    const char* version;
    bool ancient;
  };
  for (const Row& row : {Row{"1.00.97", true}, Row{"1.00.99.9", true}, Row{"1.00.100", false}, Row{"1.00.122", false},
                         Row{"2.00.059.00", false}}) {
    Restorer& restorer = new_restorer();
    restorer.hana_version_ = row.version;
    EXPECT_TRUE(restorer.check_feature());
    EXPECT_EQ(restorer.ancient_version_, row.ancient) << row.version;
  }
}

TEST_F(Restore_Run, Asks_An_Ancient_System_Without_Its_Catalog) {
  set_version("1.00.97.00");
  add(from_full("TN1"));
  expect_tenant_restore("TN1", "RECOVER DATA FOR TN1 USING BACKUP_ID 1700 CLEAR LOG;");
  EXPECT_TRUE(restore());
}

TEST_F(Restore_Run, Ignores_Deltas_When_The_Options_Say_So) {
  restore_options_->ignore_delta(true);
  add(to_time("TN1"));
  expect_tenant_restore("TN1", time_statement("TN1") + " IGNORE DELTA DATA BACKUPS");
  ASSERT_TRUE(restore());
  EXPECT_NE(backupd_.views.back().find(R"("ignore_delta":true)"), std::string::npos);
}

TEST_F(Restore_Run, Uses_Deltas_Without_Options) {
  definition_->options = Job_Options_Ptr();
  EXPECT_FALSE(new_restorer().ignore_delta_);
}

TEST_F(Restore_Run, Reports_A_Missing_Source_Instead_Of_Running) {
  definition_->source = Job_Source_Ptr();
  Restorer& restorer = new_restorer();
  EXPECT_FALSE(restorer.execute(nullptr));
  EXPECT_GT(log_.claim_containing("src_ is NULL", LM_EMERGENCY), 0U);
}

TEST_F(Restore_Run, Makes_The_Place_Of_A_Foreign_Systems_Pipes) {
  add(foreign(from_full("TN1"), "TN7"));
  expect_tenant_restore("TN1",
                        "RECOVER DATA FOR TN1 USING SOURCE 'TN7@PRD' USING BACKUP_ID 1700 USING CATALOG BACKINT CLEAR "
                        "LOG;");
  const mode_t before = ::umask(077);
  const bool restored = restore();
  ::umask(before);
  ASSERT_TRUE(restored);
  expect_info("Restore HANA database 'TN1' from 'PRD@TN7'\n");
  EXPECT_EQ(mode_of("/usr/sap/PRD/SYS/global/hdb/backint/DB_TN7"), 0775U);
  EXPECT_EQ(mode_of("/usr/sap/PRD/SYS/global/hdb/backint"), 0755U);
  std::list<sap_hana::System_Instance_Info> installed;
  ASSERT_TRUE(sap_hana::System_Instance_Lister().list(installed));
  ASSERT_EQ(installed.size(), 1U) << "the foreign system does not look installed";
}

TEST_F(Restore_Run, Makes_No_Folder_For_A_Foreign_System_Without_Tenants) {
  Object single = backup_test::instance_record(host_uuid);
  Object attributes = single.find("extended_attrs")->get_obj();
  attributes["multi_container"] = false;
  single["extended_attrs"] = attributes;
  backupd_.resources[origin_uuid] = Object{{"uuid", origin_uuid}, {"instances", Array{single}}};
  add(foreign(from_full("TN1"), "PRD"));
  expect_tenant_restore("TN1",
                        "RECOVER DATA FOR TN1 USING SOURCE 'PRD@PRD' USING BACKUP_ID 1700 USING CATALOG BACKINT CLEAR "
                        "LOG;");
  ASSERT_TRUE(restore());
  EXPECT_EQ(mode_of("/usr/sap/PRD/SYS/global/hdb/backint"), 0775U);
}

TEST_F(Restore_Run, Fails_When_The_Foreign_Name_Is_No_Path) {
  Entry entry = from_full("TN1");
  entry.origin = {"TN1", "../x"};
  add(entry);
  EXPECT_FALSE(restore());
  expect_error("Failed to generate pipe path\n");
  expect_error(failed);
  expect_error_with("the names cannot be part of a path");
}

TEST_F(Restore_Run, Fails_When_The_Place_Of_The_Pipes_Cannot_Be_Made) {
  add(foreign(from_full("TN1"), "TN7"));
  root_.write("/usr/sap/PRD", "a file in its place");
  EXPECT_FALSE(restore());
  expect_error_with("Failed to make the directory '/usr/sap/PRD/SYS/global/hdb/backint/DB_TN7'");
  expect_error(failed);
}

TEST_F(Restore_Run, Fails_When_The_Place_Of_The_Pipes_Cannot_Be_Given_To_SAP) {
  add(foreign(from_full("TN1"), "TN7"));
  remove_sap_group();
  EXPECT_FALSE(restore());
  expect_error_with("there is no such group");
  expect_error(failed);
  EXPECT_TRUE(hdbsql_.statements().empty());
}

TEST_F(Restore_Run, Waits_For_Another_Run_Of_Its_Source) {
  add(from_full("TN1"));
  expect_tenant_restore("TN1", full_statement("TN1"));
  const auto mutex = Job_Mutex::get(origin_uuid);
  std::atomic<bool> restored{false};
  std::thread run;
  {
    ACE_Guard<Job_Mutex> guard(*mutex);
    run = std::thread([&] { restored = restore(); });
    while (mutex->waiting() == 0) std::this_thread::yield();
    EXPECT_TRUE(backupd_.requests().empty());
  }
  run.join();
  EXPECT_TRUE(restored);
}

TEST_F(Restore_Run, Refuses_To_Wait_For_Itself) {
  const auto mutex = Job_Mutex::get(origin_uuid);
  ACE_Guard<Job_Mutex> guard(*mutex);
  EXPECT_FALSE(restore());
  EXPECT_TRUE(backupd_.requests().empty());
}
