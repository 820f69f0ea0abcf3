// The stop of a data backup: what is cancelled, how long its end is waited for, and what is removed from the pool.

#include <algorithm>
#include <functional>
#include <numeric>
#include <string>
#include <vector>

#include "platform/clock.h"
#include "records/dataset_directory.h"
#include "unit/hana/job/executor_fixture.h"

namespace {

using backup_test::done;
using backup_test::Executor;
using backup_test::landscape_id;
using backup_test::refused;
using backup_test::Sql_Answer;
using backup_test::table;
using json_spirit::Object;
using Strings = std::vector<std::string>;

constexpr double longest_pause_seconds = 10;
constexpr double stop_limit_seconds = 300;

class Stop : public backup_test::Executor_Test {
 protected:
  Stop() {
    add_pool({{"url", "file:///pool"}});
    root_.make_directory("/pool");
  }

  void add_pool(Object record) {
    record["uuid"] = backup_test::pool_uuid;
    record["name"] = "main";
    backupd_.pools = {record};
  }

  static std::string last_sql(const std::string& database, const std::string& kind = "complete",
                              const std::string& schema = "SYS_DATABASES") {
    const std::string clause = schema == "SYS" ? std::string() : "and c.DATABASE_NAME='" + database + "'";
    return "select c.BACKUP_ID as BACKUP_ID from " + schema + ".M_BACKUP_CATALOG as c join " + schema +
           ".M_BACKUP_CATALOG_FILES as f on c.BACKUP_ID = f.BACKUP_ID where lower(ENTRY_TYPE_NAME)='" + kind +
           " data backup' and lower(DESTINATION_TYPE_NAME)='backint'   " + clause +
           " order by c.BACKUP_ID desc limit 1";
  }
  static std::string state_sql(const std::string& id, const std::string& schema = "SYS_DATABASES") {
    return "select STATE_NAME, SYS_END_TIME from " + schema + ".M_BACKUP_CATALOG where BACKUP_ID=" + id;
  }
  static Sql_Answer state(const std::string& name, const std::string& end = "2023-11-14 22:20:00") {
    return table("STATE_NAME,SYS_END_TIME", {"\"" + name + "\"," + (end == "?" ? end : "\"" + end + "\"")});
  }
  static Sql_Answer runs() { return state("running", "?"); }
  static Sql_Answer canceled() { return state("canceled"); }

  void expect_last(const std::string& database, const std::string& id, const std::string& kind = "complete") {
    hdbsql_.expect(last_sql(database, kind), table("BACKUP_ID", {id}));
  }
  void expect_cancel(const std::string& database, const std::string& id, Sql_Answer answer = done()) {
    expect_last(database, id);
    hdbsql_.expect(state_sql(id), runs());
    hdbsql_.expect("BACKUP CANCEL FOR " + database + " " + id, std::move(answer));
  }
  void expect_states(const std::string& id, const std::vector<Sql_Answer>& answers) {
    for (const Sql_Answer& answer : answers) hdbsql_.expect(state_sql(id), answer);
  }

  /// The backup stays pending until its pauses, the next ones, have reached the limit; only then comes what `then`
  /// expects. How many they are nobody knows: each is drawn.
  void expect_pending_to_the_end(const std::string& id, const std::function<void()>& then) {
    Sql_Answer pending = state("cancel pending");
    pending.before = [this, id, then] {
      if (seconds_slept() < stop_limit_seconds)
        expect_pending_to_the_end(id, then);
      else
        then();
    };
    hdbsql_.expect(state_sql(id), pending);
  }
  [[nodiscard]] std::size_t lines_that_start_with(const std::string& start) const {
    const std::vector<support::Log_Line> lines = log_.lines();
    return static_cast<std::size_t>(std::count_if(
        lines.begin(), lines.end(), [&](const support::Log_Line& line) { return line.text.starts_with(start); }));
  }

