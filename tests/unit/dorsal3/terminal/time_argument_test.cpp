#include "dorsal3/terminal/time_argument.h"

#include <gtest/gtest.h>

#include "support/scoped_zone.h"

using namespace dorsal3;

TEST(Time_Argument, Is_UTC_Or_Carries_Its_Zone_Wherever_The_Command_Runs) {
  struct Row {
    const char* text;
    const char* utc;
  };
  for (const char* zone : {"UTC", "Asia/Kolkata", "Europe/Berlin"}) {
    const support::Scoped_Zone scope(zone);
    for (const Row& row :
         {Row{"2026-11-22 10:00:00", "2026-11-22 10:00:00"}, Row{"2026-11-22T10:00:00", "2026-11-22 10:00:00"},
          Row{"2026-11-22T10:00:00Z", "2026-11-22 10:00:00"}, Row{"2026-11-22T10:00:00+05:30", "2026-11-22 04:30:00"},
          Row{"2026-11-22 00:10:00+05:30", "2026-11-21 18:40:00"},
          Row{"2026-11-22T10:00:00-0700", "2026-11-22 17:00:00"},
          // The hour that comes twice when daylight saving ends.
          Row{"2026-10-25T02:30:00+02:00", "2026-10-25 00:30:00"},
          Row{"2026-10-25T02:30:00+01:00", "2026-10-25 01:30:00"},
          // The hour that is left out when it begins.
          Row{"2026-03-29 02:30:00", "2026-03-29 02:30:00"}}) {
      std::string utc;
      Failure failure;
      EXPECT_TRUE(parse_time_argument(row.text, utc, failure)) << row.text;
      EXPECT_EQ(utc, row.utc) << row.text << " in " << zone;
    }
  }
}

TEST(Time_Argument, Refuses_What_Is_No_Whole_Second) {
  for (const char* text : {"", "now", "yesterday", "2026-11-22", "2026-11-22 10:00", "2026-11-22 10:00:00.5",
                           "2026-13-01 00:00:00", "2026-11-22 10:00:00 CET", "2026-11-22 10:00:00'"}) {
    std::string utc = "kept";
    Failure failure;
    EXPECT_FALSE(parse_time_argument(text, utc, failure)) << text;
    EXPECT_EQ(utc, "kept");
    EXPECT_EQ(failure.exit_code, exit_usage);
  }
}

TEST(Time_Argument, Shows_The_Zone_Of_The_Machine_Beside_UTC) {
  struct Row {
    const char* zone;
    const char* utc;
    const char* shown;
  };
  for (const Row& row :
       {Row{"UTC", "2026-11-22 04:30:00", "2026-11-22 04:30:00 UTC"},
        Row{"Asia/Kolkata", "2026-11-22 04:30:00", "2026-11-22 04:30:00 UTC (2026-11-22 10:00:00 +0530)"},
        Row{"Europe/Berlin", "2026-10-25 00:30:00", "2026-10-25 00:30:00 UTC (2026-10-25 02:30:00 +0200)"},
        Row{"Europe/Berlin", "2026-10-25 01:30:00", "2026-10-25 01:30:00 UTC (2026-10-25 02:30:00 +0100)"}}) {
    const support::Scoped_Zone scope(row.zone);
    EXPECT_EQ(time_for_people(row.utc), row.shown);
  }
}
