#pragma once

#include <ctime>
#include <optional>
#include <string>

namespace support {

enum class Clocks { go_back, go_forward };

/// A time zone, as TZ takes it, whose clocks are changed by an hour at a moment: processes that run at the world's time
/// live through a change of daylight saving on any day.
[[nodiscard]] std::string zone_whose_clocks_change(std::time_t when, Clocks direction);

/// What DORSAL3_TESTS_CLOCKS asks for, "back" or "forward"; anything else ends the program.
[[nodiscard]] std::optional<Clocks> wanted_change_of_clocks();

}  // namespace support
