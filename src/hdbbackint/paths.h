#pragma once

#include <string>

namespace hdbbackint {

/// The path to give to the operating system for one that HANA or a record named: with the file root put before it. The
/// null device is the system's own under every root.
[[nodiscard]] std::string real_path(const std::string& path);

inline constexpr const char* null_device = "/dev/null";

}  // namespace hdbbackint
