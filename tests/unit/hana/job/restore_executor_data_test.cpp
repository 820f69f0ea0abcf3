// The recovery of a tenant and of a system database.

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <string>
#include <thread>
#include <vector>

#include "platform/file_lock.h"
#include "unit/hana/job/restore_fixture.h"

namespace {

using backup_test::done;
using backup_test::host_uuid;
using backup_test::refused;
using backup_test::Restorer;
using backup_test::second_host;
using backup_test::third_host;
using Strings = std::vector<std::string>;
using Set = sap_hana::Restore_Source_Collector::Backup_Set_Info;

constexpr const char* lock_path = "/var/opt/tarvex/dorsal3/agent/lock/restore_HDB_TN1";

Set full_set(const std::string& database) {
  Set set;
  set.origin_sid = "HDB";
  set.origin_dbname = set.target_dbname = database;
  set.database_backup_id = backup_test::full_id;
  set.is_full_backup = true;
  return set;
}

class Restore_Tenant : public backup_test::Restore_Test {
 protected:
  bool recover() { return ready_restorer().restore_data(false, full_set("TN1")); }
  /// A stop that HANA refuses.
  void expect_refused_stop() {
    expect_status("TN1", "YES");
    hdbsql_.expect("ALTER SYSTEM STOP DATABASE TN1", refused());
  }
};

class Restore_System : public backup_test::Restore_Test {
 protected:
  /// A system without the tenant of its own name.
  void expect_no_tenant_of_the_system() {
    hdbsql_.expect("\\s", done());
    hdbsql_.expect("select ACTIVE_STATUS from SYS.M_DATABASES where DATABASE_NAME='HDB'",
                   backup_test::table("ACTIVE_STATUS", {}));
  }
  bool recover(const Set& set) { return ready_restorer().restore_data(true, set); }
  bool recover() { return recover(full_set("SYSTEMDB")); }
  static Set time_set() {
    Set set = full_set("SYSTEMDB");
    set.is_full_backup = false;
    set.target_time = backup_test::wanted_time;
    return set;
  }
  static backup_test::Sql_Answer nobody_listens() {
    return refused("* -10709: Connection failed (RTE:[89006] System call 'connect' failed, rc=111:Connection refused)");
  }
  static constexpr const char* full_text = "RECOVER DATA USING BACKUP_ID 1700 USING CATALOG BACKINT CLEAR LOG;";
};

}  // namespace

TEST_F(Restore_Tenant, Is_Stopped_Recovered_And_Started) {
  expect_tenant_restore("TN1", full_statement("TN1"));
  ASSERT_TRUE(recover());
  EXPECT_TRUE(alerts().empty());
  expect_info("Try to stop database HDB@TN1\n");
  expect_info("Stop the database HDB@TN1 successfully\n");
  EXPECT_FALSE(root_.exists(lock_path));
}

TEST_F(Restore_Tenant, Is_Recovered_At_Once_When_It_Is_Stopped_Already) {
  expect_listed("TN1", false);
  hdbsql_.expect(full_statement("TN1"), done());
  expect_start("TN1");
  EXPECT_TRUE(recover());
  expect_info("Stop the database HDB@TN1 successfully\n");
}

TEST_F(Restore_Tenant, Is_Given_Up_After_Three_Stops_That_Fail) {
  expect_listed("TN1", true);
  for (int attempt = 0; attempt < 3; ++attempt) expect_refused_stop();
  EXPECT_FALSE(recover());
  for (int attempt = 0; attempt < 3; ++attempt) expect_error("Failed to stop tenant database 'TN1', retry...\n");
  expect_error("Failed to stop tenant database 'TN1'\n");
  EXPECT_EQ(alerts(), Strings{R"(7/4 0 1 {"database":"TN1"})"});
  expect_error_with("insufficient privilege");
  EXPECT_TRUE(clock_.sleeps().empty()) << "tried again at once";
  EXPECT_FALSE(root_.exists(lock_path));
}

TEST_F(Restore_Tenant, Is_Recovered_When_The_Second_Stop_Succeeds) {
  expect_listed("TN1", true);
  expect_refused_stop();
  expect_stop("TN1");
  expect_listed("TN1", false);
  hdbsql_.expect(full_statement("TN1"), done());
  expect_start("TN1");
  EXPECT_TRUE(recover());
  expect_error("Failed to stop tenant database 'TN1', retry...\n");
  expect_error_with("insufficient privilege");
  EXPECT_TRUE(alerts().empty());
}

