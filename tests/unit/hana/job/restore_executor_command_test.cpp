// The recovery statements, for every combination of what decides them.

#include <fstream>
#include <sstream>
#include <string>

#include "unit/hana/job/restore_fixture.h"

namespace {

using backup_test::Restorer;
using Set = sap_hana::Restore_Source_Collector::Backup_Set_Info;

struct Origin {
  const char* name;
  const char* sid;
  const char* database;
};

constexpr Origin origins[] = {{"in place", "HDB", "T1"},
                              {"another name", "HDB", "T2"},
                              {"another system", "PRD", "T1"},
                              {"another system and name", "PRD", "T2"}};

std::string golden() {
  std::ifstream file(std::string(DORSAL3_TEST_DATA) + "/golden/statements_restore.txt");
  std::stringstream text;
  text << file.rdbuf();
  return text.str();
}

class Restore_Command : public backup_test::Restore_Test {
 protected:
  Restore_Command() : restorer_(new_restorer()) {
    restorer_.sid_ = "HDB";
    restorer_.mdc_ = true;
    set_.origin_sid = "HDB";
    set_.origin_dbname = set_.target_dbname = "T1";
    set_.database_backup_id = 4711;
    set_.target_time = "2024-05-01 10:00:00";
  }

  std::string statement(bool tenantdb) {
    std::string cmd = "what it held before";
    EXPECT_TRUE(restorer_.generate_restore_cmd(set_, cmd, tenantdb));
    return cmd;
  }

  /// One line a combination: what decides it, and the statement between bars, so that blanks at its end are seen.
  void append_all(std::ostream& text) {
    for (const char* kind : {"time", "full by id", "full by uuid"})
      for (const bool tenantdb : {true, false})
        for (const Origin& origin : origins)
          for (const bool mdc : {true, false})
            for (const bool ancient : {false, true})
              for (const bool ignore_delta : {false, true}) {
                set_.is_full_backup = std::string(kind) != "time";
                set_.catalog_uuid = std::string(kind) == "full by uuid" ? "c0ffee" : "";
                set_.origin_sid = origin.sid;
                set_.origin_dbname = origin.database;
                restorer_.mdc_ = mdc;
                restorer_.ancient_version_ = ancient;
                restorer_.ignore_delta_ = ignore_delta;
                text << kind << (tenantdb ? ", tenant, " : ", system, ") << origin.name
                     << (mdc ? ", tenants" : ", single") << (ancient ? ", ancient" : "")
                     << (ignore_delta ? ", without deltas" : "") << ": |" << statement(tenantdb) << "|\n";
              }
  }

  Restorer& restorer_;
  Set set_;
};

}  // namespace

TEST_F(Restore_Command, Is_The_Golden_One_For_Every_Combination) {
  std::ostringstream text;
  append_all(text);
  EXPECT_EQ(text.str(), golden());
}

TEST_F(Restore_Command, Replaces_What_The_Text_Held_Before) {
  set_.is_full_backup = true;
  EXPECT_EQ(statement(true), "RECOVER DATA FOR T1 USING BACKUP_ID 4711 USING CATALOG BACKINT CLEAR LOG;");
}

TEST_F(Restore_Command, Names_Another_Origin_Between_The_Tenant_And_The_Set) {
  set_.is_full_backup = true;
  set_.catalog_uuid = "c0ffee";
  set_.origin_sid = "PRD";
  set_.target_dbname = "T2";
  EXPECT_EQ(statement(true), "RECOVER DATA FOR T2 USING SOURCE 'T1@PRD' USING BACKINT ('c0ffee') CLEAR LOG;");
}

TEST_F(Restore_Command, Keeps_Two_Blanks_And_No_Semicolon_In_A_Recovery_To_A_Time) {
  set_.origin_dbname = set_.target_dbname = "SYSTEMDB";
  restorer_.ignore_delta_ = true;
  EXPECT_EQ(statement(false),
            "RECOVER DATABASE UNTIL TIMESTAMP '2024-05-01 10:00:00' CLEAR LOG  USING CATALOG BACKINT USING BACKUP_ID "
            "4711 CHECK ACCESS ALL IGNORE DELTA DATA BACKUPS");
}

TEST_F(Restore_Command, Compares_Names_Of_Databases_By_Case) {
  set_.origin_dbname = "t1";
  set_.is_full_backup = true;
  EXPECT_NE(statement(true).find("USING SOURCE 't1@HDB' "), std::string::npos);
}

TEST_F(Restore_Command, Writes_The_Id_Zero_And_The_Largest_One_In_Decimal) {
  set_.is_full_backup = true;
  set_.database_backup_id = 0;
  EXPECT_NE(statement(true).find("USING BACKUP_ID 0 "), std::string::npos);
  set_.database_backup_id = 18446744073709551615U;
  EXPECT_NE(statement(true).find("USING BACKUP_ID 18446744073709551615 "), std::string::npos);
}

TEST_F(Restore_Command, Leaves_Quotes_In_A_Time_As_They_Are) {
  set_.target_time = "o'clock";
  EXPECT_NE(statement(true).find("UNTIL TIMESTAMP 'o'clock' CLEAR LOG "), std::string::npos);
}
