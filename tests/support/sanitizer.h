#pragma once

#include <string>

namespace support {

/// A sanitizer's report in what a program has written, from its first line on; empty when there is none.
[[nodiscard]] std::string sanitizer_report(const std::string& output);

}  // namespace support
