#include "net/http_string.h"

#include <gtest/gtest.h>

namespace {

using namespace std::string_literals;

struct Decode_Row {
  std::string text;
  std::string decoded;
  std::string decoded_with_blanks;
};

TEST(Http_Decode_String, Undoes_What_Is_Whole_And_Keeps_The_Rest) {
  for (const Decode_Row& row : {Decode_Row{"", "", ""},
                                {"abc", "abc", "abc"},
                                {"a%20b", "a b", "a b"},
                                {"a+b", "a+b", "a b"},
                                {"%2f%2F", "//", "//"},
                                {"%c3%a4", "\xc3\xa4", "\xc3\xa4"},
                                {"%", "%", "%"},
                                {"%4", "%4", "%4"},
                                {"%4g", "%4g", "%4g"},
                                {"%%41", "%A", "%A"},
                                {"%zz%41", "%zzA", "%zzA"},
                                {"a%00b", "a\0b"s, "a\0b"s},
                                {"%2541", "%41", "%41"}}) {
    EXPECT_EQ(http_decode_string(row.text), row.decoded) << row.text;
    EXPECT_EQ(http_decode_string(row.text, true), row.decoded_with_blanks) << row.text;
  }
}

TEST(Http_String, Holds_Both_Forms) {
  HTTP_String text;
  text.assign_encoded("a%2fb");
  EXPECT_EQ(text.encoded_val_, "a%2fb");
  EXPECT_EQ(text.decoded_val_, "a/b");
  text.assign_decoded("a/b c", 3);
  EXPECT_EQ(text.encoded_val_, "a%2fb+c");
  EXPECT_EQ(text.decoded_val_, "a/b c");
  EXPECT_EQ(text.flags_, 3U);
  text.assign_decoded("");
  EXPECT_EQ(text.encoded_val_, "");
}

TEST(Http_String, Loses_Nothing_Behind_A_Null_Byte) {
  HTTP_String text;
  for (const std::string& bytes : {"a\0b"s, "\0"s, "a\0"s, "\0\0x"s}) {
    text.assign_decoded(bytes);
    EXPECT_EQ(http_decode_string(text.encoded_val_), bytes);
  }
}

}  // namespace
