#include <ctime>

#include "standin/installed_hana.h"

namespace {

using namespace standin_test;
using Instance_Tools = Installed_HANA;

constexpr const char* title = "\nSystem Replication State\n~~~~~~~~~~~~~~~~~~~~~~~~\n\n";

TEST_F(Instance_Tools, Tell_Replication_While_The_Database_Is_Down) {
  lay_out({"--tenant", "TN1", "--host", "hana01"});
  const std::string tool = instance() / "exe/hdbnsutil";
  EXPECT_EQ(run({tool, "-sr_state"}).out,
            std::string("nameserver hana01:30001 not responding.\n") + title + "online: false\n\nmode: none\ndone.\n");
  EXPECT_EQ(run({tool, "-sr_state", "--sapcontrol=1"}).out,
            "SAPCONTROL-OK: <begin>\nonline=false\nmode=none\nSAPCONTROL-OK: <end>\ndone.\n");
  ASSERT_EQ(control({"replication", "primary", "hana02", "ROT"}).code, 0);
  EXPECT_EQ(run({tool, "-sr_stateConfiguration"}).out,
            std::string(title) + "mode: primary\nsite id: 1\nsite name: WDF\ndone.\n");
  EXPECT_EQ(run({tool, "-sr_stateConfiguration", "--sapcontrol=1"}).out,
            "SAPCONTROL-OK: <begin>\nmode=primary\nsite id=1\nsite name=WDF\nSAPCONTROL-OK: <end>\ndone.\n");
  EXPECT_EQ(run({tool, "-reconfig"}).code, 0);
  EXPECT_EQ(run({tool, "-unknown"}).code, 1);
}

TEST_F(Instance_Tools, Tell_Both_Sites_Of_A_Primary) {
  install({"--tenant", "TN1", "--host", "hana01"});
  ASSERT_EQ(control({"replication", "primary", "hana02", "ROT"}).code, 0);
  EXPECT_EQ(
      run({instance() / "exe/hdbnsutil", "-sr_state"}).out,
      std::string(title) +
          "online: true\n\nmode: primary\noperation mode: primary\nsite id: 1\nsite name: WDF\n\n\n"
          "is source system: true\nis secondary/consumer system: false\nhas secondaries/consumers attached: true\n"
          "is a takeover active: false\nis primary suspended: false\n\nHost Mappings:\n~~~~~~~~~~~~~~\n\n"
          "hana01 -> [ROT] hana02\nhana01 -> [WDF] hana01\n\n\nSite Mappings:\n~~~~~~~~~~~~~~\nWDF (primary/primary)\n"
          "    |---ROT (sync/logreplay)\n\nTier of WDF: 1\nTier of ROT: 2\n\nReplication mode of WDF: primary\n"
          "Replication mode of ROT: sync\n\nOperation mode of WDF: primary\nOperation mode of ROT: logreplay\n\n"
          "Mapping: WDF -> ROT\ndone.\n");
  EXPECT_EQ(sql("\\s").code, 0);
  const Output landscape = run({instance() / "exe/python_support/landscapeHostConfiguration.py", "--sapcontrol=1"});
  EXPECT_EQ(landscape.code, 4);
  EXPECT_NE(landscape.out.find("\nnameServerConfigRole=master 1\nnameServerActualRole=master\n"), std::string::npos)
      << landscape.out;
}

TEST_F(Instance_Tools, Refuse_Logons_On_A_Secondary) {
  install({"--tenant", "TN1", "--host", "hana02"});
  EXPECT_EQ(control({"replication", "mirror"}).code, 1);
  for (const std::string mode : {"sync", "syncmem", "async"}) {
    ASSERT_EQ(control({"replication", mode, "hana01", "WDF"}).code, 0);
    const std::string out = run({instance() / "exe/hdbnsutil", "-sr_state"}).out;
    EXPECT_NE(out.find("\nmode: " + mode +
                       "\noperation mode: logreplay\nsite id: 2\nsite name: ROT\nactive primary site: 1\n\n"
                       "primary masters: hana01\n"),
              std::string::npos)
        << out;
    EXPECT_NE(out.find("is source system: false\nis secondary/consumer system: true\n"), std::string::npos) << out;
    const std::string machine = run({instance() / "exe/hdbnsutil", "-sr_state", "--sapcontrol=1"}).out;
    EXPECT_NE(machine.find("siteReplicationMode/ROT=" + mode + "\n"), std::string::npos) << machine;
    EXPECT_NE(machine.find("siteMapping/WDF=ROT\n"), std::string::npos) << machine;
    EXPECT_EQ(sql("\\s").code, -10709 & 0xff);
  }
  fault("replication_mode_missing = yes");
  EXPECT_NE(run({instance() / "exe/hdbnsutil", "-sr_state"}).out.find("\nmode: \n"), std::string::npos);
  EXPECT_NE(run({instance() / "exe/hdbnsutil", "-sr_state", "--sapcontrol=1"}).out.find("\nmode=\n"),
            std::string::npos);
}

TEST_F(Instance_Tools, Start_Stop_And_Kill_The_Instance) {
  lay_out({"--tenant", "TN1", "--version", "2.00.071.00.1687900751"});
  EXPECT_EQ(count_of(hdb("info").out, "hdbnameserver"), 0);
  const Output restarted = hdb("restart");
  EXPECT_EQ(restarted.code, 0);
  EXPECT_NE(restarted.out.find("\nWaitforStopped\nOK\nhdbdaemon is stopped.\n"), std::string::npos) << restarted.out;
  EXPECT_TRUE(restarted.out.ends_with("\nStartWait\nOK\n")) << restarted.out;
  const std::string info = hdb("info").out;
  EXPECT_NE(info.find(" \\_ /usr/sap/HDB/HDB00/"), std::string::npos) << info;
  EXPECT_EQ(count_of(info, "\\_ hdbnameserver"), 1);
  EXPECT_NE(hdb("version").out.find("  version:             2.00.071.00.1687900751\n"), std::string::npos);
  EXPECT_EQ(hdb("kill-9").code, 0);
  EXPECT_EQ(sql("\\s").code, -10709 & 0xff);
  EXPECT_EQ(hdb("start").code, 0);
  EXPECT_EQ(sql("\\s").code, 0);
  EXPECT_EQ(hdb("stop").code, 0);
  EXPECT_EQ(hdb("unknown").code, 1);
  fault("hdb_start_fails = yes");
  EXPECT_EQ(hdb("start").code, 1);
  fault("sapstartsrv = down");
  EXPECT_EQ(run({instance() / "exe/sapcontrol", "-nr", "00", "-function", "GetProcessList"}).code, 1);
}

TEST_F(Instance_Tools, Note_Recoveries_At_Any_Time) {
  lay_out();
  ASSERT_EQ(control({"recovery", "TN1", "1613745176"}).code, 0);
  ASSERT_EQ(control({"recovery", "SYSTEMDB", "1613745176", "failed"}).code, 0);
  const std::string log = text_of(instance() / "standin/instance.conf");
  const std::string host =
      log.substr(log.find("host = ") + 7, log.find('\n', log.find("host = ")) - log.find("host = ") - 7);
  const std::string tenant = text_of(instance() / host / "trace/DB_TN1/backup.log");
  EXPECT_NE(tenant.find("177bab53dc0 INFO    RECOVERY RECOVER DATA started\n"), std::string::npos) << tenant;
  EXPECT_NE(tenant.find("INFO    RECOVERY RECOVER DATA finished successfully\n"), std::string::npos) << tenant;
  EXPECT_NE(
      text_of(instance() / host / "trace/backup.log").find("ERROR   RECOVERY RECOVER DATA finished with error: [448] "),
      std::string::npos);
  EXPECT_EQ(control({"recovery", "NONE"}).code, 1);
  EXPECT_EQ(control({"recovery", "TN1", "yesterday"}).code, 1);
}

TEST_F(Instance_Tools, Move_The_Time_Of_The_Database) {
  install();
  constexpr long offset = -86400L * 365;
  ASSERT_EQ(control({"time-offset", std::to_string(offset)}).code, 0);
  ASSERT_EQ(sql("BACKUP DATA FOR TN1 USING FILE ('x')").code, 0);
  const long id =
      std::stol(value_of("select max(BACKUP_ID) from SYS_DATABASES.M_BACKUP_CATALOG where DATABASE_NAME='TN1'"));
  EXPECT_NEAR(static_cast<double>(id / 1000), static_cast<double>(std::time(nullptr) + offset), 60);
  EXPECT_EQ(control({"time-offset", "late"}).code, 1);
}

TEST_F(Instance_Tools, Change_Tenants_Users_And_Show_It) {
  install();
  const std::string password = write("password", "Secret1\n");
  ASSERT_EQ(control({"add-tenant", "TN2", "indexserver", "1", password}).code, 0);
  EXPECT_NE(control({"add-tenant", "TN2", "indexserver", "1", password}).code, 0);
  EXPECT_EQ(sql("select DATABASE_NAME from SYS.M_DATABASES", "TN2", "Secret1").out, "DATABASE_NAME\n\"TN2\"\n");
  ASSERT_EQ(control({"stop-tenant", "TN2"}).code, 0);
  EXPECT_EQ(value_of("select ACTIVE_STATUS from SYS.M_DATABASES where DATABASE_NAME='TN2'"), "NO\n");
  EXPECT_NE(sql("\\s", "TN2", "Secret1").code, 0);
  ASSERT_EQ(control({"start-tenant", "TN2"}).code, 0);
  EXPECT_EQ(sql("\\s", "TN2", "Secret1").code, 0);
  EXPECT_EQ(control({"stop-tenant", "NONE"}).code, 1);
  EXPECT_EQ(control({"lock", "TN2", "NOBODY"}).code, 1);
  EXPECT_EQ(control({"unknown"}).code, 2);
  const std::string dump = control({"dump"}).out;
  EXPECT_EQ(dump.find("instance HDB 00 2.00.059.00.1632920961 running\ndatabase SYSTEMDB YES\n"), 0U) << dump;
  EXPECT_NE(dump.find("database TN2 YES\nservice indexserver volume 3 port 300"), std::string::npos) << dump;
}

}  // namespace
