// The start that every backup run has.

#include <string>
#include <utility>
#include <vector>

#include "unit/hana/job/executor_fixture.h"

namespace {

using backup_test::Executor;
using json_spirit::Array;
using json_spirit::Object;

/// A backup that only tells whether it was reached.
class Reached_Executor : public sap_hana::Backup_Executor_Basic {
 public:
  using Backup_Executor_Basic::Backup_Executor_Basic;
  bool execute_backup(const Action_Options* options) override {
    seen_options = options;
    reached = true;
    return result;
  }
  bool reached = false;
  bool result = true;
  const Action_Options* seen_options = nullptr;
};

class Backup_Start : public backup_test::Executor_Test {
 protected:
  using Strings = std::vector<std::string>;
  /// Every request is refused at once.
  void refuse_requests(const std::string& target_part) {
    backupd_.intercept = [target_part](const std::string&,
                                       const std::string& target) -> std::optional<net::Http_Response> {
      if (target.find(target_part) == std::string::npos) return std::nullopt;
      return backup_test::error_answer(403);
    };
  }
};

}  // namespace

TEST_F(Backup_Start, Takes_Kind_And_Compression_From_The_Definition) {
  set_subtype(JOB_DEFINITION_SUBTYPE_CUMULATIVE);
  Executor& executor = new_executor();
  EXPECT_EQ(executor.job_type_, JOB_DEFINITION_SUBTYPE_CUMULATIVE);
  EXPECT_EQ(executor.compression_, COMPR_ZSTD);
  EXPECT_EQ(executor.compression_level_, 3);
  EXPECT_EQ(executor.sid_, "");
  EXPECT_EQ(executor.instance_name_, "");
  EXPECT_EQ(executor.instance_mgr_name_, "");
  EXPECT_EQ(executor.incarnation_, "");
  EXPECT_EQ(executor.last_full_backup_id_, 0U);
  EXPECT_FALSE(executor.hdbsql_.is_initialized());
}

TEST_F(Backup_Start, Stores_Uncompressed_At_Level_1_Without_Options) {
  definition_->options = Job_Options_Ptr();
  Executor& executor = new_executor();
  EXPECT_EQ(executor.compression_, COMPR_NONE);
  EXPECT_EQ(executor.compression_level_, 1);
}

TEST_F(Backup_Start, Finds_The_System_Before_It_Runs_The_Backup) {
  Reached_Executor executor(job());
  const Action_Options options{{"x", 1}};
  EXPECT_TRUE(executor.execute_i(&options));
  EXPECT_TRUE(executor.reached);
  EXPECT_EQ(executor.seen_options, &options);
  EXPECT_EQ(backupd_.requests(),
            (Strings{"GET /q5/r/v2/server", "GET /q5/r/v2/resources?uuid=11111111-1111-4111-8111-111111111111"}));
  EXPECT_TRUE(alerts().empty());
}

TEST_F(Backup_Start, Fills_What_The_Resource_Tells) {
  Executor& executor = new_executor();
  ASSERT_TRUE(executor.init_system_info());
  EXPECT_EQ(executor.sid_, "HDB");
  EXPECT_EQ(executor.instance_name_, "HDB00");
  EXPECT_EQ(executor.instance_mgr_name_, "HDB_HDB00");
  EXPECT_EQ(executor.instance_number_, 0);
  EXPECT_TRUE(executor.mdc_);
  set_multi_container(false);
  ASSERT_TRUE(executor.init_system_info());
  EXPECT_FALSE(executor.mdc_);
}

TEST_F(Backup_Start, Reports_The_Failure_Of_The_Backup_With_Its_Kind) {
  const std::pair<Job_Definition_Subtype, const char*> rows[] = {{JOB_DEFINITION_SUBTYPE_FULL, "database"},
                                                                 {JOB_DEFINITION_SUBTYPE_INCREMENTAL, "database"},
                                                                 {JOB_DEFINITION_SUBTYPE_CUMULATIVE, "database"},
                                                                 {JOB_DEFINITION_SUBTYPE_ONDEMAND, "log"}};
  for (const auto& [kind, name] : rows) {
    set_subtype(kind);
    Reached_Executor executor(job());
    executor.result = false;
    EXPECT_FALSE(executor.execute_i(nullptr));
    EXPECT_TRUE(executor.reached);
    expect_error(std::string("Failed to backup HANA ") + name + "\n");
  }
}

TEST_F(Backup_Start, Fails_Without_A_Backup_Server) {
  transport_.refuse_connections(100);
  const std::pair<Job_Definition_Subtype, const char*> rows[] = {{JOB_DEFINITION_SUBTYPE_FULL, "database"},
                                                                 {JOB_DEFINITION_SUBTYPE_ONDEMAND, "log"}};
  for (const auto& [kind, name] : rows) {
    set_subtype(kind);
    Reached_Executor executor(job());
    EXPECT_FALSE(executor.execute_i(nullptr));
    EXPECT_FALSE(executor.reached);
    expect_error("Failed to connect to backupd\n");
    expect_error("Failed to initialize backint helper.\n");
    expect_error(std::string("Failed to initialize system info to backup HANA ") + name + "\n");
    log_.claim_all();
  }
  EXPECT_TRUE(alerts().empty());
}

