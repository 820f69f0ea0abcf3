#include "support/changing_zone.h"

#include <cstdio>
#include <cstdlib>
#include <iostream>

namespace support {

namespace {

constexpr const char* variable = "DORSAL3_TESTS_CLOCKS";
/// The other change of the year lies so far away.
constexpr int days_between = 60;
constexpr int days_of_year = 365;

/// A rule of TZ: day of the year, counted from 0, and time.
std::string rule(int day, const std::tm& time) {
  char text[40];
  (void)std::snprintf(text, sizeof text, "%d/%02d:%02d:%02d", day, time.tm_hour, time.tm_min, time.tm_sec);
  return text;
}

}  // namespace

std::string zone_whose_clocks_change(std::time_t when, Clocks direction) {
  const bool back = direction == Clocks::go_back;
  // A rule tells the local time that the change ends. It is UTC here, so that the rule's year is that of UTC, too.
  std::tm parts{};
  ::gmtime_r(&when, &parts);
  const std::string change = rule(parts.tm_yday, parts);
  const std::string other =
      rule((parts.tm_yday + (back ? days_of_year - days_between : days_between)) % days_of_year, {});
  return back ? "WINTER1SUMMER0," + other + "," + change : "WINTER0SUMMER-1," + change + "," + other;
}

std::optional<Clocks> wanted_change_of_clocks() {
  const char* const text = std::getenv(variable);
  if (text == nullptr) return std::nullopt;
  if (std::string(text) == "back") return Clocks::go_back;
  if (std::string(text) == "forward") return Clocks::go_forward;
  std::cerr << variable << " is no change of clocks: " << text << "\n";
  std::abort();
}

}  // namespace support
