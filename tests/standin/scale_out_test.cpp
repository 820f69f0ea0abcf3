#include <chrono>
#include <fstream>
#include <thread>

#include "standin/installed_hana.h"

namespace {

namespace fs = std::filesystem;
using namespace standin_test;

constexpr int nobody_listens = -10709 & 0xff;
constexpr int all_run = 3;
constexpr int all_stopped = 4;

/// A system over hana01 below the root and further hosts below "<root>/<name>".
class Scale_Out : public Installed_HANA {
 protected:
  void TearDown() override {
    for (const std::string& name : further_) (void)tool(name, "HDB", {"kill-9"});
    Installed_HANA::TearDown();
  }
  void install_hosts(const std::vector<std::string>& further = {"hana02", "hana03"}) {
    lay_out({"--tenant", "TN1", "--host", "hana01"});
    for (const std::string& name : further) {
      const Output got = run({STANDIN_TOOLS "/standin-hana-install", "--root", root_of(name), "--sid", "HDB", "--join",
                              root_, "--host", name});
      ASSERT_EQ(got.code, 0) << got.err;
      further_.push_back(name);
      fault_at(name, "start_ms = 1");
      // So far apart that a slow machine does not let one overtake the other.
      fault_at(name, name == "hana02" ? "failover_ms = 100" : "failover_ms = 1000");
    }
    fault("failover_ms = 100");
  }
  void start_all() {
    ASSERT_EQ(control_at("hana01", {"-function", "StartSystem", "HDB"}).code, 0);
    ASSERT_EQ(control_at("hana01", {"-function", "WaitforStarted", "30", "1"}).code, 0);
    for (const std::string& name : further_)
      ASSERT_EQ(control_at(name, {"-function", "WaitforStarted", "30", "1"}).code, 0);
  }
  [[nodiscard]] fs::path root_of(const std::string& name) const { return name == "hana01" ? root_ : root_ / name; }
  [[nodiscard]] fs::path instance_of(const std::string& name) const { return root_of(name) / "usr/sap/HDB/HDB00"; }
  Output tool(const std::string& host, const std::string& name, const std::vector<std::string>& words) {
    std::vector<std::string> command{instance_of(host) / name};
    command.insert(command.end(), words.begin(), words.end());
    return run(command);
  }
  Output control_at(const std::string& host, std::vector<std::string> words) {
    words.insert(words.begin(), {"-nr", "00"});
    return tool(host, "exe/sapcontrol", words);
  }
  Output sql_at(const std::string& host, const std::string& statement, std::vector<std::string> more = {}) {
    more.insert(more.begin(), {"-xCja", "-i", "00", "-d", "SYSTEMDB", "-u", "SYSTEM", "-p", "manager"});
    more.push_back(statement);
    return tool(host, "exe/hdbsql", more);
  }
  bool serves(const std::string& host) {
    constexpr int most_tries = 5000;
    for (int i = 0; i < most_tries; ++i) {
      if (sql_at(host, "select 1 as A from DUMMY").code == 0) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
  }
  void fault_at(const std::string& host, const std::string& line) {
    ASSERT_EQ(run({STANDIN_TOOLS "/standin-hana-control", "--root", root_of(host), "--sid", "HDB", "fault", line}).code,
              0);
  }
  /// A line of [landscape] as that host reads it.
  std::string landscape(const std::string& host, const std::string& key) {
    const std::string text = text_of(root_of(host) / "usr/sap/HDB/SYS/global/hdb/custom/config/nameserver.ini");
    const std::size_t at = text.find("\n" + key + " = ");
    return at == std::string::npos ? "" : text.substr(at + 1, text.find('\n', at + 1) - at - 1);
  }

 private:
  std::vector<std::string> further_;
};

TEST_F(Scale_Out, Names_Its_Hosts_On_Each_Of_Them) {
  install_hosts({"hana02", "hana03", "hana04"});
  for (const char* host : {"hana01", "hana02", "hana03", "hana04"}) {
    EXPECT_EQ(landscape(host, "master"), "master = hana01:30001 hana02:30001 hana03:30001");
    EXPECT_EQ(landscape(host, "worker"), "worker = hana01 hana02 hana03 hana04");
    EXPECT_EQ(landscape(host, "active_master"), "active_master = hana01:30001");
    EXPECT_EQ(landscape(host, "roles_hana02"), "roles_hana02 = worker");
    EXPECT_TRUE(fs::exists(root_of(host) / "usr/sap/HDB/SYS/profile/HDB_HDB00_hana03"));
    EXPECT_NE(text_of(root_of(host) / "usr/sap/sapservices")
                  .find(std::string("pf=/usr/sap/HDB/SYS/profile/HDB_HDB00_") + host + " "),
              std::string::npos);
  }
}

TEST_F(Scale_Out, Answers_Statements_On_The_Master_Only) {
  install_hosts();
  start_all();
  EXPECT_TRUE(serves("hana01"));
  const Output elsewhere = sql_at("hana02", "select 1 as A from DUMMY");
  EXPECT_EQ(elsewhere.code, nobody_listens);
  EXPECT_EQ(elsewhere.err.find("* -10709: Connection failed (RTE:[89006] System call 'connect' failed, "
                               "rc=111:Connection refused ("),
            0U)
      << elsewhere.err;
  EXPECT_EQ(sql_at("hana02", "select 1 as A from DUMMY", {"-n", "hana01"}).out, "1\n") << "over the network";
  EXPECT_EQ(sql_at("hana01",
                   "select HOST, HOST_ACTIVE, NAMESERVER_CONFIG_ROLE, NAMESERVER_ACTUAL_ROLE from "
                   "SYS.M_LANDSCAPE_HOST_CONFIGURATION")
                .out,
            "hana01,YES,MASTER 1,MASTER\nhana02,YES,MASTER 2,SLAVE\nhana03,YES,MASTER 3,SLAVE\n");
}

TEST_F(Scale_Out, Has_A_State_For_Each_Host) {
  install_hosts();
  start_all();
  const std::string head = "hostname, instanceNr, httpPort, httpsPort, startPriority, features, dispstatus\n";
  const std::string tail = ", 0, 50013, 50014, 0.3, HDB|HDB_WORKER, ";
  ASSERT_EQ(tool("hana02", "HDB", {"stop"}).code, 0);
  EXPECT_EQ(control_at("hana01", {"-function", "GetProcessList"}).code, all_run);
  EXPECT_EQ(control_at("hana02", {"-function", "GetProcessList"}).code, all_stopped);
  const std::string slave = control_at("hana03", {"-function", "GetProcessList"}).out;
  EXPECT_NE(slave.find("hdbnameserver, HDB Nameserver, GREEN, Running"), std::string::npos) << slave;
  EXPECT_EQ(slave.find("hdbindexserver"), std::string::npos) << slave;
  EXPECT_TRUE(control_at("hana02", {"-function", "GetSystemInstanceList"})
                  .out.ends_with(head + "hana01" + tail + "GREEN\nhana02" + tail + "GRAY\nhana03" + tail + "GREEN\n"));
  EXPECT_EQ(sql_at("hana01", "select HOST, HOST_ACTIVE from SYS.M_LANDSCAPE_HOST_CONFIGURATION").out,
            "hana01,YES\nhana02,NO\nhana03,YES\n");
  ASSERT_EQ(control_at("hana03", {"-function", "StopSystem", "HDB"}).code, 0);
  for (const char* host : {"hana01", "hana02", "hana03"}) {
    EXPECT_EQ(control_at(host, {"-function", "WaitforStopped", "30", "1"}).code, 0);
    EXPECT_EQ(control_at(host, {"-function", "GetProcessList"}).code, all_stopped);
  }
  EXPECT_EQ(landscape("hana01", "active_master"), "active_master = hana01:30001");
}

TEST_F(Scale_Out, Tells_The_Landscape_By_Table_And_Exit_Code) {
  install_hosts({"hana02"});
  fault_at("hana02", "failover = no");
  const std::string script = "exe/python_support/landscapeHostConfiguration.py";
  const Output down = tool("hana02", script, {});
  EXPECT_EQ(down.code, 1);
  EXPECT_EQ(down.out, "nameserver hana01:30001 not responding.\n");
  start_all();
  ASSERT_TRUE(serves("hana01"));
  const Output table = tool("hana02", script, {});
  EXPECT_EQ(table.code, 4);
  EXPECT_EQ(count_of(table.out,
                     "\n| hana01 | yes    | ok     |          |        | 1         | 1         | default  | "
                     "default  | master 1   | master     | worker      | master      | worker | worker | "
                     "default | default |\n"),
            1)
      << table.out;
  EXPECT_NE(table.out.find("| master 2   | slave      |"), std::string::npos) << table.out;
  EXPECT_TRUE(table.out.ends_with("\n\noverall host status: ok\n")) << table.out;
  ASSERT_EQ(tool("hana02", "HDB", {"stop"}).code, 0);
  const Output machine = tool("hana01", script, {"--sapcontrol=1"});
  EXPECT_EQ(machine.code, 1);
  EXPECT_NE(machine.out.find("host/hana01/nameServerActualRole=master\n"), std::string::npos) << machine.out;
  EXPECT_NE(machine.out.find("host/hana02/hostActive=no\n"), std::string::npos) << machine.out;
}

TEST_F(Scale_Out, Moves_The_Master_With_Its_Databases_When_A_Host_Stops) {
  install_hosts();
  // Its turn comes after hana02's, at any speed of the machine.
  fault_at("hana03", "failover_ms = 600000");
  start_all();
  ASSERT_TRUE(serves("hana01"));
  ASSERT_EQ(sql("UPSERT KV VALUES ('k','v')", "TN1").code, 0);
  ASSERT_EQ(sql("BACKUP DATA FOR TN1 USING FILE ('f')").code, 0);
  ASSERT_EQ(hdb("stop").code, 0);
  ASSERT_TRUE(serves("hana02"));
  EXPECT_EQ(landscape("hana03", "active_master"), "active_master = hana02:30001");
  EXPECT_EQ(sql_at("hana03", "\\s").code, nobody_listens);
  EXPECT_EQ(sql_at("hana02", "BACKUP DATA INCREMENTAL FOR TN1 USING FILE ('i')").code, 0);
  EXPECT_EQ(
      sql_at("hana02", "select distinct HOST from SYS_DATABASES.M_BACKUP_CATALOG_FILES where SOURCE_TYPE_NAME='volume'")
          .out,
      "hana01\nhana02\n");
  EXPECT_NE(text_of(instance_of("hana02") / "hana02/trace/DB_TN1/backup.log").find("SAVE DATA finished"),
            std::string::npos);
  ASSERT_EQ(hdb("start").code, 0);
  EXPECT_EQ(sql_at("hana01", "\\s").code, nobody_listens) << "it comes back as a slave";
  EXPECT_EQ(
      sql_at("hana01", "select HOST, NAMESERVER_ACTUAL_ROLE from SYS.M_LANDSCAPE_HOST_CONFIGURATION", {"-n", "hana02"})
          .out,
      "hana01,SLAVE\nhana02,MASTER\nhana03,SLAVE\n");
}

TEST_F(Scale_Out, Fails_The_Backup_Of_A_Master_That_Dies) {
  install_hosts({"hana02"});
  start_all();
  ASSERT_TRUE(serves("hana01"));
  fault("die_server_after_bytes = 100000");
  EXPECT_EQ(sql("BACKUP DATA FOR TN1 USING FILE ('f')").code, 0) << "only pipes count";
  EXPECT_EQ(sql("BACKUP DATA FOR TN1 USING BACKINT ('x')").code, -10807 & 0xff);
  ASSERT_TRUE(serves("hana02"));
  EXPECT_EQ(sql_at("hana02",
                   "select STATE_NAME from SYS_DATABASES.M_BACKUP_CATALOG where ENTRY_TYPE_NAME <> 'log backup' order "
                   "by BACKUP_ID")
                .out,
            "successful\nfailed\n");
}

TEST_F(Scale_Out, Keeps_The_Master_Where_It_Is_When_Told_So) {
  install_hosts({"hana02"});
  fault_at("hana02", "failover = no");
  start_all();
  ASSERT_TRUE(serves("hana01"));
  ASSERT_EQ(hdb("stop").code, 0);
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  EXPECT_EQ(sql_at("hana02", "\\s").code, nobody_listens);
  EXPECT_EQ(landscape("hana02", "active_master"), "active_master = hana01:30001");
  ASSERT_EQ(hdb("start").code, 0);
  EXPECT_TRUE(serves("hana01"));
}

TEST_F(Scale_Out, Refuses_What_It_Is_Not_Made_For) {
  install_hosts({"hana02"});
  const auto install_more = [&](const std::vector<std::string>& words) {
    std::vector<std::string> command{STANDIN_TOOLS "/standin-hana-install", "--root", root_ / "more", "--sid", "HDB"};
    command.insert(command.end(), words.begin(), words.end());
    return run(command);
  };
  EXPECT_EQ(install_more({"--join", root_, "--host", "hana01"}).code, 1);
  EXPECT_EQ(install_more({"--join", root_ / "nothing", "--host", "hana09"}).code, 1);
  EXPECT_EQ(install_more({"--secondary-of", root_, "--mode", "sync", "--host", "hana09"}).code, 1);
  ASSERT_EQ(control({"replication", "primary"}).code, 0);
  EXPECT_EQ(install_more({"--join", root_, "--host", "hana09"}).code, 1);
}

TEST_F(Scale_Out, Recovers_Its_System_Database_On_The_Masters_Host) {
  install_hosts();
  start_all();
  ASSERT_TRUE(serves("hana01"));
  fault("logon_after_recovery_ms = 1");
  ASSERT_EQ(sql_at("hana01", "UPSERT KV VALUES ('a','1')").code, 0);
  ASSERT_EQ(sql_at("hana01", "BACKUP DATA USING BACKINT ('f')").code, 0);
  const std::string full = sql_at("hana01",
                                  "select max(BACKUP_ID) from M_BACKUP_CATALOG where ENTRY_TYPE_NAME<>'log "
                                  "backup'")
                               .out;
  ASSERT_EQ(sql_at("hana01", "UPSERT KV VALUES ('a','2')").code, 0);
  ASSERT_EQ(control_at("hana01", {"-function", "StopSystem", "HDB"}).code, 0);
  for (const char* host : {"hana01", "hana02", "hana03"})
    ASSERT_EQ(control_at(host, {"-function", "WaitforStopped", "30", "1"}).code, 0);
  const std::string statement = "RECOVER DATA USING BACKUP_ID " + full.substr(0, full.find('\n')) + " CLEAR LOG;";
  for (const char* host : {"hana01", "hana02"})
    std::ofstream(instance_of(host) / "work/recoverInstance.sql") << statement;
  start_all();
  ASSERT_TRUE(serves("hana01"));
  EXPECT_EQ(sql_at("hana01", "select V from KV").out, "1\n");
  EXPECT_FALSE(fs::exists(instance_of("hana01") / "work/recoverInstance.sql"));
  EXPECT_TRUE(fs::exists(instance_of("hana02") / "work/recoverInstance.sql"));
}

TEST_F(Scale_Out, Goes_Down_On_The_Next_Host_Too_When_A_Recovery_Has_Left_It_In_Pieces) {
  install_hosts({"hana02"});
  ASSERT_EQ(tool("hana01", "HDB", {"start"}).code, 0);
  ASSERT_TRUE(serves("hana01"));
  ASSERT_EQ(sql_at("hana01", "BACKUP DATA USING BACKINT ('f')").code, 0);
  const std::string full = sql_at("hana01",
                                  "select max(BACKUP_ID) from M_BACKUP_CATALOG where ENTRY_TYPE_NAME<>'log "
                                  "backup'")
                               .out;
  ASSERT_EQ(tool("hana01", "HDB", {"stop"}).code, 0);
  fault("recovery_fails = told so | match=data");
  std::ofstream(instance_of("hana01") / "work/recoverInstance.sql")
      << "RECOVER DATA USING BACKUP_ID " + full.substr(0, full.find('\n')) + " CLEAR LOG;";
  EXPECT_EQ(tool("hana01", "HDB", {"start"}).code, 1);
  ASSERT_EQ(tool("hana02", "HDB", {"start"}).code, 0);
  EXPECT_EQ(control_at("hana02", {"-function", "WaitforStopped", "30", "1"}).code, 0);
}

}  // namespace
