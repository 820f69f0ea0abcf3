#include <gtest/gtest.h>

#include "json/value.h"

namespace {

using namespace json_spirit;

Value load(std::string_view text) {
  Value value;
  std::string error;
  EXPECT_TRUE(load_json(text, value, &error)) << text << ": " << error;
  return value;
}

TEST(Json_Text, Documents_Come_Back_As_They_Were) {
  for (const char* text : {R"({"b":1,"a":[true,false,null,"x"],"c":{}})", "[]", R"("é\n\"")", "-9223372036854775808",
                           "18446744073709551615", "1.5", R"({"n":null})", "1e+300"})
    EXPECT_EQ(dump_json(load(text)), text);
}

TEST(Json_Text, A_Real_Stays_A_Real) {
  EXPECT_EQ(dump_json(Value(2.0)), "2.0");
  EXPECT_EQ(load(dump_json(Value(2.0))).type(), real_type);
}

TEST(Json_Text, Hostile_Documents_Are_Refused_With_A_Reason) {
  struct {
    const char* name;
    std::string text;
    const char* wanted;
  } const cases[] = {
      {"deep arrays", std::string(10'000, '['), "line 1: deeper than 100 levels"},
      {"twice the same key", R"({"a":1,"a":2})", "line 1: key 'a' stands twice"},
      {"huge number", "1e999", "line 1: a number is out of range"},
      {"empty", "", "line 1: "},
      {"two documents", "{} {}", "line 1: "},
      {"bad utf-8", "\"\xff\"", "line 1: "},
      {"third line", "{\n\"a\":1,\n}", "line 3: "},
  };
  for (const auto& row : cases) {
    Value value("kept");
    std::string error;
    EXPECT_FALSE(load_json(row.text, value, &error)) << row.name;
    EXPECT_EQ(error.substr(0, std::string(row.wanted).size()), row.wanted) << row.name << ": " << error;
    EXPECT_EQ(value.get_str(), "kept") << row.name;
  }
}

TEST(Json_Text, A_Document_Above_The_Size_Limit_Is_Refused_Before_It_Is_Read) {
  Value value;
  std::string error;
  EXPECT_FALSE(load_json(std::string((16U << 20) + 1, ' '), value, &error));
  EXPECT_EQ(error, "larger than 16777216 bytes");
}

TEST(Json_Text, Secrets_Are_Read_Into_Secure_Strings_And_Masked_In_Logs) {
  const char* const secure[] = {"password", nullptr};
  Value value;
  ASSERT_TRUE(load_json(R"({"username":"u","password":"geheim"})", value, nullptr, {}, secure));
  EXPECT_EQ(value.get_obj().find("password")->type(), secure_str_type);
  EXPECT_EQ(dump_json_for_log(value), R"({"username":"u","password":"***"})");
  EXPECT_EQ(dump_json(value), R"({"username":"u","password":"geheim"})");
}

TEST(Json_Text, Bytes_That_Are_No_Text_Leave_A_Document_That_Can_Be_Read) {
  const struct {
    std::string text;
    std::string wanted;
  } rows[] = {{"", ""},
              {"plain", "plain"},
              {"\xc3\xa4\xe2\x82\xac\xf0\x9f\x98\x80", "\xc3\xa4\xe2\x82\xac\xf0\x9f\x98\x80"},
              {"M\xfcller", "M?ller"},
              {"\xff", "?"},
              {"\x80\x80", "??"},
              {"cut \xc3", "cut ?"},
              {"cut \xf0\x9f\x98", "cut ???"},
              {"\xc3(\xc3\xa4", "?(\xc3\xa4"},
              {std::string("a\0\xfe", 3), std::string("a\0?", 3)}};
  for (const auto& row : rows) {
    const Value read = load(dump_json(Object{{row.text, row.text}}));
    EXPECT_EQ(read.get_obj().begin()->first, row.wanted) << row.wanted;
    EXPECT_EQ(read.get_obj().begin()->second.get_str(), row.wanted) << row.wanted;
  }
}

}  // namespace
