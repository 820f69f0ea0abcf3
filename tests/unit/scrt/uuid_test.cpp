#include "scrt/uuid.h"

#include <gtest/gtest.h>

#include <set>

namespace {

TEST(Uuid, New_Ones_Differ_And_Are_Version_Four) {
  std::set<std::string> seen;
  for (int i = 0; i < 1000; ++i) {
    const std::string uuid = make_uuid();
    EXPECT_EQ(uuid.size(), 36U);
    EXPECT_EQ(uuid[14], '4');
    EXPECT_NE(std::string("89ab").find(uuid[19]), std::string::npos);
    EXPECT_TRUE(seen.insert(uuid).second);
  }
}

TEST(Uuid, Text_And_Binary_Are_One_To_One) {
  unsigned char binary[uuid_bytes] = {};
  ASSERT_TRUE(uuid_string_to_binary("6BA7B810-9dad-11d1-80b4-00c04fd430c8", binary));
  EXPECT_EQ(binary[0], 0x6b);
  EXPECT_EQ(binary[15], 0xc8);
  EXPECT_EQ(uuid_binary_to_string(binary), "6ba7b810-9dad-11d1-80b4-00c04fd430c8");
}

TEST(Uuid, A_Bad_Text_Leaves_The_Output) {
  unsigned char binary[uuid_bytes] = {1};
  for (const char* text : {"", "6ba7b810", "6ba7b810-9dad-11d1-80b4-00c04fd430cg",
                           "6ba7b810+9dad-11d1-80b4-00c04fd430c8", "6ba7b810-9dad-11d1-80b4-00c04fd430c8x"})
    EXPECT_FALSE(uuid_string_to_binary(text, binary)) << text;
  EXPECT_FALSE(uuid_string_to_binary(nullptr, binary));
  EXPECT_EQ(binary[0], 1);
}

TEST(Uuid, Name_Based_Ones_Follow_The_Published_Sample) {
  // The namespace of host names and "www.example.com", a sample published with the method.
  EXPECT_EQ(uuid_v5("6ba7b810-9dad-11d1-80b4-00c04fd430c8", "www.example.com"), "2ed6657d-e927-568b-95e1-2665a8aea6a2");
  EXPECT_EQ(uuid_v5("no uuid", "x"), "");
}

}  // namespace