  static std::string dataset(const std::string& database, const std::string& id) {
    return std::string(backup_test::host_uuid) + "/" + landscape_id + "/" + database + "/" + id;
  }
  /// What the Backint agent had stored of a backup.
  void store(const std::string& database, const std::string& id) {
    for (const char* name : {"databackup_0_1", "databackup_1_1"})
      root_.write("/pool/" + dataset(database, id) + "/" + name, "data");
  }
  [[nodiscard]] bool stored(const std::string& database, const std::string& id) const {
    return root_.exists("/pool/" + dataset(database, id));
  }

  void expect_stopped(const std::string& database, const std::string& id) {
    expect_info("Try to stop database " + database + " backup job with backup id " + id + "\n");
    expect_info("Stop database " + database + " backup job with backup id " + id + " successfully\n");
  }
  void expect_failure(const std::string& line, const std::string& database) {
    EXPECT_FALSE(new_executor().stop());
    if (!line.empty()) expect_error(line);
    expect_stop_alert(database);
  }
  void expect_stop_alert(const std::string& database) {
    expect_error("Failed to stop HANA backup job\n");
    ASSERT_FALSE(alerts().empty());
    EXPECT_EQ(alerts().back(), "7/20 0 1 {\"database\":\"" + database + "\"}");
  }
  [[nodiscard]] double seconds_slept() const {
    const std::vector<double> sleeps = clock_.sleeps();
    return std::accumulate(sleeps.begin(), sleeps.end(), 0.0);
  }
};

}  // namespace

TEST_F(Stop, Cancels_The_Running_Backup_And_Removes_What_Was_Stored) {
  set_entries({"hana/HDB00/TN1"});
  store("TN1", "1700");
  store("TN1", "1600");
  expect_cancel("TN1", "1700");
  expect_states("1700", {canceled()});
  EXPECT_TRUE(new_executor().stop());
  expect_stopped("TN1", "1700");
  EXPECT_FALSE(stored("TN1", "1700"));
  EXPECT_TRUE(stored("TN1", "1600")) << "another backup's data";
  EXPECT_TRUE(alerts().empty());
  EXPECT_EQ(job().state(), JOB_STATE_NONE) << "the run itself ends the job";
}

TEST_F(Stop, Cancels_In_The_Order_Of_The_Source_And_Cleans_Up_By_Name) {
  set_entries({"hana/HDB00/TN2", "hana/HDB00/TN1"});
  store("TN1", "1701");
  store("TN2", "1702");
  expect_cancel("TN2", "1702");
  expect_cancel("TN1", "1701");
  expect_states("1701", {canceled()});
  expect_states("1702", {canceled()});
  EXPECT_TRUE(new_executor().stop());
  expect_stopped("TN1", "1701");
  expect_stopped("TN2", "1702");
  EXPECT_FALSE(stored("TN1", "1701"));
  EXPECT_FALSE(stored("TN2", "1702"));
}

TEST_F(Stop, Names_No_Database_To_A_System_Without_Tenants) {
  set_multi_container(false);
  set_entries({"hana/HDB00/HDB"});
  store("HDB", "1700");
  hdbsql_.expect(last_sql("HDB", "complete", "SYS"), table("BACKUP_ID", {"1700"}));
  hdbsql_.expect(state_sql("1700", "SYS"), runs());
  hdbsql_.expect("BACKUP CANCEL 1700", done());
  hdbsql_.expect(state_sql("1700", "SYS"), canceled());
  EXPECT_TRUE(new_executor().stop());
  expect_stopped("HDB", "1700");
  EXPECT_FALSE(stored("HDB", "1700"));
}

TEST_F(Stop, Names_The_System_Database_As_It_Names_Tenants) {
  set_entries({"hana/HDB00/SYSTEMDB"});
  store("SYSTEMDB", "1700");
  expect_cancel("SYSTEMDB", "1700");
  expect_states("1700", {canceled()});
  EXPECT_TRUE(new_executor().stop());
  expect_stopped("SYSTEMDB", "1700");
  EXPECT_FALSE(stored("SYSTEMDB", "1700"));
}

