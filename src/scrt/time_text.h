#pragma once

#include <ctime>
#include <string>

/// Reads an ISO 8601 date and time, "YYYY-MM-DD", then "T" or a blank, "HH:MM:SS", an optional fraction, and an
/// optional zone ("Z", "+HH:MM", "-HHMM"). Without a zone it is UTC, whatever the TZ of the process. False, with `time`
/// left alone, for anything else.
[[nodiscard]] bool iso8601_to_posix_time(const char* text, std::time_t& time);

/// Reads the 25 characters at the start of a line of HANA's backup.log: "YYYY-MM-DDTHH:MM:SS+HH:MM", zone required.
[[nodiscard]] bool hana_time_to_posix_time(const char* text, std::time_t& time);

/// "YYYY-MM-DD HH:MM:SS" in UTC.
[[nodiscard]] std::string posix_time_to_utc_text(std::time_t time);
