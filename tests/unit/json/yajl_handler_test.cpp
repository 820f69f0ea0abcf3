#include "json/yajl_handler.h"

#include <gtest/gtest.h>

#include "json/json_state.h"
#include "json/yajl_generator.h"
#include "json/yajl_parser_t.h"

namespace {

struct Nothing {};

/// Writes down every event, with the base's defaults for the rest.
class Recorder : public YAJL_Parser<Nothing> {
 public:
  bool handle_string_i(const char* text, std::size_t length) override { return note("s:" + std::string(text, length)); }
  bool handle_start_map_i() override { return note("{"); }
  bool handle_map_key_i(const char* text, std::size_t length) override {
    return note("k:" + std::string(text, length));
  }
  bool handle_end_map_i() override { return note("}"); }
  Result result() override { return Result(); }

  std::string events;

 private:
  bool note(const std::string& event) {
    events += event + " ";
    return true;
  }
};

TEST(Parse_Json, Delivers_The_Events_In_Order) {
  Recorder recorder;
  EXPECT_TRUE(parse_json(R"({"a":"b","c":{"d":null},"e":1,"f":true})", recorder).ok);
  EXPECT_EQ(recorder.events, "{ k:a s:b k:c { k:d } k:e k:f } ");
}

TEST(Parse_Json, The_Default_Refuses_Arrays_With_Code_Nine) {
  Recorder recorder;
  const JSON_Parse_Result result = parse_json("[]", recorder);
  EXPECT_FALSE(result.ok);
  EXPECT_EQ(result.code, JSON_PARSER_E_INVALID_VALUE_TYPE);
}

TEST(Parse_Json, Depth_And_Size_Are_Bounded) {
  std::string deep;
  for (int i = 0; i < 10'000; ++i) deep += R"({"a":)";
  Recorder recorder;
  const JSON_Parse_Result result = parse_json(deep, recorder);
  EXPECT_FALSE(result.ok);
  EXPECT_EQ(result.message, "the document is deeper than 100 levels");
  EXPECT_FALSE(parse_json(std::string(17U << 20, ' '), recorder).ok);
}

TEST(Parse_Json, Broken_Text_Gives_A_Message_And_No_Code) {
  Recorder recorder;
  const JSON_Parse_Result result = parse_json(R"({"a":)", recorder);
  EXPECT_FALSE(result.ok);
  EXPECT_EQ(result.code, 0);
  EXPECT_NE(result.message.find("at byte"), std::string::npos) << result.message;
}

TEST(Find_Key, Compares_Exact_Text_And_Length) {
  static constexpr Key2_Value_T<unsigned> table[] = {{"id", 2, 1}, {"name", 4, 2}, {nullptr, 0, 0}};
  EXPECT_EQ(find_key(table, "id", 2), 1U);
  EXPECT_EQ(find_key(table, "name", 4), 2U);
  EXPECT_EQ(find_key(table, "name", 3), 0U);
  EXPECT_EQ(find_key(table, "names", 5), 0U);
  EXPECT_EQ(find_key(table, "", 0), 0U);
}

TEST(Yajl_Generator, Writes_What_It_Is_Told) {
  YAJL_Generator generator;
  yajl_gen_map_open(generator.handle());
  yajl_write(generator.handle(), "key");
  yajl_gen_integer(generator.handle(), 1);
  yajl_gen_map_close(generator.handle());
  EXPECT_EQ(generator.text(), R"({"key":1})");
}

}  // namespace