TEST_F(Stop, Passes_Over_Entries_Without_A_Database) {
  set_entries({"hana/HDB00", "hana/HDB00/TN1"});
  expect_cancel("TN1", "1700");
  store("TN1", "1700");
  expect_states("1700", {canceled()});
  EXPECT_TRUE(new_executor().stop());
  expect_stopped("TN1", "1700");
}

TEST_F(Stop, Removes_What_Is_Stored_Of_A_Database_Whose_Name_Holds_An_Underscore) {
  set_entries({"hana/HDB00/T_1"});
  expect_cancel("T_1", "1700");
  expect_states("1700", {canceled()});
  const std::string stored_as = std::string("/pool/") + backup_test::host_uuid + "/" + dataset_segment(landscape_id) +
                                "/" + dataset_segment("T_1") + "/1700";
  root_.write(stored_as + "/databackup_0_1", "data");
  EXPECT_TRUE(new_executor().stop());
  EXPECT_FALSE(root_.exists(stored_as));
  expect_stopped("T_1", "1700");
}

TEST_F(Stop, That_Finds_No_Running_Backup_Fails_And_Cancels_Nothing) {
  set_entries({"hana/HDB00/TN1", "hana/HDB00/TN2"});
  for (const char* database : {"TN1", "TN2"}) {
    const std::string id = database == std::string("TN1") ? "1701" : "1702";
    expect_last(database, id);
    hdbsql_.expect(state_sql(id), state("successful"));
  }
  store("TN1", "1701");
  expect_failure("", "TN2");
  expect_info("Skip handling database TN1 backup job with backup id 1701, state is successful\n");
  expect_info("Skip handling database TN2 backup job with backup id 1702, state is successful\n");
  EXPECT_TRUE(stored("TN1", "1701"));
  EXPECT_EQ(backupd_.count_of("GET /q5/r/v2/pools"), 0U);
}

TEST_F(Stop, Before_HANA_Lists_The_Backup_Finds_The_One_Before_It) {
  set_entries({"hana/HDB00/TN1"});
  expect_last("TN1", "1600");
  hdbsql_.expect(state_sql("1600"), state("successful"));
  expect_failure("", "TN1");
  expect_info("Skip handling database TN1 backup job with backup id 1600, state is successful\n");
}

TEST_F(Stop, Of_A_Backup_Whose_State_Cannot_Be_Read_Goes_On_With_The_Next_Database) {
  set_entries({"hana/HDB00/TN1", "hana/HDB00/TN2"});
  expect_last("TN1", "1701");
  hdbsql_.expect(state_sql("1701"), table("STATE_NAME,SYS_END_TIME", {}), 10);
  expect_cancel("TN2", "1702");
  expect_states("1702", {canceled()});
  store("TN2", "1702");
  EXPECT_TRUE(new_executor().stop());
  expect_info("Skip handling database TN1 backup job with backup id 1701, state is \n");
  expect_stopped("TN2", "1702");
}

TEST_F(Stop, Cancels_A_Second_Time_A_Backup_That_Has_No_End_Yet) {
  // Without an end "cancel pending" reads "running".
  set_entries({"hana/HDB00/TN1"});
  expect_last("TN1", "1700");
  hdbsql_.expect(state_sql("1700"), state("cancel pending", "?"));
  hdbsql_.expect("BACKUP CANCEL FOR TN1 1700", done());
  expect_states("1700", {canceled()});
  store("TN1", "1700");
  EXPECT_TRUE(new_executor().stop());
  expect_stopped("TN1", "1700");
}

TEST_F(Stop, Does_Not_Cancel_A_Backup_Whose_Pending_Cancel_Has_An_End) {
  set_entries({"hana/HDB00/TN1"});
  expect_last("TN1", "1700");
  hdbsql_.expect(state_sql("1700"), state("cancel pending"));
  expect_failure("", "TN1");
  expect_info("Skip handling database TN1 backup job with backup id 1700, state is cancel pending\n");
}

