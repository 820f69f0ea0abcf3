#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace standin {

/// HANA's time in milliseconds since the epoch: the machine's, moved by the offset that a test may set, or one that
/// stands still.
std::int64_t now_ms();
/// The file holds the seconds of the offset, or "=" and the milliseconds since the epoch at which time stands still.
void set_clock_offset_file(const std::string& path);
void sleep_ms(std::int64_t milliseconds);
/// "YYYY-MM-DD HH:MM:SS.nnnnnnnnn", in UTC or in the server's zone.
std::string timestamp_text(std::int64_t ms, bool utc);
/// "YYYY-MM-DDTHH:MM:SS+hh:mm", 25 characters.
std::string log_time_text(std::int64_t ms);
/// "YYYY-MM-DD HH:MM:SS" in UTC as seconds since the epoch; nothing when it is no such time.
std::optional<std::int64_t> seconds_of_utc_text(const std::string& text);
/// strftime in the server's zone.
std::string local_time_text(std::int64_t ms, const char* format);

}  // namespace standin
