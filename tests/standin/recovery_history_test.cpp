#include "standin/recovered_hana.h"

namespace {

using namespace standin_test;

/// What a recovered database's backups and logs are like afterwards.
class Recovery_History : public Recovered_HANA {
 protected:
  static std::string by_id(const std::string& id, const std::string& database = "TN1") {
    return "DATA FOR " + database + " USING BACKUP_ID " + id + " USING CATALOG BACKINT CLEAR LOG;";
  }
  static std::string until(const std::string& time, const std::string& id) {
    return "DATABASE FOR TN1 UNTIL TIMESTAMP '" + time + "' CLEAR LOG  USING CATALOG BACKINT USING BACKUP_ID " + id +
           " CHECK ACCESS ALL";
  }
  /// "first,last\n" of the log backups of the service with the statements, as they were written.
  std::string positions() {
    return value_of(
        "select FIRST_REDO_LOG_POSITION, LAST_REDO_LOG_POSITION from SYS_DATABASES.M_BACKUP_CATALOG_FILES where "
        "FIRST_REDO_LOG_POSITION is not null and SERVICE_TYPE_NAME='indexserver' order by BACKUP_ID");
  }
  void commit(const std::string& key) {
    next_second();
    put(key, "v");
    next_second();
  }
  /// The id under which hdbbackint has the newest catalog.
  std::string newest_catalog() {
    const std::string id = value_of(
        "select EXTERNAL_BACKUP_ID from SYS_DATABASES.M_BACKUP_CATALOG_FILES where SOURCE_TYPE_NAME='catalog' and "
        "DATABASE_NAME='TN1' order by BACKUP_ID desc limit 1");
    return id.substr(0, id.find('\n'));
  }
};

TEST_F(Recovery_History, Is_The_Catalog_That_Hdbbackint_Gave) {
  install_with_logs({"--tenant", "TN1"});
  const std::string full = backed_up("", "f");
  const std::string catalog = newest_catalog();
  commit("a");
  backed_up("INCREMENTAL", "i");
  save_logs();
  backed_up("", "later");
  EXPECT_EQ(states(), "successful\nsuccessful\nsuccessful\n");
  script("catalog " + catalog);
  ASSERT_EQ(recover(by_id(full)).code, 0);
  EXPECT_EQ(states(), "successful\n");
  EXPECT_EQ(positions(), "");
  EXPECT_EQ(value_of("select distinct BACKUP_ID from SYS_DATABASES.M_BACKUP_CATALOG where ENTRY_TYPE_NAME <> 'log "
                     "backup'"),
            full + "\n");
}

TEST_F(Recovery_History, Has_Positions_That_Overlap_Those_Of_The_Branch_That_Was_Left) {
  install_with_logs({"--tenant", "TN1"});
  const std::string full = backed_up();
  commit("a");
  const std::string wanted = now();
  commit("b");
  commit("c");
  save_logs();
  const std::string left = positions();
  EXPECT_TRUE(left.starts_with("0,")) << left;
  ASSERT_EQ(recover(until(wanted, full)).code, 0);
  EXPECT_EQ(rows(), "a,v\n");
  commit("d");
  const std::string there = now();
  save_logs();
  const std::string both = positions();
  EXPECT_TRUE(both.starts_with(left + "1,")) << both;
  // What was before the recovery can be reached, what came after it cannot be from the old full backup.
  EXPECT_NE(recover(until(there, full))
                .err.find("* 449: recovery strategy could not be determined: [110094] the log of "
                          "volume 3 overlaps"),
            std::string::npos);
  ASSERT_EQ(recover(until(wanted, full)).code, 0);
  EXPECT_EQ(rows(), "a,v\n");
}

TEST_F(Recovery_History, Goes_On_From_A_New_Full_Backup) {
  install_with_logs({"--tenant", "TN1"});
  const std::string full = backed_up();
  commit("a");
  const std::string wanted = now();
  commit("b");
  save_logs();
  ASSERT_EQ(recover(until(wanted, full)).code, 0);
  for (const char* kind : {"INCREMENTAL", "DIFFERENTIAL"}) {
    const Output got = backup(kind, "delta");
    EXPECT_NE(got.err.find("there is no full data backup"), std::string::npos) << kind << got.err;
  }
  commit("c");
  const std::string next = backed_up("", "next");
  commit("d");
  backed_up("INCREMENTAL", "delta");
  commit("e");
  const std::string there = now();
  save_logs();
  ASSERT_EQ(recover(until(there, next)).code, 0);
  EXPECT_EQ(rows(), "a,v\nc,v\nd,v\ne,v\n");
}

TEST_F(Recovery_History, Has_A_Gap_When_A_Log_Backup_Is_Lost) {
  install_with_logs({"--tenant", "TN1"});
  const std::string full = backed_up();
  commit("a");
  const std::string before = now();
  save_logs();
  commit("b");
  save_logs();
  commit("c");
  const std::string wanted = now();
  save_logs();
  const std::string lost = value_of(
      "select BACKUP_ID from SYS_DATABASES.M_BACKUP_CATALOG_FILES where FIRST_REDO_LOG_POSITION is not null order by "
      "BACKUP_ID limit 1 offset 1");
  ASSERT_EQ(control({"forget", "TN1", lost.substr(0, lost.find('\n'))}).code, 0);
  EXPECT_NE(control({"forget", "TN1", "4711"}).code, 0);
  backed_up("", "for-its-catalog");
  EXPECT_NE(recover(until(wanted, full)).err.find("[110093] the log of volume 3 has a gap"), std::string::npos);
  ASSERT_EQ(recover(until(before, full)).code, 0);
}

TEST_F(Recovery_History, Of_A_Copy_Begins_Anew) {
  install_with_logs({"--tenant", "TN1", "--tenant", "TN2"});
  put("a", "1");
  const std::string full = backed_up("", "f");
  put("x", "of TN2", "TN2");
  backed_up("", "own", "TN2");
  stop("TN2");
  const Output got =
      sql("RECOVER DATA FOR TN2 USING SOURCE 'TN1@HDB' USING BACKUP_ID " + full + " USING CATALOG BACKINT CLEAR LOG;");
  ASSERT_EQ(got.code, 0) << got.err;
  EXPECT_EQ(rows("TN2"), "a,1\n");
  EXPECT_EQ(states("TN2"), "");
  EXPECT_EQ(states("TN1"), "successful\n");
  EXPECT_NE(backup("INCREMENTAL", "i", "TN2").code, 0);
  const std::string own = backed_up("", "anew", "TN2");
  put("b", "2", "TN2");
  stop("TN2");
  ASSERT_EQ(sql("RECOVER " + by_id(own, "TN2")).code, 0);
  EXPECT_EQ(rows("TN2"), "a,1\n");
}

TEST_F(Recovery_History, Of_A_Copy_Can_Begin_In_A_Database_That_Was_Just_Created) {
  install_with_catalogs();
  put("a", "1");
  const std::string full = backed_up("", "f");
  for (const char* wrong : {"CREATE DATABASE TN2", "CREATE DATABASE TN1 SYSTEM USER PASSWORD Secret1",
                            "CREATE DATABASE TN2 SYSTEM USER PASSWORD Secret1 NOW"})
    EXPECT_NE(sql(wrong).code, 0) << wrong;
  EXPECT_EQ(sql("CREATE DATABASE TN9 SYSTEM USER PASSWORD Secret1", "TN1").code, 7);
  ASSERT_EQ(sql("create database TN2 system user password Secret1 no start").code, 0);
  EXPECT_EQ(status_of("TN2"), "NO");
  ASSERT_EQ(
      sql("RECOVER DATA FOR TN2 USING SOURCE 'TN1@HDB' USING BACKUP_ID " + full + " USING CATALOG BACKINT CLEAR LOG;")
          .code,
      0);
  EXPECT_EQ(sql("select V from KV", "TN2", "Secret1").out, "V\n\"1\"\n");
  ASSERT_EQ(sql("CREATE DATABASE TN3 SYSTEM USER PASSWORD \"Se cret\"").code, 0);
  EXPECT_EQ(status_of("TN3"), "YES");
}

}  // namespace