TEST_F(Stop, Waits_With_Growing_Jittered_Pauses_Until_The_Backup_Has_Ended) {
  set_entries({"hana/HDB00/TN1"});
  store("TN1", "1700");
  expect_cancel("TN1", "1700");
  expect_states("1700", {runs(), state("cancel pending"), state("cancel pending"), runs(), runs(), canceled()});
  EXPECT_TRUE(new_executor().stop());
  const std::vector<double> sleeps = clock_.sleeps();
  const std::vector<double> largest = {1, 2, 4, 8, longest_pause_seconds};
  ASSERT_EQ(sleeps.size(), largest.size());
  for (std::size_t i = 0; i < sleeps.size(); ++i) {
    EXPECT_GE(sleeps[i], 1) << i;
    EXPECT_LE(sleeps[i], largest[i]) << i;
    const std::string start = "Retry(" + std::to_string(i + 1) + ") ";
    const std::string end = " at " + std::to_string(static_cast<int>(sleeps[i])) + " second(s) later.\n";
    std::size_t found = 0;
    for (const support::Log_Line& line : log_.lines())
      if (line.text.starts_with(start) && line.text.ends_with(end)) {
        ++found;
        EXPECT_NE(line.text.find("backup_executor_stop.cpp:"), std::string::npos) << line.text;
        EXPECT_EQ(line.priority, LM_INFO);
      }
    EXPECT_EQ(found, 1U) << start << "..." << end;
  }
  expect_stopped("TN1", "1700");
  EXPECT_FALSE(stored("TN1", "1700"));
}

TEST_F(Stop, Gives_Up_After_300_Seconds_Of_Pauses_And_Keeps_What_HANA_May_Still_Write) {
  set_entries({"hana/HDB00/TN1"});
  store("TN1", "1700");
  expect_cancel("TN1", "1700");
  const std::size_t before = 3;  // the newest backup, its state, its cancel
  hdbsql_.expect_on_and_on(state_sql("1700"), state("cancel pending"));
  EXPECT_TRUE(new_executor().stop());
  EXPECT_GE(seconds_slept(), stop_limit_seconds);
  EXPECT_LT(seconds_slept(), stop_limit_seconds + longest_pause_seconds);
  EXPECT_EQ(hdbsql_.statements().size() - before, clock_.sleeps().size() + 1);
  const std::vector<double> sleeps = clock_.sleeps();
  const std::size_t capped = 4;  // the pauses before may grow to 1, 2, 4 and 8 seconds
  ASSERT_GT(sleeps.size(), capped);
  EXPECT_TRUE(std::any_of(sleeps.begin() + capped, sleeps.end(), [](double s) { return s < longest_pause_seconds; }))
      << "without jitter all would be the longest";
  expect_info("Failed to stop database TN1 backup job with backup id 1700, state is cancel pending\n");
  EXPECT_EQ(log_.claim_containing("successfully"), 0U);
  EXPECT_TRUE(stored("TN1", "1700"));
  EXPECT_TRUE(alerts().empty());
}

TEST_F(Stop, Waits_For_Each_Backup_Afresh_And_Cleans_Up_After_One_That_Did_Not_End) {
  set_entries({"hana/HDB00/TN1", "hana/HDB00/TN2"});
  store("TN1", "1701");
  store("TN2", "1702");
  expect_cancel("TN1", "1701");
  expect_cancel("TN2", "1702");
  expect_pending_to_the_end("1701", [this] { expect_states("1702", {state("cancel pending"), canceled()}); });
  EXPECT_TRUE(new_executor().stop());
  expect_info("Failed to stop database TN1 backup job with backup id 1701, state is cancel pending\n");
  EXPECT_TRUE(stored("TN1", "1701"));
  expect_stopped("TN2", "1702");
  EXPECT_FALSE(stored("TN2", "1702"));
  EXPECT_EQ(lines_that_start_with("Retry(1) "), 2U);
  ASSERT_FALSE(clock_.sleeps().empty());
  EXPECT_EQ(clock_.sleeps().back(), 1) << "the pauses begin small again";
}

