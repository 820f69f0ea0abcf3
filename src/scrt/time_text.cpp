#include "scrt/time_text.h"

#include <cstdio>
#include <cstring>

namespace {

constexpr int seconds_per_minute = 60;
constexpr int seconds_per_hour = 3600;
/// What std::tm counts years from.
constexpr int first_tm_year = 1900;

/// Walks over a time text; once something does not fit, ok stays false.
class Time_Reader {
 public:
  explicit Time_Reader(const char* text) : at_(text) {}

  int number(int digits) {
    int value = 0;
    for (int i = 0; i < digits; ++i, ++at_) {
      if (*at_ < '0' || *at_ > '9') {
        ok_ = false;
        return 0;
      }
      value = value * 10 + (*at_ - '0');
    }
    return value;
  }
  void expect(char c) {
    if (!accept(c)) ok_ = false;
  }
  bool accept(char c) {
    if (!ok_ || *at_ != c) return false;
    ++at_;
    return true;
  }
  void skip_digits() {
    if (*at_ < '0' || *at_ > '9') ok_ = false;
    while (*at_ >= '0' && *at_ <= '9') ++at_;
  }
  [[nodiscard]] bool ok() const { return ok_; }
  [[nodiscard]] bool at_end() const { return *at_ == '\0'; }

 private:
  const char* at_;
  bool ok_ = true;
};

bool is_leap(int year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }

int days_of_month(int year, int month) {
  static constexpr int days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return month == 2 && is_leap(year) ? 29 : days[month - 1];
}

bool read_date_and_time(Time_Reader& reader, char separator, std::time_t& time) {
  std::tm parts{};
  const int year = reader.number(4);
  reader.expect('-');
  const int month = reader.number(2);
  reader.expect('-');
  parts.tm_mday = reader.number(2);
  if (separator != '\0')
    reader.expect(separator);
  else if (!reader.accept('T'))
    reader.expect(' ');
  parts.tm_hour = reader.number(2);
  reader.expect(':');
  parts.tm_min = reader.number(2);
  reader.expect(':');
  parts.tm_sec = reader.number(2);
  if (!reader.ok() || month < 1 || month > 12 || parts.tm_mday < 1 || parts.tm_mday > days_of_month(year, month) ||
      parts.tm_hour > 23 || parts.tm_min > 59 || parts.tm_sec > 60)
    return false;
  parts.tm_year = year - first_tm_year;
  parts.tm_mon = month - 1;
  time = ::timegm(&parts);
  return true;
}

/// Seconds east of UTC.
bool read_offset(Time_Reader& reader, bool colon_required, int& offset) {
  int sign = 1;
  if (reader.accept('-'))
    sign = -1;
  else
    reader.expect('+');
  const int hours = reader.number(2);
  if (!reader.accept(':') && colon_required) return false;
  const int minutes = reader.number(2);
  if (!reader.ok() || hours > 23 || minutes > 59) return false;
  offset = sign * (hours * seconds_per_hour + minutes * seconds_per_minute);
  return true;
}

}  // namespace

bool iso8601_to_posix_time(const char* text, std::time_t& time) {
  if (text == nullptr) return false;
  Time_Reader reader(text);
  std::time_t read = 0;
  if (!read_date_and_time(reader, '\0', read)) return false;
  if (reader.accept('.') || reader.accept(',')) reader.skip_digits();
  int offset = 0;
  if (!reader.at_end() && !reader.accept('Z') && !read_offset(reader, false, offset)) return false;
  if (!reader.ok() || !reader.at_end()) return false;
  time = read - offset;
  return true;
}

bool hana_time_to_posix_time(const char* text, std::time_t& time) {
  if (text == nullptr) return false;
  Time_Reader reader(text);
  std::time_t read = 0;
  int offset = 0;
  if (!read_date_and_time(reader, 'T', read) || !read_offset(reader, true, offset) || !reader.at_end()) return false;
  time = read - offset;
  return true;
}

std::string posix_time_to_utc_text(std::time_t time) {
  std::tm parts{};
  ::gmtime_r(&time, &parts);
  // strftime writes a year before 1000 with less than the four digits that every reader wants.
  char text[96];
  std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d", parts.tm_year + first_tm_year, parts.tm_mon + 1,
                parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec);
  return text;
}
