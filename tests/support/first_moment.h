#pragma once

#include <ctime>

namespace support {

/// When a test's time begins: what DORSAL3_TESTS_BEGIN says ("YYYY-MM-DDTHH:MM:SS", UTC), else `usual`. Tests whose
/// outcome must not depend on the date run again over a change of daylight saving (dorsal3_add_test_again). Ends the
/// process when the variable is no such time: the tests would not show what they seem to.
[[nodiscard]] std::time_t first_moment(std::time_t usual);

}  // namespace support
