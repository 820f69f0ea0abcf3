#include "scrt/time_text.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace {

class Time_Zone {
 public:
  explicit Time_Zone(const char* name) {
    ::setenv("TZ", name, 1);
    ::tzset();
  }
  ~Time_Zone() {
    ::unsetenv("TZ");
    ::tzset();
  }
};

constexpr std::time_t sample = 1'556'488'244;  // 2019-04-28 21:50:44 UTC

TEST(Iso8601, Reads_Every_Usual_Form_As_Utc_Unless_It_Names_A_Zone) {
  for (const char* zone : {"UTC", "Asia/Tokyo", "America/New_York"}) {
    const Time_Zone here(zone);
    struct {
      const char* text;
      std::time_t wanted;
    } const cases[] = {{"2019-04-28 21:50:44", sample},       {"2019-04-28T21:50:44", sample},
                       {"2019-04-28T21:50:44Z", sample},      {"2019-04-28T23:50:44+02:00", sample},
                       {"2019-04-28T16:20:44-0530", sample},  {"2019-04-28 21:50:44.123456789", sample},
                       {"2024-02-29 00:00:00", 1'709'164'800}};
    for (const auto& row : cases) {
      std::time_t time = 0;
      ASSERT_TRUE(iso8601_to_posix_time(row.text, time)) << row.text;
      EXPECT_EQ(time, row.wanted) << row.text << " in " << zone;
    }
  }
}

TEST(Iso8601, Refuses_What_Is_No_Time_And_Leaves_The_Output) {
  for (const char* text :
       {"", "?", "2019-04-28", "2019-13-01 00:00:00", "2023-02-29 00:00:00", "2019-04-28 24:00:00",
        "2019-04-28 21:50:44 ", "2019-04-28 21:50:44.", "2019-04-28 21:50:44+2", "x019-04-28 21:50:44"}) {
    std::time_t time = 42;
    EXPECT_FALSE(iso8601_to_posix_time(text, time)) << text;
    EXPECT_EQ(time, 42) << text;
  }
  std::time_t time = 0;
  EXPECT_FALSE(iso8601_to_posix_time(nullptr, time));
}

TEST(Hana_Time, Wants_All_Twenty_Five_Characters) {
  std::time_t time = 0;
  ASSERT_TRUE(hana_time_to_posix_time("2019-04-28T23:50:44+02:00", time));
  EXPECT_EQ(time, sample);
  for (const char* text : {"2019-04-28T23:50:44", "2019-04-28 23:50:44+02:00", "2019-04-28T23:50:44+0200", "RECOVER",
                           "2019-04-28T23:50:44+02:00 "})
    EXPECT_FALSE(hana_time_to_posix_time(text, time)) << text;
}

TEST(Utc_Text, Is_Written_In_Utc_In_Any_Zone) {
  const Time_Zone here("Asia/Tokyo");
  EXPECT_EQ(posix_time_to_utc_text(sample), "2019-04-28 21:50:44");
}

TEST(Utc_Text, Is_Read_Back_As_The_Same_Time_In_Every_Year) {
  for (const char* text : {"0001-01-01 00:00:00", "0226-11-21 21:15:20", "0999-12-31 23:59:59", "1969-12-31 23:59:59",
                           "1970-01-01 00:00:00", "2024-02-29 12:00:00", "9999-12-31 23:59:59"}) {
    std::time_t time = 0;
    ASSERT_TRUE(iso8601_to_posix_time(text, time)) << text;
    EXPECT_EQ(posix_time_to_utc_text(time), text);
  }
}

}  // namespace
