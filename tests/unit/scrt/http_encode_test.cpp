#include "scrt/http_encode.h"

#include <gtest/gtest.h>

#include <iterator>
#include <string>

#include "scrt/http_query_string_builder.h"

namespace {

using Builder = HTTP_Query_String_Builder_T<std::back_insert_iterator<std::string>>;

std::string encode(const char* text, unsigned flags) {
  std::string out;
  http_encode_string_i(text, flags, std::back_inserter(out));
  return out;
}

TEST(Http_Encode, Null_And_Empty_Write_Nothing) {
  std::string out;
  EXPECT_FALSE(http_encode_string_i(nullptr, 3, std::back_inserter(out)));
  EXPECT_FALSE(http_encode_string_i("", 3, std::back_inserter(out)));
  EXPECT_TRUE(out.empty());
}

TEST(Http_Encode, Each_Flag_Lets_Its_Character_Stand) {
  struct {
    const char* text;
    unsigned flag;
  } const cases[] = {{":", 0x8},    {"(", 0x10},   {")", 0x20},    {"'", 0x40},    {"*", 0x80},
                     {"!", 0x200},  {"#", 0x400},  {"$", 0x800},   {"&", 0x1000},  {"+", 0x2000},
                     {",", 0x4000}, {";", 0x8000}, {"=", 0x10000}, {"?", 0x20000}, {"@", 0x40000}};
  for (const auto& row : cases) {
    EXPECT_EQ(encode(row.text, row.flag), row.text) << row.text;
    EXPECT_EQ(encode(row.text, 0).front(), '%') << row.text;
    EXPECT_EQ(encode(row.text, ~row.flag).front(), '%') << row.text;
  }
}

TEST(Http_Encode, Slashes_Blanks_And_The_Case_Of_Digits_Have_Their_Flags) {
  EXPECT_EQ(encode("a/b c", 0), "a/b%20c");
  EXPECT_EQ(encode("a/b c", 1), "a%2fb%20c");
  EXPECT_EQ(encode("a/b c", 2), "a/b+c");
  EXPECT_EQ(encode("a/b c", 3), "a%2fb+c");
  EXPECT_EQ(encode("a/b", 1 | 4), "a%2Fb");
  EXPECT_EQ(encode("AZaz09-_.~", 3), "AZaz09-_.~");
}

TEST(Http_Encode, Bytes_Above_Ascii_Are_Encoded_One_By_One) { EXPECT_EQ(encode("\xc3\xa4\xff", 3), "%c3%a4%ff"); }

TEST(Query_String_Builder, Joins_Pairs_And_Encodes_As_Told) {
  std::string query;
  Builder builder(std::back_inserter(query));
  builder("resource_uuid", "a b/c")("x~y", "x~y")("empty", "")("id", std::uint64_t{18446744073709551615U});
  EXPECT_EQ(query, "resource_uuid=a+b%2fc&x~y=x~y&empty=&id=18446744073709551615");
}

TEST(Query_String_Builder, An_Empty_Key_Does_Not_Take_The_First_Place) {
  std::string query;
  Builder builder(std::back_inserter(query));
  builder("", "dropped")(static_cast<const char*>(nullptr), "dropped")("a", static_cast<const char*>(nullptr))("b",
                                                                                                               "1");
  EXPECT_EQ(query, "a&b=1");
}

TEST(Query_String_Builder, Flags_And_Prefix_Apply_To_Their_Part) {
  std::string query;
  Builder builder(std::back_inserter(query));
  builder("k/1", "v/1", true, false, "p/")("k/2", "v/2", false, true, "p/");
  EXPECT_EQ(query, "p%2fk%2f1=v/1&p/k/2=v%2f2");
}

}  // namespace
