#pragma once

#include <sys/types.h>

#include <string>

namespace sap_hana {

/// Sets the mode of a directory; for a path that is no directory, of the one it lies in. False, with a message, when
/// that fails.
[[nodiscard]] bool change_directory_permission(const std::string& path, mode_t mode);

}  // namespace sap_hana
