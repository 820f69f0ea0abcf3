#include "platform/secure_string.h"

#include <gtest/gtest.h>

#include <type_traits>

namespace {

TEST(Secure_String, Is_No_Plain_String) {
  EXPECT_FALSE((std::is_convertible_v<secure_string, std::string>));
  EXPECT_FALSE((std::is_convertible_v<std::string, secure_string>));
}

TEST(Secure_String, Keeps_Its_Bytes_Through_Copies_And_Moves) {
  secure_string secret("pa\"ss", 5);
  secure_string copy(secret);
  EXPECT_EQ(copy.view(), "pa\"ss");
  secure_string moved(std::move(secret));
  EXPECT_EQ(moved.view(), "pa\"ss");
  EXPECT_TRUE(secret.empty());
  copy = moved;
  copy.append(" more than the first block of memory can hold, so that it grows");
  EXPECT_EQ(copy.view().substr(0, 5), "pa\"ss");
  EXPECT_EQ(copy.c_str()[copy.size()], '\0');
  EXPECT_FALSE(copy == moved);
  copy.assign(moved.data(), moved.size());
  EXPECT_TRUE(copy == moved);
  copy.clear();
  EXPECT_TRUE(copy.empty());
  EXPECT_STREQ(copy.c_str(), "");
}

TEST(Secure_String, Wiping_Overwrites_Every_Byte) {
  char memory[8] = {'s', 'e', 'c', 'r', 'e', 't', '!', '!'};
  platform::wipe_memory(memory, sizeof memory);
  for (const char c : memory) EXPECT_EQ(c, '\0');
}

}  // namespace