TEST_F(Stop, Cleans_Up_After_A_Backup_That_Ended_Well_Before_The_Cancel) {
  set_entries({"hana/HDB00/TN1", "hana/HDB00/TN2"});
  store("TN1", "1701");
  store("TN2", "1702");
  expect_cancel("TN1", "1701");
  expect_cancel("TN2", "1702");
  expect_states("1701", {state("successful")});
  expect_states("1702", {canceled()});
  EXPECT_TRUE(new_executor().stop());
  EXPECT_TRUE(stored("TN1", "1701"));
  expect_stopped("TN2", "1702");
  EXPECT_FALSE(stored("TN2", "1702"));
}

TEST_F(Stop, Removes_What_Was_Stored_Of_A_Backup_That_Fails_After_The_Cancel) {
  set_entries({"hana/HDB00/TN1"});
  store("TN1", "1700");
  expect_cancel("TN1", "1700");
  expect_states("1700", {state("failed")});
  EXPECT_TRUE(new_executor().stop());
  expect_stopped("TN1", "1700");
  EXPECT_FALSE(stored("TN1", "1700"));
}

TEST_F(Stop, Keeps_A_Backup_That_Ended_Well_Before_The_Cancel) {
  set_entries({"hana/HDB00/TN1"});
  store("TN1", "1700");
  expect_cancel("TN1", "1700");
  expect_states("1700", {state("successful")});
  EXPECT_TRUE(new_executor().stop());
  EXPECT_TRUE(stored("TN1", "1700"));
  EXPECT_EQ(log_.claim_containing("successfully"), 0U);
}

TEST_F(Stop, Ends_When_The_State_Of_A_Cancelled_Backup_Cannot_Be_Read) {
  set_entries({"hana/HDB00/TN1", "hana/HDB00/TN2"});
  store("TN1", "1701");
  store("TN2", "1702");
  expect_cancel("TN1", "1701");
  expect_cancel("TN2", "1702");
  hdbsql_.expect(state_sql("1701"), table("STATE_NAME,SYS_END_TIME", {}), 10);
  expect_failure("Failed to get state of backup job 1701\n", "TN2");
  EXPECT_TRUE(stored("TN1", "1701"));
  EXPECT_TRUE(stored("TN2", "1702"));
}

TEST_F(Stop, Ends_When_HANA_Refuses_The_Cancel) {
  set_entries({"hana/HDB00/TN1", "hana/HDB00/TN2"});
  store("TN1", "1701");
  expect_cancel("TN1", "1701", refused("* 258: insufficient privilege"));
  expect_failure("Failed to cancel backup job for database TN1 with backup id 1701\n", "TN1");
  expect_error_with("insufficient privilege");
  EXPECT_EQ(job().snapshot().message, "") << "hdbsql's lines of the cancel are not the run's";
  EXPECT_TRUE(stored("TN1", "1701"));
}

TEST_F(Stop, Leaves_The_Cancelled_Alone_When_A_Later_Database_Has_No_Backup_Of_The_Kind) {
  set_entries({"hana/HDB00/TN1", "hana/HDB00/TN2"});
  store("TN1", "1701");
  expect_cancel("TN1", "1701");
  hdbsql_.expect(last_sql("TN2"), table("BACKUP_ID", {}));
  expect_failure("Failed to get latest full backup id of TN2\n", "TN2");
  EXPECT_TRUE(stored("TN1", "1701")) << "neither waited for nor cleaned";
}

