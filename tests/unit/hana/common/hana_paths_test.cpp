#include "hana/common/hana_paths.h"

#include <gtest/gtest.h>

#include "support/log_capture.h"

namespace {

using namespace sap_hana;

TEST(HANA_Paths, Tells_System_Ids) {
  const struct {
    const char* text;
    bool wanted;
  } rows[] = {{"HDB", true},
              {"H01", true},
              {"A00", true},
              {"", false},
              {"hdb", false},
              {"1DB", false},
              {"HD", false},
              {"HDBX", false},
              {"H/B", false},
              {"..A", false},
              {"H B", false},
              {"H\xc4"
               "B",
               false}};
  for (const auto& row : rows) EXPECT_EQ(is_sid(row.text), row.wanted) << row.text;
}

TEST(HANA_Paths, Tells_Instance_Names_And_Their_Numbers) {
  const struct {
    const char* text;
    bool wanted;
    ACE_UINT16 number;
  } rows[] = {{"HDB00", true, 0},   {"HDB07", true, 7},  {"HDB97", true, 97}, {"hdb00", false, 0}, {"HDB0", false, 0},
              {"HDB000", false, 0}, {"HDBxx", false, 0}, {"../00", false, 0}, {"", false, 0}};
  for (const auto& row : rows) {
    ACE_UINT16 number = 4711;
    EXPECT_EQ(is_instance_name(row.text), row.wanted) << row.text;
    EXPECT_EQ(instance_number_of(row.text, number), row.wanted) << row.text;
    EXPECT_EQ(number, row.wanted ? row.number : 4711) << row.text;
    if (row.wanted) {
      EXPECT_EQ(instance_name_of(row.number), row.text);
    }
  }
}

TEST(HANA_Paths, Are_Those_Of_An_Installation) {
  const struct {
    std::string path;
    const char* wanted;
  } rows[] = {
      {system_directory("HDB"), "/usr/sap/HDB"},
      {instance_directory("HDB", "HDB00"), "/usr/sap/HDB/HDB00"},
      {executable_directory("HDB", "HDB00"), "/usr/sap/HDB/HDB00/exe"},
      {host_directory("HDB", "HDB00", "h1"), "/usr/sap/HDB/HDB00/h1"},
      {trace_directory("HDB", "HDB00", "h1"), "/usr/sap/HDB/HDB00/h1/trace"},
      {instance_manifest("HDB", "HDB00"), "/usr/sap/HDB/HDB00/exe/manifest"},
      {system_manifest("HDB"), "/usr/sap/HDB/SYS/exe/hdb/manifest"},
      {profile_directory("HDB"), "/usr/sap/HDB/SYS/profile"},
      {system_configuration("HDB", "global.ini"), "/usr/sap/HDB/SYS/global/hdb/custom/config/global.ini"},
      {system_user_home("HDB"), "/usr/sap/HDB/home"},
      {database_folder("TN1"), "DB_TN1"},
      {system_user("H01"), "h01adm"},
      {generate_instance_manager_name("HDB", "HDB00"), "HDB_HDB00"},
      {database_restore_lock("HDB", "TN1"), "/var/opt/tarvex/dorsal3/agent/lock/restore_HDB_TN1"},
      {database_restore_lock("HDB", "../x_y"), "/var/opt/tarvex/dorsal3/agent/lock/restore_HDB_%2E%2E%2Fx%5Fy"},
  };
  for (const auto& row : rows) EXPECT_EQ(row.path, row.wanted);
}

TEST(HANA_Paths, Find_The_Pipes_Of_A_Database) {
  const support::Log_Capture log;
  const struct {
    const char* database;
    bool multi_container;
    const char* wanted;
  } rows[] = {{"SYSTEMDB", true, "/usr/sap/HDB/SYS/global/hdb/backint/SYSTEMDB"},
              {"TN1", true, "/usr/sap/HDB/SYS/global/hdb/backint/DB_TN1"},
              {"HDB", false, "/usr/sap/HDB/SYS/global/hdb/backint"},
              {"..", true, "/usr/sap/HDB/SYS/global/hdb/backint/DB_.."}};
  for (const auto& row : rows) {
    std::string path;
    EXPECT_TRUE(database_pipe_path("HDB", row.database, row.multi_container, path)) << row.database;
    EXPECT_EQ(path, row.wanted);
  }
}

TEST(HANA_Paths, Refuse_Names_That_Leave_The_Directory) {
  support::Log_Capture log;
  for (const char* database : {"a/b", "/../../etc", ""}) {
    std::string path = "kept";
    EXPECT_FALSE(database_pipe_path("HDB", database, true, path)) << database;
    EXPECT_EQ(path, "kept");
  }
  std::string path = "kept";
  EXPECT_FALSE(database_pipe_path("../", "TN1", true, path));
  EXPECT_EQ(log.claim_containing("the names cannot be part of a path\n"), 4U);
}

}  // namespace