TEST_F(Backup_Start, Has_A_Session_That_Asks_Five_Times_More_While_Backupd_Is_Not_Ready) {
  struct Row {
    const char* name;
    unsigned refusals;
    bool stored;
  };
  const Row rows[] = {{"ready after five", 5, true}, {"not ready for longer", 6, false}};
  Executor& executor = ready_executor();
  unsigned refusals = 0;
  backupd_.intercept = [&refusals](const std::string&, const std::string&) -> std::optional<net::Http_Response> {
    if (refusals == 0) return std::nullopt;
    --refusals;
    return backup_test::error_answer(503);
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    backupd_.jobs.clear();
    refusals = row.refusals;
    const std::size_t before = clock_.sleeps().size();
    EXPECT_EQ(executor.generate_backint_conf("88888888-8888-4888-8888-888888888888", "TN1"), row.stored);
    const std::vector<double> sleeps = clock_.sleeps();
    EXPECT_EQ(std::vector<double>(sleeps.begin() + static_cast<std::ptrdiff_t>(before), sleeps.end()),
              (std::vector<double>{1, 2, 4, 8, 16}));
    EXPECT_EQ(backupd_.jobs.size(), row.stored ? 1U : 0U);
    if (!row.stored) expect_error_with("503");
  }
}

TEST_F(Backup_Start, Raises_Alert_6_When_The_Resource_Is_Unknown_Before_Any_Statement) {
  backupd_.resource = json_spirit::Value();
  Reached_Executor executor(job());
  EXPECT_FALSE(executor.execute_i(nullptr));
  EXPECT_FALSE(executor.reached);
  EXPECT_EQ(alerts(), Strings{"7/6 0 1 {}"});
  expect_error("Failed to get HANA resource info\n");
  expect_error("Failed to get HANA resource base info\n");
  expect_error("Failed to collect resource info.\n");
  expect_error("Failed to initialize system info to backup HANA database\n");
  EXPECT_TRUE(hdbsql_.statements().empty());
}

TEST_F(Backup_Start, Raises_Alert_6_When_The_Resource_Cannot_Be_Read) {
  refuse_requests("/resources");
  Executor& executor = new_executor();
  EXPECT_FALSE(executor.init_system_info());
  EXPECT_EQ(alerts(), Strings{"7/6 0 1 {}"});
  expect_error("Failed to collect resource info.\n");
  log_.claim_all();
}

TEST_F(Backup_Start, Binds_Hdbsql_To_The_System_Database_Without_A_Logon) {
  Executor& executor = new_executor();
  ASSERT_TRUE(executor.init_system_info());
  ASSERT_TRUE(executor.init_hdbsql());
  EXPECT_TRUE(executor.hdbsql_.is_initialized());
  EXPECT_EQ(executor.hdbsql_.database(), "SYSTEMDB");
  EXPECT_TRUE(hdbsql_.statements().empty());
}

TEST_F(Backup_Start, Prefers_The_Account_Of_The_Jobs_User) {
  ASSERT_TRUE(registry_.set_account("hana", "HDB_HDB00", "55555555-5555-4555-8555-555555555555", "OTHER_USER",
                                    secure_string(backup_test::password)));
  Executor& executor = ready_executor();
  hdbsql_.expect("select STATE_NAME, SYS_END_TIME from SYS_DATABASES.M_BACKUP_CATALOG where BACKUP_ID=1",
                 backup_test::table("STATE_NAME,SYS_END_TIME", {"\"running\",?"}));
  std::string state;
  ASSERT_TRUE(executor.get_job_state(1, state));
  EXPECT_NE(runner_.calls().back().input.find("OTHER_USER"), std::string::npos);
}

TEST_F(Backup_Start, Fails_Without_A_Registry_Of_Instances) {
  Executor& executor = new_executor();
  ASSERT_TRUE(executor.init_system_info());
  registry_scope_.reset();
  EXPECT_FALSE(executor.init_hdbsql());
  expect_error("Failed to get instance manager\n");
}

TEST_F(Backup_Start, Fails_Without_A_Stored_Logon) {
  ASSERT_TRUE(registry_.remove_account("hana", "HDB_HDB00", ""));
  Executor& executor = new_executor();
  ASSERT_TRUE(executor.init_system_info());
  EXPECT_FALSE(executor.init_hdbsql());
  expect_error("Failed to get username and password\n");
  expect_error_with("No account is stored");
}

TEST_F(Backup_Start, Fails_When_Hdbsql_Cannot_Be_Bound) {
  Executor& executor = new_executor();
  ASSERT_TRUE(executor.init_system_info());
  executor.instance_name_ = "HDB77";
  EXPECT_FALSE(executor.init_hdbsql());
  expect_error("Failed to init hdbsql\n");
  expect_error_with("'HDB77'");
}

TEST_F(Backup_Start, Never_Shows_The_Password) {
  Executor& executor = ready_executor();
  hdbsql_.expect("select STATE_NAME, SYS_END_TIME from SYS_DATABASES.M_BACKUP_CATALOG where BACKUP_ID=1",
                 backup_test::refused(std::string("* 10: authentication failed for ") + backup_test::password), 10);
  std::string state;
  EXPECT_FALSE(executor.get_job_state(1, state));
  EXPECT_EQ(log_.dump().find(backup_test::password), std::string::npos);
  for (const support::Seen_Call& call : runner_.calls()) {
    for (const std::string& argument : call.arguments)
      EXPECT_EQ(argument.find(backup_test::password), std::string::npos);
    for (const auto& [name, value] : call.environment)
      EXPECT_EQ(value.find(backup_test::password), std::string::npos) << name;
  }
  log_.claim_all();
}