TEST_F(Restore_Tenant, Counts_A_Stop_After_Which_It_Is_Active_Again) {
  expect_listed("TN1", true);
  for (int attempt = 0; attempt < 3; ++attempt) {
    expect_stop("TN1");
    expect_listed("TN1", true);
  }
  EXPECT_FALSE(recover());
  expect_error("Failed to stop tenant database 'TN1'\n");
  EXPECT_EQ(alerts(), Strings{R"(7/4 0 1 {"database":"TN1"})"});
}

TEST_F(Restore_Tenant, Stays_Stopped_After_A_Recovery_That_Fails) {
  expect_listed("TN1", false);
  hdbsql_.expect(full_statement("TN1"), refused("* 448: recovery could not be completed"));
  EXPECT_FALSE(recover());
  expect_error("Failed to restore tenant database\n");
  expect_error_with("recovery could not be completed");
  EXPECT_EQ(alerts(), Strings{"7/15 0 1 null"});
  EXPECT_FALSE(root_.exists(lock_path));
}

TEST_F(Restore_Tenant, Is_Reported_When_It_Does_Not_Start) {
  expect_listed("TN1", false);
  hdbsql_.expect(full_statement("TN1"), done());
  expect_status("TN1", "NO");
  hdbsql_.expect("ALTER SYSTEM START DATABASE TN1", refused());
  EXPECT_FALSE(recover());
  expect_error("failed to start tenant database\n");
  expect_error_with("insufficient privilege");
  EXPECT_EQ(alerts(), Strings{R"(7/3 0 1 {"database":"TN1"})"});
}

TEST_F(Restore_Tenant, Fails_Without_A_Word_Of_Its_Own_When_The_Lock_Cannot_Be_Taken) {
  root_.write("/var/opt/tarvex/dorsal3/agent/lock", "a file in its place");
  EXPECT_FALSE(recover());
  EXPECT_TRUE(hdbsql_.statements().empty());
  EXPECT_TRUE(alerts().empty());
}

TEST_F(Restore_Tenant, Waits_Until_Nobody_Else_Holds_The_Database) {
  expect_tenant_restore("TN1", full_statement("TN1"));
  Restorer& restorer = ready_restorer();
  platform::File_Lock held(lock_path);
  ASSERT_TRUE(held.acquire());
  std::atomic<bool> recovered{false};
  std::thread run([&] { recovered = restorer.restore_data(false, full_set("TN1")); });
  while (!log_.has("Try to stop database HDB@TN1\n")) std::this_thread::yield();
  EXPECT_TRUE(hdbsql_.statements().empty());
  held.release();
  run.join();
  EXPECT_TRUE(recovered);
}

TEST_F(Restore_Tenant, Holds_Its_Lock_From_The_First_Question_To_The_Start) {
  const auto locked = [this](backup_test::Sql_Answer answer) {
    answer.before = [this] { EXPECT_TRUE(root_.exists(lock_path)); };
    return answer;
  };
  expect_listed("TN1", false);
  hdbsql_.expect(full_statement("TN1"), locked(done()));
  expect_status("TN1", "NO");
  hdbsql_.expect("ALTER SYSTEM START DATABASE TN1", locked(done()));
  expect_status("TN1", "YES");
  EXPECT_TRUE(recover());
  EXPECT_FALSE(root_.exists(lock_path));
}

TEST_F(Restore_System, Is_Recovered_By_The_Start_Of_Its_Instance) {
  expect_logon_and_own_tenant();
  std::string statement;
  on_action_ = [&](const std::string& action) {
    if (action == "start") {
      statement = root_.read(statement_path);
      EXPECT_EQ(mode_of(statement_path), 0640U);
    } else {
      EXPECT_FALSE(root_.exists(statement_path)) << "HANA is down before it gets its statement";
    }
  };
  ASSERT_TRUE(recover());
  EXPECT_EQ(statement, full_text) << "without a line end";
  EXPECT_EQ(instance_actions(), (Strings{"HDB stop", "HDB start"}));
  EXPECT_TRUE(alerts().empty());
  EXPECT_TRUE(other_hosts_.calls.empty());
  EXPECT_TRUE(root_.exists(statement_path)) << "HANA removes it, and nobody else";
}

