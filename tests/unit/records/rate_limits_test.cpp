#include "records/rate_limits.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using json_spirit::dump_json;
using json_spirit::Object;

constexpr unsigned hour = 3600;

Rate_Limits sample_limits() {
  Rate_Limits limits;
  limits.destination = {{8 * hour, 18 * hour, 1000000}, {0, 24 * hour, 5000000000}};
  limits.source = {{22 * hour, 6 * hour, 7}};
  return limits;
}

}  // namespace

TEST(Rate_Limits, Writes_Each_List_As_The_Text_Of_An_Array) {
  Object object{{"max_seconds_retry", 300}};
  sample_limits().to_json_in_object(object, false);
  EXPECT_EQ(dump_json(object),
            R"({"max_seconds_retry":300,"dest_rate_limits":)"
            R"("[{\"start_time\":28800,\"end_time\":64800,\"max_bytes_per_second\":1000000},)"
            R"({\"start_time\":0,\"end_time\":86400,\"max_bytes_per_second\":5000000000}]",)"
            R"("src_rate_limits":"[{\"start_time\":79200,\"end_time\":21600,\"max_bytes_per_second\":7}]"})");
}

TEST(Rate_Limits, Writes_Empty_Lists_Only_When_Asked_To) {
  Object all;
  Rate_Limits().to_json_in_object(all, false);
  EXPECT_EQ(dump_json(all), R"({"dest_rate_limits":"[]","src_rate_limits":"[]"})");
  Object none;
  Rate_Limits().to_json_in_object(none, true);
  EXPECT_EQ(dump_json(none), "{}");
}

TEST(Rate_Limits, Reads_What_It_Wrote) {
  Object object;
  sample_limits().to_json_in_object(object, false);
  Rate_Limits read;
  std::string error;
  ASSERT_TRUE(read.from_json_in_object(object, &error)) << error;
  EXPECT_EQ(read.destination, sample_limits().destination);
  EXPECT_EQ(read.source, sample_limits().source);
}

TEST(Rate_Limits, Reads_Missing_Keys_As_Empty_Lists) {
  Rate_Limits read = sample_limits();
  ASSERT_TRUE(read.from_json_in_object(Object{}));
  EXPECT_TRUE(read.destination.empty());
  EXPECT_TRUE(read.source.empty());
}

TEST(Rate_Limits, Refuses_Malformed_Lists_And_Stays_As_It_Was) {
  struct Row {
    const char* name;
    Object object;
    const char* key;
  };
  const Row rows[] = {
      {"an array instead of its text", {{"dest_rate_limits", json_spirit::Array()}}, "dest_rate_limits"},
      {"a text that is not JSON", {{"src_rate_limits", "[{"}}, "src_rate_limits"},
      {"an object instead of an array", {{"src_rate_limits", "{}"}}, "src_rate_limits"},
      {"an entry that is no object", {{"dest_rate_limits", "[1]"}}, "dest_rate_limits"},
      {"a missing key", {{"dest_rate_limits", R"([{"start_time":0,"end_time":1}])"}}, "dest_rate_limits"},
      {"a negative limit",
       {{"dest_rate_limits", R"([{"start_time":0,"end_time":1,"max_bytes_per_second":-1}])"}},
       "dest_rate_limits"},
      {"a time beyond the day",
       {{"dest_rate_limits", R"([{"start_time":0,"end_time":86401,"max_bytes_per_second":1}])"}},
       "dest_rate_limits"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    Rate_Limits limits = sample_limits();
    std::string error;
    EXPECT_FALSE(limits.from_json_in_object(row.object, &error));
    EXPECT_NE(error.find(std::string("malformed ") + row.key), std::string::npos) << error;
    EXPECT_EQ(limits.destination, sample_limits().destination);
    EXPECT_EQ(limits.source, sample_limits().source);
    EXPECT_FALSE(limits.from_json_in_object(row.object));
  }
}

TEST(Rate_Limits, Gives_The_Lowest_Limit_That_Holds_At_A_Time_Of_Day) {
  struct Row {
    const char* name;
    std::vector<Rate_Control_Entry> entries;
    unsigned second;
    std::uint64_t limit;
  };
  const Rate_Control_Entry day{8 * hour, 18 * hour, 100};
  const Rate_Control_Entry night{22 * hour, 6 * hour, 50};
  const Rate_Control_Entry always{0, 24 * hour, 70};
  const Rate_Control_Entry open{0, 24 * hour, 0};
  const Row rows[] = {
      {"no entries", {}, hour, 0},
      {"before the start", {day}, 8 * hour - 1, 0},
      {"at the start", {day}, 8 * hour, 100},
      {"last second", {day}, 18 * hour - 1, 100},
      {"the end is exclusive", {day}, 18 * hour, 0},
      {"over midnight, before it", {night}, 23 * hour, 50},
      {"over midnight, at it", {night}, 0, 50},
      {"over midnight, after it", {night}, 6 * hour - 1, 50},
      {"over midnight, at its end", {night}, 6 * hour, 0},
      {"the whole day, last second", {always}, 24 * hour - 1, 70},
      {"the lowest wins", {day, always}, 12 * hour, 70},
      {"the lowest wins in any order", {always, night}, 23 * hour, 50},
      {"zero is no limit", {open}, 12 * hour, 0},
      {"zero does not lift another limit", {open, always}, 12 * hour, 70},
      {"an empty span never holds", {{hour, hour, 5}}, hour, 0},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(Rate_Limits::limit_at(row.entries, row.second), row.limit);
  }
}
