#include "records/recovery_statement.h"

#include <gtest/gtest.h>

namespace {

Recovery_Statement tenant_in_place() {
  Recovery_Statement statement;
  statement.origin_database = statement.target_database = "TN1";
  statement.origin_sid = statement.target_sid = "HDB";
  statement.backup_id = 4711;
  statement.time = "2026-11-20 08:15:00";
  statement.tenant = true;
  statement.multi_container = true;
  return statement;
}

TEST(Recovery_Statement, Keeps_Its_Two_Blanks_And_Ends_Without_A_Semicolon_Over_Logs) {
  EXPECT_EQ(tenant_in_place().text(),
            "RECOVER DATABASE FOR TN1 UNTIL TIMESTAMP '2026-11-20 08:15:00' CLEAR LOG  USING CATALOG BACKINT USING "
            "BACKUP_ID 4711 CHECK ACCESS ALL");
}

TEST(Recovery_Statement, Ends_In_A_Semicolon_For_A_Full_Backup_Alone) {
  Recovery_Statement statement = tenant_in_place();
  statement.full_only = true;
  statement.ignore_delta = true;
  EXPECT_EQ(statement.text(), "RECOVER DATA FOR TN1 USING BACKUP_ID 4711 USING CATALOG BACKINT CLEAR LOG;");
  statement.set_uuid = "c0ffee";
  statement.target_database = "TN2";
  EXPECT_EQ(statement.text(), "RECOVER DATA FOR TN2 USING SOURCE 'TN1@HDB' USING BACKINT ('c0ffee') CLEAR LOG;");
}

TEST(Recovery_Statement, Names_The_Source_Without_Its_System_Where_There_Are_No_Tenants) {
  Recovery_Statement statement = tenant_in_place();
  statement.tenant = statement.multi_container = false;
  statement.ancient = statement.ignore_delta = true;
  statement.target_sid = "QAS";
  EXPECT_EQ(statement.text(),
            "RECOVER DATABASE UNTIL TIMESTAMP '2026-11-20 08:15:00' CLEAR LOG USING SOURCE 'TN1'  USING BACKUP_ID 4711 "
            "CHECK ACCESS ALL IGNORE DELTA DATA BACKUPS");
}

}  // namespace