TEST_F(Restore_System, Leaves_The_Recovery_To_A_Time_Without_A_Semicolon) {
  expect_logon_and_own_tenant();
  ASSERT_TRUE(recover(time_set()));
  EXPECT_EQ(root_.read(statement_path),
            "RECOVER DATABASE UNTIL TIMESTAMP '2026-11-20 08:30:00' CLEAR LOG  USING CATALOG BACKINT USING BACKUP_ID "
            "1700 CHECK ACCESS ALL");
}

TEST_F(Restore_System, Gives_The_Statement_To_SAP_Whatever_The_Mask) {
  expect_logon_and_own_tenant();
  const mode_t before = ::umask(077);
  const bool recovered = recover();
  ::umask(before);
  ASSERT_TRUE(recovered);
  EXPECT_EQ(mode_of(statement_path), 0640U);
  struct stat status {};
  ASSERT_EQ(::stat(root_.real(statement_path).c_str(), &status), 0);
  EXPECT_EQ(status.st_gid, ::getgid());
}

TEST_F(Restore_System, Stays_Down_Beside_A_Pending_Recovery) {
  root_.write(statement_path, "RECOVER DATA of somebody else");
  EXPECT_FALSE(recover());
  EXPECT_EQ(instance_actions(), Strings{"HDB stop"});
  EXPECT_EQ(root_.read(statement_path), "RECOVER DATA of somebody else");
  expect_error(std::string("Restore sql file ") + statement_path + " is exist\n");
  EXPECT_EQ(alerts(), Strings{std::string(R"(7/18 0 1 {"file":")") + statement_path + "\"}"});
}

TEST_F(Restore_System, Is_Not_Touched_When_The_Instance_Does_Not_Stop) {
  refused_action_ = "stop";
  EXPECT_FALSE(recover());
  EXPECT_EQ(instance_actions(), Strings{"HDB stop"});
  EXPECT_FALSE(root_.exists(statement_path));
  expect_error("Failed to stop 'HDB00' instance to restore the SYSTEMDB\n");
  expect_error_with("Failed to stop HANA instance HDB_HDB00");
  EXPECT_EQ(alerts(), Strings{R"(7/4 0 1 {"database":"HDB00"})"});
}

TEST_F(Restore_System, Is_Reported_When_The_Instance_Does_Not_Start) {
  refused_action_ = "start";
  EXPECT_FALSE(recover());
  expect_error("Failed to start 'HDB00' instance to restore the SYSTEMDB\n");
  expect_error_with("Failed to start HANA instance HDB_HDB00");
  EXPECT_EQ(alerts(), Strings{"7/15 0 1 null"});
  EXPECT_EQ(root_.read(statement_path), full_text);
}

TEST_F(Restore_System, Fails_Without_The_Directory_Of_The_Instance) {
  Restorer& restorer = ready_restorer();
  restorer.instance_name_ = "HDB07";
  EXPECT_FALSE(restorer.restore_data(true, full_set("SYSTEMDB")));
  expect_error("Failed to get instance dir\n");
  expect_error_with("does not exist");
  EXPECT_TRUE(instance_actions().empty());
}

TEST_F(Restore_System, Removes_What_A_Restore_That_Was_Cut_Off_Left_Of_Its_Statement) {
  expect_logon_and_own_tenant();
  // No process has this id: it is beyond what the kernel gives.
  const std::string end = ".1073741823.0.tmp";
  const auto beside_statement = [&](const std::string& name) {
    const std::string statement = statement_path;
    return statement.substr(0, statement.rfind('/') + 1) + "." + name + end;
  };
  root_.write(beside_statement("recoverInstance.sql"), "RECOVER DATA");
  root_.write(beside_statement("of_HANA"), "x");
  ASSERT_TRUE(recover());
  EXPECT_FALSE(root_.exists(beside_statement("recoverInstance.sql")));
  EXPECT_TRUE(root_.exists(beside_statement("of_HANA"))) << "the directory is HANA's";
}

