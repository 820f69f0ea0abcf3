#include <thread>

#include "standin/installed_hana.h"

namespace {

namespace fs = std::filesystem;
using namespace standin_test;

constexpr int nobody_listens = -10709 & 0xff;

/// Site WDF on hana01 below the root, site ROT on hana02 below "<root>/second".
class Replicated_Pair : public Installed_HANA {
 protected:
  void TearDown() override {
    if (fs::exists(second() / "HDB")) (void)run({second() / "HDB", "kill-9"});
    Installed_HANA::TearDown();
  }
  [[nodiscard]] fs::path second_root() const { return root_ / "second"; }
  [[nodiscard]] fs::path second() const { return second_root() / "usr/sap/HDB/HDB00"; }
  Output second_sql(const std::string& statement, const std::string& database = "SYSTEMDB") {
    return run(
        {second() / "exe/hdbsql", "-xCja", "-i", "00", "-d", database, "-u", "SYSTEM", "-p", "manager", statement});
  }
  Output sr(const fs::path& site, const std::vector<std::string>& words) {
    std::vector<std::string> command{site / "exe/hdbnsutil"};
    command.insert(command.end(), words.begin(), words.end());
    return run(command);
  }
  Output install_second(const std::string& mode) {
    return run({STANDIN_TOOLS "/standin-hana-install", "--root", second_root(), "--sid", "HDB", "--host", "hana02",
                "--secondary-of", root_, "--mode", mode});
  }
  void install_pair(const std::string& mode = "sync") {
    install({"--tenant", "TN1", "--host", "hana01"});
    const Output got = install_second(mode);
    ASSERT_EQ(got.code, 0) << got.err;
    ASSERT_EQ(run({second() / "HDB", "start"}).code, 0);
  }
  static std::string landscape_id(const fs::path& site) {
    const std::string text = text_of(site / "../SYS/global/hdb/custom/config/nameserver.ini");
    const std::size_t at = text.find("\nid = ");
    return text.substr(at, text.find('\n', at + 1) - at);
  }
};

TEST_F(Replicated_Pair, Tells_Its_State_On_Each_Side) {
  install_pair("syncmem");
  EXPECT_EQ(landscape_id(instance()), landscape_id(second()));
  const std::string sites =
      "\n\nSite Mappings:\n~~~~~~~~~~~~~~\nWDF (primary/primary)\n    |---ROT (syncmem/logreplay)\n\nTier of WDF: 1\n"
      "Tier of ROT: 2\n\nReplication mode of WDF: primary\nReplication mode of ROT: syncmem\n\nOperation mode of WDF: "
      "primary\nOperation mode of ROT: logreplay\n\nMapping: WDF -> ROT\ndone.\n";
  const std::string title = "\nSystem Replication State\n~~~~~~~~~~~~~~~~~~~~~~~~\n\nonline: true\n\n";
  EXPECT_EQ(sr(instance(), {"-sr_state"}).out,
            title +
                "mode: primary\noperation mode: primary\nsite id: 1\nsite name: WDF\n\n\nis source system: true\n"
                "is secondary/consumer system: false\nhas secondaries/consumers attached: true\n"
                "is a takeover active: false\nis primary suspended: false\n\nHost Mappings:\n~~~~~~~~~~~~~~\n\n"
                "hana01 -> [ROT] hana02\nhana01 -> [WDF] hana01\n" +
                sites);
  EXPECT_EQ(sr(second(), {"-sr_state"}).out,
            title +
                "mode: syncmem\noperation mode: logreplay\nsite id: 2\nsite name: ROT\nactive primary site: 1\n\n"
                "primary masters: hana01\n\n\nis source system: false\nis secondary/consumer system: true\n"
                "has secondaries/consumers attached: false\nis a takeover active: false\nis primary suspended: "
                "false\n\nHost Mappings:\n~~~~~~~~~~~~~~\n\nhana02 -> [WDF] hana01\nhana02 -> [ROT] hana02\n" +
                sites);
  EXPECT_EQ(sr(second(), {"-sr_stateConfiguration", "--sapcontrol=1"}).out,
            "SAPCONTROL-OK: <begin>\nmode=syncmem\nsite id=2\nsite name=ROT\nSAPCONTROL-OK: <end>\ndone.\n");
}

TEST_F(Replicated_Pair, Tells_Less_While_A_Side_Is_Down) {
  install_pair();
  ASSERT_EQ(run({second() / "HDB", "stop"}).code, 0);
  EXPECT_EQ(sr(second(), {"-sr_state"}).out,
            "nameserver hana02:30001 not responding.\n\nSystem Replication State\n~~~~~~~~~~~~~~~~~~~~~~~~\n\n"
            "online: false\n\nmode: sync\noperation mode: logreplay\nsite id: 2\nsite name: ROT\n"
            "active primary site: 1\n\nprimary masters: hana01\ndone.\n");
  const std::string primary = sr(instance(), {"-sr_state"}).out;
  EXPECT_NE(primary.find("has secondaries/consumers attached: false\n"), std::string::npos) << primary;
  EXPECT_NE(primary.find("    |---ROT (sync/logreplay)\n"), std::string::npos) << primary;
}

TEST_F(Replicated_Pair, Answers_Statements_On_The_Primary_Only) {
  install({"--tenant", "TN1", "--host", "hana01"});
  for (const char* mode : {"sync", "syncmem", "async"}) {
    ASSERT_EQ(install_second(mode).code, 0);
    ASSERT_EQ(run({second() / "HDB", "restart"}).code, 0);
    EXPECT_NE(sr(second(), {"-sr_state"}).out.find(std::string("\nmode: ") + mode + "\n"), std::string::npos);
    EXPECT_EQ(second_sql("select 1 as A from DUMMY").code, nobody_listens);
    EXPECT_EQ(sql("\\s").code, 0);
    EXPECT_EQ(run({second() / "exe/sapcontrol", "-nr", "00", "-function", "GetProcessList"}).code, 3)
        << "the services run";
  }
  EXPECT_EQ(install_second("mirror").code, 1);
}

TEST_F(Replicated_Pair, Lets_Only_Read_On_A_Read_Enabled_Secondary) {
  install_pair();
  ASSERT_EQ(run({second() / "HDB", "stop"}).code, 0);
  const Output done = sr(second(), {"-sr_register", "--name=ROT", "--remoteHost=hana01", "--remoteInstance=00",
                                    "--replicationMode=sync", "--operationMode=logreplay_readaccess"});
  ASSERT_EQ(done.code, 0) << done.out;
  ASSERT_EQ(run({second() / "HDB", "start"}).code, 0);
  EXPECT_EQ(second_sql("select DATABASE_NAME from SYS.M_DATABASES").out, "SYSTEMDB\nTN1\n");
  EXPECT_EQ(second_sql("BACKUP DATA USING FILE ('x')").code, 7);
  EXPECT_EQ(second_sql("UPSERT KV VALUES ('k','v')", "TN1").code, 7);
}

TEST_F(Replicated_Pair, Takes_Over_With_The_Data_And_The_Catalog_Of_The_Primary) {
  install_pair();
  EXPECT_EQ(sr(instance(), {"-sr_takeover"}).code, 1) << "a primary cannot take over";
  ASSERT_EQ(sql("UPSERT KV VALUES ('k','one')", "TN1").code, 0);
  ASSERT_EQ(sql("BACKUP DATA FOR TN1 USING FILE ('f')").code, 0);
  ASSERT_EQ(sql("UPSERT KV VALUES ('k','two')", "TN1").code, 0);
  const Output done = sr(second(), {"-sr_takeover"});
  ASSERT_EQ(done.code, 0) << done.out;
  EXPECT_NE(sr(second(), {"-sr_state"}).out.find("\nmode: primary\n"), std::string::npos);
  EXPECT_EQ(second_sql("select V from KV where K='k'", "TN1").out, "two\n");
  EXPECT_EQ(second_sql("select STATE_NAME, HOST from SYS_DATABASES.M_BACKUP_CATALOG c join "
                       "SYS_DATABASES.M_BACKUP_CATALOG_FILES f on c.BACKUP_ID = f.BACKUP_ID where SOURCE_TYPE_NAME = "
                       "'volume'")
                .out,
            "successful,hana01\n");
  const Output delta = second_sql("BACKUP DATA INCREMENTAL FOR TN1 USING FILE ('i')");
  EXPECT_EQ(delta.code, 0) << "a delta goes on from the backup of the other site" << delta.err;
  // The former primary knows of nothing until it is told.
  const std::string former = sr(instance(), {"-sr_state"}).out;
  EXPECT_NE(former.find("\nmode: primary\n"), std::string::npos) << former;
  EXPECT_NE(former.find("has secondaries/consumers attached: false\n"), std::string::npos) << former;
  EXPECT_EQ(former.find("Mapping: "), std::string::npos) << former;
  EXPECT_EQ(sql("select V from KV", "TN1").code, 0);
}

TEST_F(Replicated_Pair, Is_Turned_Round_By_Registering_The_Former_Primary) {
  install_pair();
  ASSERT_EQ(sr(second(), {"-sr_takeover"}).code, 0);
  const std::vector<std::string> words{"-sr_register", "--name=WDF", "--remoteHost=hana02", "--remoteInstance=00",
                                       "--replicationMode=async"};
  const Output running = sr(instance(), words);
  EXPECT_EQ(running.code, 1);
  EXPECT_NE(running.out.find("must be stopped"), std::string::npos) << running.out;
  ASSERT_EQ(hdb("stop").code, 0);
  auto wrong = words;
  wrong[2] = "--remoteHost=hana09";
  EXPECT_NE(sr(instance(), wrong).out.find("unable to contact primary site host hana09:30002. connection refused"),
            std::string::npos);
  wrong = words;
  wrong[4] = "--replicationMode=mirror";
  EXPECT_EQ(sr(instance(), wrong).code, 1);
  wrong = words;
  wrong[1] = "--name=ROT";
  EXPECT_NE(sr(instance(), wrong).out.find("is in use"), std::string::npos);
  ASSERT_EQ(sr(instance(), words).code, 0);
  ASSERT_EQ(hdb("start").code, 0);
  EXPECT_EQ(sql("\\s").code, nobody_listens);
  EXPECT_EQ(second_sql("select 1 as A from DUMMY").out, "1\n");
  const std::string state = sr(second(), {"-sr_state"}).out;
  EXPECT_NE(state.find("ROT (primary/primary)\n    |---WDF (async/logreplay)\n"), std::string::npos) << state;
  EXPECT_NE(state.find("has secondaries/consumers attached: true\n"), std::string::npos) << state;
  EXPECT_NE(sr(instance(), {"-sr_state"}).out.find("active primary site: 2\n\nprimary masters: hana02\n"),
            std::string::npos);
  ASSERT_EQ(sr(instance(), {"-sr_takeover"}).code, 0);
  EXPECT_EQ(sql("\\s").code, 0) << "and back";
}

TEST_F(Replicated_Pair, Takes_Over_While_A_Backup_Runs) {
  install_pair();
  fault("stream_bytes_per_second = 1048576");
  Output backup;
  std::thread worker([&] { backup = sql("BACKUP DATA FOR TN1 USING BACKINT ('x')"); });
  const std::string id = running_backup();
  ASSERT_EQ(sr(second(), {"-sr_takeover"}).code, 0);
  EXPECT_EQ(second_sql("select STATE_NAME from SYS_DATABASES.M_BACKUP_CATALOG where BACKUP_ID=" + id).out, "failed\n");
  EXPECT_EQ(second_sql("BACKUP DATA FOR TN1 USING FILE ('f')").code, 0);
  worker.join();
  EXPECT_EQ(backup.code, 0) << "the former primary goes on until it is stopped" << backup.err;
  EXPECT_EQ(states(), "successful\n");
}

TEST_F(Replicated_Pair, Takes_Over_When_The_Primary_Is_Gone) {
  install_pair();
  ASSERT_EQ(sql("UPSERT KV VALUES ('k','v')", "TN1").code, 0);
  ASSERT_EQ(hdb("kill-9").code, 0);
  ASSERT_EQ(sr(second(), {"-sr_takeover"}).code, 0);
  EXPECT_EQ(second_sql("select V from KV", "TN1").out, "v\n");
}

}  // namespace
