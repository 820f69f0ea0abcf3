#include "standin/recovered_hana.h"
#include "support/scoped_zone.h"

namespace {

namespace fs = std::filesystem;
using namespace standin_test;

class Recovery_Until : public Recovered_HANA {
 protected:
  static std::string until(const std::string& time, const std::string& id, const std::string& end = "") {
    return "DATABASE FOR TN1 UNTIL TIMESTAMP '" + time + "' CLEAR LOG  USING CATALOG BACKINT USING BACKUP_ID " + id +
           " CHECK ACCESS ALL" + end;
  }
  /// A commit with a whole second of its own; the time to recover to when it is wanted.
  std::string committed(const std::string& key, const std::string& value) {
    next_second();
    std::string time = stand_still();
    put(key, value);
    next_second();
    return time;
  }
  /// Objects of a call of hdbbackint, "<mark> <base name>\n" each.
  static std::string asked(const std::string& calls, const std::string& function) {
    std::string all;
    bool wanted = false;
    for (std::size_t at = 0, end = 0; (end = calls.find('\n', at)) != std::string::npos; at = end + 1) {
      const std::string line = calls.substr(at, end - at);
      if (line.starts_with("-f ")) wanted = line.starts_with("-f " + function + " ");
      if (wanted && (line.starts_with("#EBID") || line.starts_with("#NULL")))
        all += line.substr(1, 4) + " " + line.substr(line.rfind('/') + 1, line.size() - line.rfind('/') - 2) + "\n";
    }
    return all;
  }
};

TEST_F(Recovery_Until, Replays_Logs_Up_To_Each_Second_That_Is_Wanted) {
  install_with_logs();
  put("a", "0");
  const std::string full = backed_up("", "f");
  const std::string first = committed("a", "1");
  const std::string second = committed("b", "2");
  save_logs();
  const std::string third = committed("a", "3");
  save_logs();
  const std::string last = now();
  struct Wanted {
    std::string time, rows;
  };
  for (const Wanted& wanted : {Wanted{third, "a,3\nb,2\n"}}) {
    ASSERT_EQ(recover(until(wanted.time, full)).code, 0);
    EXPECT_EQ(rows(), wanted.rows) << wanted.time;
    EXPECT_EQ(reached(), wanted.time);
  }
  // The catalog that recovery was given is the one of that time: earlier ones can be reached from it again.
  for (const Wanted& wanted : {Wanted{second, "a,1\nb,2\n"}, Wanted{first, "a,1\n"}}) {
    const Output got = recover(until(wanted.time, full));
    ASSERT_EQ(got.code, 0) << got.err;
    EXPECT_EQ(rows(), wanted.rows) << wanted.time;
    EXPECT_EQ(reached(), wanted.time);
  }
}

TEST_F(Recovery_Until, Asks_For_The_Catalog_Then_Inquires_For_All_Then_Restores_In_Order) {
  install_with_logs({"--tenant", "TN1"});
  const std::string full = backed_up("", "f");
  committed("a", "1");
  const std::string first = backed_up("INCREMENTAL", "i1");
  committed("a", "2");
  const std::string difference = backed_up("DIFFERENTIAL", "d");
  committed("a", "3");
  const std::string second = backed_up("INCREMENTAL", "i2");
  const std::string time = committed("b", "4");
  save_logs();
  const std::string late = committed("b", "5");
  save_logs();
  new_calls();
  const Output got = recover(until(time, full));
  ASSERT_EQ(got.code, 0) << got.err;
  EXPECT_EQ(rows(), "a,3\nb,4\n");
  const std::string calls = new_calls();
  const std::string d = "EBID d_databackup_differential_" + full + "_" + difference;
  const std::string i = "EBID i2_databackup_incremental_" + difference + "_" + second;
  const std::string data =
      "EBID f_databackup_0_1\nEBID f_databackup_3_1\n" + d + "_0_1\n" + d + "_3_1\n" + i + "_0_1\n" + i + "_3_1\n";
  const std::string inquired = asked(calls, "inquire");
  EXPECT_TRUE(inquired.starts_with(data + "EBID log_backup_3_0_")) << inquired;
  EXPECT_EQ(asked(calls, "restore"), "NULL log_backup_0_0_0_0\n" + inquired);
  EXPECT_EQ(count_of(calls, "-f inquire"), 1);
  EXPECT_LT(calls.find("NULL"), calls.find("-f inquire"));
  EXPECT_LT(calls.find("-f inquire"), calls.find("/f_databackup_0_1"));
  // The log behind the one that holds the time is not asked for.
  EXPECT_EQ(count_of(inquired, "log_backup_3_0_"), 1) << inquired;
}

TEST_F(Recovery_Until, Leaves_Deltas_Out_That_Are_Newer_Or_Not_Wanted) {
  install_with_logs({"--tenant", "TN1"});
  const std::string full = backed_up("", "f");
  const std::string before = committed("a", "1");
  backed_up("INCREMENTAL", "i");
  const std::string after = committed("a", "2");
  save_logs();
  new_calls();
  ASSERT_EQ(recover(until(after, full, " IGNORE DELTA DATA BACKUPS")).code, 0);
  EXPECT_EQ(rows(), "a,2\n");
  EXPECT_EQ(new_calls().find("_incremental_"), std::string::npos);
  ASSERT_EQ(recover(until(before, full)).code, 0);
  EXPECT_EQ(rows(), "a,1\n");
  EXPECT_EQ(new_calls().find("_incremental_"), std::string::npos);
  ASSERT_EQ(recover(until(after, full)).code, 0);
  EXPECT_EQ(rows(), "a,2\n");
  EXPECT_NE(new_calls().find("_incremental_"), std::string::npos);
}

TEST_F(Recovery_Until, Ends_Short_Where_The_Logs_End_And_Tells_So) {
  install_with_logs({"--tenant", "TN1"});
  const std::string full = backed_up();
  committed("a", "1");
  save_logs();
  const std::string saved = now();
  next_second();
  next_second();
  const std::string lost = committed("a", "2");
  ASSERT_EQ(recover(until(lost, full)).code, 0);
  EXPECT_EQ(rows(), "a,1\n");
  EXPECT_LE(reached(), saved);
  EXPECT_NE(reached(), "");
  EXPECT_EQ(states(), "successful\n");
}

TEST_F(Recovery_Until, Ends_Where_The_Shortest_Log_Of_A_Volume_Ends) {
  install_with_logs();
  fault("log_segment_bytes = 1");
  const std::string full = backed_up();
  const std::string time = committed("a", "1");
  ASSERT_TRUE(becomes([&] { return saved_logs() == 1; }));
  ASSERT_EQ(saved_logs("xsengine"), 0);
  ASSERT_EQ(recover(until(time, full)).code, 0);
  EXPECT_EQ(rows(), "");
  EXPECT_LT(reached(), time);
}

TEST_F(Recovery_Until, Is_Refused_When_Something_Is_Missing_Before_Anything_Is_Changed) {
  install_with_logs({"--tenant", "TN1"});
  const std::string full = backed_up("", "f");
  committed("a", "1");
  const std::string delta = backed_up("INCREMENTAL", "i");
  const std::string time = committed("a", "2");
  save_logs();
  for (const char* missing : {"f_databackup_3_1", "i_databackup_incremental", "log_backup_3_0"}) {
    script(std::string("notfound ") + missing);
    const Output got = recover(until(time, full));
    EXPECT_EQ(got.code, 449 & 0xff);
    EXPECT_NE(got.err.find("[110096] the backup /usr/sap/HDB/SYS/global/hdb/backint/DB_TN1/" + std::string(missing)),
              std::string::npos)
        << got.err;
    ASSERT_EQ(sql("ALTER SYSTEM START DATABASE TN1").code, 0) << missing;
    EXPECT_EQ(rows(), "a,2\n");
  }
  script("");
  const Output early = recover(until("2001-01-01 00:00:00", full));
  EXPECT_NE(early.err.find("* 449: recovery strategy could not be determined: [110092] backup " + full + " is newer"),
            std::string::npos)
      << early.err;
  const Output wrong = recover(until(time, delta));
  EXPECT_NE(wrong.err.find("* 449: "), std::string::npos) << wrong.err;
}

TEST_F(Recovery_Until, Counts_A_Commit_Within_The_Wanted_Second_Or_Not_As_Told) {
  install_with_logs({"--tenant", "TN1"});
  const std::string full = backed_up();
  const std::string time = committed("a", "1");
  save_logs();
  fault("recover_until = instant");
  ASSERT_EQ(recover(until(time, full)).code, 0);
  EXPECT_EQ(rows(), "");
  no_faults();
  ASSERT_EQ(recover(until(time, full)).code, 0);
  EXPECT_EQ(rows(), "a,1\n");
}

TEST_F(Recovery_Until, Takes_Its_Time_For_UTC_In_Any_Zone) {
  const support::Scoped_Zone zone("Asia/Kolkata");
  install_with_logs({"--tenant", "TN1"});
  const std::string full = backed_up();
  const std::string first = committed("a", "1");
  committed("a", "2");
  save_logs();
  ASSERT_EQ(recover(until(first, full)).code, 0);
  EXPECT_EQ(rows(), "a,1\n");
  EXPECT_TRUE(reached_text().ends_with("+05:30")) << reached_text();
  EXPECT_EQ(reached(), first);
}

TEST_F(Recovery_Until, Fails_In_The_Middle_Of_The_Logs) {
  install_with_logs({"--tenant", "TN1"});
  const std::string full = backed_up();
  const std::string time = committed("a", "1");
  save_logs();
  for (const char* day : {"error log_backup_3", "corrupt log_backup_3", "short log_backup_3"}) {
    script(day);
    const Output got = recover(until(time, full));
    EXPECT_NE(got.err.find("* 448: recovery could not be completed: "), std::string::npos) << day << got.err;
    EXPECT_EQ(status_of(), "NO");
    EXPECT_NE(sql("ALTER SYSTEM START DATABASE TN1").code, 0) << day;
  }
  script("");
  ASSERT_EQ(recover(until(time, full)).code, 0);
  EXPECT_EQ(rows(), "a,1\n");
}

TEST_F(Recovery_Until, Reads_Statements_Of_Any_Text_From_The_Log) {
  install_with_logs({"--tenant", "TN1"});
  const std::string full = backed_up();
  next_second();
  ASSERT_EQ(run({instance() / "exe/hdbsql", "-i", "00", "-d", "TN1", "-u", "SYSTEM", "-p", "manager",
                 "upsert KV values ('two\nlines', 'back\\slash\\n and \ttab')"})
                .code,
            0);
  ASSERT_EQ(sql("CREATE TABLE ORDERS (ID INTEGER, NAME NVARCHAR(10))", "TN1").code, 0);
  ASSERT_EQ(sql("INSERT INTO ORDERS VALUES (1, 'it''s')", "TN1").code, 0);
  const std::string time = now();
  const std::string before = rows() + sql("select ID, NAME from ORDERS", "TN1").out;
  save_logs();
  ASSERT_EQ(sql("DROP TABLE ORDERS", "TN1").code, 0);
  ASSERT_EQ(sql("DELETE FROM KV", "TN1").code, 0);
  ASSERT_EQ(recover(until(time, full)).code, 0);
  EXPECT_EQ(rows() + sql("select ID, NAME from ORDERS", "TN1").out, before);
  EXPECT_NE(before.find("it's"), std::string::npos);
}

TEST_F(Recovery_Until, Reads_What_Went_Into_Files) {
  install_with_logs({"--tenant", "TN1"});
  ASSERT_EQ(sql("BACKUP DATA FOR TN1 USING FILE ('f')").code, 0);
  const std::string id = value_of(
      "select max(BACKUP_ID) from SYS_DATABASES.M_BACKUP_CATALOG where ENTRY_TYPE_NAME='complete data backup'");
  const std::string full = id.substr(0, id.find('\n'));
  const std::string time = committed("a", "1");
  save_logs();
  ASSERT_EQ(recover(until(time, full)).code, 0);
  EXPECT_EQ(rows(), "a,1\n");
  fs::remove(instance() / "backup/data/DB_TN1/f_databackup_3_1");
  EXPECT_NE(recover(until(time, full)).err.find("* 449: "), std::string::npos);
}

}  // namespace
