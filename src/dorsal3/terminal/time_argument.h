#pragma once

#include <string>

#include "dorsal3/outcome.h"

namespace dorsal3 {

/// Reads a time that somebody typed: "2026-11-22 10:00:00" in UTC, or with a zone of its own,
/// "2026-11-22T10:00:00+05:30"; never in the zone of the machine, which nobody sees in the text. `utc` becomes
/// "YYYY-MM-DD HH:MM:SS". False with `failure` (usage) for anything else, also for parts of a second: HANA recovers to
/// whole ones.
[[nodiscard]] bool parse_time_argument(const std::string& text, std::string& utc, Failure& failure);

/// A UTC time for people: "2026-11-22 04:30:00 UTC (2026-11-22 10:00:00 +0530)", the second where the machine's zone is
/// another one.
[[nodiscard]] std::string time_for_people(const std::string& utc);

}  // namespace dorsal3
