#include "base/clock.h"

#include <chrono>
#include <cstdio>
#include <ctime>
#include <thread>

#include "base/files.h"
#include "base/text.h"

namespace standin {

namespace {
constexpr std::int64_t ms_per_second = 1000;
/// Before milliseconds since the epoch, instead of an offset.
constexpr char standing_mark = '=';
std::string& offset_file() {
  static std::string path;
  return path;
}
std::tm broken_down(std::int64_t ms, bool utc) {
  const std::time_t seconds = static_cast<std::time_t>(ms / ms_per_second);
  std::tm parts{};
  if (utc)
    ::gmtime_r(&seconds, &parts);
  else
    ::localtime_r(&seconds, &parts);
  return parts;
}
std::string formatted(const std::tm& parts, const char* format) {
  char text[128];
  const std::size_t size = std::strftime(text, sizeof text, format, &parts);
  return std::string(text, size);
}
}  // namespace

void set_clock_offset_file(const std::string& path) { offset_file() = path; }

std::int64_t now_ms() {
  using namespace std::chrono;
  const std::string text(trim(read_file(offset_file()).value_or("")));
  if (text.starts_with(standing_mark))
    if (const auto standing = parse_number(text.substr(1))) return *standing;
  return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count() +
         parse_number(text).value_or(0) * ms_per_second;
}

void sleep_ms(std::int64_t milliseconds) { std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds)); }

std::string timestamp_text(std::int64_t ms, bool utc) {
  char fraction[16];
  std::snprintf(fraction, sizeof fraction, ".%03d000000", static_cast<int>(ms % ms_per_second));
  return formatted(broken_down(ms, utc), "%Y-%m-%d %H:%M:%S") + fraction;
}

std::string log_time_text(std::int64_t ms) {
  std::string text = formatted(broken_down(ms, false), "%Y-%m-%dT%H:%M:%S%z");
  return text.insert(text.size() - 2, ":");
}

std::optional<std::int64_t> seconds_of_utc_text(const std::string& text) {
  constexpr const char* picture = "%Y-%m-%d %H:%M:%S";
  std::tm parts{};
  const char* const end = ::strptime(text.c_str(), picture, &parts);
  if (end == nullptr || *end != '\0') return std::nullopt;
  const std::time_t seconds = ::timegm(&parts);
  // A day that the month does not have, and what lacks its zeros, reads differently.
  const std::string again = formatted(broken_down(static_cast<std::int64_t>(seconds) * ms_per_second, true), picture);
  return again == text ? std::optional<std::int64_t>(seconds) : std::nullopt;
}

std::string local_time_text(std::int64_t ms, const char* format) { return formatted(broken_down(ms, false), format); }

}  // namespace standin
