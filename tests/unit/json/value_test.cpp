#include "json/value.h"

#include <gtest/gtest.h>

#include <limits>

namespace {

using namespace json_spirit;

TEST(Value_Type, Has_Its_Fixed_Numbers) {
  EXPECT_EQ(obj_type, 0);
  EXPECT_EQ(array_type, 1);
  EXPECT_EQ(str_type, 2);
  EXPECT_EQ(secure_str_type, 3);
  EXPECT_EQ(bool_type, 4);
  EXPECT_EQ(int_type, 5);
  EXPECT_EQ(real_type, 6);
  EXPECT_EQ(null_type, 7);
}

TEST(Object, Keeps_Insertion_Order_And_Replaces_In_Place) {
  Object object;
  for (int i = 0; i < 100; ++i) object["k" + std::to_string(i)] = i;
  object["k3"] = "three";
  ASSERT_EQ(object.size(), 100U);
  int at = 0;
  for (const auto& [key, value] : object) EXPECT_EQ(key, "k" + std::to_string(at++));
  EXPECT_EQ(object.find("k3")->get_str(), "three");
  EXPECT_TRUE(object.erase("k0"));
  EXPECT_FALSE(object.erase("k0"));
  EXPECT_EQ(object.begin()->first, "k1");
  EXPECT_EQ(object.find("k99")->get_int(), 99);
  const Object copy = object;
  EXPECT_EQ(copy, object);
}

TEST(Object_Get, A_Type_Mismatch_Counts_As_Absent_And_Leaves_The_Output) {
  const Object object{{"s", "text"}, {"n", 70000}, {"neg", -1}, {"b", true}, {"null", nullptr}};
  std::string text = "kept";
  EXPECT_FALSE(object_get(object, "n", text));
  EXPECT_FALSE(object_get(object, "missing", text));
  EXPECT_FALSE(object_get(object, "null", text));
  EXPECT_EQ(text, "kept");
  unsigned short small = 7;
  EXPECT_FALSE(object_get(object, "n", small)) << "does not fit 16 bits";
  EXPECT_EQ(small, 7);
  unsigned long wide = 0;
  EXPECT_TRUE(object_get(object, "n", wide));
  EXPECT_EQ(wide, 70000U);
  EXPECT_FALSE(object_get(object, "neg", wide));
  bool flag = false;
  EXPECT_TRUE(object_get(object, "b", flag));
  EXPECT_TRUE(flag);
}

TEST(Object_Require, Names_The_Key_In_What_It_Throws) {
  const Object object{{"n", 1}};
  try {
    static_cast<void>(object_require<std::string>(object, "sid"));
    FAIL() << "a missing key must throw";
  } catch (const Error& error) {
    EXPECT_STREQ(error.what(), "lack of key 'sid'");
  }
  try {
    static_cast<void>(object_require<std::string>(object, "n"));
    FAIL() << "a wrong type must throw";
  } catch (const Error& error) {
    EXPECT_STREQ(error.what(), "key 'n' is integer, expected a string");
  }
}

TEST(Value, Wrong_Access_Throws_And_Moves_Leave_Null) {
  Value value("text");
  EXPECT_THROW(static_cast<void>(value.get_int()), Error);
  Value moved(std::move(value));
  EXPECT_TRUE(value.is_null());
  EXPECT_EQ(moved.get_str(), "text");
  Value nested(Array{Value(1), Value(Object{{"a", 2}})});
  nested = Value(nested.get_array()[1]);
  EXPECT_EQ(nested.get_obj().find("a")->get_int(), 2);
}

TEST(Value, Large_Unsigned_Numbers_Keep_Their_Value) {
  const Value value(std::numeric_limits<unsigned long>::max());
  EXPECT_EQ(value.get_uint64(), std::numeric_limits<unsigned long>::max());
  EXPECT_THROW(static_cast<void>(value.get_int64()), Error);
  EXPECT_EQ(Value(5U), Value(5));
}

}  // namespace
