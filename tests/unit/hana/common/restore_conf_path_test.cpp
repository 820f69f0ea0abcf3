#include "hana/common/restore_conf_path.h"

#include <gtest/gtest.h>

#include "support/log_capture.h"

namespace {

using sap_hana::catalog_conf_file_name;
using sap_hana::catalog_conf_prefix;
using sap_hana::restore_ext_conf_file;

constexpr const char* directory = "/var/opt/tarvex/dorsal3/agent/hana/catalog";

TEST(Restore_Conf_Path, Is_One_Catalog_File_For_Each_Origin_And_Target) {
  struct Row {
    const char* origin_sid;
    const char* origin_database;
    const char* target_sid;
    const char* target_database;
    const char* name;
  };
  const Row rows[] = {
      {"HDB", "TN1", "HDB", "TN1", "/catalog_HDB_TN1_HDB_TN1.json"},
      {"PRD", "SYSTEMDB", "HDB", "SYSTEMDB", "/catalog_PRD_SYSTEMDB_HDB_SYSTEMDB.json"},
      {"PRD", "T_1", "HDB", "T2", "/catalog_PRD_T%5F1_HDB_T2.json"},
      {"PRD", "../x.y", "HDB", "a b", "/catalog_PRD_%2E%2E%2Fx%2Ey_HDB_a%20b.json"},
  };
  for (const Row& row : rows) {
    std::string path;
    EXPECT_TRUE(catalog_conf_file_name(row.origin_sid, row.origin_database, row.target_sid, row.target_database, path))
        << row.name;
    EXPECT_EQ(path, std::string(directory) + row.name);
  }
}

TEST(Restore_Conf_Path, Is_One_Restore_File_For_Each_Target) {
  std::string path;
  EXPECT_TRUE(restore_ext_conf_file("HDB", "TN1", path));
  EXPECT_EQ(path, std::string(directory) + "/restore_HDB_TN1.json");
  EXPECT_TRUE(restore_ext_conf_file("HDB", "T/_", path));
  EXPECT_EQ(path, std::string(directory) + "/restore_HDB_T%2F%5F.json");
}

TEST(Restore_Conf_Path, Names_Of_An_Origin_Begin_Like_No_Other_Origins) {
  EXPECT_EQ(catalog_conf_prefix("PRD", "TN1"), "catalog_PRD_TN1_");
  EXPECT_EQ(catalog_conf_prefix("PRD", "TN1_HDB"), "catalog_PRD_TN1%5FHDB_");
  std::string path;
  ASSERT_TRUE(catalog_conf_file_name("PRD", "TN1_HDB", "HDB", "TN1", path));
  EXPECT_EQ(path.find("/" + catalog_conf_prefix("PRD", "TN1")), std::string::npos);
  EXPECT_NE(path.find("/" + catalog_conf_prefix("PRD", "TN1_HDB")), std::string::npos);
}

TEST(Restore_Conf_Path, Does_Not_Exist_Without_A_Name) {
  support::Log_Capture log;
  std::string path = "before";
  EXPECT_FALSE(catalog_conf_file_name("", "TN1", "HDB", "TN1", path));
  EXPECT_FALSE(catalog_conf_file_name("PRD", "", "HDB", "TN1", path));
  EXPECT_FALSE(catalog_conf_file_name("PRD", "TN1", "", "TN1", path));
  EXPECT_FALSE(catalog_conf_file_name("PRD", "TN1", "HDB", "", path));
  EXPECT_FALSE(restore_ext_conf_file("", "TN1", path));
  EXPECT_FALSE(restore_ext_conf_file("HDB", "", path));
  EXPECT_EQ(path, "before");
  EXPECT_EQ(log.claim_containing("without the names of systems and databases"), 6U);
}

}  // namespace
