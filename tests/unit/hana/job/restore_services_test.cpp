// How a restore uses what lies below it: the job's log, the stored logon, the time it may go on trying, and the order
// in which it asks.

#include <algorithm>
#include <mutex>
#include <string>
#include <vector>

#include "job/job_log.h"
#include "unit/hana/job/restore_fixture.h"

namespace {

using backup_test::done;
using backup_test::host_uuid;
using backup_test::origin_uuid;
using backup_test::refused;
using backup_test::Restorer;
using backup_test::second_host;
using json_spirit::Array;
using json_spirit::Object;
using Strings = std::vector<std::string>;
using Set = sap_hana::Restore_Source_Collector::Backup_Set_Info;

constexpr const char* failed = "Failed to restore HANA database\n";

/// The lines of all jobs for the length of a scope.
class Job_Lines : public Job_Log_Sink {
 public:
  void write(const Job_Log_Line& line) override {
    const std::lock_guard guard(mutex_);
    texts_.push_back(line.text);
  }
  bool hold(const std::string& part) {
    const std::lock_guard guard(mutex_);
    return std::any_of(texts_.begin(), texts_.end(),
                       [&](const std::string& text) { return text.find(part) != std::string::npos; });
  }

 private:
  std::mutex mutex_;
  Strings texts_;
};

class Restore_Services : public backup_test::Restore_Test {
 protected:
  /// How often a restore asks for a full backup while backupd is busy.
  std::size_t questions_to_a_busy_backupd(unsigned max_seconds_retry) {
    definition_->max_seconds_retry(max_seconds_retry);
    const std::string view = "/catalog/hana/rselect";
    backupd_.intercept = [view](const std::string&, const std::string& target) -> std::optional<net::Http_Response> {
      if (target.find(view) == std::string::npos) return std::nullopt;
      constexpr unsigned busy = 503;
      return backup_test::error_answer(busy);
    };
    const std::size_t before = backupd_.count_of("POST /q5/r/v2" + view);
    EXPECT_FALSE(restore());
    EXPECT_GT(log_.claim_containing(view), 0U);
    EXPECT_GT(log_.claim_containing("Failed to get restorable backup set from backupd"), 0U);
    expect_error("Failed to get full backup catalog\n");
    expect_error("Failed to collect restore source.\n");
    expect_error(failed);
    return backupd_.count_of("POST /q5/r/v2" + view) - before;
  }
};

}  // namespace

TEST_F(Restore_Services, Show_In_The_Jobs_Log_What_HANA_Says_Of_The_Recovery) {
  const auto lines = std::make_shared<Job_Lines>();
  const std::shared_ptr<Job_Log_Sink> before = set_job_log_sink(lines);
  expect_listed("TN1", false);
  hdbsql_.expect(full_statement("TN1"), refused("* 448: recovery could not be completed"));
  Set set;
  set.origin_sid = "HDB";
  set.origin_dbname = set.target_dbname = "TN1";
  set.database_backup_id = backup_test::full_id;
  set.is_full_backup = true;
  EXPECT_FALSE(ready_restorer().restore_data(false, set));
  set_job_log_sink(before);
  EXPECT_TRUE(lines->hold("recovery could not be completed"));
  expect_error("Failed to restore tenant database\n");
  expect_error_with("recovery could not be completed");
}

TEST_F(Restore_Services, Log_On_With_The_Account_Of_The_Definitions_User) {
  ASSERT_TRUE(registry_.remove_account("hana", "HDB_HDB00", ""));
  ASSERT_TRUE(registry_.set_account("hana", "HDB_HDB00", "55555555-5555-4555-8555-555555555555", "RESTORE_USER",
                                    secure_string(backup_test::password)));
  add(from_full("TN1"));
  expect_tenant_restore("TN1", full_statement("TN1"));
  EXPECT_TRUE(restore());
}

TEST_F(Restore_Services, Go_On_Asking_A_Busy_Backupd_As_Long_As_The_Definition_Allows) {
  add(to_time("TN1"));
  EXPECT_EQ(questions_to_a_busy_backupd(0), 1U);
  constexpr unsigned asked_first_and_again_five_times = 6;
  EXPECT_EQ(questions_to_a_busy_backupd(600), asked_first_and_again_five_times);
}

