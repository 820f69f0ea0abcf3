// What is not known in public of HANA is a switch of the stand-in: restores hold whichever way HANA goes.

#include <ctime>
#include <filesystem>
#include <fstream>
#include <thread>

#include "restore_system.h"
#include "scrt/time_text.h"

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
  /// HANA's time stands there until it is moved.
  void stand_at(std::time_t seconds, int milliseconds) const {
    constexpr std::int64_t in_a_second = 1000;
    const std::string file = real("/usr/sap/HDB/HDB00/standin/clock_offset_seconds");
    std::ofstream(file + ".next") << '=' << seconds * in_a_second + milliseconds;
    std::filesystem::rename(file + ".next", file);
  }
  [[nodiscard]] Tool_Result control_second(const std::vector<std::string>& words) const {
    std::vector<std::string> command{STANDIN_CONTROL_FILE, "--root", root(), "--sid", "QAS"};
    command.insert(command.end(), words.begin(), words.end());
    return run_tool(command);
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

TEST_F(HANA_Variants, A_Commit_Within_The_Wanted_Second_Counts_Or_Not_As_HANA_Has_It) {
  start_with_log_backup();
  put("TN1", "a", "0");
  // Behind the full backups, of whose begin whole seconds are known.
  constexpr std::time_t later = 5;
  const std::time_t second = std::time(nullptr) + later;
  constexpr int within = 500;
  stand_at(second, within);
  put("TN1", "a", "1");
  stand_at(second + later, 0);
  put("TN1", "a", "2");
  save_logs({"TN1"});
  const std::vector<Entry> entries{{.database = "TN1", .timepoint = posix_time_to_utc_text(second)}};
  const std::string until_its_beginning = "recover_until = instant";
  fault(until_its_beginning);
  EXPECT_EQ(restore(entries), "completed") << agent_log();
  EXPECT_TRUE(meets(until_its_beginning));
  EXPECT_EQ(rows("TN1"), "a,0\n");
  no_faults();
  EXPECT_EQ(restore(entries), "completed") << agent_log();
  EXPECT_EQ(rows("TN1"), "a,1\n");
  EXPECT_TRUE(alerts().empty()) << ::testing::PrintToString(alerts());
}

TEST_F(HANA_Variants, A_System_Without_Tenants_Becomes_A_Tenant_Where_HANA_Looks_For_Its_Names) {
  start_all({.single_container = true});
  ASSERT_EQ(text_of(enable_log_backup(), "state"), "installed") << agent_log();
  put("HDB", "a", "1");
  ASSERT_EQ(backup(instance).code, 0);
  const std::string set = full_of("HDB");
  put("HDB", "a", "2");
  start_second_system();
  const std::vector<Entry> entries{{.database = "HDB", .set = set, .restore_as = "QA1"}};
  // As a tenant's names would be: in a directory of the database, which is not there.
  EXPECT_EQ(restore(entries, false, second_instance), "error");
  EXPECT_EQ(alerts(), std::vector<std::string>{"7/15"});
  EXPECT_NE(agent_log().find("/usr/sap/HDB/SYS/global/hdb/backint/DB_HDB/"), std::string::npos) << agent_log();
  EXPECT_TRUE(staged_files().empty());
  ASSERT_EQ(control_second({"fault", "source_container = single"}).code, 0);
  EXPECT_EQ(restore(entries, false, second_instance), "completed") << agent_log();
  EXPECT_EQ(second_rows("QA1"), "a,1\n");
  EXPECT_EQ(rows("HDB"), "a,2\n");
}

TEST_F(HANA_Variants, A_Tenant_Whose_Log_Area_Is_Full_Comes_Back_And_Takes_Changes_Again) {
  start_with_a_past();
  ASSERT_EQ(control({"log-writer", "off"}).code, 0);
  const std::string waits = "log_area_full = hang";
  fault("log_area_bytes = 150 | database=TN1");
  fault("log_area_full = fail | count=1");
  fault(waits);
  const auto change = [this] { return sql_of("TN1", "UPSERT KV VALUES ('a','3')"); };
  Tool_Result last;
  ASSERT_TRUE(eventually([&] { return (last = change()).code != 0; }));
  EXPECT_NE(last.err.find("the log area is full"), std::string::npos) << last.err;
  Tool_Result waiting;
  std::thread other([&] { waiting = change(); });
  EXPECT_TRUE(meets(waits));
  EXPECT_EQ(restore({{.database = "TN1", .timepoint = wanted_}}), "completed") << agent_log();
  other.join();
  EXPECT_NE(waiting.err.find("Connection down"), std::string::npos) << waiting.code << waiting.err;
  EXPECT_EQ(rows("TN1"), "a,1\n");
  put("TN1", "a", "4");
  EXPECT_EQ(rows("TN1"), "a,4\n");
  EXPECT_TRUE(alerts().empty()) << ::testing::PrintToString(alerts());
}
