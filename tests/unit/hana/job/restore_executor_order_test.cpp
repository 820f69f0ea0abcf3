// The order of a restore's steps, and what a step that fails holds up.

#include <string>
#include <vector>

#include "hana/common/hana_paths.h"
#include "unit/hana/job/restore_fixture.h"

namespace {

using backup_test::done;
using backup_test::host_uuid;
using backup_test::refused;
using backup_test::Restorer;
using backup_test::second_host;
using backup_test::Sql_Answer;
using backup_test::table;
using Set = sap_hana::Restore_Source_Collector::Backup_Set_Info;

constexpr const char* failed = "Failed to restore HANA database\n";

Set full_set(const std::string& database) {
  Set set;
  set.origin_sid = "HDB";
  set.origin_dbname = set.target_dbname = database;
  set.database_backup_id = backup_test::full_id;
  set.is_full_backup = true;
  return set;
}

class Restore_Order : public backup_test::Restore_Test {
 protected:
  void expect_list_refused(const std::string& database) {
    hdbsql_.expect(
        "select DATABASE_NAME, DESCRIPTION, ACTIVE_STATUS, OS_USER, OS_GROUP from SYS.M_DATABASES where "
        "DATABASE_NAME='" +
            database + "'",
        refused("* 4: no list now"));
  }
};

}  // namespace

TEST_F(Restore_Order, Restarts_The_Other_Hosts_Before_It_Starts_The_Systems_Own_Tenant) {
  set_cluster({host_uuid, second_host});
  hdbsql_.expect("\\s", done());
  Sql_Answer listed = table("ACTIVE_STATUS", {"\"YES\""});
  std::size_t restarted = 0;
  listed.before = [&] { restarted = other_hosts_.calls.size(); };
  hdbsql_.expect("select ACTIVE_STATUS from SYS.M_DATABASES where DATABASE_NAME='HDB'", listed);
  Restorer& restorer = ready_restorer();
  ASSERT_TRUE(restorer.get_cluster_info());
  ASSERT_TRUE(restorer.restore_data(true, full_set("SYSTEMDB")));
  EXPECT_EQ(restarted, 1U);
}

TEST_F(Restore_Order, Takes_A_Tenant_That_Cannot_Be_Listed_For_Stopped) {
  expect_list_refused("TN1");
  hdbsql_.expect(full_statement("TN1"), done());
  expect_start("TN1");
  EXPECT_TRUE(ready_restorer().restore_data(false, full_set("TN1")));
  expect_info("Stop the database HDB@TN1 successfully\n");
  expect_error_with("no list now");
  EXPECT_TRUE(alerts().empty());
}

TEST_F(Restore_Order, Stops_A_Tenant_Again_That_Cannot_Be_Listed_After_Its_Stop) {
  expect_listed("TN1", true);
  expect_stop("TN1");
  expect_list_refused("TN1");
  expect_stop("TN1");
  expect_listed("TN1", false);
  hdbsql_.expect(full_statement("TN1"), done());
  expect_start("TN1");
  EXPECT_TRUE(ready_restorer().restore_data(false, full_set("TN1")));
  expect_error_with("no list now");
  EXPECT_TRUE(alerts().empty());
}

TEST_F(Restore_Order, Refuses_Another_Subtype_Before_It_Asks_Anybody) {
  set_subtype(JOB_DEFINITION_SUBTYPE_FULL);
  backupd_.resource = json_spirit::Value();
  EXPECT_FALSE(restore());
  expect_error("Type full is not supported\n");
  expect_error(failed);
  EXPECT_TRUE(backupd_.requests().empty());
  EXPECT_TRUE(alerts().empty());
}

TEST_F(Restore_Order, An_Abort_Is_Heard_Before_The_Next_Database) {
  for (const char* name : {"TN1", "TN2"}) add(from_full(name));
  expect_listed("TN1", false);
  Sql_Answer answer = done();
  answer.before = [this] { EXPECT_EQ(job().state_i(JOB_STATE_ABORTING), 0); };
  hdbsql_.expect(full_statement("TN1"), answer);
  expect_start("TN1");
  EXPECT_FALSE(restore());
  expect_info("The restore was stopped before its next database\n");
  expect_error(failed);
}

TEST_F(Restore_Order, Goes_By_The_Version_Of_The_Instance_That_Recovers) {
  set_version("2.00.059.00");
  root_.write(sap_hana::instance_manifest("HDB", "HDB00"), "fullversion: 1.00.97.00 Build 1\n");
  add(from_full("TN1"));
  expect_tenant_restore("TN1", "RECOVER DATA FOR TN1 USING BACKUP_ID 1700 CLEAR LOG;");
  EXPECT_TRUE(restore());
}