TEST_F(Stop, Looks_For_The_Kind_That_The_Backup_Itself_Chose) {
  set_subtype(JOB_DEFINITION_SUBTYPE_INCREMENTAL);
  set_entries({"hana/HDB00/TN1", "hana/HDB00/TN2"});
  add_full_set("TN2", 1500, "2023-11-14 20:00:00");
  const std::string successful_full =
      "select c.BACKUP_ID as BACKUP_ID from SYS_DATABASES.M_BACKUP_CATALOG as c join "
      "SYS_DATABASES.M_BACKUP_CATALOG_FILES as f on c.BACKUP_ID = f.BACKUP_ID where "
      "lower(ENTRY_TYPE_NAME)='complete data backup' and lower(DESTINATION_TYPE_NAME)='backint'  and "
      "STATE_NAME='successful' and c.DATABASE_NAME='";
  const std::string tail = "' order by c.BACKUP_ID desc limit 1";
  // TN1 has no full backup that could be a base, so its backup was lifted to full.
  hdbsql_.expect(successful_full + "TN1" + tail, table("BACKUP_ID", {}));
  expect_cancel("TN1", "1701");
  // TN2's is judged afresh and stays incremental.
  hdbsql_.expect(successful_full + "TN2" + tail, table("BACKUP_ID", {"1500"}));
  expect_last("TN2", "1702", "incremental");
  hdbsql_.expect(state_sql("1702"), runs());
  hdbsql_.expect("BACKUP CANCEL FOR TN2 1702", done());
  expect_states("1701", {canceled()});
  expect_states("1702", {canceled()});
  store("TN1", "1701");
  store("TN2", "1702");
  EXPECT_TRUE(new_executor().stop());
  expect_info("Failed to get full backup, set job type to full\n");
  expect_stopped("TN1", "1701");
  expect_stopped("TN2", "1702");
}

TEST_F(Stop, Fails_Without_A_System_It_Can_Find) {
  set_entries({"hana/HDB00/TN1"});
  backupd_.resource = json_spirit::Value();
  expect_failure("Failed to initialize system info to stop HANA job\n", "");
  expect_error("Failed to collect resource info.\n");
  EXPECT_EQ(alerts(), (Strings{"7/6 0 1 {}", "7/20 0 1 {\"database\":\"\"}"}));
  log_.claim_all();
}

TEST_F(Stop, Fails_Without_Databases) {
  expect_failure("Failed to collect backup entries to stop job\n", "");
  EXPECT_EQ(alerts(), (Strings{"7/5 0 1 {}", "7/20 0 1 {\"database\":\"\"}"}));
  log_.claim_all();
}

TEST_F(Stop, Fails_Without_An_Account) {
  set_entries({"hana/HDB00/TN1"});
  EXPECT_TRUE(registry_.remove_account("hana", "HDB_HDB00", ""));
  expect_failure("Failed to init hdbsql for HDB HDB00\n", "");
  expect_error("Failed to get username and password\n");
  expect_error_with("No account is stored for the instance");
  EXPECT_EQ(alerts(), (Strings{"7/2 0 1 {}", "7/20 0 1 {\"database\":\"\"}"}));
}

TEST_F(Stop, Fails_For_A_Definition_Without_A_Source) {
  definition_->source = Job_Source_Ptr();
  EXPECT_FALSE(new_executor().stop());
  EXPECT_GT(log_.claim_containing("src_ is NULL", LM_EMERGENCY), 0U);
  expect_stop_alert("");
}

TEST_F(Stop, Leaves_The_Data_When_Backupd_Does_Not_Tell_Of_The_Pool) {
  set_entries({"hana/HDB00/TN1"});
  store("TN1", "1700");
  backupd_.pools.clear();
  expect_cancel("TN1", "1700");
  expect_failure("Skip removing the backup set because there was a failure to get pool information.", "TN1");
  expect_error_with("backupd knows no pool");
  EXPECT_TRUE(stored("TN1", "1700"));
}

TEST_F(Stop, Leaves_The_Data_On_A_Pool_That_Cannot_Be_Used_From_Here) {
  set_entries({"hana/HDB00/TN1"});
  store("TN1", "1700");
  add_pool({{"url", "file:///pool"}, {"s3_enabled", true}});
  expect_cancel("TN1", "1700");
  expect_failure("Failed to set client io options by pool info\n", "TN1");
  EXPECT_TRUE(stored("TN1", "1700"));
}

