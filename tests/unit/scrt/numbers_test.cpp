#include "scrt/numbers.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

#include "scrt/loose_version.h"
#include "scrt/path_t.h"

namespace {

TEST(Natoi, Takes_Sign_And_Digit_Prefix_And_Saturates) {
  struct {
    const char* text;
    int wanted;
  } const cases[] = {{"5", 5},
                     {"-5", -5},
                     {"+7", 7},
                     {"12abc", 12},
                     {"abc", 0},
                     {"", 0},
                     {"-", 0},
                     {"99999999999", std::numeric_limits<int>::max()},
                     {"-99999999999", std::numeric_limits<int>::min()},
                     {"3.9", 3}};
  for (const auto& row : cases) {
    // Exact-size copies: the function may not look for a terminator.
    const std::string text(row.text);
    const std::vector<char> exact(text.begin(), text.end());
    EXPECT_EQ(natoi(exact.data(), exact.size()), row.wanted) << row.text;
  }
}

TEST(Parse_Uint64, Takes_A_Whole_Number_Or_Nothing) {
  std::uint64_t value = 7;
  for (const char* bad : {"", "?", "-1", "1 ", " 1", "1x", "18446744073709551616"}) {
    EXPECT_FALSE(parse_uint64(bad, value)) << bad;
    EXPECT_EQ(value, 7U) << bad;
  }
  EXPECT_TRUE(parse_uint64("18446744073709551615", value));
  EXPECT_EQ(value, std::numeric_limits<std::uint64_t>::max());
}

TEST(Loose_Version, Compares_Parts_As_Numbers) {
  struct {
    const char* left;
    const char* right;
    int wanted;
  } const cases[] = {
      {"1.00.62.380697", "1.00.100", -1}, {"1.00.122.05", "1.00.100", 1}, {"2.00.040.00", "1.00.100", 1},
      {"1.00.100", "1.00.100", 0},        {"1.0.100", "1.00.100", 0},     {"1.00", "1.00.100", -1},
      {"1.00.100.1", "1.00.100", 1},      {"", "1.00.100", -1},           {"1.00.99999999999999999999", "1.00.100", 1}};
  for (const auto& row : cases) EXPECT_EQ(compare_loose_versions(row.left, row.right), row.wanted) << row.left;
}

TEST(Path, Puts_Exactly_One_Separator_Between_Parts) {
  EXPECT_EQ(scrt::join_path("/usr/sap", "HDB", "SYS/global/hdb/opt/hdbbackint"),
            "/usr/sap/HDB/SYS/global/hdb/opt/hdbbackint");
  EXPECT_EQ(scrt::join_path("/usr/sap/", "/HDB/", "x"), "/usr/sap/HDB/x");
  EXPECT_EQ(scrt::join_path("/", "a"), "/a");
}

}  // namespace
