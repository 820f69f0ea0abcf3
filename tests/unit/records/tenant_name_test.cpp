#include "records/tenant_name.h"

#include <gtest/gtest.h>

#include <string>

TEST(Tenant_Name, Has_Capital_Letters_Digits_And_Underscores) {
  for (const std::string& name : {std::string("QA1"), std::string("_Q1"), std::string("Q_"), std::string(127, 'A')})
    EXPECT_TRUE(is_tenant_name(name)) << name;
}

TEST(Tenant_Name, Is_Nothing_That_HANA_Would_Read_Otherwise) {
  for (const std::string& name :
       {std::string(), std::string("qa1"), std::string("1QA"), std::string("QA-1"), std::string("QA1 NO START"),
        std::string("QA1\nX"), std::string("QA\"1"), std::string("\xc3\x84Q1"), std::string(128, 'A')})
    EXPECT_FALSE(is_tenant_name(name)) << name;
}

TEST(Tenant_Name, Of_More_Than_41_Bytes_Has_Things_That_Do_Not_Work) {
  EXPECT_EQ(describe_long_name(std::string(41, 'A')), "");
  EXPECT_NE(describe_long_name(std::string(42, 'A')).find(std::string(42, 'A') + " is longer than 41 bytes"),
            std::string::npos);
}
