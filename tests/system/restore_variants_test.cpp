// What is not known in public of HANA is a switch of the stand-in: restores hold whichever way HANA goes.

#include <filesystem>

#include "restore_system.h"

using namespace system_tests;

namespace {

class HANA_Variants : public Restore_System {
 protected:
  static constexpr const char* statement_file = "/usr/sap/HDB/HDB00/work/recoverInstance.sql";

  void back_up(const std::string& database) {
    const Tool_Result done = backup(std::string(instance) + "/" + database);
    ASSERT_EQ(done.code, 0) << done.out << done.err << agent_log();
  }
  [[nodiscard]] std::string full_of(const std::string& database) const {
    return text_of(newest_set(database, "full"), "uuid");
  }
};

}  // namespace

TEST_F(HANA_Variants, A_Statement_File_That_HANA_Keeps_Stops_The_Next_Restore_Until_It_Is_Gone) {
  start_all();
  fault("recover_file = kept");
  fault("logon_after_recovery_ms = 500");
  put("SYSTEMDB", "s", "1");
  back_up("SYSTEMDB");
  const std::string set = full_of("SYSTEMDB");
  put("SYSTEMDB", "s", "2");
  EXPECT_EQ(restore({{.database = "SYSTEMDB", .set = set}}), "completed") << agent_log();
  EXPECT_EQ(rows("SYSTEMDB"), "s,1\n");
  ASSERT_TRUE(std::filesystem::exists(real(statement_file)));
  const Tool_Result check = dorsal3({"check", instance});
  EXPECT_NE(check.code, 0) << "it would not be run twice, and nobody can know that";
  EXPECT_NE(check.out.find(std::string(statement_file) + " is there"), std::string::npos) << check.out;

  EXPECT_EQ(restore({{.database = "SYSTEMDB", .set = set}}), "error");
  EXPECT_EQ(alerts(), std::vector<std::string>{"7/18"});
  std::filesystem::remove(real(statement_file));
  EXPECT_EQ(restore({{.database = "SYSTEMDB", .set = set}}), "completed") << agent_log();
  EXPECT_EQ(rows("SYSTEMDB"), "s,1\n");
}

TEST_F(HANA_Variants, A_Tenant_Runs_After_Its_Restore_Whoever_Starts_It) {
  start_all();
  put("TN1", "a", "1");
  back_up("TN1");
  const std::string set = full_of("TN1");
  for (const char* starts : {"recovery_starts_tenant = yes", "recovery_starts_tenant = no"}) {
    SCOPED_TRACE(starts);
    put("TN1", "a", "2");
    fault(starts);
    EXPECT_EQ(restore({{.database = "TN1", .set = set}}), "completed") << agent_log();
    EXPECT_TRUE(meets(starts));
    EXPECT_EQ(rows("TN1"), "a,1\n");
    no_faults();
  }
  EXPECT_TRUE(alerts().empty()) << ::testing::PrintToString(alerts());
}

TEST_F(HANA_Variants, Catalog_Backups_May_Share_The_Id_Of_The_Backup_Before_Them) {
  start_all();
  fault("catalog_same_id = yes");
  fault("log_catalog_same_id = yes");
  // No log backup comes by itself.
  const std::string timeout = std::to_string(log_timeout_s);
  ASSERT_EQ(host_
                .sql("ALTER SYSTEM ALTER CONFIGURATION ('global.ini','SYSTEM') SET "
                     "('persistence','log_backup_timeout_s') = '" +
                     timeout + "' WITH RECONFIGURE")
                .code,
            0);
  ASSERT_EQ(text_of(enable_log_backup(), "state"), "installed") << agent_log();
  put("TN1", "a", "1");
  back_up("TN1");
  EXPECT_TRUE(meets("catalog_same_id = yes"));
  const std::string set = full_of("TN1");
  ASSERT_FALSE(set.empty());
  back_up("SYSTEMDB");
  ASSERT_TRUE(all_recorded({"TN1", "SYSTEMDB"}, 2)) << agent_log();
  put("TN1", "a", "2");
  const std::string wanted = moment();
  put("TN1", "a", "3");
  save_logs({"TN1"});
  EXPECT_TRUE(meets("log_catalog_same_id = yes"));
  EXPECT_EQ(full_of("TN1"), set) << "it was not taken for a catalog";
  EXPECT_EQ(saved_by_hana({"TN1", "SYSTEMDB"}), recorded_sets());
  EXPECT_EQ(restore({{.database = "TN1", .timepoint = wanted}}), "completed") << agent_log();
  EXPECT_EQ(rows("TN1"), "a,2\n");
  EXPECT_EQ(restore({{.database = "TN1", .set = set}}), "completed") << agent_log();
  EXPECT_EQ(rows("TN1"), "a,1\n");
}
