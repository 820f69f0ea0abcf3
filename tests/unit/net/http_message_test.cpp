#include "net/http_message.h"

#include <gtest/gtest.h>

#include "net/http_checks.h"
#include "support/freed_memory_watch.h"

namespace {

using namespace std::string_view_literals;

TEST(Http_Headers, Finds_Without_Case_And_Replaces_In_Place) {
  net::Http_Headers headers;
  headers.set("Content-Type", "a");
  headers.set("X-One", "1");
  headers.set("content-type", "b");
  ASSERT_EQ(headers.all().size(), 2U);
  EXPECT_EQ(headers.all()[0], (std::pair<std::string, std::string>("Content-Type", "b")));
  ASSERT_NE(headers.find("CONTENT-TYPE"), nullptr);
  EXPECT_EQ(*headers.find("CONTENT-TYPE"), "b");
  EXPECT_EQ(headers.find("Content-Typ"), nullptr);
  EXPECT_EQ(headers.find(""), nullptr);
}

const std::string key_text = "a key of more bytes than a short string holds";

TEST(Http_Headers, Shows_A_Key_As_Bearer) {
  net::Http_Headers headers;
  headers.set_bearer(secure_string(key_text));
  ASSERT_NE(headers.find("authorization"), nullptr);
  EXPECT_EQ(*headers.find("authorization"), "Bearer " + key_text);
}

TEST(Http_Headers, Leaves_No_Key_In_The_Memory_It_Gives_Back) {
  const secure_string key(key_text);
  const support::Freed_Memory_Watch watch(key_text);
  {
    net::Http_Headers headers;
    headers.set_bearer(key);
    headers.set("X-One", "1");
    net::Http_Headers copy(headers);
    net::Http_Headers moved(std::move(headers));
    copy = moved;
    moved.set("authorization", "something that is longer than all that stood there before, so that memory is taken");
    copy = net::Http_Headers();
  }
  EXPECT_EQ(watch.found(), 0U);
}

TEST(Http_Headers, The_Watch_Finds_A_Key_That_Was_Not_Wiped) {
  const support::Freed_Memory_Watch watch(key_text);
  {
    net::Http_Headers headers;
    headers.set("X-One", key_text);
  }
  EXPECT_EQ(watch.found(), 1U);
}

struct Row {
  std::string_view text;
  bool good;
};

TEST(Http_Checks, A_Field_Name_Is_One_Word) {
  for (const Row& row : {Row{"X-One", true}, Row{"a", true}, Row{"", false}, Row{"a b", false}, Row{"a:", false},
                         Row{"a\r", false}, Row{"a\0b"sv, false}, Row{"\xc3\xa4", false}})
    EXPECT_EQ(net::is_field_name(row.text), row.good) << row.text;
}

TEST(Http_Checks, A_Field_Value_Has_No_Control_Characters) {
  for (const Row& row : {Row{"", true}, Row{"a b\tc", true}, Row{"\xc3\xa4", true}, Row{"a\r\nb", false},
                         Row{"a\nb", false}, Row{"a\0b"sv, false}, Row{"\x7f", false}})
    EXPECT_EQ(net::is_field_value(row.text), row.good) << row.text;
}

TEST(Http_Checks, A_Target_Begins_With_A_Slash_And_Has_No_Blank) {
  for (const Row& row : {Row{"/", true}, Row{"/a?b=c%20d", true}, Row{"", false}, Row{"a", false}, Row{"/a b", false},
                         Row{"/a\r\n", false}, Row{"/a\tb", false}})
    EXPECT_EQ(net::is_target(row.text), row.good) << row.text;
}

TEST(Http_Checks, A_Method_Is_Letters) {
  for (const Row& row : {Row{"GET", true}, Row{"", false}, Row{"G T", false}, Row{"GET\r\n", false}, Row{"G3T", false}})
    EXPECT_EQ(net::is_method(row.text), row.good) << row.text;
}

}  // namespace
