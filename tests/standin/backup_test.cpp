#include <sqlite3.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <map>
#include <sstream>
#include <thread>

#include "standin/installed_hana.h"

namespace {

namespace fs = std::filesystem;
using namespace standin_test;

constexpr std::size_t page_bytes = 4096;

/// Pages of a stream by their numbers, read as its description says.
std::map<std::uint64_t, std::string> pages_of(const std::string& stream) {
  std::map<std::uint64_t, std::string> pages;
  for (std::size_t at = page_bytes; at + page_bytes <= stream.size();) {
    std::uint64_t count = 0;
    std::memcpy(&count, stream.data() + at, sizeof count);
    const std::size_t index = at;
    at += page_bytes;
    for (std::uint64_t i = 0; i < count; ++i, at += page_bytes) {
      std::uint64_t number = 0;
      std::memcpy(&number, stream.data() + index + (i + 1) * sizeof number, sizeof number);
      EXPECT_TRUE(pages.emplace(number, stream.substr(at, page_bytes)).second) << number;
    }
  }
  return pages;
}

class Data_Backup : public Installed_HANA {
 protected:
  /// The stream that hdbbackint kept under a destination's name.
  std::string stream(const std::string& name) { return text_of(root_ / "pool" / id_of(name)); }
  std::string id_of(const std::string& name) {
    const std::string id = value_of(
        "select EXTERNAL_BACKUP_ID from SYS_DATABASES.M_BACKUP_CATALOG_FILES where "
        "DESTINATION_PATH like '%/" +
        name + "'");
    return id.substr(0, id.find('\n'));
  }
  std::string streams_of(const std::string& prefix) {
    return value_of("select count(*) from SYS_DATABASES.M_BACKUP_CATALOG_FILES where DESTINATION_PATH like '%/" +
                    prefix + "_%'");
  }
  std::string newest_id() {
    const std::string id = value_of(
        "select max(BACKUP_ID) from SYS_DATABASES.M_BACKUP_CATALOG where ENTRY_TYPE_NAME <> 'log "
        "backup'");
    return id.substr(0, id.find('\n'));
  }
  Output backup(const std::string& kind, const std::string& prefix) {
    return sql("BACKUP DATA " + kind + " FOR TN1 USING BACKINT ('" + prefix + "')");
  }
};

TEST_F(Data_Backup, Goes_Into_Files) {
  install({"--tenant", "TN1"});
  ASSERT_EQ(sql("BACKUP DATA FOR TN1 USING FILE ('f')").code, 0);
  const fs::path folder = instance() / "backup/data/DB_TN1";
  EXPECT_EQ(fs::file_size(folder / "f_databackup_0_1"), page_bytes);
  EXPECT_GT(pages_of(text_of(folder / "f_databackup_3_1")).size(), 256U);
  EXPECT_EQ(value_of("select count(*) from SYS_DATABASES.M_BACKUP_CATALOG_FILES where DESTINATION_TYPE_NAME='file' and "
                     "EXTERNAL_BACKUP_ID is null"),
            "3\n");
  EXPECT_FALSE(fs::exists(root_ / "backint.calls"));
  const Output elsewhere = sql("BACKUP DATA USING FILE ('/backup/else/f')");
  EXPECT_EQ(elsewhere.code, 0) << elsewhere.err;
  EXPECT_TRUE(fs::exists(root_ / "backup/else/f_databackup_1_1"));
}

TEST_F(Data_Backup, Takes_Differences_Against_The_Full_One_And_Increments_Against_The_Last) {
  install({"--tenant", "TN1"});
  ASSERT_EQ(control({"change", "--database", "TN1", "--mb", "1"}).code, 0);
  ASSERT_EQ(backup("", "full").code, 0);
  const std::string full = newest_id();
  ASSERT_EQ(control({"change", "--database", "TN1", "--mb", "1"}).out,
            "changed 256 pages of indexserver in TN1 from page 256\n");
  ASSERT_EQ(backup("INCREMENTAL", "i1").code, 0);
  const std::string first = newest_id();
  ASSERT_EQ(control({"change", "--database", "TN1", "--mb", "1"}).code, 0);
  ASSERT_EQ(backup("DIFFERENTIAL", "d").code, 0);
  const std::string difference = newest_id();
  ASSERT_EQ(backup("INCREMENTAL", "i2").code, 0);
  const std::string last = newest_id();
  EXPECT_EQ(count_of(text_of(root_ / "backint.calls"), "-l DIFFERENTIAL"), 1);
  const auto whole = pages_of(stream("full_databackup_3_1"));
  const auto i1 = pages_of(stream("i1_databackup_incremental_" + full + "_" + first + "_3_1"));
  const auto d = pages_of(stream("d_databackup_differential_" + full + "_" + difference + "_3_1"));
  const auto i2 = pages_of(stream("i2_databackup_incremental_" + difference + "_" + last + "_3_1"));
  EXPECT_EQ(i1.size(), 256U);
  EXPECT_EQ(d.size(), 512U);  // 2 MB are all that the tenant has: the change went round to its first page
  EXPECT_EQ(i2.size(), 0U);
  for (const auto& [number, page] : i1) {
    ASSERT_TRUE(whole.contains(number));
    EXPECT_NE(whole.at(number), page);
    EXPECT_EQ(d.at(number), page);
  }
  for (const auto& [number, page] : d) EXPECT_NE(whole.at(number), page);
}

TEST_F(Data_Backup, Puts_The_Same_Pages_Together_From_A_Chain_As_A_Full_One_Holds) {
  install({"--tenant", "TN1"});
  ASSERT_EQ(backup("", "a").code, 0);
  const std::string full = newest_id();
  ASSERT_EQ(sql("UPSERT KV VALUES ('k','v')", "TN1").code, 0);
  for (const char* megabytes : {"1", "1", "5"})
    ASSERT_EQ(control({"change", "--database", "TN1", "--mb", megabytes}).code, 0);
  ASSERT_EQ(backup("DIFFERENTIAL", "b").code, 0);
  const std::string difference = newest_id();
  ASSERT_EQ(backup("", "c").code, 0);
  auto merged = pages_of(stream("a_databackup_3_1"));
  for (const auto& [number, page] : pages_of(stream("b_databackup_differential_" + full + "_" + difference + "_3_1")))
    merged[number] = page;
  EXPECT_TRUE(merged == pages_of(stream("c_databackup_3_1")));
}

TEST_F(Data_Backup, Refuses_To_Change_What_Is_Not_There) {
  install({"--tenant", "TN1", "--data-mb", "0"});
  EXPECT_EQ(control({"change", "--database", "TN1", "--mb", "1"}).code, 1);
  EXPECT_EQ(control({"change", "--database", "NONE", "--mb", "1"}).code, 1);
  EXPECT_EQ(control({"change", "--database", "TN1", "--mb", "x"}).code, 1);
  EXPECT_EQ(control({"change", "--database", "TN1", "--service", "xsengine", "--mb", "1"}).code, 1);
}

TEST_F(Data_Backup, Goes_Through_As_Many_Channels_As_Configured) {
  install({"--tenant", "TN1", "--data-mb", "8"});
  const std::string set = "ALTER SYSTEM ALTER CONFIGURATION ('global.ini','";
  const std::string channels = "('backup','parallel_data_backup_backint_channels')";
  ASSERT_EQ(sql(set + "SYSTEM') SET " + channels + " = '4' WITH RECONFIGURE").code, 0);
  ASSERT_EQ(backup("", "four").code, 0);
  EXPECT_EQ(streams_of("four"), "5\n");
  EXPECT_NE(text_of(root_ / "backint.calls").find("-c 5 -l COMPLETE"), std::string::npos);
  ASSERT_EQ(sql(set + "DATABASE','TN1') SET " + channels + " = '2' WITH RECONFIGURE").code, 0);
  ASSERT_EQ(backup("", "two").code, 0);
  EXPECT_EQ(streams_of("two"), "3\n");
  std::map<std::uint64_t, std::string> four, two;
  for (const char* part : {"1", "2", "3", "4"}) four.merge(pages_of(stream(std::string("four_databackup_3_") + part)));
  for (const char* part : {"1", "2"}) two.merge(pages_of(stream(std::string("two_databackup_3_") + part)));
  std::erase_if(four, [](const auto& page) { return page.first < (1ULL << 40); });
  std::erase_if(two, [](const auto& page) { return page.first < (1ULL << 40); });
  EXPECT_EQ(four.size(), 4U * 256);
  EXPECT_TRUE(four == two);
}

TEST_F(Data_Backup, Runs_While_A_Transaction_Is_Open) {
  install({"--tenant", "TN1"});
  fault("hang_statement = 0 | match=DUMMY");
  Output writer;
  std::thread worker([&] {
    writer =
        run({instance() / "exe/hdbsql", "-x", "-quiet", "-z", "-i", "00", "-d", "TN1", "-u", "SYSTEM", "-p", "manager"},
            "UPSERT KV VALUES ('k','late')\nselect TO_VARCHAR(1) as A from DUMMY\nCOMMIT\n");
  });
  EXPECT_TRUE(meets("hang_statement = 0 | match=DUMMY"));
  EXPECT_EQ(backup("", "x").code, 0);
  EXPECT_EQ(sql("select count(*) as N from KV", "TN1").out, "N\n0\n");
  no_faults();
  worker.join();
  EXPECT_EQ(writer.out, "A\n\"1\"\n") << writer.err;
  EXPECT_EQ(stream("x_databackup_3_1").find("late"), std::string::npos);
  EXPECT_EQ(sql("select V from KV", "TN1").out, "V\n\"late\"\n");
}

TEST_F(Data_Backup, Waits_For_No_Transaction_On_The_Table_That_Another_Just_Made) {
  install({"--tenant", "TN1"});
  ASSERT_EQ(sql("alter system stop database TN1").code, 0);
  const fs::path tables = instance() / "standin/data/TN1.db";
  fs::remove(tables);
  ASSERT_EQ(sql("alter system start database TN1").code, 0);
  sqlite3* other = nullptr;
  ASSERT_EQ(sqlite3_open(tables.c_str(), &other), SQLITE_OK);
  // The backup looks at the file meanwhile.
  constexpr int limit_ms = 60000;
  sqlite3_busy_timeout(other, limit_ms);
  ASSERT_EQ(sqlite3_exec(other, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr), SQLITE_OK);
  Output got;
  std::thread worker([&] { got = backup("", "x"); });
  running_backup();
  EXPECT_EQ(sqlite3_exec(other,
                         "CREATE TABLE KV(K TEXT PRIMARY KEY, V TEXT); COMMIT; BEGIN IMMEDIATE; INSERT INTO KV "
                         "VALUES('k','late')",
                         nullptr, nullptr, nullptr),
            SQLITE_OK);
  worker.join();
  EXPECT_EQ(got.code, 0) << got.err;
  sqlite3_close(other);
  EXPECT_EQ(stream("x_databackup_3_1").find("late"), std::string::npos);
}

TEST_F(Data_Backup, Calls_Hdbbackint_By_Documented_Paths_However_It_Is_Linked) {
  install({"--tenant", "TN1", "--data-mb", "1"});
  const fs::path program = root_ / "opt/tarvex/dorsal3/bin/hdbbackint";
  fs::create_symlink(root_, root_.string() + ".alias");
  fs::create_symlink("hdbbackint", program.parent_path() / "other");
  const std::string targets[] = {"/opt/tarvex/dorsal3/bin/hdbbackint", program.string(),
                                 "/opt/tarvex/dorsal3/bin/other",
                                 root_.string() + ".alias/opt/tarvex/dorsal3/bin/hdbbackint",
                                 "../../../../../../../opt/tarvex/dorsal3/bin/hdbbackint"};
  for (const std::string& target : targets) {
    fs::remove(backint_link());
    fs::create_symlink(target, backint_link());
    fs::remove(root_ / "backint.calls");
    const Output got = backup("", "x");
    EXPECT_EQ(got.code, 0) << target << "\n" << got.err;
    const std::string calls = text_of(root_ / "backint.calls");
    EXPECT_EQ(calls.find(root_.string()), std::string::npos) << calls;
    EXPECT_NE(calls.find(" -i /var/tmp/hdbbackint_HDB."), std::string::npos) << calls;
    EXPECT_NE(calls.find(" -o /var/tmp/hdbbackint_HDB."), std::string::npos) << calls;
    EXPECT_NE(calls.find("#PIPE \"/usr/sap/HDB/SYS/global/hdb/backint/DB_TN1/x_databackup_0_1\""), std::string::npos)
        << calls;
  }
  fs::remove(root_.string() + ".alias");
  EXPECT_TRUE(fs::is_empty(root_ / "var/tmp"));
  EXPECT_TRUE(fs::is_empty(root_ / "usr/sap/HDB/SYS/global/hdb/backint/DB_TN1"));
}

TEST_F(Data_Backup, Takes_Differences_Against_The_Newest_Good_One_Of_Any_Destination) {
  install({"--tenant", "TN1"});
  const auto named = [&](const std::string& text) {
    return value_of("select count(*) from SYS_DATABASES.M_BACKUP_CATALOG_FILES where DESTINATION_PATH like '%" + text +
                    "%'") != "0\n";
  };
  ASSERT_EQ(backup("", "pipe").code, 0);
  ASSERT_EQ(sql("BACKUP DATA FOR TN1 USING FILE ('disk')").code, 0);
  const std::string disk = newest_id();
  script("exit 1");
  ASSERT_NE(backup("", "bad").code, 0);
  script("");
  ASSERT_EQ(backup("DIFFERENTIAL", "d").code, 0);
  const std::string difference = newest_id();
  EXPECT_TRUE(named("/d_databackup_differential_" + disk + "_"));
  ASSERT_EQ(sql("BACKUP DATA INCREMENTAL FOR TN1 USING FILE ('i1')").code, 0);
  const std::string increment = newest_id();
  EXPECT_TRUE(named("/i1_databackup_incremental_" + difference + "_"));
  script("exit 1");
  ASSERT_NE(backup("INCREMENTAL", "bad").code, 0);
  script("");
  ASSERT_EQ(backup("INCREMENTAL", "i2").code, 0);
  EXPECT_TRUE(named("/i2_databackup_incremental_" + increment + "_"));
  ASSERT_EQ(backup("DIFFERENTIAL", "d2").code, 0);
  EXPECT_TRUE(named("/d2_databackup_differential_" + disk + "_"));
}

TEST_F(Data_Backup, Tells_Of_A_Cancel_Where_The_Fault_Says) {
  install({"--tenant", "TN1", "--data-mb", "2"});
  fault("stream_bytes_per_second = 262144");
  fault("cancel_text_on = stdout");
  Output done;
  std::thread worker([&] { done = backup("", "x"); });
  EXPECT_EQ(sql("BACKUP CANCEL FOR TN1 " + running_backup()).code, 0);
  worker.join();
  EXPECT_EQ(done.code, 447 & 0xff);
  EXPECT_EQ(done.out, "* 447: backup could not be completed: Backup was canceled by user SQLSTATE: HY000\n");
}

TEST_F(Data_Backup, Is_Refused_While_Another_Runs) {
  install({"--tenant", "TN1"});
  fault("stream_bytes_per_second = 1048576");
  ASSERT_EQ(sql("BACKUP DATA FOR TN1 USING BACKINT ('x') TOOLOPTION 'a \"b\"' ASYNCHRONOUS").code, 0);
  EXPECT_NE(backup("", "y").err.find("another data backup of the database is running"), std::string::npos);
  EXPECT_EQ(sql("BACKUP DATA USING BACKINT ('z')").code, 0);
  EXPECT_EQ(hdb("stop").code, 0);
  EXPECT_NE(text_of(root_ / "backint.calls").find("#TOOLOPTION \"a \\\"b\\\"\"\n"), std::string::npos);
}

}  // namespace