TEST_F(Restore_Services, Wait_For_A_Logon_Before_The_Other_Hosts_Are_Restarted) {
  set_cluster({host_uuid, second_host});
  backup_test::Sql_Answer logon = done();
  logon.before = [this] { EXPECT_TRUE(other_hosts_.calls.empty()); };
  hdbsql_.expect("\\s", logon);
  expect_start("HDB");
  add(from_full("SYSTEMDB"));
  ASSERT_TRUE(restore());
  EXPECT_EQ(other_hosts_.calls.size(), 1U);
}

TEST_F(Restore_Services, Take_Away_One_Record_Of_This_Host_From_A_Cluster) {
  set_cluster({host_uuid, second_host, host_uuid});
  Restorer& restorer = new_restorer();
  restorer.sid_ = "HDB";
  ASSERT_TRUE(restorer.get_cluster_info());
  ASSERT_EQ(restorer.cluster_instances_.size(), 2U);
  EXPECT_EQ(restorer.cluster_instances_[0].host_uuid, second_host);
  EXPECT_EQ(restorer.cluster_instances_[1].host_uuid, host_uuid);
}

TEST_F(Restore_Services, Are_Asked_In_Order_And_Not_After_The_First_That_Fails) {
  // The Backint agent is prepared before the logon is looked up.
  ASSERT_EQ(::remove(root_.real("/opt/tarvex/dorsal3/bin/hdbbackint").c_str()), 0);
  ASSERT_TRUE(registry_.remove_account("hana", "HDB_HDB00", ""));
  EXPECT_FALSE(restore());
  EXPECT_EQ(alerts(), Strings{"7/1 0 1 null"});
  expect_error_with("hdbbackint does not exist");
  expect_error("Failed to prepare backint.\n");
  expect_error(failed);
}

TEST_F(Restore_Services, Stage_Nothing_Where_The_Place_Of_The_Pipes_Cannot_Be_Made) {
  Entry entry = to_time("TN1");
  entry.origin = {"TN7", "PRD"};
  add(entry);
  root_.write("/usr/sap/PRD", "a file in its place");
  EXPECT_FALSE(restore());
  expect_error_with("Failed to make the directory '/usr/sap/PRD/SYS/global/hdb/backint/DB_TN7'");
  expect_error(failed);
  EXPECT_FALSE(root_.exists(catalog_directory));
  EXPECT_TRUE(alerts().empty());
}

TEST_F(Restore_Services, Leave_The_Place_Of_The_Pipes_Of_An_Own_Database_To_HANA) {
  Entry entry = from_full("TN2");
  entry.origin.database = "TN1";
  add(entry);
  expect_tenant_restore(
      "TN2", "RECOVER DATA FOR TN2 USING SOURCE 'TN1@HDB' USING BACKUP_ID 1700 USING CATALOG BACKINT CLEAR LOG;");
  ASSERT_TRUE(restore());
  EXPECT_FALSE(root_.exists("/usr/sap/HDB/SYS/global/hdb/backint"));
}

TEST_F(Restore_Services, Keep_A_Chosen_Delta_A_Recovery_Whose_Entry_Has_A_Time_Too) {
  Entry entry = from_full("TN1");
  entry.catalog_uuid = backup_test::full_set_uuid;
  // The time is that of an entry before it, and the exact begin of the full backup.
  Object delta = backup_test::full_record("TN1");
  delta["type"] = "incremental";
  delta["last_time"] = backup_test::wanted_time;
  const auto answer = backupd_.on_view;
  backupd_.on_view = [=](const std::string& view, const Object& params) {
    return view == "set" ? json_spirit::Value(delta) : answer(view, params);
  };
  add(entry);
  expect_tenant_restore("TN1", time_statement("TN1"));
  EXPECT_TRUE(restore());
}

TEST_F(Restore_Services, Are_Not_Asked_For_The_Resource_When_The_Chosen_Set_Is_Gone) {
  Entry entry = from_full("TN1");
  entry.catalog_uuid = backup_test::full_set_uuid;
  backupd_.on_view = [](const std::string&, const Object&) { return json_spirit::Value(); };
  add(entry);
  EXPECT_FALSE(restore());
  EXPECT_EQ(backupd_.count_of("GET /q5/r/v2/resources?uuid=" + std::string(origin_uuid)), 0U);
  EXPECT_GT(log_.claim_containing("/catalog/hana/set"), 0U);
  expect_error(std::string("Failed to get backup set info from backupd, uuid is '") + backup_test::full_set_uuid +
               "'\n");
  expect_error("Failed to get and parse catalog by uuid\n");
  expect_error("Failed to collect restore source.\n");
  expect_error(failed);
}