TEST_F(Restore_System, Fails_When_The_Statement_Cannot_Be_Written) {
  ASSERT_EQ(::rmdir(root_.real("/usr/sap/HDB/HDB00/work").c_str()), 0);
  EXPECT_FALSE(recover());
  expect_error(std::string("Failed to restore system database: failed to generate sql file ") + statement_path + "\n");
  EXPECT_EQ(instance_actions(), Strings{"HDB stop"});
  EXPECT_TRUE(alerts().empty());
}

TEST_F(Restore_System, Leaves_No_Statement_That_Was_Written_In_Part) {
  Restorer& restorer = ready_restorer();
  struct rlimit before {};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
  const auto handler = std::signal(SIGXFSZ, SIG_IGN);
  constexpr rlim_t few_bytes = 16;
  const struct rlimit full_disk { few_bytes, before.rlim_max };
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &full_disk), 0);
  const bool recovered = restorer.restore_data(true, full_set("SYSTEMDB"));
  EXPECT_EQ(::setrlimit(RLIMIT_FSIZE, &before), 0);
  (void)std::signal(SIGXFSZ, handler);
  EXPECT_FALSE(recovered);
  expect_error(std::string("Failed to restore system database: failed to generate sql file ") + statement_path + "\n");
  EXPECT_FALSE(root_.exists(statement_path));
  EXPECT_EQ(instance_actions(), Strings{"HDB stop"});
}

TEST_F(Restore_System, Leaves_No_Statement_That_SAP_Could_Not_Read) {
  remove_sap_group();
  EXPECT_FALSE(recover());
  expect_error(std::string("Failed to restore system database: failed to generate sql file ") + statement_path + "\n");
  EXPECT_FALSE(root_.exists(statement_path));
}

TEST_F(Restore_System, Restarts_The_Other_Hosts_And_Goes_On_After_One_That_Fails) {
  expect_logon_and_own_tenant();
  set_cluster({host_uuid, second_host, third_host});
  other_hosts_.refusing = {second_host};
  Restorer& restorer = ready_restorer();
  ASSERT_TRUE(restorer.get_cluster_info());
  ASSERT_TRUE(restorer.restore_data(true, full_set("SYSTEMDB")));
  const std::string request = R"( hana.instance.control {"action":"restart","sid":"HDB","instance_name":"HDB00"})";
  EXPECT_EQ(other_hosts_.calls, (Strings{second_host + request, third_host + request}));
  expect_error("Failed to start cluster instance\n");
  EXPECT_EQ(alerts(), Strings{std::string(R"(7/17 0 1 {"host":")") + second_host + "\"}"});
}

TEST_F(Restore_System, Waits_Until_The_Recovered_System_Takes_Logons) {
  hdbsql_.expect("\\s", nobody_listens(), 5);
  expect_logon_and_own_tenant();
  ASSERT_TRUE(recover());
  EXPECT_EQ(clock_.sleeps(), (std::vector<double>{10, 10, 10, 10, 10}));
}

TEST_F(Restore_System, Goes_On_When_Its_Logon_Is_Refused_After_The_Recovery) {
  hdbsql_.expect("\\s", refused("* 10: authentication failed SQLSTATE: 28000"));
  expect_start("HDB");
  EXPECT_TRUE(recover());
  EXPECT_TRUE(clock_.sleeps().empty());
}

TEST_F(Restore_System, Gives_The_Wait_For_A_Logon_Up_After_Ten_Minutes) {
  constexpr unsigned looks = 61;
  hdbsql_.expect("\\s", nobody_listens(), looks);
  expect_start("HDB");
  EXPECT_TRUE(recover());
  EXPECT_TRUE(log_.has_containing("HANA instance HDB_HDB00 takes no logons after its recovery"));
}

TEST_F(Restore_System, Does_Not_Need_The_Tenant_Of_Its_Own_Name) {
  expect_no_tenant_of_the_system();
  EXPECT_TRUE(recover());
  expect_error_with("has no database 'HDB'");
}

TEST_F(Restore_System, Has_No_Tenant_To_Start_On_A_Single_Container) {
  Restorer& restorer = ready_restorer();
  restorer.mdc_ = false;
  hdbsql_.expect("\\s", done());
  EXPECT_TRUE(restorer.restore_data(true, full_set("HDB")));
}
