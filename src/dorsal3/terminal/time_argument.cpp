#include "dorsal3/terminal/time_argument.h"

#include <ctime>

#include "scrt/time_text.h"

namespace dorsal3 {

bool parse_time_argument(const std::string& text, std::string& utc, Failure& failure) {
  std::time_t time = 0;
  if (text.find_first_of(".,") == std::string::npos && iso8601_to_posix_time(text.c_str(), time)) {
    utc = posix_time_to_utc_text(time);
    return true;
  }
  failure = {exit_usage, "usage",
             "\"" + text +
                 "\" is no time; write it in UTC, as \"2026-11-22 10:00:00\", or with its zone, as "
                 "\"2026-11-22T10:00:00+05:30\", to the whole second"};
  return false;
}

std::string time_for_people(const std::string& utc) {
  constexpr std::size_t local_length = 32;
  std::time_t time = 0;
  std::tm parts{};
  char local[local_length];
  if (!iso8601_to_posix_time(utc.c_str(), time) || ::localtime_r(&time, &parts) == nullptr) return utc;
  const std::string text = utc + " UTC";
  if (parts.tm_gmtoff == 0 || std::strftime(local, sizeof local, "%Y-%m-%d %H:%M:%S %z", &parts) == 0) return text;
  return text + " (" + local + ")";
}

}  // namespace dorsal3
