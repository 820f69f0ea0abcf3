#include "standin/recovered_hana.h"

namespace {

using namespace standin_test;

class Recovery_Statement : public Recovered_HANA {
 protected:
  /// What becomes of "RECOVER " with the rest when there is no such tenant: a good form gets as far as that.
  Output refused(const std::string& rest) { return sql("RECOVER " + rest); }
};

struct Form {
  const char *name, *rest;
};

TEST_F(Recovery_Statement, Knows_The_Forms_Of_Full_Recoveries_And_Recoveries_To_A_Time) {
  install({"--tenant", "TN1"});
  constexpr Form forms[] = {
      {"by id", "DATA FOR NONE USING BACKUP_ID 4711 USING CATALOG BACKINT CLEAR LOG;"},
      {"by id, own catalog", "DATA FOR NONE USING BACKUP_ID 4711 CLEAR LOG"},
      {"by id, zero", "DATA FOR NONE USING BACKUP_ID 0 USING CATALOG BACKINT CLEAR LOG;"},
      {"by id, source", "DATA FOR NONE USING SOURCE 'T1@PRD' USING BACKUP_ID 1 USING CATALOG BACKINT CLEAR LOG;"},
      {"by prefix", "DATA FOR NONE USING BACKINT ('c0ffee') CLEAR LOG;"},
      {"by prefix, source", "DATA FOR NONE USING SOURCE 'T1@PRD' USING BACKINT ('c0ffee') CLEAR LOG;"},
      {"until",
       "DATABASE FOR NONE UNTIL TIMESTAMP '2024-05-01 10:00:00' CLEAR LOG  USING CATALOG BACKINT USING BACKUP_ID "
       "4711 CHECK ACCESS ALL"},
      {"until, source",
       "DATABASE FOR NONE UNTIL TIMESTAMP '2024-05-01 10:00:00' CLEAR LOG USING SOURCE 'T1@PRD'  USING "
       "CATALOG BACKINT USING BACKUP_ID 4711 CHECK ACCESS ALL"},
      {"until, own catalog",
       "DATABASE FOR NONE UNTIL TIMESTAMP '2024-05-01 10:00:00' CLEAR LOG  USING BACKUP_ID 4711 "
       "CHECK ACCESS ALL"},
      {"until, no deltas",
       "DATABASE FOR NONE UNTIL TIMESTAMP '2024-05-01 10:00:00' CLEAR LOG  USING CATALOG BACKINT "
       "USING BACKUP_ID 4711 CHECK ACCESS ALL IGNORE DELTA DATA BACKUPS"},
      {"blanks and small letters", "data   for NONE\tusing backup_id 4711   using catalog backint clear log  ;  "},
  };
  for (const Form& form : forms) {
    const Output got = refused(form.rest);
    EXPECT_NE(got.err.find("* 332: invalid database name: NONE"), std::string::npos) << form.name << "\n" << got.err;
  }
}

TEST_F(Recovery_Statement, Refuses_All_Other_Forms_With_A_Syntax_Error) {
  install({"--tenant", "TN1"});
  constexpr Form forms[] = {
      {"no kind", "FOR NONE USING BACKUP_ID 1 CLEAR LOG"},
      {"log is kept", "DATA FOR NONE USING BACKUP_ID 1 USING CATALOG BACKINT"},
      {"clear log first", "DATA FOR NONE CLEAR LOG USING BACKUP_ID 1"},
      {"file", "DATA FOR NONE USING FILE ('x') CLEAR LOG"},
      {"snapshot", "DATA FOR NONE USING SNAPSHOT CLEAR LOG"},
      {"data path", "DATA FOR NONE USING BACKUP_ID 1 USING CATALOG BACKINT USING DATA PATH ('/x') CLEAR LOG"},
      {"catalog path", "DATA FOR NONE USING BACKUP_ID 1 USING CATALOG PATH ('/x') CLEAR LOG"},
      {"catalog with a prefix", "DATA FOR NONE USING BACKINT ('x') USING CATALOG BACKINT CLEAR LOG"},
      {"id is no number", "DATA FOR NONE USING BACKUP_ID 'x' CLEAR LOG"},
      {"source without a system", "DATA FOR NONE USING SOURCE 'T1' USING BACKUP_ID 1 CLEAR LOG"},
      {"source without a database", "DATA FOR NONE USING SOURCE '@PRD' USING BACKUP_ID 1 CLEAR LOG"},
      {"source without quotes", "DATA FOR NONE USING SOURCE T1@PRD USING BACKUP_ID 1 CLEAR LOG"},
      {"no access check", "DATABASE FOR NONE UNTIL TIMESTAMP '2024-05-01 10:00:00' CLEAR LOG USING BACKUP_ID 1"},
      {"other access check",
       "DATABASE FOR NONE UNTIL TIMESTAMP '2024-05-01 10:00:00' CLEAR LOG USING BACKUP_ID 1 CHECK "
       "ACCESS USING BACKINT"},
      {"clear log at the end",
       "DATABASE FOR NONE UNTIL TIMESTAMP '2024-05-01 10:00:00' USING BACKUP_ID 1 CHECK ACCESS "
       "ALL CLEAR LOG"},
      {"catalog behind the id",
       "DATABASE FOR NONE UNTIL TIMESTAMP '2024-05-01 10:00:00' CLEAR LOG USING BACKUP_ID 1 "
       "USING CATALOG BACKINT CHECK ACCESS ALL"},
      {"until a position", "DATABASE FOR NONE UNTIL LOG POSITION 7 CLEAR LOG USING BACKUP_ID 1 CHECK ACCESS ALL"},
      {"something behind it", "DATA FOR NONE USING BACKUP_ID 1 CLEAR LOG; DROP TABLE KV"},
      {"half a clause",
       "DATABASE FOR NONE UNTIL TIMESTAMP '2024-05-01 10:00:00' CLEAR LOG USING BACKUP_ID 1 CHECK "
       "ACCESS ALL IGNORE DELTA"},
  };
  for (const Form& form : forms) {
    const Output got = refused(form.rest);
    EXPECT_NE(got.err.find("* 257: sql syntax error: incorrect syntax near"), std::string::npos) << form.name << "\n"
                                                                                                 << got.err << got.out;
  }
  for (const char* time : {"2024-02-30 10:00:00", "2024-05-01", "2024-05-01 10:00", "2024-5-1 10:00:00", "tomorrow",
                           "2024-05-01 10:00:00.5"}) {
    const Output got = refused(std::string("DATABASE FOR NONE UNTIL TIMESTAMP '") + time +
                               "' CLEAR LOG USING BACKUP_ID 1 CHECK ACCESS ALL");
    EXPECT_NE(got.err.find("* 303: invalid DATE, TIME or TIMESTAMP value"), std::string::npos) << time << got.err;
  }
}

TEST_F(Recovery_Statement, Has_No_Clause_For_The_Catalog_Before_There_Were_Deltas) {
  install({"--tenant", "TN1", "--version", "1.00.97.00.1434028111"});
  EXPECT_NE(refused("DATA FOR NONE USING BACKUP_ID 1 USING CATALOG BACKINT CLEAR LOG;").err.find("* 257:"),
            std::string::npos);
  EXPECT_NE(refused("DATA FOR NONE USING BACKUP_ID 1 CLEAR LOG;").err.find("* 332:"), std::string::npos);
}

TEST_F(Recovery_Statement, Names_The_Database_Alone_As_A_Single_Containers_Source) {
  install({"--single-container"});
  const auto answer = [&](const std::string& source) {
    return sql("RECOVER DATA USING SOURCE '" + source + "' USING BACKUP_ID 1 USING CATALOG BACKINT CLEAR LOG;", "HDB")
        .err;
  };
  EXPECT_NE(answer("PRD").find("* 7: feature not supported"), std::string::npos) << answer("PRD");
  EXPECT_NE(answer("PRD@PRD").find("* 257:"), std::string::npos) << answer("PRD@PRD");
}

TEST_F(Recovery_Statement, Is_For_Stopped_Tenants_In_The_System_Database) {
  install({"--tenant", "TN1"});
  const std::string by_id = "DATA FOR TN1 USING BACKUP_ID 1 USING CATALOG BACKINT CLEAR LOG;";
  EXPECT_NE(refused(by_id).err.find("* 448: recovery could not be completed: database TN1 is not stopped"),
            std::string::npos);
  EXPECT_NE(sql("RECOVER " + by_id, "TN1").err.find("* 7: feature not supported"), std::string::npos);
  EXPECT_NE(refused("DATA USING BACKUP_ID 1 CLEAR LOG").err.find("* 7: feature not supported"), std::string::npos);
  EXPECT_NE(refused("DATA FOR SYSTEMDB USING BACKUP_ID 1 CLEAR LOG").err.find("* 332:"), std::string::npos);
  const auto password = write("password", "Secret-1");
  ASSERT_EQ(control({"user", "SYSTEMDB", "READER", password, "CATALOG READ"}).code, 0);
  EXPECT_NE(sql("RECOVER " + by_id, "SYSTEMDB", "Secret-1", "READER").err.find("* 258:"), std::string::npos);
}

}  // namespace
