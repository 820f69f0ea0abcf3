#include "agentd/restore/staged_name.h"

#include <gtest/gtest.h>

using namespace agentd;

TEST(Staged_Name, Is_Read_Back_From_The_Name_Of_A_Catalog_File) {
  const struct {
    Staged_Name name;
    const char* file;
  } rows[] = {{{"HDB", "TN1", "QAS", "TN2"}, "catalog_HDB_TN1_QAS_TN2.json"},
              {{"HDB", "T_1", "HDB", "T$#2"}, "catalog_HDB_T%5F1_HDB_T%24%232.json"},
              {{"HDB", "../../etc", "HDB", "%5F"}, "catalog_HDB_%2E%2E%2F%2E%2E%2Fetc_HDB_%255F.json"},
              {{"HDB", "\xc3\xa4", "HDB", "A B"}, "catalog_HDB_%C3%A4_HDB_A%20B.json"}};
  for (const auto& row : rows) {
    EXPECT_EQ(row.name.catalog_file(), row.file);
    Staged_Name read;
    ASSERT_TRUE(Staged_Name::from_file(row.file, read)) << row.file;
    EXPECT_EQ(read, row.name) << row.file;
  }
  EXPECT_EQ(rows[1].name.restore_file(), "restore_HDB_T%24%232.json");
  EXPECT_EQ(rows[1].name.origin_start(), "catalog_HDB_T%5F1_");
}

TEST(Staged_Name, Is_In_No_Name_That_A_Restore_Does_Not_Write) {
  for (const char* file : {"", "catalog_", ".json", "catalog_.json", "catalog.json", "catalog_HDB_TN1_HDB.json",
                           "catalog_HDB_TN1_HDB_TN2", "catalog_HDB_TN1_HDB_TN2_X.json", "catalog_H/B_TN1_HDB_TN2.json",
                           "catalog_HDB_T%5f1_HDB_TN2.json", "catalog_HDB_T%_HDB_TN2.json", "restore_HDB_TN2.json",
                           "catalog_HDB_T%4_HDB_TN2.json", "catalog_HDB_T1_HDB_TN%.json"}) {
    Staged_Name name{"a", "b", "c", "d"};
    EXPECT_FALSE(Staged_Name::from_file(file, name)) << file;
    EXPECT_EQ(name.origin_sid, "a") << file;
  }
}

TEST(Staged_Name, Is_Read_Back_From_The_Params_Of_A_Request) {
  const Staged_Name name{"HDB", "T_1", "QAS", "TN2"};
  EXPECT_EQ(json_spirit::dump_json(name.params()),
            R"({"origin_sid":"HDB","origin_database":"T_1","target_sid":"QAS","target_database":"TN2"})");
  Staged_Name read;
  std::string error;
  ASSERT_TRUE(Staged_Name::from_params(name.params(), read, error)) << error;
  EXPECT_EQ(read, name);
}

TEST(Staged_Name, Needs_All_Its_Params) {
  for (const char* key : {"origin_sid", "origin_database", "target_sid", "target_database"}) {
    for (const json_spirit::Value& wrong : {json_spirit::Value(""), json_spirit::Value(7)}) {
      json_spirit::Object params = Staged_Name{"HDB", "T_1", "QAS", "TN2"}.params();
      params[key] = wrong;
      Staged_Name read;
      std::string error;
      EXPECT_FALSE(Staged_Name::from_params(params, read, error)) << key;
      EXPECT_EQ(error, std::string("\"") + key + "\" is needed");
    }
  }
}
