#include <thread>

#include "standin/recovered_hana.h"

namespace {

namespace fs = std::filesystem;
using namespace standin_test;

class Recovery : public Recovered_HANA {
 protected:
  static std::string by_id(const std::string& id) {
    return "DATA FOR TN1 USING BACKUP_ID " + id + " USING CATALOG BACKINT CLEAR LOG;";
  }
  /// The content of a data backup: what it writes into its pipes, without the header pages, which tell of the backup.
  std::string content_of(const std::string& id) {
    std::string all;
    const std::string ids = value_of(
        "select EXTERNAL_BACKUP_ID from SYS_DATABASES.M_BACKUP_CATALOG_FILES where DATABASE_NAME='TN1' and BACKUP_ID=" +
        id + " order by DESTINATION_PATH");
    for (std::size_t at = 0, end = 0; (end = ids.find('\n', at)) != std::string::npos; at = end + 1) {
      const std::string stream = text_of(root_ / "pool" / ids.substr(at, end - at));
      EXPECT_GE(stream.size(), 4096U);
      all += stream.substr(4096);
    }
    return all;
  }
};

TEST_F(Recovery, Puts_Rows_Tables_And_Ballast_Back_As_The_Full_Backup_Has_Them) {
  install({"--tenant", "TN1", "--services", "indexserver,xsengine", "--data-mb", "8"});
  ASSERT_EQ(
      sql("ALTER SYSTEM ALTER CONFIGURATION ('global.ini','SYSTEM') SET "
          "('backup','catalog_backup_using_backint')='true', ('backup','parallel_data_backup_backint_channels')='3'")
          .code,
      0);
  put("a", "1");
  ASSERT_EQ(sql("CREATE TABLE GOODS (NAME NVARCHAR(20), AMOUNT INTEGER)", "TN1").code, 0);
  ASSERT_EQ(sql("INSERT INTO GOODS VALUES ('apple', 3)", "TN1").code, 0);
  for (const char* service : {"indexserver", "xsengine"})
    ASSERT_EQ(control({"change", "--database", "TN1", "--service", service, "--mb", "1"}).code, 0);
  const std::string full = backed_up("", "f");
  const std::string saved = content_of(full);
  put("a", "2");
  put("b", "2");
  ASSERT_EQ(sql("DROP TABLE GOODS", "TN1").code, 0);
  ASSERT_EQ(control({"change", "--database", "TN1", "--mb", "2"}).code, 0);
  new_calls();
  const Output got = recover(by_id(full));
  ASSERT_EQ(got.code, 0) << got.err;
  EXPECT_EQ(status_of(), "YES");
  EXPECT_EQ(rows(), "a,1\n");
  EXPECT_EQ(sql("select NAME, AMOUNT from GOODS", "TN1").out, "NAME,AMOUNT\n\"apple\",3\n");
  const std::string calls = new_calls();
  EXPECT_LT(calls.find("#NULL \"/usr/sap/HDB/SYS/global/hdb/backint/DB_TN1/log_backup_0_0_0_0\"\n"),
            calls.find("/f_databackup_0_1\"\n"));
  EXPECT_LT(calls.find("/f_databackup_0_1\"\n"), calls.find("/f_databackup_3_1\"\n"));
  EXPECT_EQ(count_of(calls, "#NULL "), 1) << calls;
  EXPECT_EQ(count_of(calls, "#EBID "), 7) << calls;  // volume 0, and three parts of two services
  EXPECT_EQ(count_of(calls, "-f restore "), 4) << calls;
  EXPECT_EQ(count_of(calls, "-u TN1@HDB\n"), 4) << calls;
  EXPECT_EQ(calls.find(" -s "), std::string::npos) << calls;
  EXPECT_TRUE(content_of(backed_up("", "again")) == saved);
}

TEST_F(Recovery, Tells_Of_Itself_In_Backup_Log) {
  install({"--tenant", "TN1"});
  ASSERT_EQ(sql("ALTER SYSTEM ALTER CONFIGURATION ('global.ini','SYSTEM') SET "
                "('backup','catalog_backup_using_backint')='true'")
                .code,
            0);
  const std::string full = backed_up();
  ASSERT_EQ(recover(by_id(full)).code, 0);
  const std::string log = backup_log();
  EXPECT_EQ(count_of(log, "INFO    RECOVERY RECOVER DATA started\n"), 1) << log;
  EXPECT_EQ(count_of(log, "INFO    RECOVERY command: RECOVER " + by_id(full) + "\n"), 1) << log;
  EXPECT_TRUE(log.ends_with("INFO    RECOVERY RECOVER DATA finished successfully\n")) << log;
  EXPECT_NE(log.find("volume: 3, RecoveryPrepared"), std::string::npos) << log;
}

TEST_F(Recovery, Ends_With_A_Started_Tenant_Whose_Start_Is_Refused) {
  install({"--tenant", "TN1"});
  ASSERT_EQ(sql("ALTER SYSTEM ALTER CONFIGURATION ('global.ini','SYSTEM') SET "
                "('backup','catalog_backup_using_backint')='true'")
                .code,
            0);
  const std::string full = backed_up();
  ASSERT_EQ(recover(by_id(full)).code, 0);
  EXPECT_NE(sql("ALTER SYSTEM START DATABASE TN1").err.find("database TN1 is already running"), std::string::npos);
  fault("recovery_starts_tenant = no");
  ASSERT_EQ(recover(by_id(full)).code, 0);
  EXPECT_EQ(status_of(), "NO");
  EXPECT_EQ(sql("ALTER SYSTEM START DATABASE TN1").code, 0);
}

}  // namespace
