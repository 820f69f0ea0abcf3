#include "hana/common/ondemand_conf_path.h"

#include <gtest/gtest.h>

#include "support/log_capture.h"

namespace {

using sap_hana::is_live_ondemand_conf;
using sap_hana::ondemand_conf_path;

TEST(Ondemand_Conf_Path, Is_One_File_For_Each_System_Instance_And_Database) {
  struct Row {
    const char* sid;
    const char* instance;
    const char* database;
    const char* path;
  };
  const Row rows[] = {
      {"HDB", "HDB00", "", "/var/opt/tarvex/dorsal3/agent/hana/log_backup_HDB_HDB00"},
      {"HDB", "HDB00", "TN1", "/var/opt/tarvex/dorsal3/agent/hana/log_backup_HDB_HDB00_TN1"},
      {"HDB", "HDB00", "T_1", "/var/opt/tarvex/dorsal3/agent/hana/log_backup_HDB_HDB00_T%5F1"},
      {"HDB", "HDB00", "../x.y", "/var/opt/tarvex/dorsal3/agent/hana/log_backup_HDB_HDB00_%2E%2E%2Fx%2Ey"},
  };
  for (const Row& row : rows) {
    std::string path;
    EXPECT_TRUE(ondemand_conf_path(row.sid, row.instance, row.database, path)) << row.path;
    EXPECT_EQ(path, row.path);
  }
}

TEST(Ondemand_Conf_Path, Does_Not_Exist_Without_System_Or_Instance) {
  support::Log_Capture log;
  std::string path = "before";
  EXPECT_FALSE(ondemand_conf_path("", "HDB00", "TN1", path));
  EXPECT_FALSE(ondemand_conf_path("HDB", "", "TN1", path));
  EXPECT_EQ(path, "before");
  EXPECT_EQ(log.claim_containing("without a SID and an instance name"), 2U);
}

TEST(Ondemand_Conf_Path, Tells_Live_Files_From_Those_Set_Aside_And_From_Others) {
  EXPECT_TRUE(is_live_ondemand_conf("log_backup_HDB_HDB00"));
  EXPECT_FALSE(is_live_ondemand_conf("log_backup_HDB_HDB00.1700000000"));
  EXPECT_FALSE(is_live_ondemand_conf(".log_backup_HDB_HDB00.12.0.tmp"));
  EXPECT_FALSE(is_live_ondemand_conf("restore_HDB"));
}

}  // namespace
