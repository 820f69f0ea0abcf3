#include "dorsal3/server/resources.h"

#include <gtest/gtest.h>

using namespace dorsal3;

TEST(Backup_Subject, Reads_Instance_And_Database) {
  struct Row {
    const char* text;
    bool good;
    const char* instance;
    const char* database;
  };
  const Row rows[] = {{"PRD_HDB00", true, "PRD_HDB00", ""},
                      {"PRD_HDB00/TN1", true, "PRD_HDB00", "TN1"},
                      {"PRD_HDB00/", false, "", ""},
                      {"/TN1", false, "", ""},
                      {"", false, "", ""},
                      {"PRD_HDB00/TN1/x", false, "", ""},
                      {"PRD_HDB00/T N", true, "PRD_HDB00", "T N"}};
  for (const Row& row : rows) {
    Backup_Subject subject;
    Failure failure;
    EXPECT_EQ(parse_subject(row.text, subject, failure), row.good) << row.text;
    if (row.good) {
      EXPECT_EQ(subject.instance, row.instance);
      EXPECT_EQ(subject.database, row.database);
    } else {
      EXPECT_EQ(failure.exit_code, exit_usage) << row.text;
    }
  }
}

TEST(Members, Missing_And_Mistyped_Ones_Read_As_Nothing) {
  const json_spirit::Object object{{"text", "x"}, {"number", 5}, {"flag", true}, {"none", nullptr}};
  EXPECT_EQ(text_member(object, "text"), "x");
  EXPECT_EQ(text_member(object, "number"), "5");
  EXPECT_EQ(text_member(object, "none"), "");
  EXPECT_EQ(text_member(object, "absent"), "");
  EXPECT_EQ(number_member(object, "number"), 5U);
  EXPECT_EQ(number_member(object, "text"), 0U);
  EXPECT_TRUE(flag_member(object, "flag"));
  EXPECT_FALSE(flag_member(object, "number"));
  EXPECT_TRUE(object_rows(object, "text").empty());
}
