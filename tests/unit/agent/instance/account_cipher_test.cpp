#include "agent/instance/account_cipher.h"

#include <gtest/gtest.h>

namespace {

class Account_Cipher_Test : public testing::Test {
 protected:
  Account_Cipher_Test() {
    EXPECT_TRUE(make_cipher_key(key_));
    EXPECT_EQ(key_.size(), cipher_key_bytes);
  }
  secure_string key_;
};

TEST_F(Account_Cipher_Test, Gives_Back_What_It_Closed) {
  for (const std::string& text : {std::string(), std::string("x"), std::string("a\0b", 3), std::string(100000, 'y')}) {
    Sealed_Text sealed;
    ASSERT_TRUE(seal(key_, "context", secure_string(text), sealed));
    EXPECT_EQ(sealed.data.size(), text.size());
    if (text.size() > 2) {
      EXPECT_NE(sealed.data, text);
    }
    secure_string opened("old");
    EXPECT_TRUE(unseal(key_, "context", sealed, opened));
    EXPECT_EQ(opened.view(), text);
  }
}

TEST_F(Account_Cipher_Test, Notices_Every_Change) {
  Sealed_Text sealed;
  ASSERT_TRUE(seal(key_, "context", secure_string("text"), sealed));
  secure_string opened;
  for (std::string Sealed_Text::*part : {&Sealed_Text::nonce, &Sealed_Text::tag, &Sealed_Text::data}) {
    Sealed_Text changed = sealed;
    (changed.*part)[0] = static_cast<char>((changed.*part)[0] ^ 1);
    EXPECT_FALSE(unseal(key_, "context", changed, opened));
    changed = sealed;
    (changed.*part).pop_back();
    EXPECT_FALSE(unseal(key_, "context", changed, opened));
  }
  EXPECT_FALSE(unseal(key_, "other", sealed, opened));
  secure_string other;
  ASSERT_TRUE(make_cipher_key(other));
  EXPECT_FALSE(other == key_);
  EXPECT_FALSE(unseal(other, "context", sealed, opened));
  EXPECT_TRUE(opened.empty());
}

TEST_F(Account_Cipher_Test, Refuses_A_Key_Of_Another_Length) {
  Sealed_Text sealed;
  EXPECT_FALSE(seal(secure_string("short"), "context", secure_string("text"), sealed));
}

TEST_F(Account_Cipher_Test, Writes_And_Reads_Hexadecimal) {
  EXPECT_EQ(to_hex(std::string("\x00\x7f\xff", 3)), "007fff");
  std::string bytes = "kept";
  for (const char* bad : {"0", "0g", "zz", "0 "}) EXPECT_FALSE(from_hex(bad, bytes)) << bad;
  EXPECT_EQ(bytes, "kept");
  EXPECT_TRUE(from_hex("007FfF", bytes));
  EXPECT_EQ(bytes, std::string("\x00\x7f\xff", 3));
  EXPECT_TRUE(from_hex("", bytes));
  EXPECT_TRUE(bytes.empty());
}

}  // namespace