TEST_F(Stop, Leaves_The_Data_On_A_Pool_That_Cannot_Be_Reached) {
  set_entries({"hana/HDB00/TN1"});
  add_pool({{"url", "file:///away"}});
  expect_cancel("TN1", "1700");
  expect_failure("Failed to connect to file:///away\n", "TN1");
}

TEST_F(Stop, Trusts_The_Authorities_Of_The_Host_When_It_Removes_From_A_Pool_Of_Another) {
  constexpr const char* authorities = "/etc/opt/tarvex/dorsal3/ca.pem";
  root_.write("/etc/opt/tarvex/dorsal3/agent.toml",
              std::string("server_url = \"http://127.0.0.1:4711\"\nhost_uuid = \"") + backup_test::host_uuid +
                  "\"\naccess_key = \"the-key-of-this-host\"\nca_file = \"" + authorities + "\"\n",
              0600);
  set_entries({"hana/HDB00/TN1"});
  add_pool({{"url", "https://pool.example:4712/objects"}});
  const std::string objects = "/objects/";
  backupd_.intercept = [&](const std::string&, const std::string& target) -> std::optional<net::Http_Response> {
    if (!target.starts_with(objects)) return std::nullopt;
    return backup_test::json_answer(200, Object{{"rows", json_spirit::Array()}});
  };
  expect_cancel("TN1", "1700");
  expect_states("1700", {canceled()});
  EXPECT_TRUE(new_executor().stop());
  expect_stopped("TN1", "1700");
  EXPECT_EQ(backupd_.count_of("DELETE " + objects + dataset("TN1", "1700")), 1U);
  const net::Endpoint wanted{true, "pool.example", 4712, authorities};
  const std::vector<net::Endpoint> connections = transport_.connections();
  EXPECT_NE(std::find(connections.begin(), connections.end(), wanted), connections.end());
}

TEST_F(Stop, Is_Good_When_Nothing_Was_Stored_Yet) {
  set_entries({"hana/HDB00/TN1"});
  expect_cancel("TN1", "1700");
  expect_states("1700", {canceled()});
  EXPECT_TRUE(new_executor().stop());
  expect_error_with("Failed to list directory " + dataset("TN1", "1700") + ", ");
  EXPECT_TRUE(alerts().empty());
}

TEST_F(Stop, Tells_Of_What_It_Could_Not_Remove_And_Goes_On) {
  set_entries({"hana/HDB00/TN1"});
  store("TN1", "1700");
  root_.write("/pool/" + dataset("TN1", "1700") + "/inner/left", "data");
  expect_cancel("TN1", "1700");
  expect_states("1700", {canceled()});
  EXPECT_TRUE(new_executor().stop());
  expect_error_with("Failed to remove dataset " + dataset("TN1", "1700") + "/inner, ");
  expect_error_with("Failed to remove dataset " + dataset("TN1", "1700") + ", ");
  EXPECT_FALSE(root_.exists("/pool/" + dataset("TN1", "1700") + "/databackup_0_1"));
  EXPECT_TRUE(root_.exists("/pool/" + dataset("TN1", "1700") + "/inner/left")) << "one level deep and no deeper";
  EXPECT_TRUE(alerts().empty());
}

TEST_F(Stop, Touches_Nothing_Without_A_Landscape_Id) {
  set_entries({"hana/HDB00/TN1"});
  store("TN1", "1700");
  root_.write(std::string("/pool/") + backup_test::host_uuid + "/TN1/1700/databackup_0_1", "data");
  root_.write("/usr/sap/HDB/SYS/global/hdb/custom/config/nameserver.ini", "[landscape]\n");
  expect_cancel("TN1", "1700");
  expect_states("1700", {canceled()});
  EXPECT_TRUE(new_executor().stop());
  expect_error_with(std::string("Failed to list directory ") + backup_test::host_uuid + "//TN1/1700, ");
  expect_error_with("landscape id of HANA system HDB");
  EXPECT_TRUE(stored("TN1", "1700"));
  EXPECT_TRUE(root_.exists(std::string("/pool/") + backup_test::host_uuid + "/TN1/1700/databackup_0_1"));
}
