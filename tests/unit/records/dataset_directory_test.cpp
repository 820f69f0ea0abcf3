#include "records/dataset_directory.h"

#include <gtest/gtest.h>

namespace {

TEST(Dataset_Directory, Has_Names_That_HANA_Knows_Without_Quotes_As_They_Stand) {
  for (const char* name : {"TN1", "T_1", "_", "A$B#1", "5b91d2e8-e104-e541-9749-6ae7b2ebcfe9"}) {
    EXPECT_EQ(dataset_segment(name), name);
    EXPECT_EQ(dataset_name(name), name);
  }
}

TEST(Dataset_Directory, Encodes_What_Could_Lead_Elsewhere) {
  const struct {
    const char* name;
    const char* wanted;
    const char* former;
  } rows[] = {{"../A_B", "%2E%2E%2FA_B", "%2E%2E%2FA%5FB"},
              {".", "%2E", "%2E"},
              {"T%5F1", "T%255F1", "T%255F1"},
              {"T\xc3\xa4 1", "T%C3%A4%201", "T%C3%A4%201"},
              {"", "", ""}};
  for (const auto& row : rows) {
    EXPECT_EQ(dataset_segment(row.name), row.wanted);
    EXPECT_EQ(former_dataset_segment(row.name), row.former);
    EXPECT_EQ(dataset_name(row.wanted), row.name);
    EXPECT_EQ(dataset_name(row.former), row.name);
  }
}

TEST(Dataset_Directory, Takes_A_Sign_That_Begins_No_Byte_As_It_Stands) {
  for (const char* segment : {"%", "T%5", "%zz", "%+1", "%-1x", "%5"}) EXPECT_EQ(dataset_name(segment), segment);
}

TEST(Dataset_Directory, Cuts_What_Is_Too_Long_For_A_File_System) {
  EXPECT_EQ(dataset_segment(std::string(127, 'T')).size(), 127U);
  EXPECT_FALSE(is_cut_dataset_segment(dataset_segment(std::string(127, 'T'))));
  EXPECT_EQ(dataset_segment(std::string(127, ' ')).size(), 160U);
  EXPECT_TRUE(is_cut_dataset_segment(dataset_segment(std::string(127, ' '))));
  EXPECT_EQ(former_dataset_segment(std::string(127, '_')).size(), 160U);
}

}  // namespace
