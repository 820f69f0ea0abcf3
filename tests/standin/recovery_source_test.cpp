#include "standin/recovered_hana.h"

namespace {

namespace fs = std::filesystem;
using namespace standin_test;

/// TN1 of this system is recovered from TQ of system QAS, whose backups hdbbackint finds as if it were there.
class Recovery_Source : public Recovered_HANA {
 protected:
  void SetUp() override {
    Recovered_HANA::SetUp();
    install_with_catalogs();
    other_ = root_ / "other";
    fs::create_directories(other_ / "opt/tarvex/dorsal3/bin");
    fs::copy_file(STANDIN_BACKINT, other_ / "opt/tarvex/dorsal3/bin/hdbbackint");
    install_other();
    fs::copy(other_ / "pool", root_ / "pool", fs::copy_options::recursive);
    stop();
    new_calls();
  }
  virtual void install_other() {
    lay_out_other({"--tenant", "TQ", "--services", "indexserver,xsengine"});
    back_up("TQ", "SYSTEMDB", "FOR TQ");
  }
  void lay_out_other(const std::vector<std::string>& more) {
    std::vector<std::string> words{
        STANDIN_TOOLS "/standin-hana-install", "--root", other_, "--sid", "QAS", "--nr", "01", "--host", "qas01"};
    words.insert(words.end(), more.begin(), more.end());
    ASSERT_EQ(run(words).code, 0);
    ASSERT_EQ(run({STANDIN_TOOLS "/standin-hana-control", "--root", other_, "--sid", "QAS", "time-offset",
                   std::to_string(offset_)})
                  .code,
              0);
    fs::create_symlink("/opt/tarvex/dorsal3/bin/hdbbackint", other_ / "usr/sap/QAS/SYS/global/hdb/opt/hdbbackint");
    ASSERT_EQ(run({other_ / "usr/sap/QAS/HDB01/HDB", "start"}).code, 0);
  }
  /// A row and a full backup; `home` is the database that takes the statements.
  void back_up(const std::string& database, const std::string& home, const std::string& which) {
    there(
        "ALTER SYSTEM ALTER CONFIGURATION ('global.ini','SYSTEM') SET ('backup','catalog_backup_using_backint')='true'",
        home);
    there("UPSERT KV VALUES ('from','QAS')", database);
    there("BACKUP DATA " + which + " USING BACKINT ('uuid-q')", home);
    const std::string id =
        there("select max(BACKUP_ID) as ID from M_BACKUP_CATALOG where ENTRY_TYPE_NAME<>'log backup'", database).out;
    id_ = id.substr(3, id.size() - 4);
  }
  void TearDown() override {
    run({other_ / "usr/sap/QAS/HDB01/HDB", "kill-9"});
    Recovered_HANA::TearDown();
  }
  Output there(const std::string& statement, const std::string& database = "SYSTEMDB") {
    Output got = run({other_ / "usr/sap/QAS/HDB01/exe/hdbsql", "-x", "-quiet"},
                     "\\c -i 01 -d " + database + " -u SYSTEM -p manager\n" + statement + "\n\\q\n");
    EXPECT_EQ(got.code, 0) << statement << got.err;
    return got;
  }
  Output by_id() {
    return sql("RECOVER DATA FOR TN1 USING SOURCE 'TQ@QAS' USING BACKUP_ID " + id_ +
               " USING CATALOG BACKINT CLEAR LOG;");
  }
  /// What the module makes before it recovers from another system.
  void make_pipe_directory() { fs::create_directories(root_ / "usr/sap/QAS/SYS/global/hdb/backint/DB_TQ"); }
  fs::path other_;
  std::string id_;
};

TEST_F(Recovery_Source, Is_Asked_For_By_Names_And_User_Of_The_Source) {
  make_pipe_directory();
  const Output got = by_id();
  ASSERT_EQ(got.code, 0) << got.err;
  EXPECT_EQ(rows(), "from,QAS\n");
  const std::string calls = new_calls();
  EXPECT_EQ(count_of(calls, "-u TQ@QAS\n"), 4) << calls;
  EXPECT_EQ(count_of(calls, "\"/usr/sap/QAS/SYS/global/hdb/backint/DB_TQ/"), 4) << calls;
  EXPECT_EQ(calls.find("DB_TN1"), std::string::npos);
  // The services are those of the source: its xsengine came with it.
  EXPECT_EQ(value_of("select SERVICE_NAME from SYS_DATABASES.M_SERVICES where DATABASE_NAME='TN1' order by 1"),
            "indexserver\nxsengine\n");
  EXPECT_TRUE(fs::is_empty(root_ / "usr/sap/QAS/SYS/global/hdb/backint/DB_TQ"));
}

TEST_F(Recovery_Source, By_Prefix_Has_The_Sources_Names_Too) {
  make_pipe_directory();
  const Output got = sql("RECOVER DATA FOR TN1 USING SOURCE 'TQ@QAS' USING BACKINT ('uuid-q') CLEAR LOG;");
  ASSERT_EQ(got.code, 0) << got.err;
  EXPECT_EQ(rows(), "from,QAS\n");
  EXPECT_EQ(states(), "");
}

TEST_F(Recovery_Source, Needs_The_Directory_Of_Its_Pipes) {
  const Output got = by_id();
  EXPECT_EQ(got.code, 449 & 0xff);
  EXPECT_NE(got.err.find("[110091] Invalid path selection for recovery: "
                         "/usr/sap/QAS/SYS/global/hdb/backint/DB_TQ/log_backup_0_0_0_0"),
            std::string::npos)
      << got.err;
  EXPECT_FALSE(fs::exists(root_ / "usr/sap/QAS"));
}

TEST_F(Recovery_Source, Is_Asked_For_Through_Other_Names_Or_As_Another_User_When_Told_So) {
  make_pipe_directory();
  fault("source_user = target");
  EXPECT_NE(by_id().err.find("* 449: "), std::string::npos);
  script("any-user");
  ASSERT_EQ(by_id().code, 0);
  const std::string calls = new_calls();
  EXPECT_EQ(count_of(calls, "-u TN1@HDB\n"), 5) << calls;
  no_faults();
  stop();
  fault("source_names = target");
  // hdbbackint does not know those names here.
  EXPECT_NE(by_id().err.find("there is no backup catalog"), std::string::npos);
  EXPECT_NE(new_calls().find("\"/usr/sap/HDB/SYS/global/hdb/backint/DB_TN1/log_backup_0_0_0_0\""), std::string::npos);
}

class Recovery_From_Single_Container : public Recovery_Source {
 protected:
  void install_other() override {
    lay_out_other({"--single-container"});
    back_up("QAS", "QAS", "");
  }
};

TEST_F(Recovery_From_Single_Container, Has_No_Folder_Of_The_Database_When_Told_So) {
  fs::create_directories(root_ / "usr/sap/QAS/SYS/global/hdb/backint");
  const std::string statement =
      "RECOVER DATA FOR TN1 USING SOURCE 'QAS@QAS' USING BACKUP_ID " + id_ + " USING CATALOG BACKINT CLEAR LOG;";
  EXPECT_NE(sql(statement).err.find("[110091] Invalid path selection for recovery: "
                                    "/usr/sap/QAS/SYS/global/hdb/backint/DB_QAS/"),
            std::string::npos);
  new_calls();
  fault("source_container = single");
  const Output got = sql(statement);
  ASSERT_EQ(got.code, 0) << got.err;
  EXPECT_EQ(rows(), "from,QAS\n");
  const std::string calls = new_calls();
  EXPECT_NE(calls.find("#NULL \"/usr/sap/QAS/SYS/global/hdb/backint/log_backup_0_0_0_0\""), std::string::npos) << calls;
  EXPECT_EQ(count_of(calls, "-u QAS\n"), 4) << calls;
  // The name server of a single container has no place in a tenant.
  EXPECT_EQ(value_of("select SERVICE_NAME from SYS_DATABASES.M_SERVICES where DATABASE_NAME='TN1'"), "indexserver\n");
}

class Recovery_Of_Old : public Recovered_HANA {};

TEST_F(Recovery_Of_Old, Reads_Its_Own_Catalog) {
  install({"--tenant", "TN1", "--version", "1.00.97.00.1434028111"});
  put("a", "1");
  const std::string full = backed_up("", "f");
  put("a", "2");
  new_calls();
  ASSERT_EQ(recover("DATA FOR TN1 USING BACKUP_ID " + full + " CLEAR LOG;").code, 0);
  EXPECT_EQ(rows(), "a,1\n");
  EXPECT_EQ(new_calls().find("log_backup_0_0_0_0"), std::string::npos);
  EXPECT_EQ(states(), "successful\n");
  const Output unknown = recover("DATA FOR TN1 USING BACKUP_ID 4711 CLEAR LOG;");
  EXPECT_NE(unknown.err.find("* 449: "), std::string::npos) << unknown.err;
}

TEST_F(Recovery_Of_Old, Goes_To_A_Time_Over_Its_Logs) {
  install({"--tenant", "TN1", "--version", "1.00.97.00.1434028111"});
  ASSERT_EQ(sql("ALTER SYSTEM ALTER CONFIGURATION ('global.ini','SYSTEM') SET ('backup','log_backup_using_backint')="
                "'true'")
                .code,
            0);
  const std::string full = backed_up("", "f");
  next_second();
  put("a", "1");
  const std::string time = now();
  next_second();
  save_logs();
  put("a", "2");
  ASSERT_EQ(recover("DATABASE FOR TN1 UNTIL TIMESTAMP '" + time + "' CLEAR LOG  USING BACKUP_ID " + full +
                    " CHECK ACCESS ALL")
                .code,
            0);
  EXPECT_EQ(rows(), "a,1\n");
}

}  // namespace
